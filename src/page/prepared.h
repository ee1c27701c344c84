// Prepared lines: each line of a page image is read, cut and analysed once.
//
// The page reader and the block runner ask for the line at a read position;
// the answer is the line as X_fgets and cut_cmd would leave it, the position
// after it, and for the common forms (text, assignment, one-line if, block
// ends) a plan that runs the line without re-reading it. Lines are prepared
// when they are read for the second time. A line whose preparation would
// report an error, or that reads differently when cut again, has no entry
// and is read the usual way.
#pragma once

#include "control/blocks.h"
#include "control/let.h"
#include "subst/subst.h"
#include "x.h"

enum X_LINEKIND {
    X_LINE_TEXT,      // text, written with its references expanded
    X_LINE_COMMAND,   // any other "<@" line, handed to dispatch
    X_LINE_LET,       // an assignment line
    X_LINE_IF,        // a one-line <@if> ... <@break> or <@continue>
    X_LINE_IFBLOCK,   // an <@if> block head, its condition in if_plan
    X_LINE_ELIF,      // an <@elif> head, its condition in if_plan
    X_LINE_ELSE,      // <@else>, alone on its line (no operator to find)
    X_LINE_END,       // <@end>, <@continue> and <@break> of a block body
    X_LINE_CONTINUE,
    X_LINE_BREAK,
};

struct X_LINE {
    long end;           // read position after the line and its joins
    long last;          // where the last physical line read for it starts
    X_LINEKIND kind;
    bool planned;       // the plan of the kind is filled in
    char *text;         // the line as cut_cmd leaves it
    size_t len;         // its length
    X_TEXTPLAN text_plan;
    X_LETPLAN let_plan;
    X_IFPLAN if_plan;
};

// 1 (the default) lets the page reader use prepared lines while trace and
// debug are off; 0 reads every line the long way (for comparison).
extern int X_prepared;

// The prepared line at FP's read position, or NULL when the line is to be
// read the usual way (end of image, switch off, trace or debug on, or no
// entry). The read position is not moved.
X_LINE *X_line_at(X_FILE *fp);
// True when a skipped block line needs nothing but passing over: a text
// line, or a planned assignment or one-line if (consumed by dispatch).
inline bool X_line_skips(const X_LINE *line) {
    return line->kind == X_LINE_TEXT || (line->planned && (line->kind == X_LINE_LET || line->kind == X_LINE_IF));
}
// Runs a planned text, assignment or one-line if line with COMPILE as the
// page run's mode: 0 when done, -1 when the line has to go the usual way
// (nothing was done).
int X_line_run(X_LINE *line, int compile);
