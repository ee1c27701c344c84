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
#include "subst/values.h"
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
    return X_number(s);
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

long compute_number(Op op, long o, long v);

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
    return compute_number(op, number(old), v);
}

// New value of a numeric operator on the old value O.
long compute_number(Op op, long o, long v) {
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

// ---- Prepared assignment lines --------------------------------------------

namespace {

// The reference "$(name)" at S, ended by a blank or the end of the text:
// its name (allocated), or NULL when S holds no such plain reference.
char *whole_ref(const char *s, size_t *len) {
    if (s[0] != '$' || s[1] != '(') return nullptr;
    size_t n = strcspn(s + 2, "()");
    if (s[2 + n] != ')' || (s[3 + n] != ' ' && s[3 + n] != 0)) return nullptr;
    char *name = strndup(s + 2, n);
    if (name && !X_value_plain(name)) {
        free(name);
        return nullptr;
    }
    *len = n + 3;
    return name;
}

// Number of references in S when every one is a plain variable whose name
// holds no ">", else -1.
int plain_refs(const char *s) {
    int refs = 0;
    for (const char *p = s; *p; p++) {
        if (p[0] != '$' || p[1] != '(') continue;
        size_t n = strcspn(p + 2, "()>");
        if (p[2 + n] != ')') return -1;
        char *name = strndup(p + 2, n);
        bool plain = name && X_value_plain(name);
        free(name);
        if (!plain) return -1;
        p += 2 + n;
        refs++;
    }
    return refs;
}

// A value that X_arg_string returns whole and that moves no operator:
// not empty, no blank or control byte, no ">", no opening quote.
bool whole_word(const char *v) {
    if (!v || !*v || X_stop_char(static_cast<unsigned char>(*v)) != ' ') return false;
    for (; *v; v++)
        if (static_cast<unsigned char>(*v) <= ' ' || *v == '>') return false;
    return true;
}

}  // namespace

int X_let_prepare(const char *line, X_LETPLAN *plan) {
    if (strncmp(line, "<@", 2) || !has_operator(line)) return -1;
    const char *text = line + 2;
    // Only the operand may be a reference: a value elsewhere on the line
    // could hold an operator that the search would find first. The operand
    // follows its operator and blanks, and a value without ">" cannot make
    // the operator's own ">" start another one (every second byte is "=",
    // "+", "*" ... and fixed).
    int refs = plain_refs(text);
    if (refs < 0 || refs > 1) return -1;
    const OpRow *row = nullptr;
    const char *at = nullptr;
    for (const OpRow &r : op_rows)
        if ((at = strstr(text, r.text))) {
            row = &r;
            break;
        }
    if (!row || row->op == SOURCE || row->op == APPEND) return -1;
    if (memmem(text, at - text, "$(", 2)) return -1;  // the name itself is expanded
    const char *rest = at + strlen(row->text);
    *plan = {{strndup(text, at - text), nullptr, X_REF_UNBOUND}, row->op, {nullptr, nullptr, X_REF_UNBOUND},
             "", 0};
    if (row->op == INC || row->op == DEC) return refs ? -1 : 0;
    while (*rest && static_cast<unsigned char>(*rest) <= ' ') rest++;
    size_t len = 0;
    if ((plan->operand.name = whole_ref(rest, &len))) return 0;
    if (refs) return -1;
    len = strcspn(rest, " ");
    if (memmem(rest, len, "$(", 2) || (*rest && X_stop_char(static_cast<unsigned char>(*rest)) != ' '))
        return -1;
    char *word = strndup(rest, len);
    plan->word = word ? word : "";
    plan->number = number(plan->word);
    return 0;
}

// The number X_number reads from U's first value, kept beside the text.
static long user_number(X_USER *u) {
    long n;
    if (X_user_number(u, &n)) return n;
    n = number(u->var.value);
    X_note_number(u, n);
    return n;
}

int X_let_run(X_LETPLAN *plan) {
    const char *operand = plan->word;
    long v = plan->number;
    if (plan->operand.name) {
        X_USER *o = X_ref_user(&plan->operand);
        if (!o || o->fixed == 2) return -1;  // a shared buffer need not be terminated
        operand = o->var.value;
        // A kept number's text is a whole word.
        if (!X_user_number(o, &v)) {
            if (!whole_word(operand)) return -1;
            v = user_number(o);
        }
    }
    X_USER *u = X_ref_user(&plan->target);
    if (!u || u->fixed) return -1;
    if (plan->op == ASSIGN) {
        X_put_user(u, operand);
        return 0;
    }
    if (!u->var.value) {
        X_put_number(u, compute(static_cast<Op>(plan->op), nullptr, v));
        return 0;
    }
    X_put_number(u, compute_number(static_cast<Op>(plan->op), user_number(u), v));
    return 0;
}
