// Placeholder until the module lands.
#include <unistd.h>
#include "subst/subst.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_transline(const char *buff, char *out, int compile) { return 0; }
int transvalue(const char *val, char *out) { return 0; }
int X_transvalue(const char *name, char *out) { return 0; }
int X_printvalue(const char *name) { return 0; }
void X_expand_args(const char *text, char *out, int compile) {}
long GetDDT() { return 0; }
int date_YEAR(char *str) { return 0; }
int date_MONTH(char *str) { return 0; }
int date_DAY(char *str) { return 0; }
void X_crypt(const char *in, char *out) {}
