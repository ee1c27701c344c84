// Placeholder until the module lands.
#include <unistd.h>
#include "subst/varcmd.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_set(char *cmd, int compile, int ignore) { return 0; }
int X_vset(char *cmd, int compile, int ignore) { return 0; }
int X_add(char *cmd, int compile, int ignore) { return 0; }
int X_vadd(char *cmd, int compile, int ignore) { return 0; }
int X_clear(char *cmd, int compile, int ignore) { return 0; }
int X_replace(char *cmd, int compile, int ignore) { return 0; }
