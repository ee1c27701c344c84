// Helpers of the system commands: tag test, bounded argument cutting and
// the status variable.
#pragma once

#include "x.h"

// Reading position in the expanded argument text of one command; the text
// is at most X_MAXLINE - 1 characters long, as X_expand_args leaves it.
struct X_argcut {
    const char *src;  // expanded argument text
    int pos;          // index where the next argument starts
};

// 1 when line begins with tag, else 0.
int X_has_tag(const char *line, const char *tag);

// Cuts the next argument of cut->src with X_arg_string into dst, a buffer
// of cap bytes: an argument longer than cap - 1 characters keeps its first
// cap - 1, and the rest of the text is still scanned from the right place.
// Returns the scanner's result (0: no argument).
int X_next_arg(X_argcut *cut, char *dst, int cap);

// Sets the status variable of a system command to "0" (rc 0) or "-1";
// the variable is name, or "status" when name is empty. Returns the store's
// result.
int X_set_status(const char *name, int rc);
