// The interpreter's stack: the guard for the recursion of pages, blocks,
// calls and references, and the large stack that deep recursion moves to.
//
// A run starts on the process stack. Pages recurse with 64 KiB line buffers
// in each frame, far deeper than the process stack allows, so once a run has
// used the first stretch of it, the functions that every round of recursion
// passes through (a page, a block, an if, a reference, a reference scan, a
// condition group) continue on a large anonymous mapping, mapped on first
// use and reused after. So do the calls and eval: levels that need more room
// than the process stack has left. Most pages never get there and pay
// nothing for it.
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

#include "diag/diag.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#endif

#if !defined(__x86_64__)
#include <ucontext.h>
#endif

namespace {

constexpr size_t kBig = 256UL << 20;   // the large stack
constexpr size_t kGuard = 64UL << 10;  // unmapped-on-purpose bottom of it
// Process stack a run may use before recursion moves on. A round of
// recursion is well under a MiB, so a run that starts on a process stack
// with a few MiB of room never meets the guard there.
constexpr uintptr_t kSwitchAt = 1UL << 20;

uintptr_t base;                // frame address where the current stack starts
uintptr_t limit = 6UL << 20;   // usable bytes below base
bool deferred;                 // on the process stack, the large one to come
void *big;                     // the large stack, once mapped

struct Jump {
    void (*fn)(void *);
    void *arg;
#if defined(__SANITIZE_ADDRESS__)
    void *fake = nullptr;
    const void *from_bottom = nullptr;
    size_t from_size = 0;
#endif
};
Jump *jump;  // the call now running on the large stack

// Derives the two thresholds the inline checks compare with.
void settle() {
    X_stack_floor = base > limit ? base - limit : 0;
    X_stack_switch = deferred && !jump && base > kSwitchAt ? base - kSwitchAt : 0;
}

// First frame on the large stack: the guard is set for it, the call runs.
void on_big(void *p) {
    auto *j = static_cast<Jump *>(p);
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(nullptr, &j->from_bottom, &j->from_size);
#endif
    int first;
    base = reinterpret_cast<uintptr_t>(&first);
    X_stack_size(static_cast<long>(kBig - kGuard));
    j->fn(j->arg);
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_start_switch_fiber(nullptr, j->from_bottom, j->from_size);
#endif
}

#if defined(__x86_64__)
// Calls FN(ARG) with the stack pointer at TOP and comes back to this stack.
// No signal mask is saved, so a switch costs a few instructions: a loop
// that calls across the switch line pays it every round. The compiler must
// not see through it: what FN changes (the guard's state) is to be read
// again after it.
[[gnu::noipa]] void call_on(void *top, void (*fn)(void *), void *arg) {
    asm volatile("mov %%rsp, %%rbx\n\t"
                 "mov %[top], %%rsp\n\t"
                 "call *%[fn]\n\t"
                 "mov %%rbx, %%rsp"
                 : [top] "+r"(top), [fn] "+r"(fn), "+D"(arg)
                 :
                 : "rbx", "rax", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "memory", "cc",
                   "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8",
                   "xmm9", "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15", "st",
                   "st(1)", "st(2)", "st(3)", "st(4)", "st(5)", "st(6)", "st(7)");
}
#else
void (*ctx_fn)(void *);
void *ctx_arg;

void ctx_entry() {
    ctx_fn(ctx_arg);
}

// The same through the C library's contexts, which also save the signal mask.
void call_on(void *top, void (*fn)(void *), void *arg) {
    ucontext_t there, back;
    getcontext(&there);
    there.uc_stack.ss_sp = static_cast<char *>(top) - kBig;
    there.uc_stack.ss_size = kBig;
    there.uc_link = &back;
    ctx_fn = fn;
    ctx_arg = arg;
    makecontext(&there, ctx_entry, 0);
    swapcontext(&back, &there);
}
#endif

}  // namespace

uintptr_t X_stack_floor, X_stack_switch;

// Records where the stack starts and how much of it the interpreter may use.
void X_stack_base(void *b) {
    base = reinterpret_cast<uintptr_t>(b);
    settle();
}

// A quarter of the stack, at most 8 MiB, stays free for an error trap and
// the error page that may run once the limit is reached.
void X_stack_size(long bytes) {
    if (bytes <= 0) return;
    long margin = bytes / 4;
    if (margin > (8L << 20)) margin = 8L << 20;
    limit = static_cast<uintptr_t>(bytes - margin);
    settle();
}

void X_stack_defer(bool on) {
    deferred = on;
    settle();
}

void X_stack_deeper(void (*fn)(void *), void *arg) {
    if (!big) {
        void *m = mmap(nullptr, kBig, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
        if (m == MAP_FAILED) {
            // No room for it: the run stays where it is, with its guard.
            deferred = false;
            settle();
            fn(arg);
            return;
        }
        mprotect(m, kGuard, PROT_NONE);
        big = m;
    }
    uintptr_t saved_base = base, saved_limit = limit;
    Jump j{fn, arg};
    jump = &j;
    settle();
#if defined(__SANITIZE_ADDRESS__)
    // A run that ends down there leaves its frames up here: the leak check
    // at exit must still see what they point to.
    uintptr_t here = X_stack_here();
    __lsan_register_root_region(reinterpret_cast<void *>(here), saved_base - here);
    __sanitizer_start_switch_fiber(&j.fake, big, kBig);
#endif
    call_on(static_cast<char *>(big) + kBig, on_big, &j);
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(j.fake, nullptr, nullptr);
    __lsan_unregister_root_region(reinterpret_cast<void *>(here), saved_base - here);
#endif
    jump = nullptr;
    base = saved_base;
    limit = saved_limit;
    settle();
}
