// Block commands: if, while, function, call, return, file and xfile blocks.
#pragma once

#include "x.h"

int X_if(X_FILE *fp, char *buff, int compile, int ignore);
int X_while(X_FILE *fp, char *buff, int compile, int ignore);
int X_while_loop(X_FILE *fp, int compile);
int X_while_words(X_FILE *fp, const char *name, const char *sep, int compile);
int X_while_values(X_FILE *fp, const char *name, int compile);
int X_function(X_FILE *fp, char *buff, int compile, int ignore);
int X_call(char *buff, int compile, int ignore, char *ret);
int X_return(char *buff, int compile, int ignore);
int X_File(X_FILE *fp, char *buff, int compile, int ignore);
int X_xFile(X_FILE *fp, char *buff, int compile, int ignore);
