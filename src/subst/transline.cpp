// Line translation: text copied with its $( ) references replaced by values,
// into a buffer or onto the output stream.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "page/output.h"
#include "page/page.h"
#include "subst/args.h"
#include "subst/subst.h"
#include "subst/values.h"

namespace {

// The length of the ASCII run that starts N bytes at P, eight at a time.
size_t ascii_run(const char *p, size_t n) {
    size_t i = 0;
    for (uint64_t w; i + 8 <= n; i += 8) {
        memcpy(&w, p + i, 8);
        if (w & 0x8080808080808080ULL) break;
    }
    while (i < n && static_cast<unsigned char>(p[i]) < 0x80) i++;
    return i;
}

// Writes N bytes to F, through the entity translation when HTML is set.
// Every entity stands for a byte of 0x80 or above, so ASCII runs go out
// as they are.
void emit(FILE *f, const char *p, size_t n) {
    size_t plain = HTML ? ascii_run(p, n) : n;
    if (plain == n) {
        fwrite(p, 1, n, f);
        return;
    }
    const char *run = p, *e = p + n;
    for (p += plain; p < e; p++) {
        const char *t = HTML_string(static_cast<unsigned char>(*p));
        if (t[0] == *p && t[1] == 0) continue;
        fwrite(run, 1, p - run, f);
        fputs(t, f);
        run = p + 1;
    }
    fwrite(run, 1, p - run, f);
}

// Appends the value of NAME to OUT (capacity CAP, O bytes used); returns
// the new length. Kept out of scan so that its buffer is on the stack only
// while a value is copied.
[[gnu::noinline]] size_t append_value(const char *name, char *out, size_t cap, size_t o) {
    char val[X_MAXLINE];
    val[0] = 0;
    X_transvalue(name, val);
    size_t n = strlen(val);
    if (n > cap - 1 - o) n = cap - 1 - o;
    memcpy(out + o, val, n);
    return o + n;
}

// Scans S, writing into OUT (capacity CAP) or, with OUT NULL, to the stream.
// The stream is looked up at every write: a value function may run page
// code that redirects the output or closes a stream.
void scan(const char *s, char *out, size_t cap, int compile) {
    if (bool done; X_stack_moved(done, [&] { scan(s, out, cap, compile); return true; })) return;
    size_t o = 0;
    const char *lit = s;
    auto literal = [&](const char *end) {
        size_t n = end - lit;
        if (out) {
            if (n > cap - 1 - o) n = cap - 1 - o;
            memcpy(out + o, lit, n);
            o += n;
        } else if (n) {
            emit(X_out(), lit, n);
        }
    };
    while (const char *d = strchr(s, '$')) {
        if (d[1] != '(') {
            s = d + 1;
            continue;
        }
        literal(d);
        // The reference runs to the ")" that balances its "(".
        const char *r = d + 2, *e = r;
        for (int depth = 0; *e; e++) {
            if (*e == '(') depth++;
            else if (*e == ')' && depth-- == 0) break;
        }
        char ref[X_MAXREF];
        size_t rl = e - r < X_MAXREF - 1 ? e - r : X_MAXREF - 1;
        memcpy(ref, r, rl);
        ref[rl] = 0;
        char name[X_MAXREF];
        name[0] = 0;
        if (!(IgnoreEmpty && ref[0] == '\n') && !X_stack_low()) {
            // A name without references is itself: no nested scan needed.
            if (strchr(ref, '$')) scan(ref, name, sizeof name, compile);
            else memcpy(name, ref, rl + 1);
        }
        if (out) {
            o = append_value(name, out, cap, o);
        } else {
            X_transvalue(name, nullptr);
        }
        s = lit = *e ? e + 1 : e;
    }
    literal(s + strlen(s));
    if (out) out[o] = 0;
    else X_fflush(X_out());
}

}  // namespace

// Expands BUFF into OUT (X_MAXLINE bytes) or, with OUT NULL, onto the output.
int X_transline(const char *buff, char *out, int compile) {
    if (IgnoreEmpty && buff[0] == '\n') return 0;
    if (!compile) return transvalue(buff, out);
    scan(buff, out, X_MAXLINE, compile);
    return 0;
}

// Emits one value: copied into OUT (X_MAXLINE bytes) or written to the output,
// at most X_len characters of it when X_len is positive.
int transvalue(const char *val, char *out) {
    if (!val) val = "";
    size_t n = strlen(val);
    if (X_len > 0 && static_cast<size_t>(X_len) < n) n = X_len;
    if (out) {
        if (n > X_MAXLINE - 1) n = X_MAXLINE - 1;
        memmove(out, val, n);
        out[n] = 0;
        return 0;
    }
    FILE *f = X_out();
    emit(f, val, n);
    X_fflush(f);
    return 0;
}

void X_expand_args(const char *text, char *out, int compile) {
    out[0] = 0;
    X_transline(text, out, compile);
}

static X_TEXTPIECE literal_piece(const char *text, size_t len) {
    return {text, len, {}, ascii_run(text, len) == len};
}

int X_text_prepare(const char *line, X_TEXTPLAN *plan) {
    // Pieces of the line: at most one literal run before each reference
    // and one after the last.
    int refs = 0;
    for (const char *d = strstr(line, "$("); d; d = strstr(d + 2, "$(")) refs++;
    auto *pieces = static_cast<X_TEXTPIECE *>(calloc(2 * refs + 1, sizeof(X_TEXTPIECE)));
    if (!pieces) return -1;
    int n = 0;
    const char *lit = line;
    for (const char *d = strstr(line, "$("); d; d = strstr(lit, "$(")) {
        const char *r = d + 2;
        size_t len = strcspn(r, "()");
        if (r[len] != ')' || len == 0) break;
        char *name = strndup(r, len);
        if (!name || !X_value_plain(name)) {
            free(name);
            break;
        }
        if (d > lit) pieces[n++] = literal_piece(lit, static_cast<size_t>(d - lit));
        pieces[n++] = {nullptr, 0, {name, nullptr, X_REF_UNBOUND}, false};
        lit = r + len + 1;
        refs--;
    }
    if (refs) {
        for (int i = 0; i < n; i++) free(const_cast<char *>(pieces[i].ref.name));
        free(pieces);
        return -1;
    }
    if (*lit) pieces[n++] = literal_piece(lit, strlen(lit));
    plan->pieces = pieces;
    plan->count = n;
    return 0;
}

// Plain references run no page code, so the stream stays the same for the
// whole line. While output is collected a flush only checks the clock, so
// one check per line does what one per value would.
// Pieces that need no entity translation are gathered and written in one
// go; a piece that does, or that does not fit, goes out on its own.
void X_text_run(X_TEXTPLAN *plan) {
    FILE *f = X_out();
    bool each = !X_out_collecting(f);
    char line[2048];
    size_t used = 0;
    auto put = [&](const char *s, size_t n, bool ascii) {
        if (!n) return;
        if ((!HTML || ascii || ascii_run(s, n) == n) && n <= sizeof line - used) {
            memcpy(line + used, s, n);
            used += n;
            return;
        }
        fwrite(line, 1, used, f);
        used = 0;
        emit(f, s, n);
    };
    for (int i = 0; i < plan->count; i++) {
        X_TEXTPIECE &p = plan->pieces[i];
        if (p.text) {
            put(p.text, p.len, p.ascii);
            continue;
        }
        X_USER *u = X_ref_user(&p.ref);
        const char *val = u && u->var.value ? u->var.value : "";
        size_t n = strlen(val);
        if (X_len > 0 && static_cast<size_t>(X_len) < n) n = X_len;
        put(val, n, false);
        if (each) {
            fwrite(line, 1, used, f);
            used = 0;
            X_fflush(f);
        }
    }
    fwrite(line, 1, used, f);
    X_fflush(f);
}
