// Process and file-system commands (shell, exec, fork, sleep, usleep,
// chdir, unlink), the signal handler that calls page functions, and the
// run's random seeding.
#include "syscmd/process.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "control/blocks.h"
#include "diag/diag.h"
#include "storage/store.h"
#include "storage/tree.h"
#include "subst/args.h"
#include "subst/subst.h"
#include "syscmd/argcut.h"
#include "page/output.h"

namespace {

constexpr int FUNCNAME = 40;  // buffer of the exec function name

// Expands the text after a tag of tlen characters into text and writes the
// debug line.
void expand(const char *line, int tlen, char *text, int compile)
{
    X_expand_args(line + tlen, text, compile);
    X_DEBUG("%s // %s \n", line, text);
}

// The first whole argument of text.
void first_arg(const char *text, char *arg)
{
    X_argcut cut{text, 0};
    X_next_arg(&cut, arg, X_MAXLINE);
}

// A number read as sscanf "%d" reads it; no digits give 0, and values
// beyond int are held at its limits.
int int_of(const char *text)
{
    char *end;
    long v = strtol(text, &end, 10);
    if (end == text) return 0;
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return (int)v;
}

// In a child made by fork: X_PID is made again with the child's own id.
void renew_pid()
{
    char pid[32];
    snprintf(pid, sizeof pid, "%d", (int)getpid());
    if (X_USER *user = X_find_user("X_PID")) {
        AVL_remove(&x_BUFFERS.vtree, "X_PID");
        X_USER_free(user);
    }
    X_put_value("X_PID", pid, 1, 0);
}

}  // namespace

static bool seed_pending;

void X_seed()
{
    seed_pending = false;
    srandom((unsigned)getpid());
    long r1 = random();
    long r2 = random();
    srandom((unsigned)r1 + (unsigned)r2);
}

void X_seed_later()
{
    seed_pending = true;
}

void X_seed_with(unsigned seed)
{
    seed_pending = false;
    srandom(seed);
}

long X_random()
{
    if (seed_pending) X_seed();
    return random();
}

// Runs the whole text with system(); only a shell that cannot be started
// is an error, a command that fails is not.
int X_shell(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@shell>")) return -1;
    if (ignore) return 0;
    char text[X_MAXLINE];
    expand(line, 8, text, compile);
    X_TRACE("X_shell: {%s}\n", text);
    // Nothing is flushed first: with flushing off, the page's buffered text
    // follows the command's own output.
    X_body();  // the header goes out before the command's own output
    X_flush_out();
    if (system(text) == -1) ERRMSG("Cannot run SHELL: %s \n", text);
    return 0;
}

// FUNCTION [ARGS]: runs a built-in string function on the rest of the text.
int X_exec(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@exec>")) return -1;
    X_TRACE("X_exec: {%s} compile: %d ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE];
    expand(line, 7, text, compile);
    X_argcut cut{text, 0};
    char name[FUNCNAME];
    X_next_arg(&cut, name, FUNCNAME);
    X_exec_call(name, text + cut.pos);
    return 0;
}

// VAR: splits the process. VAR gets the child's id (or "-1") in the parent
// and "0" in the child, which also renews X_PID and its random seed.
int X_fork(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@fork>")) return -1;
    X_TRACE("X_fork: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE], var[X_MAXLINE];
    expand(line, 7, text, compile);
    first_arg(text, var);

    // Nothing is flushed first: with flushing off, both processes inherit
    // and write the page's buffered text.
    X_body();  // one header, whichever process writes first
    X_flush_out();
    pid_t pid = fork();
    if (pid != 0) {
        char num[32];
        snprintf(num, sizeof num, "%ld", (long)pid);
        X_put_value(var, num);
        return 0;
    }
    renew_pid();
    X_seed();
    X_put_value(var, "0");
    return 0;
}

int X_sleep(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@sleep>")) return -1;
    X_TRACE("X_sleep: buff= %s; compile= %d ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE];
    expand(line, 8, text, compile);
    int n = int_of(text);
    X_flush_out();
    if (n >= 1) sleep((unsigned)n);
    return 0;
}

int X_usleep(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@usleep>")) return -1;
    X_TRACE("X_usleep: buff= %s; compile= %d ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE];
    expand(line, 9, text, compile);
    int n = int_of(text);
    X_flush_out();
    if (n >= 1) usleep((useconds_t)n);
    return 0;
}

// PATH: changes the working directory; a failure is silent.
int X_chdir(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@chdir>")) return -1;
    X_TRACE("X_chdir: buff= %s; compile= %d ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE], path[X_MAXLINE];
    expand(line, 8, text, compile);
    first_arg(text, path);
    if (chdir(path) != 0) return 0;
    return 0;
}

// PATH: removes a file; a failure is silent.
int X_unlink(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@unlink>")) return -1;
    X_TRACE("X_unlink: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE], path[X_MAXLINE];
    expand(line, 9, text, compile);
    first_arg(text, path);
    unlink(path);
    return 0;
}

// Re-arms itself, then calls the page function set for the signal with the
// signal number as its argument. It runs on the interrupted state.
void X_signal(int sig)
{
    int saved = errno;
    signal(sig, X_signal);
    if (sig < 1 || sig >= X_NSIG || SignalFUNC[sig][0] == '\0') {
        errno = saved;
        return;
    }
    char func[sizeof SignalFUNC[0]];
    snprintf(func, sizeof func, "%.*s", (int)sizeof func - 1, SignalFUNC[sig]);
    char cmd[sizeof func + 32];
    snprintf(cmd, sizeof cmd, "<@call> %s( %d ) ", func, sig);
    X_TRACE("==> SIGTRAP call: CALL: [%s] ", func);
    X_DEBUG("==> SIGTRAP call: CALL: [%s] ", func);
    X_call(cmd, 1, 0, nullptr);
    errno = saved;
}
