// Variable store: named variables with lists of values, in x_BUFFERS.vtree.
#pragma once

#include <cstring>

#include "x.h"

X_USER *X_USER_new(const char *name, const char *value);
void X_USER_free(X_USER *user);  // releases the heap and the record
X_USER *X_find_user(const char *name);  // plain tree lookup, no trace

// A variable name bound to its record: the record is looked up again only
// after the variable tree changed. gen starts as X_REF_UNBOUND.
struct X_REF {
    const char *name;   // the variable's name
    X_USER *user;       // its record when gen is current, NULL when absent
    unsigned long gen;  // AVL_generation at the lookup
};
constexpr unsigned long X_REF_UNBOUND = ~0UL;
X_USER *X_ref_user(X_REF *ref);
// Assigns VALUE as the only value of the ordinary (fixed 0) record USER;
// 0, or -1 when memory runs out. X_put_value's work once the record is found.
int X_put_user(X_USER *user, const char *value);
// Writes N as "%ld" does into OUT, which takes 24 bytes (all are written);
// answers the length.
int X_decimal(long n, char *out);
// Assigns N's decimal text as X_put_user does, and keeps N beside it.
int X_put_number(X_USER *user, long n);
// True, with *N set, when USER's first value is still the decimal text of
// the whole number kept beside it (then X_number would read the same).
inline bool X_user_number(const X_USER *user, long *n)
{
    const char *v = user->var.value;
    if (!v || v != user->num_of || memcmp(v, user->num_text, sizeof user->num_text) != 0)
        return false;
    *n = user->num;
    return true;
}
// Keeps N beside USER's first value when that is N's decimal text.
void X_note_number(X_USER *user, long n);
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
