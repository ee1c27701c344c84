// Value functions: what one $( ) reference stands for.
#pragma once

#include "x.h"

int X_transvalue(const char *name, char *out);
int X_printvalue(const char *name);
// True when a reference of exactly NAME reads the variable NAME: no value
// function or special name claims it.
bool X_value_plain(const char *name);
long GetDDT();
int date_YEAR(char *str);
int date_MONTH(char *str);
int date_DAY(char *str);
void X_crypt(const char *in, char *out);

extern int key_ptr;  // X_crypt's position in its key, reset by every call
