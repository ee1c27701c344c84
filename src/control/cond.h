// Conditions of "if" and "elif", comparisons and format checkers.
#pragma once

int X_if_SCAN(char *cond, char *buff, int compile);
int X_if_CHECK(const char *cmd, char *buff, int compile);
int X_user_cmp(const char *a, const char *b, const char *op);
int X_user_icmp(int a, int b, const char *op);
// The relation of a comparison operator (0 when it is not one), and whether
// it holds for C, the sign of a - b: X_user_icmp split for prepared lines.
int X_cmp_relation(const char *op);
bool X_cmp_holds(int rel, int c);
int X_user_fcmp(double a, double b, const char *op);
int X_check_int(const char *s);
int X_check_float(const char *s);
int X_check_date(const char *s);
int X_get_int(const char *buff, char *val, int len);
int X_today(char *buff);
