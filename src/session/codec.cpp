// Session values as stored text, and the growing buffer the store builds
// its statements in.
#include <cstdlib>
#include <cstring>

#include "session/session.h"
#include "storage/store.h"

void X_sbuf_add(X_sbuf *b, const char *s, size_t n) {
    if (b->len + n + 1 > b->cap) {
        size_t cap = b->cap ? b->cap : 256;
        while (cap < b->len + n + 1) cap *= 2;
        auto *d = static_cast<char *>(realloc(b->data, cap));
        if (!d) abort();  // out of memory at the end of a run: nothing sensible is left
        b->data = d;
        b->cap = cap;
    }
    memcpy(b->data + b->len, s, n);
    b->len += n;
    b->data[b->len] = '\0';
}

void X_sbuf_str(X_sbuf *b, const char *s) {
    X_sbuf_add(b, s, strlen(s));
}

void X_sbuf_free(X_sbuf *b) {
    free(b->data);
    *b = X_sbuf{};
}

void X_session_encode(X_sbuf *b, const char *value) {
    static constexpr char hex[] = "0123456789ABCDEF";
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(value); *p; ++p) {
        unsigned char c = *p;
        if (c < 0x20 || c >= 0x7f || c == '%' || c == '\'' || c == '\\' || c == '&') {
            char esc[3] = {'%', hex[c >> 4], hex[c & 15]};
            X_sbuf_add(b, esc, 3);
        } else {
            X_sbuf_add(b, reinterpret_cast<const char *>(p), 1);
        }
    }
}

namespace {

int hexval(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Appends one stored value, from p up to "&" or the end, unescaped to v
// (terminated); returns where it stopped.
const char *unescape(const char *p, X_sbuf *v) {
    for (; *p && *p != '&'; ++p) {
        int hi, lo;
        if (*p == '%' && (hi = hexval(p[1])) >= 0 && (lo = hexval(p[2])) >= 0) {
            char c = static_cast<char>(hi << 4 | lo);
            X_sbuf_add(v, c ? &c : "?", 1);  // a stored NUL cannot be a C string
            p += 2;
        } else {
            X_sbuf_add(v, p, 1);
        }
    }
    X_sbuf_add(v, "", 0);
    return p;
}

}  // namespace

void X_session_unescape(X_sbuf *b, const char *text) {
    unescape(text, b);
}

int X_session_decode(const char *name, const char *text) {
    X_sbuf v{};
    int rc = 0;
    for (const char *p = text; rc == 0; ++p) {  // ++p steps over the "&"
        bool first = p == text;
        v.len = 0;
        p = unescape(p, &v);
        rc = first ? X_put_value(name, v.data) : X_add_value(name, v.data);
        if (!*p) break;
    }
    X_sbuf_free(&v);
    return rc;
}
