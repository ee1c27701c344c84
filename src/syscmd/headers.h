// Header commands: the page sets the response's status, header lines and
// cookies while the header block is still held (page/output.h).
#pragma once

// <@setheader> NAME VALUE: sets a header line ("Content-Type" replaces the
// content type); NAME must be a token, VALUE free of control characters.
int X_setheader(char *line, int compile, int ignore);
// <@status> CODE [REASON]: the status, 100 to 599.
int X_status(char *line, int compile, int ignore);
// <@redirect> URL [CODE]: Location and a 3xx status (302 by default).
int X_redirect(char *line, int compile, int ignore);
// <@setcookie> NAME VALUE [Path=P] [Domain=D] [Max-Age=N] [Expires=DATE]
// [Secure] [HttpOnly] [SameSite=Strict|Lax|None]: a Set-Cookie line with
// the value URL-encoded.
int X_setcookie(char *line, int compile, int ignore);
// <@clearcookie> NAME [Path=P] [Domain=D]: a Set-Cookie line that makes
// the browser forget the cookie.
int X_clearcookie(char *line, int compile, int ignore);
