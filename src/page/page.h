// Page reader: page cache, line reading, comment removal, command cutting.
#pragma once

#include "x.h"

int X_printfile(const char *path, int compile);
int X_fgets(char *buff, int size, X_FILE *file);
void cut_cmd(X_FILE *file, char *line);
void cut_comment(X_FILE *file, char *line);
void trim_buff(char *buff);
int X_trans_printfile(const char *arg, int compile);
int X_include(char *line, int compile, int ignore);
int X_quit(char *line, int compile, int ignore);
int X_putchar(int ch);
int X_fflush(FILE *stream);
FILE *X_out();  // the current output stream: X_stdout, X_fp or stdout
