// The value function session:NAME. "token" is the session's form token
// (made on first use); any other name is empty.
#include <cstring>

#include "session/session.h"
#include "subst/values_rows.h"

int row_session(const char *, const char *arg, char *out) {
    if (!strcmp(arg, "token")) return value_emit(X_session_token(), out);
    return value_none(out);
}
