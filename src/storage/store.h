// Variable store: named variables with lists of values, in x_BUFFERS.vtree.
#pragma once

#include "x.h"

X_USER *X_USER_new(const char *name, const char *value);
void X_USER_free(X_USER *user);  // releases the heap and the record
X_USER *X_find_user(const char *name);  // plain tree lookup, no trace
int X_put_value(const char *name, const char *value, int fixed = 0, int cookie = 0);
int X_add_value(const char *name, const char *value);
char *X_get_value(const char *name);
char *X_get_Mvalue(const char *name, unsigned n);
int X_clear_value(const char *name_patt);
X_USER *scan_tree(avl *subtree, const char *pattern);
int count_tree(avl *subtree, int *maxlen);
// Marks name as set by the request (form field or cookie); the next
// assignment by the site or the page clears the mark.
void X_mark_request(const char *name);
bool X_from_request(const char *name);
void lowercase(char *s);
void uppercase(char *s);
