// Trace and debug logs, switched on by marker files in X_HOME.
#include <cstdarg>
#include <cstring>
#include <sys/time.h>
#include <unistd.h>

#include "diag/diag.h"
#include "x.h"
#include "page/output.h"

// Time stamp shared by both channels: whole seconds since the first stamp,
// the current microseconds, and the microseconds since the previous stamp.
int PrintTM(FILE *fp) {
    static long F;
    static int started;
    static timeval tp;
    timeval now;
    gettimeofday(&now, nullptr);
    if (!started) {
        started = 1;
        F = now.tv_sec;
        if (fp) fprintf(fp, "%5ld.%06d [%6ld] ", 0L, static_cast<int>(now.tv_usec), 0L);
    } else if (fp) {
        long delta = (now.tv_sec - tp.tv_sec) * 1000000L + (now.tv_usec - tp.tv_usec);
        fprintf(fp, "%5ld.%06d [%6ld] ", now.tv_sec - F, static_cast<int>(now.tv_usec), delta);
    }
    tp = now;
    return 0;
}

// A path that does not fit is never tested or opened in a cut form.
static bool marker(const char *name) {
    char path[4096];
    int n = X_join(path, sizeof path, {X_HOME, "/", name});
    return n > 0 && n < static_cast<int>(sizeof path) && access(path, 0) == 0;
}

static FILE *open_log(const char *name, const char *mode) {
    char path[4096];
    int n = snprintf(path, sizeof path, "%s/%s.%d", TMP_DIR ? TMP_DIR : "/tmp", name,
                     static_cast<int>(getpid()));
    return n > 0 && n < static_cast<int>(sizeof path) ? fopen(path, mode) : nullptr;
}

// Writes the time stamp and the formatted text to FP.
static void record(FILE *fp, const char *fmt, va_list ap) {
    PrintTM(fp);
    vfprintf(fp, fmt, ap);
}

// Writes one trace record; the first call picks the mode from the markers.
int X_trace(const char *fmt, ...) {
    static int Init;
    static FILE *fp;
    if (!X_HOME) return -1;
    if (!Init) {
        if (Trace == 1 || marker("X_TRACE")) Trace = 1;
        if (Trace == 2 || marker("X_LOG")) {
            fp = open_log("X_LOG", "w");
            Trace = 2;
        }
        if (Trace == 3 || marker("X_LOG3")) {
            fp = open_log("X_LOG3", "w");
            Trace = 3;
        }
        Init = 1;
    }
    if (!Trace) return 0;
    if (Trace == 1) {
        fp = X_fp ? X_fp : stdout;
        if (fp == stdout) X_body();
    }
    if (!fp) return 0;
    va_list ap;
    va_start(ap, fmt);
    record(fp, fmt, ap);
    va_end(ap);
    if (!strchr(fmt, '\n')) fputc('\n', fp);
    if (Trace == 3) {
        X_heap *hp = x_BUFFERS.hp;
        fprintf(fp, " hp: %ld ", reinterpret_cast<long>(hp));
        fflush(fp);
        fprintf(fp, " mb: %ld ", hp ? reinterpret_cast<long>(hp->smallreq) : 0L);
        fflush(fp);
        fprintf(fp, "m_used: %d =====\n", hp && hp->smallreq ? hp->smallreq->m_used : -1);
    }
    fflush(fp);
    return 0;
}

// Writes one debug record; Debug 0 closes the log.
int X_debug(const char *fmt, ...) {
    static int Init;
    static FILE *fp;
    if (!Init) {
        Init = 1;
        if (X_HOME) {
            if (marker("X_DEBUG")) Debug = 1;
            if (marker("X_DEBUG2")) Debug = 2;
        }
    }
    if (!Debug) {
        if (fp) fclose(fp);
        fp = nullptr;
        return 0;
    }
    if (!fp) fp = open_log("X_DEBUG", "a");
    if (!fp) return 0;
    va_list ap;
    va_start(ap, fmt);
    record(fp, fmt, ap);
    va_end(ap);
    if (Debug == 2) fflush(fp);
    return 0;
}
