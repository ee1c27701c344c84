// The assignment line: "<@name>op operand" assigns or updates a variable.
//
// Numeric operators work on 64-bit integers read in base 10 (text without
// digits reads as 0) and store the result as decimal text. Overflow wraps
// around; division and modulo by 0 divide by 1 instead. The text operators
// append to the old value. Every value is kept within X_MAXLINE bytes.
#include "control/let.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "storage/store.h"
#include "subst/args.h"
#include "subst/subst.h"
#include "x.h"

namespace {

enum Op { SOURCE, APPEND, ASSIGN, ADD, MUL, DIV, MOD, SUB, INC, DEC };

struct OpRow {
    const char *text;
    Op op;
};

// Operators in the order they are searched for in the expanded line; the
// first one found anywhere wins.
constexpr OpRow op_rows[] = {
    {">$=", SOURCE}, {">;=", APPEND}, {">=", ASSIGN}, {">+=", ADD}, {">*=", MUL},
    {">/=", DIV},    {">%=", MOD},    {">-=", SUB},   {">++", INC}, {">--", DEC},
};

long number(const char *s) {
    return strtol(s, nullptr, 10);
}

// Two's-complement arithmetic without signed overflow.
long wrap_add(long a, long b) {
    return (long)((unsigned long)a + (unsigned long)b);
}

long wrap_sub(long a, long b) {
    return (long)((unsigned long)a - (unsigned long)b);
}

long wrap_mul(long a, long b) {
    return (long)((unsigned long)a * (unsigned long)b);
}

// Division toward zero; a divisor of 0 counts as 1, and the one quotient
// that does not fit (LONG_MIN / -1) wraps to LONG_MIN.
long divide(long a, long d) {
    if (d == 0) d = 1;
    if (d == -1) return wrap_sub(0, a);
    return a / d;
}

// Remainder with the sign of a; a divisor of 0 counts as 1.
long modulo(long a, long d) {
    if (d == 0 || d == 1 || d == -1) return 0;
    return a % d;
}

// New value of a numeric operator; old is NULL for a missing variable.
long compute(Op op, const char *old, long v) {
    if (!old) {
        switch (op) {
        case ADD: return v;
        case SUB: return wrap_sub(0, v);
        case MUL: return v;
        case DIV: return divide(1, v);
        case MOD: return 0;
        case INC: return 1;
        case DEC: return -1;
        default: return 0;
        }
    }
    long o = number(old);
    switch (op) {
    case ADD: return wrap_add(o, v);
    case SUB: return wrap_sub(o, v);
    case MUL: return wrap_mul(o, v);
    case DIV: return divide(o, v);
    case MOD: return modulo(o, v);
    case INC: return wrap_add(o, 1);
    case DEC: return wrap_sub(o, 1);
    default: return 0;
    }
}

// Appends at most n bytes of s to the value of length *len, within X_MAXLINE.
void append(char *value, int *len, const char *s, size_t n) {
    size_t room = (size_t)(X_MAXLINE - 1 - *len);
    size_t k = strnlen(s, n < room ? n : room);
    memcpy(value + *len, s, k);
    *len += (int)k;
    value[*len] = 0;
}

// Starts a text value from the old text of name, which may end in ":N":
// the name is cut there, and an old text longer than N keeps N-1 bytes.
void start_text(char *name, char *value, int *len) {
    long n = 0;
    if (char *colon = strchr(name, ':')) {
        *colon = 0;
        n = number(colon + 1);
    }
    *len = 0;
    value[0] = 0;
    const char *old = X_get_value(name);
    if (!old) return;
    size_t keep = strlen(old);
    if (n > 0 && keep > (size_t)n) keep = (size_t)(n - 1);
    append(value, len, old, keep);
}

// Appends a piece of a source variable named by "source:from:to".
void append_source(char *source, char *value, int *len) {
    long from = 0, to = 0;
    if (char *colon = strchr(source, ':')) {
        *colon = 0;
        from = number(colon + 1);
        if (const char *second = strchr(colon + 1, ':')) to = number(second + 1);
    }
    const char *src = X_get_value(source);
    if (!src) return;
    size_t n = strlen(src);
    if (from > 0 && (size_t)from < n) {
        size_t max = to > from ? (size_t)(to - from) + 1 : n;
        append(value, len, src + from - 1, max);
    } else {
        size_t max = to > 0 && (size_t)to < n ? (size_t)to + 1 : n;
        append(value, len, src, max);
    }
}

bool has_operator(const char *line) {
    for (const OpRow &r : op_rows)
        if (strstr(line, r.text)) return true;
    return false;
}

}  // namespace

// Handles an assignment line. Answers -1 when the line is not one (no "<@"
// or no operator), 0 when ignoring, else the answer of X_put_value.
int X_let(char *buff, int compile, int ignore) {
    if (strncmp(buff, "<@", 2) || !has_operator(buff)) return -1;
    X_TRACE("X_let: {%s} compile: %d  ignore: %d \n", buff, compile, ignore);
    if (ignore) return 0;

    char line[X_MAXLINE];
    line[0] = 0;
    X_expand_args(buff + 2, line, compile);
    X_DEBUG("%s // %s \n", buff, line);

    const OpRow *row = nullptr;
    char *at = nullptr;
    for (const OpRow &r : op_rows)
        if ((at = strstr(line, r.text))) {
            row = &r;
            break;
        }
    if (!row) {
        X_TRACE("X_let: ### ERROR : did not find the expected command !!!");
        return -1;
    }
    *at = 0;
    char *name = line;
    const char *rest = at + strlen(row->text);

    char operand[X_MAXLINE];
    operand[0] = 0;
    if (row->op != INC && row->op != DEC) X_arg_string(rest, operand);

    char value[X_MAXLINE];
    int len = 0;
    switch (row->op) {
    case ASSIGN:
        snprintf(value, sizeof value, "%s", operand);
        break;
    case APPEND:
        start_text(name, value, &len);
        append(value, &len, operand, sizeof value);
        break;
    case SOURCE:
        start_text(name, value, &len);
        append_source(operand, value, &len);
        break;
    default:
        snprintf(value, sizeof value, "%ld", compute(row->op, X_get_value(name), number(operand)));
        break;
    }
    return X_put_value(name, value);
}
