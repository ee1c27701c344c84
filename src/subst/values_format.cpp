// Number formats of references: int:FORMAT:NUMBER and printf:FORMAT:VAR.
// The formats come from pages, so they go through X_format, never through
// the C library's printf family.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "storage/store.h"
#include "subst/values_rows.h"

namespace {

constexpr size_t printf_max = 79;  // longest printf: format

// Copies the text of arg before its first colon into fmt (size bytes), cut
// to what fits; returns what follows the colon, or null without one.
const char *take_format(const char *arg, char *fmt, size_t size)
{
    const char *colon = strchr(arg, ':');
    size_t n = colon ? static_cast<size_t>(colon - arg) : strlen(arg);
    if (n > size - 1)
        n = size - 1;
    memcpy(fmt, arg, n);
    fmt[n] = 0;
    return colon ? colon + 1 : nullptr;
}

int format_one(const char *fmt, const X_fmtarg &val, char *out)
{
    char buf[X_MAXLINE];
    X_format(buf, sizeof buf, fmt, &val, 1);
    return value_emit(buf, out);
}

}  // namespace

// int:FORMAT:NUMBER, the literal NUMBER (0 when absent) as a long printed
// by FORMAT.
int row_int(const char *, const char *arg, char *out)
{
    char fmt[X_MAXLINE];
    const char *num = take_format(arg, fmt, sizeof fmt);
    X_fmtarg val{X_fmtarg::LONG, num ? strtol(num, nullptr, 10) : 0, 0.0, nullptr};
    return format_one(fmt, val, out);
}

// printf:FORMAT:VAR, VAR's value printed by FORMAT. The letters of the
// whole format, literal text included, choose how the value is passed:
// "s" or "c" as text, none of "f", "e", "g" as a long, else as a double.
// A "%c" directive prints the first character of the value.
int row_printf(const char *, const char *arg, char *out)
{
    char fmt[printf_max + 1];
    const char *name = strchr(arg, ':');
    if (!name)
        return value_none(out);
    take_format(arg, fmt, sizeof fmt);
    const char *val = X_get_value(name + 1);
    if (!val)
        return value_none(out);

    // As text, X_format prints the first character of it for "%c".
    X_fmtarg arg_val{X_fmtarg::TEXT, 0, 0.0, val};
    if (strpbrk(fmt, "sc"))
        return format_one(fmt, arg_val, out);
    if (!strpbrk(fmt, "feg"))
        arg_val = {X_fmtarg::LONG, strtol(val, nullptr, 10), 0.0, nullptr};
    else
        arg_val = {X_fmtarg::DOUBLE, 0, strtod(val, nullptr), nullptr};
    return format_one(fmt, arg_val, out);
}
