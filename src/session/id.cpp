// Session ids and form tokens: random bytes from the kernel as base64url.
#include <cerrno>
#include <cstring>
#include <sys/random.h>

#include "session/session.h"

namespace {

constexpr char alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

bool random_bytes(unsigned char *buf, size_t n) {
    size_t got = 0;
    while (got < n) {
        ssize_t r = getrandom(buf + got, n - got, 0);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return false;
        got += static_cast<size_t>(r);
    }
    return true;
}

bool b64url(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           c == '-' || c == '_';
}

}  // namespace

int X_sid_new(char *out) {
    unsigned char raw[X_SID_BYTES];
    if (!random_bytes(raw, sizeof raw)) return -1;
    char *p = out;
    for (int i = 0; i < X_SID_BYTES; i += 3) {
        unsigned v = raw[i] << 16 | raw[i + 1] << 8 | raw[i + 2];
        for (int s = 18; s >= 0; s -= 6) *p++ = alphabet[(v >> s) & 63];
    }
    *p = '\0';
    return 0;
}

int X_sid_valid(const char *s) {
    for (int i = 0; i < X_SID_LEN; i++)
        if (!b64url(s[i])) return 0;
    return s[X_SID_LEN] == '\0';
}

int X_cookie_value(const char *cookies, const char *name, char *out, size_t size) {
    size_t n = strlen(name);
    for (const char *p = cookies; p && *p;) {
        while (*p == ' ' || *p == '\t' || *p == ';') ++p;
        size_t len = strcspn(p, ";");
        if (len > n && !strncmp(p, name, n) && p[n] == '=') {
            size_t vlen = len - n - 1;
            if (vlen >= size) vlen = size - 1;
            memcpy(out, p + n + 1, vlen);
            out[vlen] = '\0';
            return 1;
        }
        p += len;
    }
    if (size) out[0] = '\0';
    return 0;
}

int X_same_secret(const char *a, const char *b) {
    size_t n = strlen(a);
    if (n == 0 || n != strlen(b)) return 0;  // lengths are not secret: tokens have one
    unsigned diff = 0;
    for (size_t i = 0; i < n; i++)
        diff |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
    return diff == 0;
}
