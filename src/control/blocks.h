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

#include "storage/store.h"

// A one-line "<@if> TEST <@break>" (or <@continue>) whose test is a single
// cmp or icmp of literal words and plain variable references, so that it
// runs without expanding or splitting the condition.
struct X_IFPLAN {
    bool icmp;              // icmp, else cmp
    bool neg;               // the "!" form
    const char *op;         // the comparison operator
    int rel;                // its relation (X_cmp_relation)
    X_REF ref[2];           // operands a and b: a variable when its name is set
    const char *word[2];    // a literal operand otherwise
    int number[2];          // a literal operand read as icmp reads it
    int jump;               // 1 continue, 2 break, 0 a block head
};

// Fills PLAN for the <@if> line LINE: 0, or -1 when it needs the general path.
int X_if_prepare(const char *line, X_IFPLAN *plan);
// Runs the plan as X_if(fp, line, 1, 0) would with trace and debug off: 0
// when done, -1 (nothing done) when an operand's value could move a word.
int X_if_run(X_IFPLAN *plan);
// Fills PLAN (jump 0) with the condition of a block head "<@if> TEST" or
// "<@elif> TEST": 0, or -1 when it needs the general path.
int X_if_head_prepare(const char *line, X_IFPLAN *plan);
// Runs the block of the <@if> head in BUFF (a buffer of X_MAXLINE bytes)
// with its prepared condition, as X_if(fp, buff, compile, 0) would with trace
// and debug off: 0 when done, -1 (nothing done) to report deep nesting the
// usual way. A test whose values could move a word is read the usual way.
int X_if_block(X_FILE *fp, char *buff, const X_IFPLAN *plan, int compile);

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
