// The session cookie goes out with the response header.
#include "diag/diag.h"
#include "page/output.h"
#include "session/session.h"

void X_session_cookie(const char *line) {
    if (!X_head_cgi()) return;  // a shell run has no header
    if (X_head_set("Set-Cookie", line) != 0)
        ERRMSG("### Session cookie not sent: the page body has begun");
}
