// Request runtime: entry, start-up and exit.
#pragma once

// Run-wide heap, the three empty trees, X_env; X_fp NULL. Returns 0.
int X_start();
// Order of every tree: strcmp of the two keys.
int X_avlcmp(struct avl *a, struct avl *b);
// X_HOME, the NAME=value lines of its x.env, TMP_DIR. Returns 0.
int X_env();
// 0 when PATH exists (X_PAGE gets it made absolute), else -1 after a
// warning on standard output.
int X_checkpage(const char *path);
// Writes the banner comment once (it also ends an HTTP header). Returns 0.
int X_header();
// Runs X_PAGE as the top-level page.
int X_action();
// The one way out: database, the run's temporary file, output, STATUS.
[[noreturn]] void X_exit(int status);
// Copies SRC with its terminator into DST; returns strlen(SRC).
int str_copy(char *dst, const char *src);
// Shell mode: scans "-V", "-X_PAGE PATH", "-Name Value" and bare page paths;
// "--version" or "--help" as the only argument prints and ends the run.
void X_cmdline(int argc, char **argv);
// Runs FN(ARGC, ARGV) with the recursion guard set: on the process stack
// when its limit leaves room (deep recursion moves on to a large stack of
// its own), else on the large stack from the start. Never returns: the run
// ends through X_exit.
[[noreturn]] void X_run_on_stack(void (*fn)(int, char **), int argc, char **argv);
