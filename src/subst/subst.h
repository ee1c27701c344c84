// Value substitution: line translation and the value functions.
#pragma once

#include "x.h"

int X_transline(const char *buff, char *out, int compile);
int transvalue(const char *val, char *out);
int X_transvalue(const char *name, char *out);
int X_printvalue(const char *name);
// Expands the argument text of a command into out (X_MAXLINE) as every
// handler does: not at all when IgnoreEmpty is set and it begins with a
// newline (out is then empty), else with X_transline or transvalue.
void X_expand_args(const char *text, char *out, int compile);
long GetDDT();
int date_YEAR(char *str);
int date_MONTH(char *str);
int date_DAY(char *str);
void X_crypt(const char *in, char *out);
