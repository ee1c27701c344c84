// Helpers of the system commands: tag test, bounded argument cutting and
// the status variable.
#include "syscmd/argcut.h"

#include <cstring>

#include "storage/store.h"
#include "subst/args.h"

int X_has_tag(const char *line, const char *tag)
{
    return strncmp(line, tag, strlen(tag)) == 0;
}

// The scanner copies without bound, so it writes into a buffer as large as
// any source; the argument is then cut to the caller's capacity.
int X_next_arg(X_argcut *cut, char *dst, int cap)
{
    const char *src = cut->src + cut->pos;
    if (cap >= X_MAXLINE) {
        int n = X_arg_string(src, dst);
        cut->pos += n;
        return n;
    }
    char whole[X_MAXLINE];
    int n = X_arg_string(src, whole);
    cut->pos += n;
    size_t len = strnlen(whole, cap - 1);
    memcpy(dst, whole, len);
    dst[len] = '\0';
    return n;
}

int X_set_status(const char *name, int rc)
{
    return X_put_value(*name ? name : "status", rc == 0 ? "0" : "-1");
}
