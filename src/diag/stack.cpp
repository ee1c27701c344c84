// Stack guard for the recursion of pages, blocks, calls and references.
#include <cstdint>
#include <sys/resource.h>

#include "diag/diag.h"

static uintptr_t base;           // frame address where the interpreter started
static uintptr_t limit = 6 << 20;  // usable bytes below base

// Records where the stack starts and how much of it the interpreter may use.
void X_stack_base(void *b) {
    base = reinterpret_cast<uintptr_t>(b);
}

void X_stack_size(long bytes) {
    constexpr long margin = 8L << 20;  // left for an error trap and the error page
    if (bytes > 2 * margin) limit = bytes - margin;
}

int X_stack_low() {
    if (!base) return 0;
    uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    return here < base && base - here > limit ? -1 : 0;
}
