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

int X_next_arg(X_argcut *cut, char *dst, int cap)
{
    int n = X_arg_stringn(cut->src + cut->pos, dst, static_cast<size_t>(cap));
    cut->pos += n;
    return n;
}

int X_set_status(const char *name, int rc)
{
    return X_put_value(*name ? name : "status", rc == 0 ? "0" : "-1");
}
