// Line translation: $( ) references expanded into a buffer or the output.
#pragma once

#include "x.h"

int X_transline(const char *buff, char *out, int compile);
int transvalue(const char *val, char *out);

// ---- Prepared text lines -------------------------------------------------
// A text line cut once into literal runs and references to plain variables,
// so that writing it needs no scan and no lookup by name.
#include "storage/store.h"

struct X_TEXTPIECE {
    const char *text;  // literal bytes, or NULL for a reference
    size_t len;        // their number
    X_REF ref;         // the variable of a reference
    bool ascii;        // a literal of ASCII bytes only: no entity to look for
};

struct X_TEXTPLAN {
    X_TEXTPIECE *pieces;  // in line order
    int count;
};

// Cuts LINE into PLAN (allocations live as long as the plan's page): 0, or
// -1 when a reference is nested, unclosed or not a plain variable.
int X_text_prepare(const char *line, X_TEXTPLAN *plan);
// Writes the line as X_transline(line, NULL, 1) would with trace off.
void X_text_run(X_TEXTPLAN *plan);
// Expands the argument text of a command into out (X_MAXLINE) as every
// handler does: not at all when IgnoreEmpty is set and it begins with a
// newline (out is then empty), else with X_transline or transvalue.
void X_expand_args(const char *text, char *out, int compile);
