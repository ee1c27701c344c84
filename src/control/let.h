// The assignment line: <@name>++, <@name>+= value and the other operators.
#pragma once

int X_let(char *buff, int compile, int ignore);

#include "storage/store.h"

// An assignment line that can run without expanding the line: a literal
// name, "=" or a numeric operator, and an operand that is a literal word or
// one reference to a plain variable.
struct X_LETPLAN {
    X_REF target;      // the variable assigned
    int op;            // the operator
    X_REF operand;     // the operand's variable when its name is set
    const char *word;  // the literal operand otherwise
    long number;       // that operand as a number
};

// Fills PLAN for the assignment line LINE (as dispatch hands it to X_let):
// 0, or -1 when the line needs the general path.
int X_let_prepare(const char *line, X_LETPLAN *plan);
// Runs the plan as X_let(line, 1, 0) would with trace and debug off: 0 when
// done, -1 (nothing done) when this run needs the general path: a value
// that could move the split, a missing or fixed variable.
int X_let_run(X_LETPLAN *plan);
