// Arithmetic expressions of "expr:".
#pragma once

int EXPR_parser(const char *expr, long *v_int, double *v_float);
int yyerror(const char *message);
