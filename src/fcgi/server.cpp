// The FastCGI server: a warm parent that keeps a pool of pre-forked workers
// waiting in accept() and replaces any that ends. A worker relays one
// connection at a time to a page process it forked before accepting (see
// page.cpp), so forking is off the request's path and every request runs in
// a process that never saw another request; the page process ends with the
// request. Workers live on between requests: forking a fresh worker per
// request as well measured slower (TOLM_FASTCGI_REQUESTS=1 still does it).
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <ctime>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fcgi/fcgi.h"
#include "fcgi/record.h"

namespace {

constexpr int kMaxWorkers = 256;
constexpr int kGrace = 10;  // seconds past the time limit before a worker is killed

// The pool as the parent sees it.
struct Pool {
    int lfd;                    // listening socket
    int size;                   // workers kept running
    int timeout;                // seconds a request may take
    int requests;               // connections a worker serves, 0 for no limit
    pid_t pid[kMaxWorkers];     // worker of each slot, 0 when empty
    long born[kMaxWorkers];     // when each slot's worker was started
    long failed[kMaxWorkers];   // when its last worker ended failing, 0 if not
    long *busy;                 // shared with the workers: accept time of each slot, 0 idle
    char path[108];             // Unix socket made here, removed at the end
};

volatile sig_atomic_t stop_asked;  // SIGTERM reached an idle worker

void on_term(int) { stop_asked = 1; }

// Start-up failures: a message on standard error and exit status 1. ERR is
// the system's error number, 0 for an address that does not parse.
[[noreturn]] void fail(const char *what, const char *detail, int err) {
    if (err) fprintf(stderr, "Tolm: FastCGI: %s %s: %s\n", what, detail, strerror(err));
    else fprintf(stderr, "Tolm: FastCGI: %s %s\n", what, detail);
    exit(1);
}

long now_s() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec;
}

// Takes a positive number from the environment variable NAME, else DEF, and
// removes the variable so that pages and their children never see it.
int setting(const char *name, int def, int max) {
    const char *s = getenv(name);
    int v = s ? atoi(s) : 0;
    unsetenv(name);
    if (v <= 0) return def;
    return v > max ? max : v;
}

// A listening socket on ADDR: "host:port" with a numeric IPv4 host,
// "[v6]:port", or a Unix socket path (any text with a "/").
int listen_on(const char *addr) {
    sockaddr_storage ss{};
    socklen_t len;
    int family;
    if (strchr(addr, '/')) {
        auto *un = reinterpret_cast<sockaddr_un *>(&ss);
        if (strlen(addr) >= sizeof un->sun_path) fail("socket path too long:", addr, 0);
        un->sun_family = family = AF_UNIX;
        strcpy(un->sun_path, addr);
        len = sizeof *un;
        unlink(addr);  // a socket left by an earlier run
    } else {
        const char *colon = strrchr(addr, ':');
        if (!colon) fail("no port in", addr, 0);
        char host[64];
        const char *h = addr;
        size_t hl = colon - addr;
        if (hl >= 2 && h[0] == '[' && h[hl - 1] == ']') h++, hl -= 2;
        if (hl >= sizeof host) fail("bad address", addr, 0);
        memcpy(host, h, hl);
        host[hl] = 0;
        char *end;
        long port = strtol(colon + 1, &end, 10);
        if (*end || end == colon + 1 || port < 1 || port > 65535) fail("bad port in", addr, 0);
        auto *in4 = reinterpret_cast<sockaddr_in *>(&ss);
        auto *in6 = reinterpret_cast<sockaddr_in6 *>(&ss);
        if (inet_pton(AF_INET, host, &in4->sin_addr) == 1) {
            in4->sin_family = family = AF_INET;
            in4->sin_port = htons(static_cast<uint16_t>(port));
            len = sizeof *in4;
        } else if (inet_pton(AF_INET6, host, &in6->sin6_addr) == 1) {
            in6->sin6_family = family = AF_INET6;
            in6->sin6_port = htons(static_cast<uint16_t>(port));
            len = sizeof *in6;
        } else {
            fail("bad address", addr, 0);
        }
    }
    int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int one = 1;
    if (fd < 0) fail("cannot open a socket for", addr, errno);
    if (family != AF_UNIX) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (bind(fd, reinterpret_cast<sockaddr *>(&ss), len) != 0) fail("cannot bind", addr, errno);
    if (listen(fd, 1024) != 0) fail("cannot listen on", addr, errno);
    return fd;
}

// 1 when FD is a socket in the listening state.
int is_listener(int fd) {
    int on = 0;
    socklen_t len = sizeof on;
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &on, &len) == 0 && on;
}

// Waits for a connection while idle. SIGTERM is let in only here: a request
// that has been accepted is always finished. Returns the connection, or -1
// when the worker is to stop.
int next_conn(Pool *pl) {
    sigset_t idle;
    sigprocmask(SIG_SETMASK, nullptr, &idle);
    sigdelset(&idle, SIGTERM);
    for (;;) {
        pollfd p{pl->lfd, POLLIN, 0};
        int n = ppoll(&p, 1, nullptr, &idle);
        if (stop_asked) return -1;
        if (n <= 0) continue;
        int conn = accept4(pl->lfd, nullptr, nullptr, SOCK_CLOEXEC);
        if (conn >= 0) return conn;
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR &&
            errno != ECONNABORTED)
            return -1;
    }
}

// A worker relays connections, each to a page process forked for it before
// the connection is accepted, and exits after pl->requests of them (0: no
// limit). It never runs a page itself, so every page process starts from
// the same clean state. Returns only in a page process, with the request in
// place.
void worker(Pool *pl, int slot) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    struct sigaction sa{};
    sa.sa_handler = on_term;  // no SA_RESTART: it must end the wait for work
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGINT, SIG_IGN);  // a Ctrl-C reaches the parent, which stops the pool
    for (int served = 0; pl->requests == 0 || served < pl->requests; served++) {
        FCGI_PAGE pg;
        int rc = fcgi_page_start(&pg, pl->lfd);
        if (rc == 0) return;
        if (rc < 0) _exit(1);
        int conn = next_conn(pl);
        if (conn < 0) _exit(0);  // the page process sees its pipe close and ends
        pl->busy[slot] = now_s();
        fcgi_serve(conn, &pg, pl->timeout, pl->size);
        close(conn);
        pl->busy[slot] = 0;
    }
    _exit(0);
}

// Starts the worker of SLOT. Returns 1 in a page process, else 0.
int spawn(Pool *pl, int slot) {
    pl->busy[slot] = 0;
    pl->born[slot] = now_s();
    pid_t pid = fork();
    if (pid == 0) {
        worker(pl, slot);
        return 1;
    }
    pl->pid[slot] = pid > 0 ? pid : 0;
    return 0;
}

// Reaps ended workers and, unless stopping, replaces them; a worker that
// failed at once (it could not fork or accept) is replaced a second later
// rather than in a tight loop. Returns -1 in a page process, else the number
// of workers still running.
int reap(Pool *pl, int stopping) {
    int st;
    pid_t pid;
    long now = now_s();
    while ((pid = waitpid(-1, &st, WNOHANG)) > 0)
        for (int i = 0; i < pl->size; i++)
            if (pl->pid[i] == pid) {
                pl->pid[i] = 0;
                int quick = now - pl->born[i] < 1;
                pl->failed[i] = quick && WIFEXITED(st) && WEXITSTATUS(st) == 1 ? now : 0;
            }
    int running = 0;
    for (int i = 0; i < pl->size; i++) {
        int wait = pl->failed[i] && now - pl->failed[i] < 1;
        if (!pl->pid[i] && !stopping && !wait && spawn(pl, i)) return -1;
        running += pl->pid[i] != 0;
    }
    return running;
}

// Kills workers that are still busy well past the time limit: their pages
// are killed with them.
void kill_stuck(Pool *pl) {
    long now = now_s();
    for (int i = 0; i < pl->size; i++)
        if (pl->pid[i] && pl->busy[i] && now - pl->busy[i] > pl->timeout + kGrace)
            kill(pl->pid[i], SIGKILL);
}

// The parent: keeps the pool full until SIGTERM or SIGINT, then lets every
// worker finish its request and exits. Returns only in a page process.
void run_pool(Pool *pl) {
    sigset_t set;
    sigemptyset(&set);
    for (int s : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, s);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
    int stopping = 0;
    for (;;) {
        int running = reap(pl, stopping);
        if (running < 0) return;
        if (stopping && running == 0) {
            if (pl->path[0]) unlink(pl->path);
            exit(0);
        }
        kill_stuck(pl);
        timespec tick{1, 0};
        siginfo_t si;
        int sig = sigtimedwait(&set, &si, &tick);
        if ((sig == SIGTERM || sig == SIGINT) && !stopping) {
            stopping = 1;
            close(pl->lfd);
            for (int i = 0; i < pl->size; i++)
                if (pl->pid[i]) kill(pl->pid[i], SIGTERM);
        }
    }
}

}  // namespace

int X_fastcgi() {
    const char *addr = getenv("TOLM_FASTCGI_LISTEN");
    int own = addr && *addr;
    int lfd;
    if (own) lfd = listen_on(addr);
    else if (is_listener(0)) lfd = 0;
    else return 0;
    unsetenv("TOLM_FASTCGI_LISTEN");
    fcntl(lfd, F_SETFL, fcntl(lfd, F_GETFL) | O_NONBLOCK);
    static Pool pool;
    if (own && strchr(addr, '/')) snprintf(pool.path, sizeof pool.path, "%s", addr);
    long cores = sysconf(_SC_NPROCESSORS_ONLN);
    pool.lfd = lfd;
    // Two workers a core: a worker mostly waits on its page or the web
    // server, and on two cores four served a busy site a third faster than
    // two, while eight or sixteen gained nothing.
    int def = cores > 0 ? 2 * static_cast<int>(cores) : 2;
    pool.size = setting("TOLM_FASTCGI_WORKERS", def, kMaxWorkers);
    pool.timeout = setting("TOLM_FASTCGI_TIMEOUT", 120, 86400);
    pool.requests = setting("TOLM_FASTCGI_REQUESTS", 0, 1 << 30);
    void *shared = mmap(nullptr, sizeof(long) * kMaxWorkers, PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) fail("cannot map", "the pool table", errno);
    pool.busy = static_cast<long *>(shared);
    run_pool(&pool);
    return 1;
}
