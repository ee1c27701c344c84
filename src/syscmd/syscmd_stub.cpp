// Placeholder until the module lands.
#include <unistd.h>
#include "syscmd/syscmd.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_io_fopen(char *line, int compile, int ignore) { return 0; }
int X_io_popen(char *line, int compile, int ignore) { return 0; }
int X_io_fclose(char *line, int compile, int ignore) { return 0; }
int X_io_pclose(char *line, int compile, int ignore) { return 0; }
int X_io_fgets(char *line, int compile, int ignore) { return 0; }
int X_io_fputs(char *line, int compile, int ignore) { return 0; }
int X_io_fseek(char *line, int compile, int ignore) { return 0; }
X_OPEN * X_find_stream(const char *name) { return nullptr; }
int X_shell(char *line, int compile, int ignore) { return 0; }
int X_exec(char *line, int compile, int ignore) { return 0; }
int X_fork(char *line, int compile, int ignore) { return 0; }
int X_sleep(char *line, int compile, int ignore) { return 0; }
int X_usleep(char *line, int compile, int ignore) { return 0; }
int X_chdir(char *line, int compile, int ignore) { return 0; }
int X_unlink(char *line, int compile, int ignore) { return 0; }
void X_signal(int sig) {}
void X_seed() {}
int X_shmat(char *line, int compile, int ignore) { return 0; }
int X_shmdt(char *line, int compile, int ignore) { return 0; }
int SHM_del(const char *name) { return 0; }
int X_html(char *line, int compile, int ignore) { return 0; }
int X_compile(char *line, int *compile, int ignore) { return 0; }
int X_cookie(char *line, int compile, int ignore) { return 0; }
int X_sql(X_FILE *fp, char *line, int compile, int ignore) { return 0; }
int X_sqlexec(char *line, int compile, int ignore) { return 0; }
int X_sqltrap(char *line, int compile, int ignore) { return 0; }
int X_sqlnames(char *line, int compile, int ignore) { return 0; }
const char * X_get_base() { return nullptr; }
