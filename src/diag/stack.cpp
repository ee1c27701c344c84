// Stack guard for the recursion of pages, blocks, calls and references.
#include <cstddef>
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

// -1 when the stack address HERE lies past the usable part of the stack.
// X_stack_low_reserve asks it for the address RESERVE bytes below its caller,
// so that a nested run needing that much is refused before it starts.
static int low_at(uintptr_t here) {
    return base && here < base && base - here > limit ? -1 : 0;
}

int X_stack_low() {
    return low_at(reinterpret_cast<uintptr_t>(__builtin_frame_address(0)));
}

int X_stack_low_reserve(size_t reserve) {
    return low_at(reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) - reserve);
}
