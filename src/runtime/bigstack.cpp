// Entry onto the interpreter's stack: the process stack when it has room
// for a first stretch of recursion (deeper recursion moves on by itself),
// else the large stack for the whole run.
#include <sys/auxv.h>
#include <sys/resource.h>

#include <cstdint>

#include "diag/diag.h"
#include "runtime/runtime.h"

namespace {

constexpr long kRoomy = 4L << 20;  // process stack a run needs to start there
constexpr long kTail = 4096;  // the name's own bytes and the end of the stack

}  // namespace

void X_run_on_stack(void (*fn)(int, char **), int argc, char **argv) {
    int probe;
    X_stack_base(&probe);
    // The limit counts the whole stack: the arguments, the environment and
    // the program's name at its top (the last string the kernel put there)
    // take their share before the first frame.
    rlimit rl;
    bool known = getrlimit(RLIMIT_STACK, &rl) == 0;
    auto here = reinterpret_cast<uintptr_t>(&probe);
    auto top = static_cast<uintptr_t>(getauxval(AT_EXECFN));
    long above = top > here ? static_cast<long>(top - here) + kTail : 0;
    long room = known && rl.rlim_cur != RLIM_INFINITY ? static_cast<long>(rl.rlim_cur) - above : -1;
    // Without a limit the guard keeps its default room of 6 MiB.
    if (room > 0) X_stack_size(room);
    if (known && (rl.rlim_cur == RLIM_INFINITY || room >= kRoomy)) {
        X_stack_defer(true);
        fn(argc, argv);
        X_exit(0);
    }
    auto whole_run = [fn, argc, argv] {
        fn(argc, argv);
        X_exit(0);
    };
    X_stack_deeper(whole_run);
    X_exit(0);
}
