// Per-site limits of one request: refusals before the page sees the
// request, and the process limits and wall clock of the run.
#include "runtime/limits.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "diag/diag.h"
#include "form/form.h"
#include "page/output.h"
#include "runtime/runtime.h"
#include "runtime/site.h"

namespace {

char refusal[256];        // the pending refusal, "" when none
long run_limit;           // seconds of the limit that ended the run
volatile sig_atomic_t ending;  // 1 once a run limit fired

// Sets the pending refusal and writes the status line of the answer.
void refuse(const char *fmt, long a, long b) {
    snprintf(refusal, sizeof refusal, fmt, a, b);
    if (getenv("REQUEST_METHOD")) X_head_status("413 Request Entity Too Large");
}

// A decimal number of the environment, or -1 when unset or not a number.
long env_number(const char *name) {
    const char *text = getenv(name);
    if (!text || !*text) return -1;
    errno = 0;
    char *end;
    long v = strtol(text, &end, 10);
    if (errno || v < 0) return -1;
    int shift = *end == 'k' || *end == 'K' ? 10 : *end == 'm' || *end == 'M' ? 20
              : *end == 'g' || *end == 'G' ? 30 : 0;
    if (shift) ++end;
    if (*end || v > (LONG_MAX >> shift)) return -1;
    return v << shift;
}

// The processor or wall-clock time ran out: the message goes through the
// error path, which ends the run; should that path itself not get through
// (a trap that returns, or a lock held by the interrupted code), the next
// signal of the same source ends the process at once.
void expired(int sig) {
    if (ending) _exit(-2 & 0xff);
    ending = 1;
    if (sig == SIGXCPU)
        ERRMSG("Processor time limit of %ld seconds reached \n", x_SITE.cpu_seconds);
    else
        ERRMSG("Time limit of %ld seconds reached \n", run_limit);
    X_exit(-2);
}

void on(int sig) {
    struct sigaction sa {};
    sa.sa_handler = expired;
    sa.sa_flags = SA_NODEFER;  // a second signal can end a stuck handler
    sigaction(sig, &sa, nullptr);
}

void set(int resource, long value, long hard) {
    rlimit rl{static_cast<rlim_t>(value), static_cast<rlim_t>(hard)};
    setrlimit(resource, &rl);
}

// Arms a timer that signals this thread after SECONDS, then every 2 s.
void wall_clock(long seconds) {
    static timer_t timer;
    sigevent ev{};
    ev.sigev_notify = SIGEV_THREAD_ID;
    ev.sigev_signo = SIGRTMIN;  // no page can claim it: pages handle 1..31
    ev._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
    if (timer_create(CLOCK_MONOTONIC, &ev, &timer) != 0) return;
    on(SIGRTMIN);
    itimerspec t{{2, 0}, {seconds, 0}};
    timer_settime(timer, 0, &t, nullptr);
}

}  // namespace

int X_limit_body() {
    long most = x_SITE.max_body;
    if (most <= 0) return 0;
    const char *text = GETenv("CONTENT_LENGTH");
    errno = 0;
    long n = strtol(text, nullptr, 10);
    if (errno == ERANGE) n = LONG_MAX;
    if (n <= most) return 0;
    refuse("Request too large: a body of %ld bytes, this site accepts %ld (413) \n", n, most);
    return -1;
}

int X_limit_form(entry *list) {
    if (refusal[0]) return -1;
    const X_SITE &s = x_SITE;
    if (s.max_pairs <= 0 && s.max_uploads <= 0 && s.max_upload <= 0) return 0;
    long pairs = 0, files = 0;
    for (entry *e = list; e->name || e->val; ++e) {
        ++pairs;
        if (!e->val || !X_upload_is(e->val)) continue;
        ++files;
        struct stat st;
        if (s.max_upload > 0 && lstat(e->val, &st) == 0 && st.st_size > s.max_upload) {
            refuse("Upload too large: a file of %ld bytes, this site accepts %ld (413) \n",
                   static_cast<long>(st.st_size), s.max_upload);
            break;
        }
    }
    if (!refusal[0] && s.max_pairs > 0 && pairs > s.max_pairs)
        refuse("Too many form values: %ld, this site accepts %ld (413) \n", pairs, s.max_pairs);
    if (!refusal[0] && s.max_uploads > 0 && files > s.max_uploads)
        refuse("Too many upload files: %ld, this site accepts %ld (413) \n", files, s.max_uploads);
    if (!refusal[0]) return 0;
    list[0] = entry{nullptr, nullptr};  // the page sees none of the request
    return -1;
}

int X_limit_refusal() {
    if (!refusal[0]) return 0;
    X_head_set("Status", "413 Request Entity Too Large");
    ERRMSG("%s", refusal);
    X_exit(-2);
}

int X_limit_run(int shell) {
    X_SITE s = x_SITE;
    if (shell) {
        // x.env (already in the environment) may set the run limits.
        long v;
        if ((v = env_number("X_CPU_SECONDS")) >= 0) s.cpu_seconds = v;
        if ((v = env_number("X_MEMORY")) >= 0) s.memory = v;
        if ((v = env_number("X_FILE_SIZE")) >= 0) s.file_size = v;
        if ((v = env_number("X_TIME_LIMIT")) >= 0) s.time_limit = v;
        x_SITE.cpu_seconds = s.cpu_seconds;
    }
    if (s.cpu_seconds > 0) {
        on(SIGXCPU);
        // The kernel signals each second past the soft limit, then kills.
        set(RLIMIT_CPU, s.cpu_seconds, s.cpu_seconds + 3);
    }
    if (s.memory > 0) set(RLIMIT_AS, s.memory, s.memory);
    if (s.file_size > 0) {
        signal(SIGXFSZ, SIG_IGN);  // a write beyond it fails instead
        set(RLIMIT_FSIZE, s.file_size, s.file_size);
    }
    if (s.time_limit > 0) {
        run_limit = s.time_limit;
        wall_clock(s.time_limit);
    }
    return 0;
}
