// The safe formatter: page-given printf-style formats without the C library
// ever seeing them as formats.
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"

namespace {

constexpr int kMaxWidth = 4096;  // widths and precisions are clamped to this

// Output cursor bounded by the destination's size.
struct Sink {
    char *out;
    int size;
    int len;
    void put(const char *s, int n) {
        int room = size - 1 - len;
        if (n > room) n = room;
        if (n <= 0) return;
        memcpy(out + len, s, n);
        len += n;
    }
};

long as_long(const X_fmtarg *a) {
    if (!a) return 0;
    switch (a->kind) {
    case X_fmtarg::LONG: return a->l;
    case X_fmtarg::DOUBLE:
        if (a->d != a->d) return 0;
        if (a->d >= 9.2e18) return __LONG_MAX__;
        if (a->d <= -9.2e18) return -__LONG_MAX__ - 1;
        return static_cast<long>(a->d);
    case X_fmtarg::TEXT: return a->s ? strtol(a->s, nullptr, 10) : 0;
    }
    return 0;
}

double as_double(const X_fmtarg *a) {
    if (!a) return 0.0;
    switch (a->kind) {
    case X_fmtarg::LONG: return static_cast<double>(a->l);
    case X_fmtarg::DOUBLE: return a->d;
    case X_fmtarg::TEXT: return a->s ? strtod(a->s, nullptr) : 0.0;
    }
    return 0.0;
}

// Reads a width or precision: digits, or "*" taking an argument.
int read_number(const char *&p, const X_fmtarg *args, int nargs, int &next) {
    if (*p == '*') {
        p++;
        long v = next < nargs ? as_long(&args[next]) : 0;
        next++;
        if (v < 0) v = -v;
        return v > kMaxWidth ? kMaxWidth : static_cast<int>(v);
    }
    long v = 0;
    while (*p >= '0' && *p <= '9') {
        if (v <= kMaxWidth) v = v * 10 + (*p - '0');
        p++;
    }
    return v > kMaxWidth ? kMaxWidth : static_cast<int>(v);
}

}  // namespace

int X_format(char *out, int size, const char *fmt, const X_fmtarg *args, int nargs) {
    if (!out || size <= 0) return 0;
    Sink sink{out, size, 0};
    int next = 0;
    const char *p = fmt ? fmt : "";
    while (*p) {
        const char *pct = strchr(p, '%');
        if (!pct) {
            sink.put(p, static_cast<int>(strlen(p)));
            break;
        }
        sink.put(p, static_cast<int>(pct - p));
        const char *d = pct + 1;
        if (*d == '%') {
            sink.put("%", 1);
            p = d + 1;
            continue;
        }
        // Rebuild the directive from its checked parts only.
        char directive[32];
        int sl = 0;
        directive[sl++] = '%';
        while (*d && strchr("-+ #0", *d)) {
            if (sl < 8) directive[sl++] = *d;
            d++;
        }
        int width = read_number(d, args, nargs, next);
        int prec = -1;
        if (*d == '.') {
            d++;
            prec = read_number(d, args, nargs, next);
        }
        while (*d && strchr("hlLqjzt", *d)) d++;
        char conv = *d;
        if (!conv) {  // a directive cut by the end: copy it as text
            sink.put(pct, static_cast<int>(d - pct));
            break;
        }
        const X_fmtarg *arg = next < nargs ? &args[next] : nullptr;
        char piece[kMaxWidth * 2 + 400];
        int n = 0;
        char s[48];
        int l = sl;
        memcpy(s, directive, l);
        l += snprintf(s + l, sizeof s - l, "%d", width);
        if (prec >= 0) l += snprintf(s + l, sizeof s - l, ".%d", prec);
        switch (conv) {
        case 'd': case 'i':
            snprintf(s + l, sizeof s - l, "ld");
            n = snprintf(piece, sizeof piece, s, as_long(arg));
            next++;
            break;
        case 'u': case 'o': case 'x': case 'X':
            snprintf(s + l, sizeof s - l, "l%c", conv);
            n = snprintf(piece, sizeof piece, s, static_cast<unsigned long>(as_long(arg)));
            next++;
            break;
        case 'p':
            snprintf(s + l, sizeof s - l, "lx");
            n = snprintf(piece, sizeof piece, s, static_cast<unsigned long>(as_long(arg)));
            next++;
            break;
        case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
            snprintf(s + l, sizeof s - l, "%c", conv);
            n = snprintf(piece, sizeof piece, s, as_double(arg));
            next++;
            break;
        case 'c': {
            int ch = 0;
            if (arg && arg->kind == X_fmtarg::TEXT) ch = arg->s ? static_cast<unsigned char>(arg->s[0]) : 0;
            else ch = static_cast<int>(as_long(arg));
            snprintf(s + l, sizeof s - l, "c");
            n = ch ? snprintf(piece, sizeof piece, s, ch) : 0;
            next++;
            break;
        }
        case 's': {
            char num[64];
            const char *text = "";
            if (arg && arg->kind == X_fmtarg::TEXT) text = arg->s ? arg->s : "";
            else if (arg && arg->kind == X_fmtarg::LONG) snprintf(num, sizeof num, "%ld", arg->l), text = num;
            else if (arg) snprintf(num, sizeof num, "%f", arg->d), text = num;
            // Long texts go straight to the sink; padding applies to short ones.
            int tl = static_cast<int>(strlen(text));
            if (prec >= 0 && tl > prec) tl = prec;
            int pad = width > tl ? width - tl : 0;
            bool left = memchr(directive, '-', sl) != nullptr;
            if (!left) for (int i = 0; i < pad; i++) sink.put(" ", 1);
            sink.put(text, tl);
            if (left) for (int i = 0; i < pad; i++) sink.put(" ", 1);
            next++;
            p = d + 1;
            continue;
        }
        case 'n':  // never writes through an argument
            next++;
            p = d + 1;
            continue;
        default:  // unknown conversion: the directive is text
            sink.put(pct, static_cast<int>(d + 1 - pct));
            p = d + 1;
            continue;
        }
        if (n > static_cast<int>(sizeof piece) - 1) n = sizeof piece - 1;
        if (n > 0) sink.put(piece, n);
        p = d + 1;
    }
    out[sink.len] = 0;
    return sink.len;
}

int X_join(char *out, int size, std::initializer_list<std::string_view> parts) {
    Sink sink{out, size, 0};
    int whole = 0;
    for (std::string_view part : parts) {
        sink.put(part.data(), static_cast<int>(part.size()));
        whole += static_cast<int>(part.size());
    }
    if (size > 0) out[sink.len] = '\0';
    return whole;
}
