// File blocks: <@file> PATH appends the block's output to PATH; <@xfile>
// PATH does the same through a stream kept open in the stream table, so
// later xfile blocks on the same path append without reopening it.
#include <cstring>

#include "control/blocks.h"
#include "control/prefix.h"
#include "diag/diag.h"
#include "page/dispatch.h"
#include "page/page.h"
#include "subst/args.h"
#include "subst/subst.h"
#include "syscmd/streams.h"

namespace {

// Expands the argument text of the line BUFF (tag of KW bytes) and takes
// its first word into PATH (X_MAXLINE bytes).
void block_path(const char *buff, int kw, int compile, char *path) {
    char out[X_MAXLINE];
    X_expand_args(buff + kw, out, compile);
    X_DEBUG("%s // %s \n", buff, out);
    X_arg_string(out, path);
}

[[gnu::noinline]] FILE *open_file(const char *buff, int compile) {
    char path[X_MAXLINE];
    block_path(buff, 7, compile, path);
    FILE *f = fopen(path, "a");
    if (!f) ERRMSG("X_file: Cannot open file: {%s} \n", path);
    return f;
}

// The stream-table row of the xfile block BUFF: the open row of its path,
// or a new row. NULL after a reported failure.
[[gnu::noinline]] X_OPEN *xfile_row(const char *buff, int compile) {
    char path[X_MAXLINE];
    block_path(buff, 8, compile, path);
    size_t len = strlen(path);
    if (len > sizeof x_OPEN[0].name - 1) {
        ERRMSG("X_xfile: file name is too long: {%s} \n", path);
        return nullptr;
    }
    for (X_OPEN &row : x_OPEN)
        if (row.fp && strcmp(row.name, path) == 0) return &row;
    for (X_OPEN &row : x_OPEN) {
        if (row.fp) continue;
        FILE *f = fopen(path, "a");
        memcpy(row.name, path, len + 1);
        if (f) {
            row.fp = f;
            return &row;
        }
        ERRMSG("X_xfile: Cannot open file: {%s} \n", path);
        break;
    }
    ERRMSG("X_xfile: outpass MAX open for file: {%s} \n", path);
    return nullptr;
}

// Runs the block of FP with its output going to OUT (no stream: the
// output falls back to the page's), the stream of ROW for an xfile block.
// Flushing is off meanwhile.
// The previous output comes back afterwards unless the page closed its row
// meanwhile (even if a new stream took the row and the same address).
void run_into(X_FILE *fp, FILE *out, X_OPEN *row, int compile) {
    int flush = DO_fflush;
    FILE *prev = X_stdout;
    X_OPEN *prev_row = X_stdout_row;
    unsigned prev_closes = prev_row ? X_stream_closes(prev_row) : 0;
    DO_fflush = 0;
    X_stdout = out;
    X_stdout_row = row;
    X_notfound(fp, compile, 0);
    DO_fflush = flush;
    bool gone = prev_row && X_stream_closes(prev_row) != prev_closes;
    X_stdout = gone ? nullptr : prev;
    X_stdout_row = gone ? nullptr : prev_row;
}

}  // namespace

int X_File(X_FILE *fp, char *buff, int compile, int ignore) {
    if (!has_prefix(buff, "<@file>")) return -1;
    X_TRACE("X_file: {%s} compile: %d  ignore: %d \n", buff, compile, ignore);
    if (ignore) {
        X_notfound(fp, compile, 1);
        return 0;
    }
    FILE *out = open_file(buff, compile);
    run_into(fp, out, nullptr, compile);
    if (out) fclose(out);
    return 0;
}

int X_xFile(X_FILE *fp, char *buff, int compile, int ignore) {
    if (!has_prefix(buff, "<@xfile>")) return -1;
    X_TRACE("X_xfile: {%s} compile: %d  ignore: %d \n", buff, compile, ignore);
    if (ignore) {
        X_notfound(fp, compile, 1);
        return 0;
    }
    X_OPEN *row = xfile_row(buff, compile);
    run_into(fp, row ? row->fp : nullptr, row, compile);
    return 0;
}
