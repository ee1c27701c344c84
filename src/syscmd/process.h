// Process and file-system commands and the signal handler.
#pragma once

int X_shell(char *line, int compile, int ignore);
int X_exec(char *line, int compile, int ignore);
int X_fork(char *line, int compile, int ignore);
int X_sleep(char *line, int compile, int ignore);
int X_usleep(char *line, int compile, int ignore);
int X_chdir(char *line, int compile, int ignore);
int X_unlink(char *line, int compile, int ignore);
void X_signal(int sig);
void X_seed();  // the run's random seeding: srandom(pid), then srandom(random() + random())
// Start-up's seeding, done before the first draw instead of at once, so a
// page that draws nothing pays nothing. (X_RANDOM seeds again with the
// process id on its first use, which replaces a pending seeding.)
void X_seed_later();
long X_random();  // the next number of the generator, seeded as above
void X_seed_with(unsigned seed);  // srandom(seed), in place of any pending seeding
