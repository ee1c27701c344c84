// The program is built without exceptions. Where the C++ library would
// throw (no memory for new, a container that cannot grow, a bad index) the
// run ends instead; defining these here keeps the library's exception
// machinery, and the memory pool it reserves at start-up, out of the
// program.
#include <cstdlib>
#include <new>
#include <unistd.h>

namespace {

[[noreturn]] void give_up(const char *what) {
    const char msg[] = "Tolm: fatal: ";
    ssize_t r = write(2, msg, sizeof msg - 1);
    size_t n = 0;
    while (what[n]) n++;
    r = write(2, what, n);
    r = write(2, "\n", 1);
    (void)r;
    abort();
}

}  // namespace

namespace std {

void __throw_bad_alloc() { give_up("out of memory"); }
void __throw_logic_error(const char *what) { give_up(what); }
void __throw_length_error(const char *what) { give_up(what); }
void __throw_out_of_range_fmt(const char *what, ...) { give_up(what); }

}  // namespace std

void *operator new(std::size_t n) {
    if (void *p = malloc(n ? n : 1)) return p;
    give_up("out of memory");
}

void *operator new[](std::size_t n) {
    return operator new(n);
}

void operator delete(void *p) noexcept { free(p); }
void operator delete[](void *p) noexcept { free(p); }
void operator delete(void *p, std::size_t) noexcept { free(p); }
void operator delete[](void *p, std::size_t) noexcept { free(p); }
