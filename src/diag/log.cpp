// The server log: one line per report on standard error, which a web
// server keeps in its error log.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "page/page.h"

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

// One report on the page line read last; nothing in shell mode, where the
// person running the page sees its output.
static void report(const char *kind, const char *msg) {
    if (!getenv("REQUEST_METHOD")) return;
    const char *page;
    int line = X_where(&page);
    while (*msg == ' ' || *msg == '\n') ++msg;
    int n = static_cast<int>(strlen(msg));
    while (n > 0 && (msg[n - 1] == ' ' || msg[n - 1] == '\n' || msg[n - 1] == '\r')) --n;
    if (page) X_log("%s:%d: %s: %.*s", page, line, kind, n, msg);
    else X_log("%s: %.*s", kind, n, msg);
}

int X_log_error(const char *msg) {
    report("error", msg);
    return 0;
}

int X_warn(const char *fmt, ...) {
    char text[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    report("warning", text);
    return 0;
}
