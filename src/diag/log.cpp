// The server log: one line per report on standard error, which a web
// server keeps in its error log.
#include <cstdarg>
#include <cstdio>

#include "diag/diag.h"

int X_log(const char *fmt, ...) {
    char text[2048];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    // Request and page text may hold line breaks: the report stays one line.
    char line[sizeof text * 4 + 8];
    int n = snprintf(line, sizeof line, "Tolm: ");
    for (const unsigned char *p = reinterpret_cast<unsigned char *>(text); *p; ++p) {
        if (*p < 32 || *p == 127)
            n += snprintf(line + n, sizeof line - n, "\\x%02x", *p);
        else
            line[n++] = static_cast<char>(*p);
    }
    line[n++] = '\n';
    fwrite(line, 1, n, stderr);
    fflush(stderr);
    return 0;
}
