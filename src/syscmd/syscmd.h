// System commands: streams, processes, shared memory, output switches,
// cookies and the database commands.
#pragma once

#include "x.h"

// Streams
int X_io_fopen(char *line, int compile, int ignore);
int X_io_popen(char *line, int compile, int ignore);
int X_io_fclose(char *line, int compile, int ignore);
int X_io_pclose(char *line, int compile, int ignore);
int X_io_fgets(char *line, int compile, int ignore);
int X_io_fputs(char *line, int compile, int ignore);
int X_io_fseek(char *line, int compile, int ignore);
X_OPEN *X_find_stream(const char *name);  // first open row of that name
// Processes and files
int X_shell(char *line, int compile, int ignore);
int X_exec(char *line, int compile, int ignore);
int X_fork(char *line, int compile, int ignore);
int X_sleep(char *line, int compile, int ignore);
int X_usleep(char *line, int compile, int ignore);
int X_chdir(char *line, int compile, int ignore);
int X_unlink(char *line, int compile, int ignore);
void X_signal(int sig);
void X_seed();  // the run's random seeding: srandom(pid), then random()+random()
// Shared memory
int X_shmat(char *line, int compile, int ignore);
int X_shmdt(char *line, int compile, int ignore);
int SHM_del(const char *name);
// Output and cookies
int X_html(char *line, int compile, int ignore);
int X_compile(char *line, int *compile, int ignore);
int X_cookie(char *line, int compile, int ignore);
// Database
int X_sql(X_FILE *fp, char *line, int compile, int ignore);
int X_sqlexec(char *line, int compile, int ignore);
int X_sqltrap(char *line, int compile, int ignore);
int X_sqlnames(char *line, int compile, int ignore);
const char *X_get_base();
