// Arithmetic expressions of "expr:".
#pragma once

// Evaluates expr in integer arithmetic, or in floating arithmetic when the
// text holds a "." anywhere. Returns 1 for an integer result, 2 for a
// floating one, 1 after a syntax error and 2 when the parse stack runs out
// (more than EXPR_MAXDEPTH entries). Always stores the last successful
// integer and floating results of the process (0 before any) in *v_int and
// *v_float, so a failed parse hands back stale values.
int EXPR_parser(const char *expr, long *v_int, double *v_float);

// Syntax errors are silent: returns -1 and does nothing else.
int yyerror(const char *message);

// Entries of the parse stack at most: one for the start plus one per
// symbol held (each pending "(", unary "-", operator and operand).
constexpr int EXPR_MAXDEPTH = 10000;
