// Block commands: if, while, function, call, return, file and xfile blocks.
//
// Blocks do not store their bodies: they read them from the page image FP
// through the page reader, and loops and calls re-read a body by moving
// FP->offset back. Every handler answers -1 when BUFF does not begin with its
// own tag, else 0 (the unknown-option report of "while" passes on ERRMSG's
// answer). BUFF is a command line in a buffer of X_MAXLINE bytes: X_if uses
// it as scratch for the condition and for an "<@elif>" that takes over.
#pragma once

#include "x.h"

// <@if> / <@elif> with its block up to <@end>, or the one-line form.
int X_if(X_FILE *fp, char *buff, int compile, int ignore);

// <@while>, <@while> words NAME [SEP], <@while> values NAME.
int X_while(X_FILE *fp, char *buff, int compile, int ignore);
int X_while_loop(X_FILE *fp, int compile);
int X_while_words(X_FILE *fp, const char *name, const char *sep, int compile);
int X_while_values(X_FILE *fp, const char *name, int compile);

// <@function> NAME(PARAMS) defines; <@call> NAME(ARGS) runs with the
// parameters bound as variables; <@return> TEXT copies TEXT into RET (a
// buffer of X_MAXLINE bytes, or NULL) and unwinds to the call.
int X_function(X_FILE *fp, char *buff, int compile, int ignore);
int X_call(char *buff, int compile, int ignore, char *ret);
int X_return(char *buff, int compile, int ignore);

// <@file> PATH and <@xfile> PATH: the block's output goes to PATH.
int X_File(X_FILE *fp, char *buff, int compile, int ignore);
int X_xFile(X_FILE *fp, char *buff, int compile, int ignore);
