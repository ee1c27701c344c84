// Loops: the bare <@while>, the word loop and the value loop. Each iteration
// moves the page's read position back to the body's start and runs the body
// again through the block runner.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "control/blocks.h"
#include "control/prefix.h"
#include "diag/diag.h"
#include "page/dispatch.h"
#include "page/output.h"
#include "storage/heap.h"
#include "storage/store.h"
#include "subst/args.h"
#include "subst/subst.h"

namespace {

// The words of a <@while> line.
struct LoopArgs {
    bool any;          // a first word was present
    std::string opt;   // "words", "values" or an unknown option
    std::string name;  // the loop variable
    std::string sep;   // separator set of the word loop
};

// Expands the text after <@while> and takes its first three words.
[[gnu::noinline]] void loop_args(const char *buff, int compile, LoopArgs *a) {
    char out[X_MAXLINE];
    char word[X_MAXLINE];
    X_expand_args(buff + 8, out, compile);
    X_DEBUG("%s // %s \n", buff, out);
    const char *p = out;
    int n = X_arg_string(p, word);
    a->any = n != 0;
    if (!a->any) return;
    a->opt = word;
    p += n;
    p += X_arg_string(p, word);
    a->name = word;
    X_arg_string(p, word);
    a->sep = word;
}

// Flags after a loop: a <@return> that is unwinding keeps them all.
int loop_done() {
    if (!ContinueBreak) Continue = Break = 0;
    return 0;
}

// Starts a word or value loop: clears the flags, notes where the body
// starts, and finds the loop variable (present, not clean, valued). Without
// one the body is passed over and NULL returned.
X_USER *loop_start(X_FILE *fp, const char *name, int compile, long *start) {
    Continue = Break = 0;
    *start = fp->offset;
    X_USER *u = X_find_user(name);
    if (u && !u->clean && u->var.value) return u;
    X_notfound(fp, compile, 1);
    return nullptr;
}

// Length of a value; a shared-memory buffer need not be terminated.
size_t value_len(const X_USER *u, const char *v) {
    return u->fixed == 2 ? strnlen(v, std::max<int>(u->cookie, 0)) : strlen(v);
}

// Room a text copy of U needs so that an assignment inside the body fits.
size_t value_room(const X_USER *u, size_t len) {
    size_t cap = u->fixed == 2 ? std::max<int>(u->cookie, 0) : 0;
    return std::max(len, cap) + 1;
}

// A copy of the LEN bytes of TEXT in HP (an empty text if memory runs out).
char *heap_text(X_heap *hp, const char *text, size_t len) {
    static char empty[1];
    char *c = len < 0x7ffffff0 ? static_cast<char *>(X_heap_alloc(hp, static_cast<int>(len + 1)))
                               : nullptr;
    if (!c) return empty;
    memcpy(c, text, len);
    c[len] = 0;
    return c;
}

// True when the body replaced the loop variable's record or its value.
bool reassigned(X_REF *ref, const X_USER *orig, const char *shown) {
    X_USER *now = X_ref_user(ref);
    return !now || now != orig || now->var.value != shown;
}

}  // namespace

int X_while(X_FILE *fp, char *buff, int compile, int ignore) {
    if (!has_prefix(buff, "<@while>")) return -1;
    X_TRACE("X_while: {%s} compile: %d ignore: %d \n", buff, compile, ignore);
    if (ignore) {
        X_notfound(fp, compile, 1);
        return 0;
    }
    if (X_stack_low()) {
        ERRMSG("WHILE: nesting too deep: %.200s \n", buff);
        return 0;
    }
    LoopArgs a;
    loop_args(buff, compile, &a);
    if (!a.any) return X_while_loop(fp, compile);
    if (a.opt == "words") return X_while_words(fp, a.name.c_str(), a.sep.c_str(), compile);
    if (a.opt == "values") return X_while_values(fp, a.name.c_str(), compile);
    return ERRMSG("Unknown option: %s in WHILE...", a.opt.c_str());
}

// Repeats the body until <@break> (or <@return>). A return still unwinding
// (even one left over from page level, whose Break the page run cleared)
// ends every loop too: its body would be skipped for ever.
int X_while_loop(X_FILE *fp, int compile) {
    X_TRACE("X_while_loop: compile: %d \n", compile);
    long start = fp->offset;
    Continue = Break = 0;
    for (;;) {
        fp->offset = start;
        X_notfound(fp, compile, 0);
        X_out_tick();
        if (Break || ContinueBreak) break;
        Continue = 0;
    }
    return loop_done();
}

// Runs the body once per word of NAME's value. The variable shows the
// current word; the text is split from a private copy, so the body may
// assign to the variable, and the first value is restored at the end.
int X_while_words(X_FILE *fp, const char *name, const char *sep, int compile) {
    X_TRACE("X_while_words: name: %s sep: {%s} compile: %d \n", name, sep, compile);
    long start;
    X_USER *u = loop_start(fp, name, compile, &start);
    if (!u) return 0;
    X_USER *orig = u;
    char *full = u->var.value;
    size_t len = value_len(u, full);
    auto text = std::make_unique_for_overwrite<char[]>(len + 1);
    memcpy(text.get(), full, len);
    text[len] = 0;
    auto word = std::make_unique_for_overwrite<char[]>(value_room(u, len));
    bool assigned = false;  // the body gave the variable a value of its own
    const char *p = text.get();
    long runs = 0;
    X_REF ref{name, nullptr, X_REF_UNBOUND};  // looked up again only after the tree changed
    for (;;) {
        int n = X_arg_string_sep(p, word.get(), sep);
        if (n == 0) {
            if (runs == 0) X_notfound(fp, compile, 1);
            break;
        }
        if (!(u = X_ref_user(&ref))) break;  // the body cleared it
        fp->offset = start;
        u->var.value = word.get();
        p += n;
        runs++;
        X_notfound(fp, compile, 0);
        X_out_tick();
        if (reassigned(&ref, orig, word.get())) assigned = true;
        if (Break || ContinueBreak) break;
        Continue = 0;
    }
    // Restore the first value; after an assignment the old text may be gone
    // from the variable's heap, so it gets a fresh copy there.
    if (runs > 0 && (u = X_find_user(name)) != nullptr) {
        if (assigned) u->var.value = heap_text(u->hp, text.get(), len);
        else u->var.value = full;
    }
    return loop_done();
}

// Runs the body once per value of NAME: during an iteration the variable's
// first cell shows that value and the values after it. The values are
// copied first, so the body may assign to the variable; its cells are put
// back at the end.
int X_while_values(X_FILE *fp, const char *name, int compile) {
    X_TRACE("X_while_values: name: %s compile: %d \n", name, compile);
    long start;
    X_USER *u = loop_start(fp, name, compile, &start);
    if (!u) return 0;
    X_USER *orig = u;
    X_var saved = u->var;
    // Snapshot: one cell and one text copy per value.
    std::vector<size_t> lens;
    size_t total = 0;
    for (const X_var *c = &saved; c; c = c->next) {
        const char *v = c->value ? c->value : "";
        lens.push_back(value_len(u, v));
        total += value_room(u, lens.back());
    }
    size_t n = lens.size();
    std::vector<X_var> cells(n);
    auto texts = std::make_unique_for_overwrite<char[]>(total);
    char *t = texts.get();
    size_t i = 0;
    for (const X_var *c = &saved; c; c = c->next, i++) {
        memcpy(t, c->value ? c->value : "", lens[i]);
        t[lens[i]] = 0;
        cells[i].value = t;
        cells[i].next = i + 1 < n ? &cells[i + 1] : nullptr;
        t += value_room(u, lens[i]);
    }
    bool assigned = false;
    X_REF ref{name, nullptr, X_REF_UNBOUND};  // looked up again only after the tree changed
    for (i = 0; i < n; i++) {
        if (!(u = X_ref_user(&ref))) break;  // the body cleared it
        cells[n - 1].next = nullptr;          // drop what the body appended
        u->var.next = cells[i].next;
        u->var.value = cells[i].value;
        fp->offset = start;
        X_notfound(fp, compile, 0);
        X_out_tick();
        if (reassigned(&ref, orig, cells[i].value)) assigned = true;
        if (Break || ContinueBreak) break;
        Continue = 0;
    }
    if ((u = X_find_user(name)) != nullptr) {
        if (!assigned) {
            u->var = saved;
        } else {
            // The body's assignment emptied the variable's heap: rebuild the
            // value list there from the copies.
            u->var.value = heap_text(u->hp, cells[0].value, lens[0]);
            u->var.next = nullptr;
            X_var *last = &u->var;
            for (size_t k = 1; k < n; k++) {
                auto *c = static_cast<X_var *>(X_heap_alloc(u->hp, sizeof(X_var)));
                if (!c) break;
                c->value = heap_text(u->hp, cells[k].value, lens[k]);
                last->next = c;
                last = c;
            }
        }
    }
    return loop_done();
}
