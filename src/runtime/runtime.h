// Request runtime: entry, start-up and exit.
#pragma once

int X_start();
int X_avlcmp(struct avl *a, struct avl *b);
int X_env();
int X_checkpage(const char *path);
int X_header();
int X_action();
[[noreturn]] void X_exit(int status);
int str_copy(char *dst, const char *src);
void X_cmdline(int argc, char **argv);
