// Conditions of "if" and "elif": simple tests joined by "&&" and "||".
//
// X_if_SCAN splits a condition into segments (simple tests or parenthesised
// groups) and combines their results strictly left to right: each
// connector applies to the whole rest of the condition, with short-circuit
// and no precedence. X_if_CHECK evaluates one simple test after expanding
// its references.
#include "control/cond.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "diag/diag.h"
#include "page/dispatch.h"
#include "storage/store.h"
#include "subst/args.h"
#include "subst/subst.h"
#include "x.h"

namespace {

// Connector kinds after a segment; NEXT_name holds their trace names.
enum Next { NONE = 0, EOL = 1, AND = 2, OR = 3 };

// Nested groups beyond this depth are refused as an incorrect condition.
constexpr int max_depth = 200;
int depth = 0;

// Skips a quoted stretch that starts at s[i]: answers the index of its
// closing byte, or of the terminator when the quote is never closed. A byte
// that opens no quote answers i itself.
int skip_quote(const char *s, int i) {
    int close = X_stop_char((unsigned char)s[i]);
    if (close == ' ') return i;
    const char *end = strchr(s + i + 1, close);
    return end ? (int)(end - s) : i + 1 + (int)strlen(s + i + 1);
}

// Connector starting at s: AND, OR or NONE.
Next connector(const char *s) {
    if (s[0] == '&' && s[1] == '&') return AND;
    if (s[0] == '|' && s[1] == '|') return OR;
    return NONE;
}

// Finds the end of a group whose inside starts at s. Answers the index of
// the closing ")" or -1 when the text ends first.
int group_end(const char *s) {
    int level = 0;
    for (int i = 0; s[i]; i++) {
        i = skip_quote(s, i);
        if (!s[i]) return -1;
        if (s[i] == '(') {
            level++;
        } else if (s[i] == ')') {
            if (level == 0) return i;
            level--;
        }
    }
    return -1;
}

// Finds the end of a simple test: the index of its connector or of the
// terminator; the kind is stored in *next.
int test_end(const char *s, Next *next) {
    int i = 0;
    for (; s[i]; i++) {
        i = skip_quote(s, i);
        if (!s[i]) break;
        *next = connector(s + i);
        if (*next != NONE) return i;
    }
    *next = EOL;
    return i;
}

// Evaluates a group's inside, bounding the nesting depth.
int scan_group(char *inside, char *buff, int compile) {
    if (int r; X_stack_moved(r, [&] { return scan_group(inside, buff, compile); })) return r;
    if (depth >= max_depth || X_stack_low()) return ERRMSG("Incorrect IF condition: %s \n", inside);
    depth++;
    int r = X_if_SCAN(inside, buff, compile);
    depth--;
    return r;
}

// ---- Simple tests ------------------------------------------------------

// Test keywords in the order they are tried; a "!" form negates.
enum Kind { CMP, ICMP, FCMP, FMT, FILLED, END_OF_FILE, EXIST, ISDIR, ISFILE, VCMP };

struct TestRow {
    std::string_view word;
    Kind kind;
    bool neg;
};

constexpr TestRow test_rows[] = {
    {"cmp", CMP, false},       {"!cmp", CMP, true},
    {"icmp", ICMP, false},     {"!icmp", ICMP, true},
    {"fcmp", FCMP, false},     {"!fcmp", FCMP, true},
    {"fmt", FMT, false},       {"!fmt", FMT, true},
    {"filled", FILLED, false}, {"!filled", FILLED, true},
    {"set", FILLED, false},    {"!set", FILLED, true},
    {"EOF", END_OF_FILE, false}, {"!EOF", END_OF_FILE, true},
    {"exist", EXIST, false},   {"!exist", EXIST, true},
    {"access", EXIST, false},  {"!access", EXIST, true},
    {"isDir", ISDIR, false},   {"!isDir", ISDIR, true},
    {"isFile", ISFILE, false}, {"!isFile", ISFILE, true},
    {"vcmp", VCMP, false},     {"!vcmp", VCMP, true},
};

// Words of one test: w[0] is the keyword (or the first operand of the
// non-explicit form), the others follow it.
constexpr int nwords = 4;

// Reads the first words of line into the scratch buffer, each one placed
// after the previous word's terminator and a spare byte. line is kept at
// most X_MAXLINE - 8 bytes long, so the words stay inside buff.
void take_words(const char *line, char *buff, char **w) {
    int pos = 0, off = 0;
    for (int i = 0; i < nwords; i++) {
        w[i] = buff + off;
        pos += X_arg_string(line + pos, w[i]);
        off += (int)strlen(w[i]) + 2;
    }
}

double read_double(const char *s) {
    double d = 0;
    if (sscanf(s, "%lf", &d) != 1) d = 0;
    return d;
}

int truth(bool holds, bool neg) {
    return holds != neg ? 1 : 0;
}

// "fmt name type": a failing check is reported like an unknown type.
int test_fmt(const char *name, const char *type, bool neg) {
    const char *v = X_get_value(name);
    if (!v) v = name;
    int r = -1;
    if (!strcmp(type, "int")) r = X_check_int(v);
    else if (!strcmp(type, "float")) r = X_check_float(v);
    else if (!strcmp(type, "date")) r = X_check_date(v);
    if (r == 0) return neg ? 0 : 1;
    return ERRMSG("Unknown option in FMT: %s \n", type);
}

int test_filled(const char *name, bool neg) {
    X_TRACE("Filled...\n");
    X_TRACE("Filled? {%s}  \n", name);
    const char *v = X_get_value(name);
    X_TRACE("after VAL{%s} = %s \n", name, v ? v : "NULL");
    return truth(v && *v, neg);
}

int test_stat(const char *path, Kind kind, bool neg) {
    struct stat st;
    if (kind == EXIST) return truth(access(path, F_OK) == 0, neg);
    bool ok = stat(path, &st) == 0 && (kind == ISDIR ? S_ISDIR(st.st_mode) : S_ISREG(st.st_mode));
    return truth(ok, neg);
}

int run_test(const TestRow &t, char **w) {
    switch (t.kind) {
    case CMP:
        return truth(X_user_cmp(w[1], w[3], w[2]) == 0, t.neg);
    case ICMP:
        return truth(X_user_icmp((int)strtol(w[1], nullptr, 10), (int)strtol(w[3], nullptr, 10), w[2]) == 0,
                     t.neg);
    case FCMP:
        return truth(X_user_fcmp(read_double(w[1]), read_double(w[3]), w[2]) == 0, t.neg);
    case VCMP: {
        // "vcmp NAME op TEXT": the variable's value, taken by name, so that
        // quotes in it cannot change the test; a missing one is empty.
        const char *v = X_get_value(w[1]);
        return truth(X_user_cmp(v ? v : "", w[3], w[2]) == 0, t.neg);
    }
    case FMT:
        return test_fmt(w[1], w[2], t.neg);
    case FILLED:
        return test_filled(w[1], t.neg);
    case END_OF_FILE:
        return truth(X_eof != 0, t.neg);
    case EXIST:
    case ISDIR:
    case ISFILE:
        return test_stat(w[1], t.kind, t.neg);
    }
    return 0;
}

// "a", "a op b" without a keyword: emptiness of a variable, a numeric
// comparison for the plain order operators, else a string comparison.
int non_explicit(char **w) {
    const char *a = w[0], *op = w[1], *b = w[2];
    if (*a && !*op && !*b) {
        X_TRACE("Non-explicit-Filled... : %s \n", a);
        bool neg = *a == '!';
        const char *v = X_get_value(neg ? a + 1 : a);
        return truth(v && *v, neg);
    }
    if (!strcmp(op, ">") || !strcmp(op, "<") || !strcmp(op, ">=") || !strcmp(op, "<="))
        return X_user_fcmp(read_double(a), read_double(b), op) == 0 ? 1 : 0;
    return X_user_cmp(a, b, op) == 0 ? 1 : 0;
}

}  // namespace

// Evaluates one simple test; cmd is expanded first. buff (X_MAXLINE bytes)
// receives the test's words. Answers 1 or 0, or what the error reporter
// answered for a failing "fmt".
int X_if_CHECK(const char *cmd, char *buff, int compile) {
    char line[X_MAXLINE];
    line[0] = 0;
    X_expand_args(cmd, line, compile);
    line[X_MAXLINE - 8] = 0;
    X_TRACE("X_if_CHECK: {%s} // {%s}\n", cmd, line);
    X_DEBUG("IF check condition: {%s} // {%s}\n", cmd, line);

    char *w[nwords];
    take_words(line, buff, w);
    for (const TestRow &t : test_rows)
        if (t.word == w[0]) return run_test(t, w);
    return non_explicit(w);
}

// Evaluates a whole condition; cond is cut in place at connectors and
// closing parentheses. Non-zero results other than 1 short-circuit nothing.
int X_if_SCAN(char *cond, char *buff, int compile) {
    char *p = cond;
    for (;;) {
        X_TRACE("X_if_SCAN: {%s} \n", p);
        X_DEBUG("IF processing: %s \n", p);
        while (*p && (unsigned char)*p <= 32) p++;

        char *seg = p;
        Next next = EOL;
        bool group = false;
        if (*p == '(') {
            group = true;
            seg = p + 1;
            int end = group_end(seg);
            if (end < 0) {
                p = seg + strlen(seg);
            } else {
                seg[end] = 0;
                p = seg + end + 1;
                while (*p && (unsigned char)*p <= 32) p++;
                if (*p) {
                    next = connector(p);
                    if (next == NONE) return ERRMSG("Incorrect IF condition: %s \n", seg);
                }
            }
        } else if (*p) {
            int end = test_end(p, &next);
            p += end;
            if (next != EOL) *p = 0;
        }

        X_TRACE("X_if_SCAN: send cond: {%s} next: %s \n", seg, NEXT_name[next]);
        int r = group ? scan_group(seg, buff, compile) : X_if_CHECK(seg, buff, compile);
        X_TRACE("X_if_SCAN: sst cond result: %d next: %s \n", r, NEXT_name[next]);

        if (next == EOL) return r;
        if (next == OR && r == 1) return 1;
        if (next == AND && r == 0) return 0;
        p += 2;
    }
}
