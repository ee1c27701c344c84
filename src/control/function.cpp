// Page functions: <@function> records where a body lies and its parameter
// names, <@call> runs the body with the parameters bound as variables that
// hide same-named ones, <@return> hands a value back and unwinds.

#include <cstring>

#include "control/blocks.h"
#include "control/prefix.h"
#include "diag/diag.h"
#include "page/dispatch.h"
#include "storage/heap.h"
#include "storage/store.h"
#include "storage/tree.h"
#include "subst/args.h"
#include "subst/subst.h"

namespace {

constexpr size_t kCallReserve = 1 << 20;  // stack kept for one call's body

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Cuts WORD in place to its first blank-free word.
char *first_word(char *word) {
    while (is_space(*word)) word++;
    char *end = word;
    while (*end && !is_space(*end)) end++;
    *end = 0;
    return word;
}

char *heap_copy(const char *s) {
    size_t len = strlen(s);
    auto *c = static_cast<char *>(X_heap_alloc(x_BUFFERS.hp, static_cast<int>(len + 1)));
    if (c) memcpy(c, s, len + 1);
    return c;
}

// The record of function NAME, created empty when there is none yet.
X_FUN *fun_record(const char *name) {
    auto *f = reinterpret_cast<X_FUN *>(AVL_search(&x_BUFFERS.ftree, name));
    if (f) return f;
    f = static_cast<X_FUN *>(X_heap_alloc(x_BUFFERS.hp, sizeof(X_FUN)));
    char *copy = f ? heap_copy(name) : nullptr;
    if (!copy) return nullptr;
    f->name = copy;
    f->avl.key = copy;
    AVL_insert(&x_BUFFERS.ftree, &f->avl);
    return f;
}

// Expands the text after the KW-byte tag of BUFF into OUT and takes its
// first word, cut at "(", into NAME: the function's name.
void line_head(const char *buff, int kw, int compile, char *out, char *name) {
    X_expand_args(buff + kw, out, compile);
    X_DEBUG("%s // %s \n", buff, out);
    X_arg_string(out, name);
    if (char *paren = strchr(name, '(')) *paren = 0;
}

// Records the function defined by the line BUFF, whose body starts at the
// current read position of FP.
[[gnu::noinline]] void define(X_FILE *fp, const char *buff, int compile) {
    char out[X_MAXLINE];
    char word[X_MAXLINE];
    line_head(buff, 11, compile, out, word);
    X_FUN *f = fun_record(word);
    if (!f) return;
    f->file = fp;
    f->offset = fp->offset;
    f->var = nullptr;
    const char *open = strchr(out, '(');
    if (!open) return;
    X_var **tail = &f->var;
    // Names up to the closing parenthesis and, as it happens, any after it.
    const char *p = open + 1;
    for (int n; (n = X_arg_string_sep(p, word, ",)")) != 0; p += n) {
        const char *pname = first_word(word);
        if (!*pname) continue;
        auto *cell = static_cast<X_var *>(X_heap_alloc(x_BUFFERS.hp, sizeof(X_var)));
        char *copy = cell ? heap_copy(pname) : nullptr;
        if (!copy) return;
        cell->value = copy;
        *tail = cell;
        tail = &cell->next;
        X_TRACE("X_function: add argname: %s \n", copy);
    }
}

// What a running call must undo.
struct CallFrame {
    X_FILE *file;      // the image holding the body
    long offset;       // its read position before the call
    X_var *params;     // the parameter names bound by this call
    X_USER *aside;     // hidden variables, chained through next
    X_heap *args;      // scratch of the argument scan
};

// Hides every variable named like a parameter.
void shadow(CallFrame *c) {
    for (X_var *v = c->params; v; v = v->next) {
        X_USER *u = X_find_user(v->value);
        if (!u) continue;
        AVL_remove(&x_BUFFERS.vtree, v->value);
        u->next = c->aside;
        c->aside = u;
    }
}

// Binds the parameters to the words of ARGS: blank-separated, a lone ","
// between two words is skipped, and a word followed by another one loses
// everything from its last ",".
void bind(CallFrame *c, const char *args) {
    c->args = X_heap_new();
    size_t len = strlen(args);
    char *word = c->args && len < 0x3ffffff0
                     ? static_cast<char *>(X_heap_alloc(c->args, static_cast<int>(2 * (len + 1))))
                     : nullptr;
    if (!word) return;
    char *next = word + len + 1;
    const char *p = args;
    for (X_var *v = c->params; v; v = v->next) {
        X_TRACE("X_call: analyse arg_string: %s", p);
        int n = X_arg_string(p, word);
        if (n == 0) {
            X_TRACE("X_call: no more values...");
            break;
        }
        p += n;
        if (int m = X_arg_string(p, next)) {
            if (strcmp(next, ",") == 0) p += m;
            else if (char *comma = strrchr(word, ',')) *comma = 0;
        }
        X_USER *u = X_USER_new(v->value, word);
        u->avl.key = u->name;
        if (AVL_insert(&x_BUFFERS.vtree, &u->avl) != 0) X_USER_free(u);  // a name given twice
        X_TRACE("X_call: add argument name: %s value: {%s} \n", v->value, word);
    }
}

// Drops the call's parameter variables and brings the hidden ones back.
void unbind(CallFrame *c) {
    for (X_var *v = c->params; v; v = v->next) {
        X_USER *u = X_find_user(v->value);
        if (!u) continue;
        AVL_remove(&x_BUFFERS.vtree, v->value);
        X_USER_free(u);
    }
    if (c->args) X_heap_free(c->args);
    while (X_USER *u = c->aside) {
        c->aside = u->next;
        u->next = nullptr;
        if (AVL_insert(&x_BUFFERS.vtree, &u->avl) != 0) X_USER_free(u);
    }
}

// Expands the call line, finds the function, moves its file to the body and
// binds the arguments. -1 when the function is unknown (reported).
[[gnu::noinline]] int prepare(const char *buff, int compile, CallFrame *c) {
    char out[X_MAXLINE];
    char name[X_MAXLINE];
    line_head(buff, 7, compile, out, name);
    auto *f = reinterpret_cast<X_FUN *>(AVL_search(&x_BUFFERS.ftree, name));
    if (!f || !f->file) {
        ERRMSG("CALL: Unknown function name: %s \n", name);
        return -1;
    }
    c->file = f->file;
    c->offset = f->file->offset;
    c->params = f->var;
    f->file->offset = f->offset;
    shadow(c);
    char *open = strchr(out, '(');
    if (!open) return 0;
    if (char *close = strrchr(open + 1, ')')) *close = 0;
    bind(c, open + 1);
    return 0;
}

// Reports a call that would overflow the stack, naming the function as
// written on the line.
int too_deep(const char *text) {
    text += strspn(text, " \t");
    int n = static_cast<int>(strcspn(text, " \t("));
    ERRMSG("CALL: nesting too deep: %.*s \n", n < 100 ? n : 100, text);
    return 0;
}

}  // namespace

int X_function(X_FILE *fp, char *buff, int compile, int ignore) {
    if (!has_prefix(buff, "<@function>")) return -1;
    X_TRACE("X_function: {%s} compile: %d ignore: %d \n", buff, compile, ignore);
    if (!ignore) define(fp, buff, compile);
    // The body is not run now: pass over it to its <@end>.
    X_notfound(fp, ignore ? compile : 0, 1);
    return 0;
}

int X_call(char *buff, int compile, int ignore, char *ret) {
    if (!has_prefix(buff, "<@call>")) return -1;
    if (int r; !ignore && X_stack_moved(r, [&] { return X_call(buff, compile, ignore, ret); }, kCallReserve))
        return r;
    X_TRACE("X_call: {%s} compile: %d ignore: %d \n", buff, compile, ignore);
    if (ignore) return 0;
    if (X_stack_low_reserve(kCallReserve)) return too_deep(buff + 7);
    char *saved = Return;
    Return = ret;
    CallFrame c{};
    if (prepare(buff, compile, &c) != 0) {
        Return = saved;
        return 0;
    }
    X_notfound(c.file, compile, 0);
    unbind(&c);
    Return = saved;
    c.file->offset = c.offset;
    ContinueBreak = Continue = Break = 0;
    return 0;
}

int X_return(char *buff, int compile, int ignore) {
    if (!has_prefix(buff, "<@return>")) return -1;
    X_TRACE("X_return: {%s} compile: %d ignore: %d \n", buff, compile, ignore);
    if (ignore) return 0;
    char out[X_MAXLINE];
    X_expand_args(buff + 9, out, compile);
    X_DEBUG("%s // %s \n", buff, out);
    X_TRACE("X_return: {%s}", out);
    if (Return) {
        size_t len = strnlen(out, X_MAXLINE - 1);
        memcpy(Return, out, len);
        Return[len] = 0;
    }
    ContinueBreak = Continue = Break = 1;
    return 0;
}
