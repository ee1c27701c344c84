// Stream commands: a page opens files and pipes under names of its own,
// reads them line by line, writes, seeks and closes them. Every outcome is
// reported through a status variable; nothing here raises an error.
#include "syscmd/streams.h"

#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "storage/store.h"
#include "subst/subst.h"
#include "syscmd/argcut.h"
#include "page/output.h"

// How often each row of the stream table was closed: a block that saved a
// row's stream can tell whether it is still the stream it saved.
static unsigned closes[X_NOPEN];

unsigned X_stream_closes(const X_OPEN *row)
{
    return closes[row - x_OPEN];
}

namespace {

constexpr int SHORT = 1000;     // scratch of one argument of the short commands
constexpr long MAXREAD = 65535; // largest SIZE of a line read

// First free row of the stream table, or NULL when all 32 are in use.
X_OPEN *free_row()
{
    for (X_OPEN &row : x_OPEN)
        if (!row.fp) return &row;
    return nullptr;
}

// NAME PATH MODE [STATUS]: opens a file, or a pipe when pipe is set, in the
// first free row. A full table fails before anything is opened.
int open_row(const char *rest, const char *line, int compile, bool pipe)
{
    char text[X_MAXLINE];
    X_expand_args(rest, text, compile);
    X_DEBUG("%s // %s \n", line, text);

    X_argcut cut{text, 0};
    char name[SHORT], path[SHORT], mode[SHORT], status[SHORT];
    X_next_arg(&cut, name, SHORT);
    X_next_arg(&cut, path, SHORT);
    X_next_arg(&cut, mode, SHORT);
    X_next_arg(&cut, status, SHORT);

    X_OPEN *row = free_row();
    if (!row) return X_set_status(status, -1);
    if (pipe) X_body();  // the command may write to the response
    if (pipe) X_flush_out();
    FILE *fp = pipe ? popen(path, mode) : fopen(path, mode);
    if (!fp) return X_set_status(status, -1);
    row->fp = fp;
    snprintf(row->name, sizeof row->name, "%.127s", name);
    return X_set_status(status, 0);
}

// NAME [STATUS]: closes the first row of that name with fclose or, when
// pipe is set, pclose, whatever opened it; the close's own result is ignored.
// Output that went to the closed stream falls back to the page's.
int close_row(const char *rest, const char *line, int compile, bool pipe)
{
    char text[X_MAXLINE];
    X_expand_args(rest, text, compile);
    X_DEBUG("%s // %s \n", line, text);

    X_argcut cut{text, 0};
    char name[SHORT], status[SHORT];
    X_next_arg(&cut, name, SHORT);
    X_next_arg(&cut, status, SHORT);

    X_OPEN *row = X_find_stream(name);
    if (!row) return X_set_status(status, -1);
    // Page output must never go on into the closed stream, nor into a later
    // stream that happens to get the same address.
    if (row->fp == X_stdout) X_stdout = nullptr;
    if (row->fp == X_fp) X_fp = nullptr;
    if (pipe)
        pclose(row->fp);
    else
        fclose(row->fp);
    closes[row - x_OPEN]++;
    row->fp = nullptr;
    row->name[0] = '\0';
    return X_set_status(status, 0);
}

// Cuts the first line feed, then the first carriage return.
void chop(char *buf)
{
    if (char *p = strchr(buf, '\n')) *p = '\0';
    if (char *p = strchr(buf, '\r')) *p = '\0';
}

}  // namespace

X_OPEN *X_find_stream(const char *name)
{
    for (X_OPEN &row : x_OPEN)
        if (row.fp && strcmp(row.name, name) == 0) return &row;
    return nullptr;
}

int X_io_fopen(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@fopen>")) return -1;
    X_TRACE("X_io_fopen: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    return open_row(line + 8, line, compile, false);
}

int X_io_popen(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@popen>")) return -1;
    X_TRACE("X_io_popen: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    return open_row(line + 8, line, compile, true);
}

int X_io_fclose(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@fclose>")) return -1;
    X_TRACE("X_io_fclose: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    return close_row(line + 9, line, compile, false);
}

int X_io_pclose(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@pclose>")) return -1;
    X_TRACE("X_io_pclose: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    X_flush_out();  // the command's output follows the page's text
    return close_row(line + 9, line, compile, true);
}

// NAME [VAR] [SIZE] [STATUS]: reads one line of at most SIZE - 1 bytes into
// VAR ("buff" by default) without its line feed and carriage return. SIZE
// is capped at 65535; without it the read always fails. X_eof tells the
// page whether the last read found no line.
int X_io_fgets(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@fgets>")) return -1;
    X_TRACE("X_io_fgets: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;

    char text[X_MAXLINE];
    X_expand_args(line + 8, text, compile);
    X_DEBUG("%s // %s \n", line, text);

    X_argcut cut{text, 0};
    char name[SHORT], var[SHORT], size[SHORT], status[SHORT];
    X_next_arg(&cut, name, SHORT);
    X_next_arg(&cut, var, SHORT);
    X_next_arg(&cut, size, SHORT);
    X_next_arg(&cut, status, SHORT);

    long n = strtol(size, nullptr, 10);
    if (n > MAXREAD) n = MAXREAD;
    FILE *fp = nullptr;
    if (strcmp(name, "stdin") == 0) {
        X_flush_out();  // whoever answers may want to see the page first
        fp = stdin;
    } else if (X_OPEN *row = X_find_stream(name)) {
        fp = row->fp;
    }

    char buf[X_MAXLINE];
    if (!fp || n <= 0 || !fgets(buf, (int)n, fp)) {
        X_eof = 1;
        return X_set_status(status, -1);
    }
    X_eof = 0;
    chop(buf);
    X_put_value(*var ? var : "buff", buf);
    return X_set_status(status, 0);
}

// fputs NAME TEXT [STATUS] writes TEXT; vfputs NAME VAR [STATUS] writes
// the value of VAR. No line feed is added. "stdout" and "stderr" are the
// process's own streams.
int X_io_fputs(char *line, int compile, int ignore)
{
    int vput = X_has_tag(line, "<@vfputs>");
    if (!vput && !X_has_tag(line, "<@fputs>")) return -1;
    X_TRACE("X_io_fputs: {%s} compile: %d  ignore: %d VPUT: %d \n", line, compile, ignore,
            vput);
    if (ignore) return 0;

    char text[X_MAXLINE];
    X_expand_args(line + (vput ? 9 : 8), text, compile);
    X_DEBUG("%s // %s \n", line, text);

    // Arguments here may be as long as the whole line.
    X_argcut cut{text, 0};
    char name[X_MAXLINE], arg[X_MAXLINE], status[X_MAXLINE];
    X_next_arg(&cut, name, X_MAXLINE);
    X_next_arg(&cut, arg, X_MAXLINE);
    X_next_arg(&cut, status, X_MAXLINE);

    const char *out = vput ? X_get_value(arg) : arg;
    if (!out) return X_set_status(status, -1);

    FILE *fp = nullptr;
    // Collected text goes out first: this write is not flushed at once, and a
    // pipe's command may write to the response itself.
    X_flush_out();
    if (strcmp(name, "stdout") == 0) {
        X_body();
        fp = stdout;
    } else if (strcmp(name, "stderr") == 0) {
        fp = stderr;
    } else if (X_OPEN *row = X_find_stream(name)) {
        fp = row->fp;
    }
    if (!fp || fputs(out, fp) == EOF) return X_set_status(status, -1);
    if (MY_fflush == 1) fflush(fp);
    return X_set_status(status, 0);
}

// NAME OFFSET WHENCE [STATUS]: fseek on a stream of the table.
int X_io_fseek(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@fseek>")) return -1;
    X_TRACE("X_io_fseek: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;

    char text[X_MAXLINE];
    X_expand_args(line + 8, text, compile);
    X_DEBUG("%s // %s \n", line, text);

    X_argcut cut{text, 0};
    char name[SHORT], offset[SHORT], whence[SHORT], status[SHORT];
    X_next_arg(&cut, name, SHORT);
    X_next_arg(&cut, offset, SHORT);
    X_next_arg(&cut, whence, SHORT);
    X_next_arg(&cut, status, SHORT);

    X_OPEN *row = X_find_stream(name);
    if (!row) return X_set_status(status, -1);
    long off = strtol(offset, nullptr, 10);
    int from = (int)strtol(whence, nullptr, 10);
    return X_set_status(status, fseek(row->fp, off, from) == 0 ? 0 : -1);
}
