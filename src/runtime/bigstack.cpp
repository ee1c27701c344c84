// Entry onto the interpreter's stack: the process stack when it is roomy
// enough for a first stretch of recursion (deeper recursion moves on by
// itself), else the large stack for the whole run.
#include <sys/resource.h>

#include "diag/diag.h"
#include "runtime/runtime.h"

namespace {

constexpr rlim_t kRoomy = 8UL << 20;

struct Entry {
    void (*fn)(int, char **);
    int argc;
    char **argv;
};

}  // namespace

void X_run_on_stack(void (*fn)(int, char **), int argc, char **argv) {
    int probe;
    X_stack_base(&probe);
    rlimit rl;
    bool known = getrlimit(RLIMIT_STACK, &rl) == 0;
    if (known && rl.rlim_cur != RLIM_INFINITY) X_stack_size(static_cast<long>(rl.rlim_cur));
    if (known && (rl.rlim_cur == RLIM_INFINITY || rl.rlim_cur >= kRoomy)) {
        X_stack_defer();
        fn(argc, argv);
        X_exit(0);
    }
    Entry e{fn, argc, argv};
    auto whole_run = [&e] {
        e.fn(e.argc, e.argv);
        X_exit(0);
    };
    X_stack_deeper(whole_run);
    X_exit(0);
}
