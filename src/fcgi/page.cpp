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

// Moves FD (above 2) to DST, which loses its close-on-exec flag.
static void bind_fd(int fd, int dst) {
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
    // Pipes [0] control, [1] body, [2] output, [3] error output: the relay
    // writes the first two and reads the others.
    int p[4][2], made = 0;
    while (made < 4 && pipe2(p[made], O_CLOEXEC) == 0) made++;
    pid_t relay = getpid();
    pid_t pid = made == 4 ? fork() : -1;
    if (pid != 0) {
        for (int i = 0; i < made; i++) close(p[i][i < 2 ? 0 : 1]);
        if (pid < 0) {
            for (int i = 0; i < made; i++) close(p[i][i < 2 ? 1 : 0]);
            return -1;
        }
        setpgid(pid, pid);  // also done by the child: whichever runs first
        *pg = {pid, p[0][1], p[1][1], p[2][0], p[3][0]};
        return 1;
    }
    // A page outlives no relay: the relay is what answers the web server.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != relay) _exit(0);
    setpgid(0, 0);
    for (int i = 0; i < 4; i++) close(p[i][i < 2 ? 1 : 0]);
    // Keep the pipe ends clear of 0, 1 and 2 before binding them there.
    int fd[3];
    for (int i = 0; i < 3; i++) {
        int end = p[i + 1][i == 0 ? 0 : 1];
        fd[i] = fcntl(end, F_DUPFD_CLOEXEC, 3);
        close(end);
    }
    if (close_fd >= 0) close(close_fd);
    take_params(p[0][0]);
    close(p[0][0]);
    for (int i = 0; i < 3; i++) bind_fd(fd[i], i);
    plain_signals();
    return 0;
}
