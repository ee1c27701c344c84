// Stack guard for the recursion of pages, blocks, calls and references.
#include <cstdint>

#include "diag/diag.h"

static uintptr_t base;           // frame address where the interpreter started
static uintptr_t limit = 6 << 20;  // usable bytes below base

// Records where the stack starts and how much of it the interpreter may use.
void X_stack_base(void *b) {
    base = reinterpret_cast<uintptr_t>(b);
}

// A quarter of the stack, at most 8 MiB, stays free for an error trap and
// the error page that may run once the limit is reached.
void X_stack_size(long bytes) {
    if (bytes <= 0) return;
    long margin = bytes / 4;
    if (margin > (8L << 20)) margin = 8L << 20;
    limit = static_cast<uintptr_t>(bytes - margin);
}

int X_stack_low() {
    if (!base) return 0;
    uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    return here < base && base - here > limit ? -1 : 0;
}
