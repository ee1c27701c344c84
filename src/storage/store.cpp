// Variable store: page variables by name, each with a list of values.
//
// Variables live in x_BUFFERS.vtree. A record and its name are one system
// allocation; the first value cell is embedded in the record, further cells
// and every value text come from the variable's own heap, which is emptied on
// each assignment. fixed 1 makes a variable read-only; fixed 2 marks a value
// buffer the record does not own (shared memory) whose capacity is cookie.
#include "storage/store.h"

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "control/patt.h"
#include "diag/diag.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/tree.h"

// Stands in for a value whose copy could not be allocated.
static char no_value[1];

static X_USER *user_of(avl *node)
{
    return reinterpret_cast<X_USER *>(node);
}

// Length of a value as far as it may be read: a shared buffer is read at
// most up to its capacity, since it need not be terminated.
static int value_len(const X_USER *u, const char *v)
{
    if (!v)
        return 0;
    size_t cap = u->fixed == 2 ? static_cast<size_t>(u->cookie > 0 ? u->cookie : 0) : SIZE_MAX;
    size_t len = strnlen(v, cap);
    return len > INT_MAX ? INT_MAX : static_cast<int>(len);
}

// Copies s into hp with room for at least min_cap characters and a
// terminator; null when memory runs out.
static char *heap_copy(X_heap *hp, const char *s, int min_cap)
{
    size_t len = strlen(s);
    size_t room = len + 1;
    if (min_cap > 0 && static_cast<size_t>(min_cap) + 1 > room)
        room = static_cast<size_t>(min_cap) + 1;
    if (room > INT_MAX)
        return nullptr;
    auto *c = static_cast<char *>(X_heap_alloc(hp, static_cast<int>(room)));
    if (c)
        memcpy(c, s, len + 1);
    return c;
}

// Room a new value of u needs beyond its text: a shared buffer's capacity.
static int min_room(const X_USER *u)
{
    return u->fixed == 2 ? u->cookie : 0;
}

// Whether v points into one of u's value texts, which a new assignment
// would recycle before copying.
static bool aliases_value(const X_USER *u, const char *v)
{
    for (const X_var *c = &u->var; c; c = c->next) {
        if (!c->value)
            continue;
        auto lo = reinterpret_cast<uintptr_t>(c->value);
        auto at = reinterpret_cast<uintptr_t>(v);
        if (at >= lo && at <= lo + strlen(c->value))
            return true;
    }
    return false;
}

// strncpy into a shared buffer of capacity cap, safe when value overlaps it:
// the rest is zero-filled, no terminator is added to a full buffer.
static void fill_shared(char *buf, const char *value, int cap)
{
    size_t n = static_cast<size_t>(cap);
    size_t len = strnlen(value, n);
    memmove(buf, value, len);
    memset(buf + len, 0, n - len);
}

[[noreturn]] static void out_of_memory()
{
    ERRMSG("\n==> MALLOC ERROR! no more memory??.. \n==> EXIT.. \n");
    X_exit(-2);
}

// A new record holding name and one copy of value, flags 0, key set to the
// name; the caller inserts it. Ends the process when memory runs out.
X_USER *X_USER_new(const char *name, const char *value)
{
    if (!name)
        name = "";
    if (!value)
        value = "";
    size_t nlen = strlen(name);
    auto *u = static_cast<X_USER *>(malloc(sizeof(X_USER) + nlen + 1));
    if (!u)
        out_of_memory();
    memset(u, 0, sizeof(X_USER));
    u->name = reinterpret_cast<char *>(u + 1);
    memcpy(u->name, name, nlen + 1);
    u->avl.key = u->name;
    u->hp = X_heap_new();
    if (!u->hp) {
        free(u);
        out_of_memory();
    }
    u->var.value = heap_copy(u->hp, value, 0);
    if (!u->var.value) {
        X_USER_free(u);
        out_of_memory();
    }
    return u;
}

// Releases a record's heap and the record with its name. The record must
// no longer be in a tree.
void X_USER_free(X_USER *user)
{
    if (!user)
        return;
    X_heap_free(user->hp);
    free(user);
}

X_USER *X_find_user(const char *name)
{
    if (!name)
        return nullptr;
    return user_of(AVL_search(&x_BUFFERS.vtree, name));
}

// Assigns value as the only value of name, creating the variable. A
// non-zero fixed or cookie is stored on the record. Fails with -1 and
// "## Fixed Value: NAME" in X_ERRMSG for a read-only variable; a shared
// buffer takes at most cookie characters of the value.
int X_put_value(const char *name, const char *value, int fixed, int cookie)
{
    if (!value)
        value = "";
    X_TRACE("X_put_value: name: [%s] value: [%s] fixed: %d cookie: %d \n",
            name ? name : "", value, fixed, cookie);
    if (!name)
        return -1;
    X_USER *u = X_find_user(name);
    if (!u) {
        u = X_USER_new(name, value);
        if (cookie)
            u->cookie = static_cast<int16_t>(cookie);
        if (fixed)
            u->fixed = static_cast<int16_t>(fixed);
        if (min_room(u) > 0) {  // a shared buffer needs its full capacity
            char *c = heap_copy(u->hp, value, min_room(u));
            if (c)
                u->var.value = c;
        }
        u->avl.key = u->name;
        AVL_insert(&x_BUFFERS.vtree, &u->avl);
        X_DEBUG("  ** %s := %s \n", name, value);
        return 0;
    }
    if (u->fixed == 2) {
        if (u->cookie > 0 && u->var.value)
            fill_shared(u->var.value, value, u->cookie);
        return 0;
    }
    if (u->fixed) {
        snprintf(X_ERRMSG, sizeof(X_ERRMSG), "## Fixed Value: %s", name);
        return -1;
    }
    if (cookie)
        u->cookie = static_cast<int16_t>(cookie);
    if (fixed)
        u->fixed = static_cast<int16_t>(fixed);
    return X_put_user(u, value);
}

X_USER *X_ref_user(X_REF *ref)
{
    if (Trace || Debug)  // every lookup is made, and traced, as by name
        return X_find_user(ref->name);
    if (ref->gen != AVL_generation) {
        ref->user = X_find_user(ref->name);
        ref->gen = AVL_generation;
    }
    return ref->user;
}

int X_put_user(X_USER *u, const char *value)
{
    char *copy = nullptr;  // a value taken from the variable itself is copied out
    if (aliases_value(u, value)) {  // before its heap is recycled
        copy = strdup(value);
        if (!copy)
            out_of_memory();
        value = copy;
    }
    X_heap_reduce(u->hp);
    char *c = heap_copy(u->hp, value, min_room(u));
    u->var.next = nullptr;
    u->var.value = c ? c : no_value;
    u->clean = 0;
    u->request = 0;
    if (c)
        X_DEBUG("  ** %s := %s \n", u->name, value);
    free(copy);
    return c ? 0 : -1;
}

int X_decimal(long n, char *out)
{
    static constexpr char pairs[] = "00010203040506070809101112131415161718192021222324"
                                    "25262728293031323334353637383940414243444546474849"
                                    "50515253545556575859606162636465666768697071727374"
                                    "75767778798081828384858687888990919293949596979899";
    char tmp[48] = {};  // digits end in the middle: 24 bytes can be copied from any start
    char *p = tmp + 24;
    unsigned long u = n < 0 ? 0UL - static_cast<unsigned long>(n) : static_cast<unsigned long>(n);
    while (u >= 100) {
        unsigned d = static_cast<unsigned>(u % 100) * 2;
        u /= 100;
        *--p = pairs[d + 1];
        *--p = pairs[d];
    }
    if (u >= 10) {
        *--p = pairs[u * 2 + 1];
        *--p = pairs[u * 2];
    } else {
        *--p = static_cast<char>('0' + u);
    }
    if (n < 0)
        *--p = '-';
    int len = static_cast<int>(tmp + 24 - p);
    memcpy(out, p, 24);  // a fixed size is copied inline
    out[len] = 0;
    return len;
}

// Remembers n as the number of u's first value, whose text is n's decimal
// text, when that value starts a block of u's heap: then its first 24 bytes
// can be read and compared whatever its length.
static void keep_number(X_USER *u, long n)
{
    if (u->var.value != X_heap_start(u->hp))
        return;
    u->num = n;
    u->num_of = u->var.value;
    memcpy(u->num_text, u->var.value, sizeof u->num_text);
}

static_assert(X_HEAP_ALIGN >= 24, "a number's text and its padding fit one heap piece");

int X_put_number(X_USER *u, long n)
{
    char text[24];
    int len = X_decimal(n, text);
    if (u->fixed || Debug)
        return X_put_user(u, text);
    // The text comes from here, so it cannot alias the old value. A piece
    // of at most X_HEAP_SMALL bytes lies in a small block and is rounded up
    // to X_HEAP_ALIGN (32) bytes: all 24 bytes of text fit in it.
    auto *c = static_cast<char *>(X_heap_first(u->hp, len + 1));
    u->var.next = nullptr;
    u->var.value = c ? c : no_value;
    u->clean = 0;
    u->request = 0;
    if (!c)
        return -1;
    memcpy(c, text, sizeof text);
    keep_number(u, n);
    return 0;
}

void X_note_number(X_USER *u, long n)
{
    char text[24];
    X_decimal(n, text);
    if (u->fixed != 2 && u->var.value && strcmp(u->var.value, text) == 0)
        keep_number(u, n);
}

// Appends value to the values of name. A missing or clean variable is
// assigned instead; a fixed or shared one fails silently with -1.
int X_add_value(const char *name, const char *value)
{
    if (!name)
        return -1;
    if (!value)
        value = "";
    X_USER *u = X_find_user(name);
    if (!u)
        return X_put_value(name, value, 0, 0);
    if (u->fixed)
        return -1;
    if (u->clean)
        return X_put_value(name, value, 0, 0);

    X_var *last = &u->var;
    while (last->next)
        last = last->next;
    if (last->value) {
        auto *cell = static_cast<X_var *>(X_heap_alloc(u->hp, sizeof(X_var)));
        if (!cell)
            return -1;
        last->next = cell;
        last = cell;
    }
    last->value = heap_copy(u->hp, value, 0);
    if (!last->value) {
        last->value = no_value;
        return -1;
    }
    X_DEBUG("  ** %s add:= %s \n", name, value);
    return 0;
}

void X_mark_request(const char *name)
{
    if (X_USER *u = X_find_user(name))
        u->request = 1;
}

bool X_from_request(const char *name)
{
    X_USER *u = X_find_user(name);
    return u && u->request;
}

// The first value of name, or null. The text stays valid until the
// variable is next assigned or cleared.
char *X_get_value(const char *name)
{
    X_USER *u = X_find_user(name);
    if (!u) {
        X_TRACE("X_get_value: not found {%s} \n", name ? name : "");
        return nullptr;
    }
    if (Trace) {
        int len = value_len(u, u->var.value);
        X_trace("X_get_value: name= {%s} val= {%.*s} len: %d \n", name, len,
                u->var.value ? u->var.value : "", len);
    }
    return u->var.value;
}

// The n-th value of name counted from 1, or null when absent or out of
// range (n 0 always is).
char *X_get_Mvalue(const char *name, unsigned n)
{
    X_USER *u = X_find_user(name);
    if (!u) {
        X_TRACE("X_get_Mvalue: not found {%s} \n", name ? name : "");
        return nullptr;
    }
    unsigned i = 0;
    for (X_var *cell = &u->var; cell; cell = cell->next) {
        if (++i == n) {
            if (Trace) {
                int len = value_len(u, cell->value);
                X_trace("X_get_Mvalue: name= {%s} #M= %d val= {%.*s} len: %d \n", name,
                        static_cast<int>(n), len, cell->value ? cell->value : "", len);
            }
            return cell->value;
        }
    }
    X_TRACE("X_get_Mvalue: #M= %d our of range {%s} total= %d \n", static_cast<int>(n), name,
            static_cast<int>(i));
    return nullptr;
}

// Copies the names of the non-fixed records of the subtree into names.
static void gather(avl *node, std::vector<std::string> &names)
{
    if (!node)
        return;
    gather(node->left, names);
    if (user_of(node)->fixed == 0)
        names.emplace_back(static_cast<const char *>(node->key));
    gather(node->right, names);
}

// The matching non-fixed records of a subtree chained through next, or null.
// Matching may report an error whose trap runs page code that changes the
// tree, so names are matched from a copy and looked up again afterwards.
X_USER *scan_tree(avl *subtree, const char *pattern)
{
    if (!subtree || !pattern)
        return nullptr;
    std::vector<std::string> names;
    gather(subtree, names);
    std::string patt(pattern);
    std::vector<std::string> hits;
    for (const std::string &name : names)
        if (X_CMPpatt(patt.data(), name.c_str()) != -1)
            hits.push_back(name);
    X_USER *list = nullptr;
    for (const std::string &name : hits) {
        X_USER *u = X_find_user(name.c_str());
        if (u && u->fixed == 0) {
            u->next = list;
            list = u;
        }
    }
    return list;
}

// Removes and releases every non-fixed variable whose name matches the
// pattern list name_patt. 0, or -1 when none was removed.
int X_clear_value(const char *name_patt)
{
    X_TRACE("X_clear_value: name_patt: [%s] ", name_patt ? name_patt : "");
    if (!x_BUFFERS.vtree.root)
        return -1;
    X_USER *list = scan_tree(x_BUFFERS.vtree.root, name_patt);
    if (!list)
        return -1;
    while (list) {
        X_USER *next = list->next;
        if (AVL_remove(&x_BUFFERS.vtree, static_cast<const char *>(list->avl.key)) == 0)
            X_USER_free(list);
        list = next;
    }
    return 0;
}

// Number of nodes of a subtree; raises *maxlen to the longest key met.
int count_tree(avl *subtree, int *maxlen)
{
    if (!subtree)
        return 0;
    if (maxlen && subtree->key) {
        size_t len = strlen(static_cast<const char *>(subtree->key));
        int n = len > INT_MAX ? INT_MAX : static_cast<int>(len);
        if (n > *maxlen)
            *maxlen = n;
    }
    return 1 + count_tree(subtree->left, maxlen) + count_tree(subtree->right, maxlen);
}

void lowercase(char *s)
{
    for (; s && *s; ++s)
        *s = static_cast<char>(tolower(static_cast<unsigned char>(*s)));
}

void uppercase(char *s)
{
    for (; s && *s; ++s)
        *s = static_cast<char>(toupper(static_cast<unsigned char>(*s)));
}
