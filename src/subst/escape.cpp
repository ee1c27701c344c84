// Escaping for the language a value is put into (see escape.h).
#include "subst/escape.h"

#include <cstdio>
#include <cstring>

namespace {

// The escaped form of the character at P (a byte, or a whole UTF-8
// sequence) into piece; returns its length. *step gets the bytes used.
int unit(int kind, const unsigned char *p, char *piece, int *step) {
    unsigned c = *p;
    *step = 1;
    if (c >= 0x80) {
        // A UTF-8 sequence is kept whole, so a cut never splits a character.
        int n = 1;
        while (n < 4 && (p[n] & 0xC0) == 0x80) ++n;
        *step = n;
        if (kind == X_ESC_JSON && n == 3 && c == 0xE2 && p[1] == 0x80 && (p[2] | 1) == 0xA9)
            return snprintf(piece, 8, "\\u%04x", p[2] == 0xA8 ? 0x2028 : 0x2029);
        memcpy(piece, p, n);
        return n;
    }
    switch (kind) {
    case X_ESC_HTML:
    case X_ESC_PRE:
        if (c == '&') return snprintf(piece, 8, "&amp;");
        if (c == '<') return snprintf(piece, 8, "&lt;");
        if (c == '>') return snprintf(piece, 8, "&gt;");
        if (kind == X_ESC_PRE) break;
        if (c == '"') return snprintf(piece, 8, "&quot;");
        if (c == '\'') return snprintf(piece, 8, "&#39;");
        break;
    case X_ESC_ATTR:
        if ((c | 32) >= 'a' && (c | 32) <= 'z') break;
        if (c >= '0' && c <= '9') break;
        return snprintf(piece, 8, "&#x%02X;", c);
    case X_ESC_SHELL:
        if (c == '\'') return snprintf(piece, 8, "'\\''");
        break;
    case X_ESC_JSON:
        if (c == '"' || c == '\\') return snprintf(piece, 8, "\\%c", c);
        if (c == '\n') return snprintf(piece, 8, "\\n");
        if (c == '\r') return snprintf(piece, 8, "\\r");
        if (c == '\t') return snprintf(piece, 8, "\\t");
        if (c < 32 || c == '<' || c == '>' || c == '&' || c == 127)
            return snprintf(piece, 8, "\\u%04x", c);
        break;
    }
    piece[0] = static_cast<char>(c);
    return 1;
}

}  // namespace

int X_escape(int kind, const char *in, char *out, int size) {
    const char *quote = kind == X_ESC_SHELL ? "'" : kind == X_ESC_JSON ? "\"" : "";
    int q = static_cast<int>(strlen(quote));
    int room = size - 1 - q;  // the closing quote always fits
    int n = 0;
    memcpy(out, quote, q);
    n += q;
    for (auto p = reinterpret_cast<const unsigned char *>(in); *p;) {
        char piece[8];
        int step;
        int len = unit(kind, p, piece, &step);
        if (n + len > room) break;
        memcpy(out + n, piece, len);
        n += len;
        p += step;
    }
    memcpy(out + n, quote, q);
    n += q;
    out[n] = '\0';
    return n;
}
