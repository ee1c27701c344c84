// Typed comparisons of conditions, the format checkers and today's date.
//
// A comparison answers 0 when the relation holds, -1 when it does not and
// -2 for an operator it does not know (after reporting it). A checker
// answers 0 when the text has its format, -1 when not.
#include "control/cond.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "control/patt.h"
#include "diag/diag.h"
#include "storage/store.h"
#include "x.h"

namespace {

// Relations shared by the three comparisons, after the operator text has
// been mapped to one of them.
enum Rel { NONE, GE, LE, NE, EQ, GT, LT };

// Operator rows in the order they are tested; several spellings share one
// relation.
struct OpRow {
    std::string_view op;
    Rel rel;
};

constexpr OpRow op_rows[] = {
    {">=", GE}, {"&ge;", GE}, {"&gt;=", GE},
    {"<=", LE}, {"&le;", LE}, {"&lt;=", LE},
    {"!=", NE}, {"==", EQ},
    {">", GT}, {"&gt;", GT},
    {"<", LT}, {"&lt;", LT},
    {"=", EQ},
};

Rel relation(const char *op) {
    for (const OpRow &r : op_rows)
        if (r.op == op) return r.rel;
    return NONE;
}

// c is the sign of (a - b): <0, 0 or >0.
int holds(Rel rel, int c) {
    bool ok = false;
    switch (rel) {
    case GE: ok = c >= 0; break;
    case LE: ok = c <= 0; break;
    case NE: ok = c != 0; break;
    case EQ: ok = c == 0; break;
    case GT: ok = c > 0; break;
    case LT: ok = c < 0; break;
    case NONE: break;
    }
    return ok ? 0 : -1;
}

// Pattern b against text; X_CMPpatt cuts its pattern text temporarily, so it
// works on a writable copy.
bool like(const char *b, const char *text) {
    char patt[X_MAXLINE];
    snprintf(patt, sizeof patt, "%s", b);
    return X_CMPpatt(patt, text) != -1;
}

// Pattern b against the value of variable name; false when it has none. The
// value is copied first: a bad pattern may run the error trap, which can
// assign or clear the variable while its value is being matched.
bool vlike(const char *name, const char *b) {
    const char *v = X_get_value(name);
    if (!v) return false;
    char *text = strdup(v);
    bool r = text && like(b, text);
    free(text);
    return r;
}

// Days per month for the date check; February always allows 29.
constexpr int month_days[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

}  // namespace

// String comparison in byte order, or a wildcard match for the like rows.
int X_user_cmp(const char *a, const char *b, const char *op) {
    X_TRACE("X_user_cmp( %s, %s, %s )", a, op, b);
    if (!strcmp(op, "like")) return like(b, a) ? 0 : -1;
    if (!strcmp(op, "vlike")) return vlike(a, b) ? 0 : -1;
    if (!strcmp(op, "!like")) return like(b, a) ? -1 : 0;
    if (!strcmp(op, "!vlike")) return vlike(a, b) ? -1 : 0;
    Rel rel = relation(op);
    if (rel == NONE) {
        ERRMSG("Unknown CMP operator: %s \n", op);
        return -2;
    }
    return holds(rel, strcmp(a, b));
}

int X_user_icmp(int a, int b, const char *op) {
    X_TRACE("X_user_icmp( %d, %s, %d )", a, op, b);
    Rel rel = relation(op);
    if (rel == NONE) {
        ERRMSG("Unknown ICMP operator: %s \n", op);
        return -2;
    }
    return holds(rel, (a > b) - (a < b));
}

int X_cmp_relation(const char *op) {
    return relation(op);
}

bool X_cmp_holds(int rel, int c) {
    return holds(static_cast<Rel>(rel), c) == 0;
}

// Exact comparison of the two doubles; a NaN relates to nothing but "!=".
int X_user_fcmp(double a, double b, const char *op) {
    X_TRACE("X_user_fcmp( %f, %s, %f )", a, op, b);
    Rel rel = relation(op);
    if (rel == NONE) {
        ERRMSG("Unknown FCMP operator: %s \n", op);
        return -2;
    }
    bool ok = false;
    switch (rel) {
    case GE: ok = a >= b; break;
    case LE: ok = a <= b; break;
    case NE: ok = a != b; break;
    case EQ: ok = a == b; break;
    case GT: ok = a > b; break;
    case LT: ok = a < b; break;
    case NONE: break;
    }
    return ok ? 0 : -1;
}

// Digits only, with an optional leading "-"; the empty text passes.
int X_check_int(const char *s) {
    for (int i = 0; s[i]; i++) {
        if (i == 0 && s[i] == '-') continue;
        if (!isdigit((unsigned char)s[i])) return -1;
    }
    return 0;
}

// As X_check_int, with at most one "." anywhere.
int X_check_float(const char *s) {
    int dots = 0;
    for (int i = 0; s[i]; i++) {
        if (i == 0 && s[i] == '-') continue;
        if (s[i] == '.') {
            if (++dots > 1) return -1;
            continue;
        }
        if (!isdigit((unsigned char)s[i])) return -1;
    }
    return 0;
}

// YYYY-MM-DD. Only the first byte of each field is tested for a digit or
// "-"; the month must be 1..12 and the day 1..days of that month.
int X_check_date(const char *s) {
    char field[8];
    if (strlen(s) != 10 || s[4] != '-' || s[7] != '-') return -1;
    if (X_get_int(s, field, 4)) return -1;
    if (X_get_int(s + 5, field, 2)) return -1;
    long month = strtol(field, nullptr, 10);
    if (month < 1 || month > 12) return -1;
    if (X_get_int(s + 8, field, 2)) return -1;
    long day = strtol(field, nullptr, 10);
    if (day < 1 || day > month_days[month - 1]) return -1;
    return 0;
}

// Copies len bytes of buff into val and terminates it. Refuses (-1, val
// untouched) when the first byte is neither a digit nor "-". The copy stops
// early at the end of buff.
int X_get_int(const char *buff, char *val, int len) {
    if (len < 1) {
        val[0] = 0;
        return 0;
    }
    if (!isdigit((unsigned char)buff[0]) && buff[0] != '-') return -1;
    int i = 0;
    for (; i < len && buff[i]; i++) val[i] = buff[i];
    val[i] = 0;
    return 0;
}

// Today's local date as YYYY-MM-DD; buff holds at least 11 bytes.
int X_today(char *buff) {
    time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    unsigned year = (unsigned)(tm.tm_year + 1900) % 10000, month = (unsigned)(tm.tm_mon + 1) % 100;
    snprintf(buff, 11, "%04u-%02u-%02u", year, month, (unsigned)tm.tm_mday % 100);
    return 0;
}
