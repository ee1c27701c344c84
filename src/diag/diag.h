// Diagnostics: the one error path, the error trap, trace and debug logs.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string_view>

#include "x.h"

// Trace and debug logs; call sites test the switch before formatting.
#define X_TRACE(...) do { if (Trace) X_trace(__VA_ARGS__); } while (0)
#define X_DEBUG(...) do { if (Debug) X_debug(__VA_ARGS__); } while (0)

int X_trace(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
int X_debug(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
int PrintTM(FILE *fp);

// Reports an error: fills X_ERRMSG, then calls the page's trap (returns 0),
// ignores it while the final output runs (returns -1), or shows it and ends
// the process with status -2. fmt is a fixed format of the program.
int ERRMSG(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
// The same for a text that came from a page or a request: it is formatted
// with the safe formatter and no arguments, never by the C library.
int ERRMSG_text(const char *text);

// Writes one line "Tolm: TEXT" to standard error (the web server's error
// log); control characters in TEXT are shown as \xNN. Returns 0.
int X_log(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
// Under a web server: "Tolm: PAGE:LINE: error: MESSAGE" for the page line
// read last, in the server log. Returns 0.
int X_log_error(const char *msg);
// The same as a warning, the message formatted from FMT. Returns 0.
int X_warn(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

int ERRTRAP(const char *name);
int X_error(char *line, int compile, int ignore);
const char *X_error_cid();

// Safe formatter for page-given formats: understands the printf directives
// for integers, floating numbers, characters and strings (flags, width and
// precision), never %n. Arguments are taken in order and converted to what
// each directive needs; missing ones print as 0 or empty. Writes at most
// size-1 characters and terminates; returns the length written.
struct X_fmtarg {
    enum Kind { LONG, DOUBLE, TEXT } kind;
    long l;
    double d;
    const char *s;
};
int X_format(char *out, int size, const char *fmt, const X_fmtarg *args, int nargs);

// Joins the parts into out: at most size - 1 bytes, always terminated.
// Returns the length of the whole join, as snprintf does (size or more:
// cut). Paths and keys on the start-up path are joined with it, which keeps
// the C library's formatter out of every run.
int X_join(char *out, int size, std::initializer_list<std::string_view> parts);

// Stack guard for recursion through pages, blocks, calls and references:
// where the current stack starts and how large it is (a margin is kept free
// for the error path). The checks below answer -1 past the usable part; the
// caller reports it.
void X_stack_base(void *base);
void X_stack_size(long bytes);  // the stack's size; a margin is kept free
// Frame addresses below X_stack_floor are past the usable stack; below
// X_stack_switch, recursion moves to the large stack (0: neither applies).
// X_stack_low is checked on every line a loop runs, hence inline.
extern uintptr_t X_stack_floor, X_stack_switch;
inline uintptr_t X_stack_here() {
    return reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
}
inline int X_stack_low() {
    return X_stack_here() < X_stack_floor ? -1 : 0;
}
// -1 when a nested run needing RESERVE bytes below the caller's frame would
// pass the usable stack: it is refused before it starts. Inline, so that it
// measures from the same frame as X_stack_due below.
inline int X_stack_low_reserve(size_t reserve) {
    return X_stack_here() - reserve < X_stack_floor ? -1 : 0;
}
// A run starts on the process stack (X_stack_defer) and moves to a large
// one of its own when recursion gets deep: a function that every round of
// recursion passes through asks X_stack_due and, when it says so, runs
// itself again through X_stack_deeper, which returns when that call has
// returned. A call that needs RESERVE bytes asks with them: it moves on
// too when the process stack has not that much left.
void X_stack_defer(bool on);
inline bool X_stack_due(size_t reserve = 0) {
    uintptr_t here = X_stack_here();
    return here < X_stack_switch || (reserve && X_stack_switch && here - reserve < X_stack_floor);
}
void X_stack_deeper(void (*fn)(void *), void *arg);
template <class F>
void X_stack_deeper(F &call) {
    X_stack_deeper([](void *f) { (*static_cast<F *>(f))(); }, &call);
}
// The usual form: when recursion is due to move on, runs CALL (the function
// itself, again) on the large stack and answers true with its result in
// RESULT, which the caller returns. Always inlined: the question is asked
// from the caller's frame.
template <class R, class F>
[[gnu::always_inline]] inline bool X_stack_moved(R &result, F &&call, size_t reserve = 0) {
    if (!X_stack_due(reserve)) return false;
    auto run = [&] { result = call(); };
    X_stack_deeper(run);
    return true;
}
