// The page process of one FastCGI request: forked before the request
// arrives, it waits for the parameters, makes them its environment and then
// runs the CGI path as if the web server had started it.
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "fcgi/record.h"

// Reads exactly N bytes; 0, or -1 at end of input or on error.
static int read_full(int fd, void *p, size_t n) {
    auto *c = static_cast<char *>(p);
    while (n > 0) {
        ssize_t got = read(fd, c, n);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return -1;
        c += got;
        n -= got;
    }
    return 0;
}

// Waits for the request's "NAME=value" strings, each ended by a zero byte
// and preceded as a whole by their 32-bit length, and adds them to the
// environment. They are never freed: putenv keeps them.
static void take_params(int ctl) {
    uint32_t len;
    if (read_full(ctl, &len, sizeof len) != 0 || len > FCGI_MAXPARAMS) _exit(0);
    char *blob = static_cast<char *>(malloc(len + 1));
    if (!blob || read_full(ctl, blob, len) != 0) _exit(0);
    blob[len] = 0;
    for (char *s = blob; s < blob + len; s += strlen(s) + 1)
        if (strchr(s, '=')) putenv(s);
}

// Moves FD to DST (0 or 1) without the close-on-exec flag.
static void bind_fd(int fd, int dst) {
    if (fd == dst) {
        fcntl(fd, F_SETFD, 0);
        return;
    }
    dup2(fd, dst);
    close(fd);
}

// The signals the server handles or blocks go back to what a CGI program
// is started with.
static void plain_signals() {
    for (int sig : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGCHLD}) signal(sig, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

int fcgi_page_start(FCGI_PAGE *pg, int close_fd) {
    int ctl[2], in[2], out[2];
    if (pipe2(ctl, O_CLOEXEC) != 0) return -1;
    if (pipe2(in, O_CLOEXEC) != 0) {
        close(ctl[0]), close(ctl[1]);
        return -1;
    }
    if (pipe2(out, O_CLOEXEC) != 0) {
        close(ctl[0]), close(ctl[1]), close(in[0]), close(in[1]);
        return -1;
    }
    pid_t relay = getpid();
    pid_t pid = fork();
    if (pid != 0) {
        close(ctl[0]), close(in[0]), close(out[1]);
        if (pid < 0) {
            close(ctl[1]), close(in[1]), close(out[0]);
            return -1;
        }
        setpgid(pid, pid);  // also done by the child: whichever runs first
        *pg = {pid, ctl[1], in[1], out[0]};
        return 1;
    }
    // A page outlives no relay: the relay is what answers the web server.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != relay) _exit(0);
    setpgid(0, 0);
    close(ctl[1]), close(in[1]), close(out[0]);
    // Keep the pipe ends clear of 0 and 1 before binding them there.
    int body = fcntl(in[0], F_DUPFD_CLOEXEC, 3);
    int page_out = fcntl(out[1], F_DUPFD_CLOEXEC, 3);
    close(in[0]), close(out[1]);
    if (close_fd >= 0) close(close_fd);
    take_params(ctl[0]);
    close(ctl[0]);
    bind_fd(body, 0);
    bind_fd(page_out, 1);
    plain_signals();
    return 0;
}
