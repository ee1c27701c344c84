// Placeholder until the module lands.
#include <unistd.h>
#include "subst/values.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_transvalue(const char *name, char *out) { return 0; }
int X_printvalue(const char *name) { return 0; }
long GetDDT() { return 0; }
int date_YEAR(char *str) { return 0; }
int date_MONTH(char *str) { return 0; }
int date_DAY(char *str) { return 0; }
void X_crypt(const char *in, char *out) {}
