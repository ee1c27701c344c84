// Placeholder until the module lands.
#include <unistd.h>
#include "control/cond.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_if_SCAN(char *cond, char *buff, int compile) { return 0; }
int X_if_CHECK(const char *cmd, char *buff, int compile) { return 0; }
int X_user_cmp(const char *a, const char *b, const char *op) { return 0; }
int X_user_icmp(int a, int b, const char *op) { return 0; }
int X_user_fcmp(double a, double b, const char *op) { return 0; }
int X_check_int(const char *s) { return 0; }
int X_check_float(const char *s) { return 0; }
int X_check_date(const char *s) { return 0; }
int X_get_int(const char *buff, char *val, int len) { return 0; }
int X_today(char *buff) { return 0; }
