// Sessions: variables that belong to one visitor and live between requests.
//
// A session is named by a random id in the cookie "tolm_sid". Variables
// whose names begin with "S_" belong to it: they are loaded before the page
// runs (what the request sent under such names is dropped first) and the
// changed ones are saved when the run ends, one row per variable, so that
// concurrent requests of one session keep each other's writes. The store is
// the site's database when X_BASE names one, else an SQLite file in X_HOME.
//
//   <@session> start   begin or resume the visitor's session
//   <@session> renew   new id and form token, same data (after a login)
//   <@session> end     drop the session and its data (logout)
//   <@session> check   the request field session_token must equal the
//                      session's form token, else an error is reported
//   $(session:token)   the session's form token
#pragma once

#include <cstddef>

constexpr int X_SID_BYTES = 24;                  // random bytes of an id (192 bits)
constexpr int X_SID_LEN = (X_SID_BYTES / 3) * 4; // its base64url text: 32 characters
constexpr const char *X_SID_COOKIE = "tolm_sid";
constexpr const char *X_SESSION_PREFIX = "S_";
constexpr const char *X_TOKEN_FIELD = "session_token";

// ---- Ids (id.cpp) ---------------------------------------------------------
// Writes a fresh id of X_SID_LEN characters and its terminator into out
// (at least X_SID_LEN + 1 bytes) from the kernel's random source. 0, or -1
// when no random bytes could be had.
int X_sid_new(char *out);
// 1 when s is a well-formed id: exactly X_SID_LEN base64url characters.
int X_sid_valid(const char *s);
// Copies the value of the cookie NAME from the Cookie header text COOKIES
// (exact name, the first one) into out, cut to size - 1. 1 when found.
int X_cookie_value(const char *cookies, const char *name, char *out, size_t size);
// 1 when a and b are equal strings, in time independent of where they differ.
int X_same_secret(const char *a, const char *b);

// ---- Stored values (codec.cpp) ------------------------------------------
// A variable's values as one text: each value with the bytes outside
// printable ASCII and % ' \ & written as %XX, joined by "&". The text is
// safe inside an SQL string literal and in any database encoding.
struct X_sbuf {
    char *data;   // malloc, terminated
    size_t len;   // bytes before the terminator
    size_t cap;
};
void X_sbuf_add(X_sbuf *b, const char *s, size_t n);
void X_sbuf_str(X_sbuf *b, const char *s);
void X_sbuf_free(X_sbuf *b);
void X_session_encode(X_sbuf *b, const char *value);   // one value, appended
// Appends the one stored value TEXT (a name: no "&"), unescaped.
void X_session_unescape(X_sbuf *b, const char *text);
// Assigns the stored text to the variable NAME, value by value. 0 or -1.
int X_session_decode(const char *name, const char *text);

// ---- The run's session (session.cpp) ------------------------------------
// Begins the visitor's session: an id from the request's cookie when it is
// known and not expired, else a fresh one sent as a cookie. 0, or -1 when
// the store cannot be read (reported through ERRMSG).
int X_session_start();
int X_session_renew();
int X_session_end();
int X_session_check();
const char *X_session_token();  // "" without a session
// At the end of the run: writes what changed. Does nothing without a
// session, in a forked child, or a second time.
void X_session_save();
// Forgets the run's session without saving, as if no session had begun
// (for measuring many sessions in one process).
void X_session_forget();
// The command <@session ...>.
int X_session(char *line, int compile, int ignore);
// Sends the cookie header value LINE ("tolm_sid=...; Path=/; ...") with the
// response, when the run answers a web server (cookie.cpp).
void X_session_cookie(const char *line);
