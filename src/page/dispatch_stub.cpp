// Placeholder until the module lands.
#include <unistd.h>
#include "page/dispatch.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_command(X_FILE *fp, char *buff, int *compile, int ignore) { return 0; }
int X_notfound(X_FILE *fp, int compile, int ignore) { return 0; }
int X_search_command(const char *keyword) { return 0; }
