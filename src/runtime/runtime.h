// Request runtime: entry, start-up, configuration, request values, exit.
#pragma once

int X_start();
int X_avlcmp(struct avl *a, struct avl *b);
int X_env();
int X_checkpage(const char *path);
int X_header();
int X_action();
[[noreturn]] void X_exit(int status);
int str_copy(char *dst, const char *src);

int X_values(const char *prog, int shell);
int X_check_name(const char *root, const char *var);
int X_default_names(const char *root);
int X_set_cookies();
