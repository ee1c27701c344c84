// Escaping value functions: html:REF, attr:REF, shq:REF and json:REF give
// the value of REF ready for an HTML text or quoted attribute, an unquoted
// attribute, a shell command line (one word) or a JSON document (a string).
#include <vector>

#include "subst/escape.h"
#include "subst/values_rows.h"

// Resolves ref and writes it escaped as kind; a value whose escaped form
// does not fit a value buffer is cut before the first character that does
// not fit whole (a quoted form stays closed).
static int escaped(const char *ref, int kind, char *out) {
    std::vector<char> val(X_MAXLINE), esc(X_MAXLINE);
    value_expand(ref, val.data());
    X_escape(kind, val.data(), esc.data(), X_MAXLINE);
    return value_emit(esc.data(), out);
}

int row_html(const char *, const char *arg, char *out) {
    return escaped(arg, X_ESC_HTML, out);
}

int row_attr(const char *, const char *arg, char *out) {
    return escaped(arg, X_ESC_ATTR, out);
}

int row_shq(const char *, const char *arg, char *out) {
    return escaped(arg, X_ESC_SHELL, out);
}

int row_json(const char *, const char *arg, char *out) {
    return escaped(arg, X_ESC_JSON, out);
}
