// The fuzz harness: scratch directory, input fields, standard input, and
// the child runner with coverage counters shared between the processes.
#include "harness.h"

#include <dirent.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The interpreter's stack guard (its header clashes with <dirent.h>).
void X_stack_base(void *base);
void X_stack_size(long bytes);

// The inline 8-bit counters of every instrumented object, as the linker
// lays them out.
extern "C" char __start___sancov_cntrs[] __attribute__((weak));
extern "C" char __stop___sancov_cntrs[] __attribute__((weak));

// exit() of the interpreter: a child ends here without running the parent's
// exit handlers (the fuzzer would take them for a target that exited).
static bool in_child;
extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (in_child) {
        fflush(nullptr);
        _exit(0);
    }
    __real_exit(status);
}

const char *fuzz_scratch() {
    static char dir[64];
    if (dir[0]) return dir;
    snprintf(dir, sizeof dir, "/tmp/tolm-fuzz.XXXXXX");
    if (!mkdtemp(dir)) abort();
    setenv("X_HOME", dir, 1);
    setenv("TMP_DIR", dir, 1);
    if (chdir(dir) != 0) abort();
    // Page output and cookie lines are not looked at.
    if (!freopen("/dev/null", "w", stdout)) abort();
    return dir;
}

void fuzz_empty(const char *dir) {
    DIR *d = opendir(dir);
    if (!d) return;
    while (dirent *e = readdir(d)) {
        if (!strcmp(e->d_name, ".") || !strcmp(e->d_name, "..")) continue;
        std::string path = std::string(dir) + "/" + e->d_name;
        struct stat st;
        if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            fuzz_empty(path.c_str());
            rmdir(path.c_str());
        } else {
            unlink(path.c_str());
        }
    }
    closedir(d);
}

std::vector<std::string> fuzz_fields(const uint8_t *data, size_t size, int n) {
    std::vector<std::string> out;
    const char *p = reinterpret_cast<const char *>(data);
    const char *end = p + size;
    for (int i = 0; i < n - 1; ++i) {
        const char *z = static_cast<const char *>(memchr(p, 0, end - p));
        if (!z) z = end;
        out.emplace_back(p, z);
        p = z < end ? z + 1 : end;
    }
    out.emplace_back(p, end);
    return out;
}

void fuzz_stdin(const std::string &text) {
    static std::string held;  // fmemopen reads it in place
    held = text;
    // fmemopen cannot take an empty buffer: an empty input reads /dev/null.
    FILE *f = held.empty() ? fopen("/dev/null", "r")
                           : fmemopen(held.data(), held.size(), "r");
    if (!f) abort();
    if (stdin) fclose(stdin);
    stdin = f;
}

bool fuzz_write(const std::string &path, const std::string &text) {
    FILE *f = fopen(path.c_str(), "w");
    if (!f) return false;
    bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    return fclose(f) == 0 && ok;
}

// Replaces the pages that hold the counters with a shared mapping of the
// same contents, so that a child's counts are seen here. Bytes of other
// variables that share the first and last page are put back after each
// child, since the child may have changed them.
namespace {

// Copies bytes that may belong to other variables' redzones, unchecked.
__attribute__((no_sanitize("address"))) void raw_copy(char *dst, const char *src, size_t n) {
    volatile char *d = dst;
    const volatile char *p = src;
    for (size_t i = 0; i < n; ++i) d[i] = p[i];
}

struct Shared {
    char *lo = nullptr, *hi = nullptr;  // page-aligned span
    std::string head, tail;             // bytes before and after the counters
};

Shared &shared() {
    static Shared s;
    static bool done;
    if (done) return s;
    done = true;
    if (!__start___sancov_cntrs || +__stop___sancov_cntrs <= +__start___sancov_cntrs) abort();
    uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    uintptr_t lo = reinterpret_cast<uintptr_t>(__start___sancov_cntrs) & ~(page - 1);
    uintptr_t hi = (reinterpret_cast<uintptr_t>(__stop___sancov_cntrs) + page - 1) & ~(page - 1);
    size_t len = hi - lo;
    void *m = mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) abort();
    raw_copy(static_cast<char *>(m), reinterpret_cast<char *>(lo), len);
    if (mremap(m, len, len, MREMAP_MAYMOVE | MREMAP_FIXED, reinterpret_cast<void *>(lo)) ==
        MAP_FAILED)
        abort();
    s.lo = reinterpret_cast<char *>(lo);
    s.hi = reinterpret_cast<char *>(hi);
    return s;
}

// A child may take this much more address space than the parent has; a
// page that allocates without end fails there instead of eating the machine.
constexpr rlim_t kChildMemory = 2UL << 30;

rlim_t address_space() {
    FILE *f = fopen("/proc/self/statm", "r");
    unsigned long pages = 0;
    if (f) {
        if (fscanf(f, "%lu", &pages) != 1) pages = 0;
        fclose(f);
    }
    return static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

// Exit status of a child that ran out of its processor time.
constexpr int kOverBudget = 86;

static void over_budget(int) {
    _exit(kOverBudget);
}

bool fuzz_in_child(void (*fn)(void *), void *arg, int budget_ms) {
    Shared &s = shared();
    s.head.resize(__start___sancov_cntrs - s.lo);
    s.tail.resize(s.hi - __stop___sancov_cntrs);
    raw_copy(s.head.data(), s.lo, s.head.size());
    raw_copy(s.tail.data(), __stop___sancov_cntrs, s.tail.size());
    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) abort();
    if (pid == 0) {
        in_child = true;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        rlimit rl{address_space() + kChildMemory, RLIM_INFINITY};
        setrlimit(RLIMIT_AS, &rl);
        // The stack guard works as under the program: from here, with the
        // size of this thread's stack.
        int probe;
        X_stack_base(&probe);
        if (getrlimit(RLIMIT_STACK, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY)
            X_stack_size(static_cast<long>(rl.rlim_cur));
        if (budget_ms > 0) {
            signal(SIGPROF, over_budget);
            itimerval t{{0, 0}, {budget_ms / 1000, (budget_ms % 1000) * 1000}};
            setitimer(ITIMER_PROF, &t, nullptr);
        }
        fn(arg);
        fflush(nullptr);
        _exit(0);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
    }
    raw_copy(s.lo, s.head.data(), s.head.size());
    raw_copy(__stop___sancov_cntrs, s.tail.data(), s.tail.size());
    if (budget_ms > 0 && WIFEXITED(status) && WEXITSTATUS(status) == kOverBudget) return false;
    if (WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) != 0)) {
        fprintf(stderr, "fuzz: child %s %d\n", WIFSIGNALED(status) ? "killed by signal" : "exited with",
                WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
        abort();
    }
    return true;
}
