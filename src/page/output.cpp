// The output stream of the page and its flushing policy.
#include "page/page.h"
#include "subst/args.h"

X_OPEN *X_stdout_row;

FILE *X_out() {
    bool closed = X_stdout_row && X_stdout_row->fp != X_stdout;
    if (X_stdout && !closed) return X_stdout;
    return X_fp ? X_fp : stdout;
}

int X_fflush(FILE *stream) {
    if (stream && MY_fflush && (DO_fflush || MY_fflush == 1)) fflush(stream);
    return 0;
}

int X_putchar(int ch) {
    FILE *f = X_out();
    if (HTML) fputs(HTML_string(ch), f);
    else fputc(ch, f);
    return 0;
}
