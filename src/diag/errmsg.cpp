// The one error path: X_ERRMSG, the page's error trap, the final output.
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "control/blocks.h"
#include "diag/diag.h"
#include "page/page.h"
#include "runtime/runtime.h"
#include "subst/subst.h"
#include "x.h"

static int locked;  // 1 while a trap call or the final output runs

// After X_ERRMSG is filled: the trap, or the message and the end of the run.
static int deliver() {
    X_TRACE("X_ERRMSG: %s", X_ERRMSG);
    X_DEBUG("X_ERRMSG: %s", X_ERRMSG);
    if (err_trap && !locked) {
        locked = 1;
        char call[sizeof err_func + 16];
        snprintf(call, sizeof call, "<@call> %s ", err_func);
        X_TRACE("==> ERRTRAP call: CALL: [%s] ", err_func);
        X_call(call, 1, 0, nullptr);
        locked = 0;
        return 0;
    }
    locked = 1;
    X_header();
    if (!X_ERROR) {
        if (!getenv("REQUEST_METHOD"))
            printf("Usage:\n\tTolm script [-Var Value [-Var2 Value2 [..]]]\n\nERROR: %s\n", X_ERRMSG);
        else
            printf("</table></table></table><hr><h3><pre>\n %s \n</pre></h3><hr>", X_ERRMSG);
    } else {
        if (X_fp) fclose(X_fp);
        X_fp = nullptr;
        X_stdout = nullptr;
        X_printfile(X_ERROR, 1);
    }
    X_exit(-2);
}

static bool silenced(const char *fmt) {
    X_TRACE("ERRMSG:: locked: %d  err_trap: %d  err_func: [%s] :: msgfmt= %s \n", locked, err_trap,
            err_func, fmt);
    return locked == 1 && !err_trap;
}

int ERRMSG(const char *fmt, ...) {
    if (silenced(fmt)) return -1;
    // Format through a scratch copy: an argument may be X_ERRMSG itself.
    static char text[X_MAXLINE];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    memcpy(X_ERRMSG, text, strlen(text) + 1);
    return deliver();
}

int ERRMSG_text(const char *msg) {
    if (!msg) msg = "";
    if (silenced(msg)) return -1;
    static char text[X_MAXLINE];
    X_format(text, sizeof text, msg, nullptr, 0);
    memcpy(X_ERRMSG, text, strlen(text) + 1);
    return deliver();
}

// Installs the error trap function NAME, or removes the trap for "".
int ERRTRAP(const char *name) {
    X_TRACE("ERRCALL: [%s] current err_trap: %d \n", name, err_trap);
    if (!name || !*name) {
        err_trap = 0;
        return 0;
    }
    memset(err_func, 0, sizeof err_func);
    strncpy(err_func, name, sizeof err_func - 2);
    err_trap = 1;
    return 0;
}

// <@error> TEXT: raises an error with the page's own text.
int X_error(char *line, int compile, int ignore) {
    if (strncmp(line, "<@error>", 8) != 0) return -1;
    X_TRACE("X_error: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE];
    X_expand_args(line + 8, text, compile);
    X_DEBUG("%s // %s \n", line, text);
    return ERRMSG_text(text);
}

// The database error exit: reports the back end's text and calls the
// database trap function.
const char *X_error_cid() {
    if (X_sqlTRAP) ERRMSG_text(X_ERRMSG);
    X_sqlcode = -1;
    if (X_sqlFUNC) {
        char call[sizeof TRAPfunc + 16];
        snprintf(call, sizeof call, "<@call> %s ", TRAPfunc);
        X_TRACE("==> SQLTRAP call: CALL: [%s] ", TRAPfunc);
        X_call(call, 1, 0, nullptr);
    }
    return "none";
}
