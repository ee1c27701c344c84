// The interpreter's own stack: pages recurse through calls, blocks and
// includes with 64 KiB line buffers in each frame, far deeper than the
// process stack allows. Start-up switches once (setcontext) onto a large
// anonymous mapping; its pages are only touched as deep recursion reaches
// them.
#include <sys/mman.h>
#include <sys/resource.h>
#include <ucontext.h>

#include "diag/diag.h"
#include "runtime/runtime.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace {

constexpr size_t kStack = 256UL << 20;
constexpr size_t kGuard = 64UL << 10;  // unmapped-on-purpose bottom of the mapping

void (*run_fn)(int, char **);
int entry_argc;
char **entry_argv;

// First frame on the new stack: records its base for the recursion guard.
void start() {
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(nullptr, nullptr, nullptr);
#endif
    int probe;
    X_stack_base(&probe);
    X_stack_size(static_cast<long>(kStack - kGuard));
    run_fn(entry_argc, entry_argv);
}

// Runs FN on the process stack, guarded by its limit (no room for a mapping).
[[noreturn]] void on_process_stack(void (*fn)(int, char **), int argc, char **argv) {
    int probe;
    X_stack_base(&probe);
    rlimit rl;
    if (getrlimit(RLIMIT_STACK, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY)
        X_stack_size(static_cast<long>(rl.rlim_cur));
    fn(argc, argv);
    X_exit(0);
}

}  // namespace

void X_run_on_stack(void (*fn)(int, char **), int argc, char **argv) {
    void *base = mmap(nullptr, kStack, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (base == MAP_FAILED) on_process_stack(fn, argc, argv);
    mprotect(base, kGuard, PROT_NONE);
    run_fn = fn;
    entry_argc = argc;
    entry_argv = argv;
    ucontext_t there;  // read once by setcontext; this frame is never left
    getcontext(&there);
    there.uc_stack.ss_sp = base;
    there.uc_stack.ss_size = kStack;
    there.uc_link = nullptr;
    makecontext(&there, start, 0);
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_start_switch_fiber(nullptr, base, kStack);
#endif
    // Nothing returns here: the interpreter leaves through X_exit.
    setcontext(&there);
    X_exit(0);
}
