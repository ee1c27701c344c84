// The one error path: X_ERRMSG, the page's error trap, the final output.
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "control/blocks.h"
#include "diag/diag.h"
#include "page/page.h"
#include "runtime/runtime.h"
#include "runtime/site.h"
#include "storage/store.h"
#include "subst/escape.h"
#include "subst/subst.h"
#include "x.h"
#include "page/output.h"

static int locked;     // 1 while a trap call or the final output runs

// Where a path may start in a message: after a blank or an opening mark.
static bool path_start(const char *msg, const char *p) {
    return *p == '/' && (p == msg || strchr(" \t[(:=\"'", p[-1]));
}

// MSG without the server's paths: a path under the site's root is shown
// from the root, as its URL names it; any other absolute path by its last
// component.
static std::string hide_paths(const char *msg) {
    const char *root = X_get_value("X_ROOT");
    size_t rl = root && strcmp(root, "/") ? strlen(root) : 0;
    std::string out;
    for (const char *p = msg; *p;) {
        size_t len = path_start(msg, p) ? strcspn(p, " \t\n])\"'") : 0;
        if (len < 2) {
            out += *p++;
            continue;
        }
        std::string_view path(p, len);
        if (rl && path.starts_with(std::string_view(root, rl)) && (len == rl || p[rl] == '/'))
            out.append(len == rl ? std::string_view("/") : path.substr(rl));
        else
            out.append(path.substr(path.rfind('/', len - 2) + 1));
        p += len;
    }
    return out;
}

// The message as the visitor is shown it: as it stands, or in the safe
// profile escaped for HTML and without the server's paths.
static void shown_message(char *out, int size, int kind) {
    if (X_safe()) X_escape(kind, hide_paths(X_ERRMSG).c_str(), out, size);
    else snprintf(out, size, "%s", X_ERRMSG);
}

// After X_ERRMSG is filled: the trap, or the message and the end of the run.
static int deliver() {
    X_TRACE("X_ERRMSG: %s", X_ERRMSG);
    X_DEBUG("X_ERRMSG: %s", X_ERRMSG);
    X_log_error(X_ERRMSG);  // the server log learns of every error
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
    bool cgi = getenv("REQUEST_METHOD");
    // The safe profile tells the server, while it still can, that the run failed.
    if (cgi && X_safe() && X_head_state() == X_HEAD_HELD && !X_head_has_status())
        X_head_set("Status", "500 Internal Server Error");
    X_header();
    if (!X_ERROR) {
        X_body();
        if (!cgi) {
            printf("Usage:\n\tTolm script [-Var Value [-Var2 Value2 [..]]]\n\nERROR: %s\n", X_ERRMSG);
        } else {
            static char shown[X_MAXLINE];
            shown_message(shown, sizeof shown, X_ESC_PRE);
            printf("</table></table></table><hr><h3><pre>\n %s \n</pre></h3><hr>", shown);
        }
    } else {
        // The error page shows $(X_ERRMSG): in the safe profile as the
        // visitor may see it.
        if (cgi && X_safe()) {
            static char shown[X_MAXLINE];
            shown_message(shown, sizeof shown, X_ESC_HTML);
            memcpy(X_ERRMSG, shown, strlen(shown) + 1);
        }
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
