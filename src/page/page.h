// Page reader: page cache, line reading, comment removal, command cutting.
#pragma once

#include "x.h"

int X_printfile(const char *path, int compile);
int X_fgets(char *buff, int size, X_FILE *file);
// The page and the line number of the page line read last, for reports;
// 0 and a null *path before any page was read.
int X_where(const char **path);
// Records START in FILE as the line read last (a line taken without
// X_fgets); X_where_start is where the line read last starts.
void X_where_mark(X_FILE *file, long start);
long X_where_start();
void cut_cmd(X_FILE *file, char *line);
// cut_cmd without trace or report: false when the command grew too long.
bool X_cut_quiet(X_FILE *file, char *line);
void cut_comment(X_FILE *file, char *line);
void trim_buff(char *buff);
int X_trans_printfile(const char *arg, int compile);
int X_include(char *line, int compile, int ignore);
int X_quit(char *line, int compile, int ignore);
int X_putchar(int ch);
int X_fflush(FILE *stream);
FILE *X_out();  // the current output stream: X_stdout, X_fp or stdout

// The stream-table row whose stream an <@xfile> block has put in X_stdout,
// NULL while no such block runs (or a <@file> block inside it does). When
// the page closes that row's stream inside the block, X_out no longer
// hands out the closed stream: output falls back as if X_stdout were unset.
extern X_OPEN *X_stdout_row;
