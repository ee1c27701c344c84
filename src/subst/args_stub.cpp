// Placeholder until the module lands.
#include <unistd.h>
#include "subst/args.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_arg_string(const char *buff, char *val) { return 0; }
int X_arg_string_sep(const char *buff, char *val, const char *sep) { return 0; }
int X_stop_char(int ch) { return 0; }
int X_take_string(const char *buff, char *val) { return 0; }
const char * HTML_string(int ch) { return nullptr; }
int X_exec_call(const char *name, const char *args) { return 0; }
int strcut(const char *fname, const char *args) { return 0; }
int chchar(const char *fname, const char *args) { return 0; }
int StrLen(const char *fname, const char *args) { return 0; }
