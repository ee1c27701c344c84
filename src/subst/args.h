// Argument scanning, HTML entities and the built-ins of "exec".
#pragma once

int X_arg_string(const char *buff, char *val);
int X_arg_string_sep(const char *buff, char *val, const char *sep);
int X_stop_char(int ch);
int X_take_string(const char *buff, char *val);
const char *HTML_string(int ch);
int X_exec_call(const char *name, const char *args);
int strcut(const char *fname, const char *args);
int chchar(const char *fname, const char *args);
int StrLen(const char *fname, const char *args);
