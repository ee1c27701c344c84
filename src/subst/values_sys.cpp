// Interpreter and system names of references: escapes, eval:, call:,
// ftell:, expr:, env: and the special numbers and texts (X_ROWS ... DIR).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "control/blocks.h"
#include "diag/diag.h"
#include "storage/store.h"
#include "subst/args.h"
#include "subst/expr.h"
#include "subst/subst.h"
#include "subst/values_rows.h"
#include "syscmd/process.h"

namespace {

constexpr long version = 878;

int pair(int count, int maxlen, char *out)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%d [%d]", count, maxlen);
    return value_emit(buf, out);
}

int count_names(const avl_tree &tree, char *out)
{
    int maxlen = 0;
    int count = tree.root ? count_tree(tree.root, &maxlen) : 0;
    return pair(count, maxlen, out);
}

}  // namespace

// "\t", "\n", "\r" written with a backslash: the control character.
int row_escape(const char *ref, const char *, char *out)
{
    const char *val = ref[1] == 't' ? "\t" : ref[1] == 'n' ? "\n" : "\r";
    return value_emit(val, out);
}

// eval:REF, REF's value expanded once more as page text, as often as the
// value holds further references. Only a chain so deep that the stack would
// run out (a value that refers to itself) is stopped, through the error
// path; the levels above the refused one then unwind without expanding
// more, so a value that refers to itself twice costs no exponential time.
int row_eval(const char *name, const char *arg, char *out)
{
    // Room for one more level and for the error trap that may be called.
    constexpr size_t reserve = 4 << 20;
    if (int r; X_stack_moved(r, [&] { return row_eval(name, arg, out); }, reserve))
        return r;
    static int depth;      // eval: levels now running
    static bool refused;   // a level was refused: the chain unwinds
    value_none(out);
    if (refused)
        return 0;
    if (X_stack_low_reserve(reserve)) {
        refused = depth > 0;
        return ERRMSG("EVAL: nesting too deep: %.100s \n", arg);
    }
    char buf[X_MAXLINE];
    value_expand(arg, buf);
    if (IgnoreEmpty && buf[0] == '\n')
        return 0;
    ++depth;
    int rc = X_transline(buf, out, 1);
    if (--depth == 0)
        refused = false;
    return rc;
}

// call:ARGS, the first word of what the page function returns when run as
// "<@call> ARGS". The return buffer starts out holding the command text, so
// a function that returns nothing leaves it there and the value is the
// first word of the command, "<@call>".
int row_call(const char *, const char *arg, char *out)
{
    char cmd[X_MAXLINE];
    char ret[X_MAXLINE];
    snprintf(cmd, sizeof cmd, "<@call> %s", arg);
    snprintf(ret, sizeof ret, "%s", cmd);
    X_TRACE("==> call: CALL: [%s] ", ret);
    X_call(cmd, 1, 0, ret);
    ret[X_MAXLINE - 1] = 0;
    X_TRACE("==> call: OUTPUT: [%s] ", ret);
    X_arg_string(ret, cmd);
    return value_emit(cmd, out);
}

// ftell:NAME, the position of the open stream NAME, -1 when none is open.
int row_ftell(const char *, const char *arg, char *out)
{
    for (const X_OPEN &row : x_OPEN) {
        if (row.fp && strcmp(row.name, arg) == 0)
            return value_long(ftell(row.fp), out);
    }
    return value_emit("-1", out);
}

// expr:EXPRESSION, the integer or floating result of the expression.
int row_expr(const char *ref, const char *arg, char *out)
{
    long n = 0;
    double d = 0.0;
    int kind = EXPR_parser(arg, &n, &d);
    if (kind < 0) {
        value_none(out);
        return ERRMSG("EXPR error: %s \n", ref);
    }
    if (kind == 1)
        return value_long(n, out);
    char buf[512];
    snprintf(buf, sizeof buf, "%f", d);
    return value_emit(buf, out);
}

// env:NAME, the process environment variable, empty when unset.
int row_env(const char *, const char *arg, char *out)
{
    const char *val = getenv(arg);
    return value_emit(val ? val : "", out);
}

// X_ROWS, X_SQLCODE, X_INSERT_ID: the last database statement's results.
int row_rows(const char *, const char *, char *out)
{
    return value_long(X_rowcount, out);
}

int row_sqlcode(const char *, const char *, char *out)
{
    return value_long(X_sqlcode, out);
}

int row_insert_id(const char *, const char *, char *out)
{
    return value_long(X_INSERT_ID, out);
}

// X_RANDOM, the next pseudo-random number; seeded with the process id on
// first use.
int row_random(const char *, const char *, char *out)
{
    static bool seeded = false;
    if (!seeded) {
        X_seed_with(static_cast<unsigned>(getpid()));  // replaces start-up's seeding
        seeded = true;
    }
    return value_long(X_random(), out);
}

int row_version(const char *, const char *, char *out)
{
    return value_long(version, out);
}

// X_NVAL and X_NFUN: how many variables or functions there are, and the
// length of the longest name.
int row_nval(const char *, const char *, char *out)
{
    return count_names(x_BUFFERS.vtree, out);
}

int row_nfun(const char *, const char *, char *out)
{
    return count_names(x_BUFFERS.ftree, out);
}

int row_errmsg(const char *, const char *, char *out)
{
    return value_emit(X_ERRMSG, out);
}

int row_dir(const char *, const char *, char *out)
{
    return value_emit(DIR ? DIR : "", out);
}
