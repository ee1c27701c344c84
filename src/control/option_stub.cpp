// Placeholder until the module lands.
#include <unistd.h>
#include "control/option.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_option(char *buff, int *compile, int ignore) { return 0; }
