// Placeholder until the module lands.
#include <unistd.h>
#include "syscmd/process.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_shell(char *line, int compile, int ignore) { return 0; }
int X_exec(char *line, int compile, int ignore) { return 0; }
int X_fork(char *line, int compile, int ignore) { return 0; }
int X_sleep(char *line, int compile, int ignore) { return 0; }
int X_usleep(char *line, int compile, int ignore) { return 0; }
int X_chdir(char *line, int compile, int ignore) { return 0; }
int X_unlink(char *line, int compile, int ignore) { return 0; }
void X_signal(int sig) {}
void X_seed() {}
