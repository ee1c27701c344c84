// Placeholder until the module lands.
#include <unistd.h>
#include "diag/diag.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_trace(const char *fmt, ...) { return 0; }
int X_debug(const char *fmt, ...) { return 0; }
int PrintTM(FILE *fp) { return 0; }
int ERRMSG(const char *fmt, ...) { return 0; }
int ERRMSG_text(const char *text) { return 0; }
int ERRTRAP(const char *name) { return 0; }
int X_error(char *line, int compile, int ignore) { return 0; }
const char * X_error_cid() { return nullptr; }
int X_format(char *out, int size, const char *fmt, const X_fmtarg *args, int nargs) { return 0; }
void X_stack_base(void *base) {}
int X_stack_low() { return 0; }
