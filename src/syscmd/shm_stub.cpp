// Placeholder until the module lands.
#include <unistd.h>
#include "syscmd/shm.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_shmat(char *line, int compile, int ignore) { return 0; }
int X_shmdt(char *line, int compile, int ignore) { return 0; }
int SHM_del(const char *name) { return 0; }
