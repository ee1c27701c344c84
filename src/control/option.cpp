// The option command: "<@option> name value [word]" sets an interpreter
// switch. Option and value are case-insensitive; the third word (a
// function name) is kept as written.
#include "control/option.h"

#include <unistd.h>

#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "diag/diag.h"
#include "page/dispatch.h"
#include "page/output.h"
#include "subst/args.h"
#include "subst/subst.h"
#include "syscmd/process.h"
#include "x.h"

namespace {

constexpr std::string_view tag = "<@option>";

// Signal names the option understands besides the numbers 1..31.
struct SigRow {
    std::string_view name;
    int sig;
};

constexpr SigRow sig_rows[] = {
    {"sigterm", 15}, {"sigint", 2},  {"sighup", 1},   {"sigalrm", 14},
    {"sigpipe", 13}, {"sigusr1", 10}, {"sigusr2", 12}, {"sigchld", 17},
};

static_assert(X_NSIG == 32, "one row of SignalFUNC per signal number 0..31");

void lower(char *s) {
    for (; *s; s++) *s = (char)tolower((unsigned char)*s);
}

// Copies at most max bytes of src into dst and terminates it.
void copy_name(char *dst, const char *src, size_t max) {
    size_t n = strnlen(src, max);
    memcpy(dst, src, n);
    dst[n] = 0;
}

// A number from 1 to 31, else one of the names; 0 after reporting an
// unknown value.
int signal_number(const char *val) {
    long n = strtol(val, nullptr, 10);
    if (n >= 1 && n <= 31) return (int)n;
    for (const SigRow &r : sig_rows)
        if (r.name == val) return r.sig;
    ERRMSG("## Wrong or unsupported signal name: %s !!", val);
    return 0;
}

// Clears the signal's function and restores its default action; with a
// function name, records it and installs the handler.
void set_signal(const char *val, const char *func) {
    int sig = signal_number(val);
    SignalFUNC[sig][0] = 0;
    signal(sig, SIG_DFL);
    if (*func && *val) {
        copy_name(SignalFUNC[sig], func, 30);
        signal(sig, X_signal);
    }
}

int on_off(const char *val, int *flag) {
    if (!strcmp(val, "on")) *flag = 1;
    else if (!strcmp(val, "off")) *flag = 0;
    else return -1;
    return 0;
}

int sql_trap(const char *val, const char *func) {
    if (!strcmp(val, "off")) X_sqlTRAP = 0;
    else if (!strcmp(val, "on")) X_sqlTRAP = 1;
    else if (!strcmp(val, "off_transactions")) X_sqlTRANS = 0;
    else if (!strcmp(val, "on_transactions")) X_sqlTRANS = 1;
    else if (!strcmp(val, "function")) {
        X_sqlFUNC = 0;
        if (*func) {
            copy_name(TRAPfunc, func, 62);
            X_sqlTRAP = 0;
            X_sqlFUNC = 1;
        }
    } else {
        return -1;
    }
    return 0;
}

// Applies one option; -1 when no row of the table fits.
int apply(const char *opt, const char *val, const char *func, int *compile) {
    if (!strcmp(opt, "fflush") || !strcmp(opt, "flush")) {
        MY_fflush = !strcmp(val, "on") ? 1 : !strcmp(val, "off") ? 0 : -1;
        return 0;
    }
    if (!strcmp(opt, "sql_names")) {
        if (!strcmp(val, "lowercase")) X_sqlcase = 0;
        else if (!strcmp(val, "uppercase")) X_sqlcase = 1;
        else return -1;
        return 0;
    }
    if (!strcmp(opt, "sql_transactions")) return on_off(val, &X_sqlTRANS);
    if (!strcmp(opt, "err_trap")) {
        if (strcmp(val, "function")) return -1;
        ERRTRAP(func);
        return 0;
    }
    if (!strcmp(opt, "sql_trap")) return sql_trap(val, func);
    if (!strcmp(opt, "signal")) {
        if (!X_sandbox) set_signal(val, func);
        return 0;
    }
    if (!strcmp(opt, "alarm")) {
        long n = strtol(val, nullptr, 10);
        if (X_sandbox) return 0;
        if (n > 0) X_out_immediate();  // the alarm may end the run: nothing waits
        alarm(n > 0 ? (unsigned)n : 0);
        return 0;
    }
    if (!strcmp(opt, "latin_html")) return on_off(val, &HTML);
    if (!strcmp(opt, "ignore_empty_lines")) return on_off(val, &IgnoreEmpty);
    if (!strcmp(opt, "translate")) return on_off(val, compile);
    if (!strcmp(opt, "debug")) return on_off(val, &Debug);
    if (!strcmp(opt, "trace")) return on_off(val, &Trace);
    return -1;
}

}  // namespace

// Handles "<@option>". Answers -1 for another line, 0 when ignoring or
// after applying the option, -2 after reporting an unknown one. compile is
// the compile flag of the page run that dispatched the line.
int X_option(char *buff, int *compile, int ignore) {
    if (strncmp(buff, tag.data(), tag.size())) return -1;
    X_TRACE("X_option: buff= %s; compile= %d ignore: %d \n", buff, *compile, ignore);
    if (ignore) return 0;

    char line[X_MAXLINE];
    line[0] = 0;
    X_expand_args(buff + tag.size(), line, *compile);
    X_DEBUG("%s // %s\n", buff, line);

    // The words lie one after another in words: each one fits in the
    // part of the line it was read from, plus its terminator.
    char words[X_MAXLINE + 4];
    char *opt = words;
    int pos = X_arg_string(line, opt);
    char *val = opt + strlen(opt) + 1;
    pos += X_arg_string(line + pos, val);
    char *func = val + strlen(val) + 1;
    X_arg_string(line + pos, func);
    lower(opt);
    lower(val);

    if (apply(opt, val, func, compile) == 0) return 0;
    ERRMSG("Unknown option: %s", line);
    return -2;
}
