// Line translation: $( ) references expanded into a buffer or the output.
#pragma once

#include "x.h"

int X_transline(const char *buff, char *out, int compile);
int transvalue(const char *val, char *out);
// Expands the argument text of a command into out (X_MAXLINE) as every
// handler does: not at all when IgnoreEmpty is set and it begins with a
// newline (out is then empty), else with X_transline or transvalue.
void X_expand_args(const char *text, char *out, int compile);
