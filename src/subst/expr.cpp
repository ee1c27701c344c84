// Arithmetic expressions of "expr:": a hand-written lexer and an operator
// precedence evaluator with explicit stacks.
//
// The evaluator accepts exactly the language of the grammar
//     input : exp END
//     exp   : NUM | "(" exp ")" | "-" exp | exp OP exp
// with the binary operators "|" < "&" < "+" "-" < "*" "/" "%" < unary "-",
// all left-associative. It reduces in the order an LR parser of that grammar
// would and counts the entries such a parser keeps on its stack, so a text
// that would need more than EXPR_MAXDEPTH entries fails the same way (result
// 2) however it is nested. Nothing here recurses.
#include "subst/expr.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

// A semantic value; the live member follows EXPR_FLOAT.
union Val {
    int64_t i;
    long double f;
};

// ---- Process-wide evaluator state --------------------------------------
static const char *EXPR_BUFF = "";  // the expression text being read
static int EXPR_INIT = 1;           // 1 until the lexer took its first token
static int EXPR_FLOAT = 0;          // 1 when the text holds a "."
static int64_t value_int = 0;       // last successful integer result
static long double value_float = 0; // last successful floating result
static const char *next_char = "";  // where the lexer goes on

// Token codes beyond the single characters.
constexpr int NUM = 256;
constexpr int END = 257;
constexpr char NEG = 'n';  // unary minus on the operator stack

// Operator and operand stacks; together they never exceed EXPR_MAXDEPTH.
static char ops[EXPR_MAXDEPTH];
static Val vals[EXPR_MAXDEPTH];
static int nops, nvals;

int yyerror(const char *)
{
    return -1;
}

// ---- Lexer --------------------------------------------------------------

static bool digit(char c)
{
    return c >= '0' && c <= '9';
}

// Unsigned conversion in base 8 or 16 of the digit run [p, end): stops at
// the first digit outside the base and saturates like strtoull.
static uint64_t unsigned_value(const char *p, const char *end, unsigned base)
{
    uint64_t u = 0;
    for (; p < end && unsigned(*p - '0') < base; p++) {
        unsigned d = unsigned(*p - '0');
        if (u > (UINT64_MAX - d) / base)
            return UINT64_MAX;
        u = u * base + d;
    }
    return u;
}

// Signed decimal conversion of a digit run, saturating like strtoll.
static int64_t decimal_value(const char *p, const char *end)
{
    int64_t v = 0;
    for (; p < end; p++) {
        int d = *p - '0';
        if (v > (INT64_MAX - d) / 10)
            return INT64_MAX;
        v = v * 10 + d;
    }
    return v;
}

static const char *skip_digits(const char *p)
{
    while (digit(*p))
        p++;
    return p;
}

// Stores an integer read from the text in the member of the current mode.
static void store_int(Val *v, int64_t n)
{
    if (EXPR_FLOAT)
        v->f = (long double)n;
    else
        v->i = n;
}

// Reads the number that starts at p (a digit); returns the end of its token.
// "0" + digits is octal, "0x" + decimal digits is hexadecimal (letters are
// not part of the token), anything else decimal with an optional fraction.
static const char *lex_number(const char *p, Val *v)
{
    if (p[0] == '0' && digit(p[1])) {
        const char *end = skip_digits(p + 1);
        store_int(v, int64_t(unsigned_value(p + 1, end, 8)));
        return end;
    }
    if (p[0] == '0' && p[1] == 'x' && digit(p[2])) {
        const char *end = skip_digits(p + 2);
        store_int(v, int64_t(unsigned_value(p + 2, end, 16)));
        return end;
    }
    const char *end = skip_digits(p);
    if (*end != '.') {
        store_int(v, decimal_value(p, end));
        return end;
    }
    end = skip_digits(end + 1);
    // A "." anywhere selects floating mode, so a fraction is always read
    // into the floating member. Only the token itself is converted.
    std::string text(p, size_t(end - p));
    v->f = strtold(text.c_str(), nullptr);
    return end;
}

// One token: NUM (value in *v), END, or the character itself.
static int yylex(Val *v)
{
    const char *p = next_char;
    if (EXPR_INIT) {
        p = EXPR_BUFF;
        EXPR_INIT = 0;
    }
    while (*p == ' ')
        p++;
    if (*p == '\0') {
        next_char = p;
        return END;
    }
    if (digit(*p)) {
        next_char = lex_number(p, v);
        return NUM;
    }
    next_char = p + 1;
    return (unsigned char)*p;
}

// ---- Arithmetic ---------------------------------------------------------

// 64-bit integer operations: wrapping, and defined results where the
// machine would trap (zero divisors, INT64_MIN / -1).
static int64_t int_op(char op, int64_t a, int64_t b)
{
    uint64_t ua = uint64_t(a), ub = uint64_t(b);
    switch (op) {
    case '+': return int64_t(ua + ub);
    case '-': return int64_t(ua - ub);
    case '*': return int64_t(ua * ub);
    case '/':
        if (b == 0)
            return 0;
        return b == -1 ? int64_t(0 - ua) : a / b;
    case '%':
        if (b == 0)
            return a;
        return b == -1 ? 0 : a % b;
    case '&': return a & b;
    default: return a | b;
    }
}

// Truncation to a 32-bit int; NaN and out-of-range values give INT32_MIN,
// as the x86 conversion instructions do.
static int32_t to_int32(long double x)
{
    if (!(x > -2147483649.0L && x < 2147483648.0L))
        return INT32_MIN;
    return int32_t(x);
}

// Floating operations; "%", "&" and "|" go through 32-bit ints and their
// result through single precision.
static long double float_op(char op, long double a, long double b)
{
    switch (op) {
    case '+': return a + b;
    case '-': return a - b;
    case '*': return a * b;
    case '/': return a / b;
    default: break;
    }
    int32_t x = to_int32(a), y = to_int32(b), r;
    if (op == '%')
        r = y == 0 ? x : y == -1 ? 0 : x % y;
    else if (op == '&')
        r = x & y;
    else
        r = x | y;
    return (long double)(float)r;
}

// ---- Evaluator ----------------------------------------------------------

// Precedence of a binary operator token; 0 for any other token.
static int binary_precedence(int t)
{
    switch (t) {
    case '|': return 1;
    case '&': return 2;
    case '+': case '-': return 3;
    case '*': case '/': case '%': return 4;
    default: return 0;
    }
}

// Precedence of an operator on the stack; "(" is 0 and never reduced.
static int precedence(char op)
{
    if (op == NEG)
        return 5;
    return op == '(' ? 0 : binary_precedence(op);
}

// Applies the operator on top of the stack to its operands.
static void reduce()
{
    char op = ops[--nops];
    Val &a = vals[nvals - 1];
    if (op == NEG) {
        if (EXPR_FLOAT)
            a.f = -a.f;
        else
            a.i = int64_t(0 - uint64_t(a.i));
        return;
    }
    Val b = vals[--nvals];
    Val &r = vals[nvals - 1];
    if (EXPR_FLOAT)
        r.f = float_op(op, r.f, b.f);
    else
        r.i = int_op(op, r.i, b.i);
}

static void reduce_down_to(int prec)
{
    while (nops > 0 && precedence(ops[nops - 1]) >= prec)
        reduce();
}

// True when one more symbol fits: the stack then holds the start entry
// and nops + nvals + 1 symbols.
static bool room()
{
    return nops + nvals + 2 < EXPR_MAXDEPTH;
}

// Reads and evaluates the whole text. Returns 0 with the value in *out,
// 1 for a syntax error, 2 when the stack would overflow.
static int evaluate(Val *out)
{
    nops = nvals = 0;
    bool want_operand = true;
    for (;;) {
        Val v{};
        int t = yylex(&v);
        if (want_operand) {
            if (t != NUM && t != '(' && t != '-')
                return 1;
            if (!room())
                return 2;
            if (t == NUM) {
                vals[nvals++] = v;
                want_operand = false;
            } else {
                ops[nops++] = t == '(' ? '(' : NEG;
            }
            continue;
        }
        int prec = binary_precedence(t);
        if (prec > 0) {
            reduce_down_to(prec);
            if (!room())
                return 2;
            ops[nops++] = char(t);
            want_operand = true;
            continue;
        }
        if (t != ')' && t != END)
            return 1;
        reduce_down_to(1);
        if (t == END) {
            if (nops > 0)
                return 1;  // an unclosed "("
            *out = vals[0];
            return 0;
        }
        if (nops == 0)
            return 1;  // a ")" without its "("
        if (!room())
            return 2;
        nops--;  // "(" exp ")" is exp
    }
}

int EXPR_parser(const char *expr, long *v_int, double *v_float)
{
    EXPR_BUFF = expr ? expr : "";
    EXPR_INIT = 1;
    EXPR_FLOAT = strchr(EXPR_BUFF, '.') != nullptr;
    Val r{};
    int rc = evaluate(&r);
    if (rc == 0 && EXPR_FLOAT) {
        value_float = r.f;
        rc = 2;
    } else if (rc == 0) {
        value_int = r.i;
        rc = 1;
    } else {
        yyerror(rc == 1 ? "syntax error" : "memory exhausted");
    }
    if (v_int)
        *v_int = long(value_int);
    if (v_float)
        *v_float = double(value_float);
    return rc;
}
