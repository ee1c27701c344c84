// Placeholder until the module lands.
#include <unistd.h>
#include "storage/store.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
X_USER * X_USER_new(const char *name, const char *value) { return nullptr; }
void X_USER_free(X_USER *user) {}
X_USER * X_find_user(const char *name) { return nullptr; }
int X_put_value(const char *name, const char *value, int fixed, int cookie) { return 0; }
int X_add_value(const char *name, const char *value) { return 0; }
char * X_get_value(const char *name) { return nullptr; }
char * X_get_Mvalue(const char *name, unsigned n) { return nullptr; }
int X_clear_value(const char *name_patt) { return 0; }
X_USER * scan_tree(avl *subtree, const char *pattern) { return nullptr; }
int count_tree(avl *subtree, int *maxlen) { return 0; }
void lowercase(char *s) {}
void uppercase(char *s) {}
