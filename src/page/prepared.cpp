// Prepared lines: a table per page image, filled lazily by read position.
#include "page/prepared.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "page/dispatch.h"
#include "page/page.h"

int X_prepared = 1;

namespace {

constexpr long kMaxImage = 64L << 20;  // larger images are read the usual way

// A read position of an image and what is known of it: -2 read once, -1 no
// entry, or the entry's number plus 1. Position -1 marks a free slot.
struct Seen {
    int32_t pos;
    int32_t state;
};

// The table of one image. A line is prepared when it is read a second time:
// a line read once (most of a page outside loops and functions) costs no
// more than before. The positions read are kept in a hash of their own,
// sized by the lines read rather than by the image, so that a large page
// does not clear four bytes per byte of text.
struct Table {
    const X_FILE *file;  // the image
    const char *text;    // its text and size when the table was made
    long size;
    Seen *seen;          // open addressing, at most half full
    int bits;            // log2 of its slots
    int used;
    X_LINE **lines;      // entries, in the order they were made
    int count, cap;
    Table *next;
};

constexpr int kFirstBits = 6;

Seen *slot_of(Seen *seen, int bits, int32_t pos) {
    uint32_t mask = (1u << bits) - 1;
    uint32_t h = (static_cast<uint32_t>(pos) * 2654435769u) >> (32 - bits);
    while (seen[h].pos != pos && seen[h].pos != -1) h = (h + 1) & mask;
    return &seen[h];
}

Seen *new_slots(int bits) {
    auto *seen = static_cast<Seen *>(malloc(sizeof(Seen) << bits));
    if (seen) memset(seen, 0xff, sizeof(Seen) << bits);  // every position -1: free
    return seen;
}

// The slot of POS, added with state 0 when the image was not read there yet;
// NULL when the hash cannot grow.
Seen *enter(Table *t, int32_t pos) {
    Seen *e = slot_of(t->seen, t->bits, pos);
    if (e->pos == pos) return e;
    if (2 * (t->used + 1) > (1 << t->bits)) {
        Seen *seen = new_slots(t->bits + 1);
        if (!seen) return nullptr;
        for (int i = 0; i < 1 << t->bits; i++)
            if (t->seen[i].pos != -1) *slot_of(seen, t->bits + 1, t->seen[i].pos) = t->seen[i];
        free(t->seen);
        t->seen = seen;
        t->bits++;
        e = slot_of(seen, t->bits, pos);
    }
    t->used++;
    *e = {pos, 0};
    return e;
}

Table *tables;

Table *last_table;  // the table asked for last

Table *table_of(X_FILE *fp) {
    Table *&last = last_table;
    if (last && last->file == fp && last->text == fp->text && last->size == fp->size) return last;
    for (Table *t = tables; t; t = t->next)
        if (t->file == fp && t->text == fp->text && t->size == fp->size) return last = t;
    if (fp->size < 0 || fp->size > kMaxImage) return nullptr;
    auto *t = static_cast<Table *>(calloc(1, sizeof(Table)));
    Seen *seen = new_slots(kFirstBits);
    if (!t || !seen) {
        free(t);
        free(seen);
        return nullptr;
    }
    *t = {fp, fp->text, fp->size, seen, kFirstBits, 0, nullptr, 0, 0, tables};
    return last = tables = t;
}

// Reads and cuts the line at POS as the reader would; NULL when that would
// report an error or when cutting the command again changes it (dispatch
// cuts every command a second time).
X_LINE *read_line(X_FILE *fp, long pos) {
    static char *buf, *again;
    if (!buf) buf = static_cast<char *>(malloc(X_MAXLINE));
    if (!again) again = static_cast<char *>(malloc(X_MAXLINE));
    if (!buf || !again) return nullptr;
    long saved = fp->offset;
    fp->offset = pos;
    bool ok = X_fgets(buf, X_MAXLINE, fp) > 0 && X_cut_quiet(fp, buf);
    long end = fp->offset, last = X_where_start();
    if (ok && buf[0] == '<' && buf[1] == '@') {
        memcpy(again, buf, strlen(buf) + 1);
        ok = X_cut_quiet(fp, again) && fp->offset == end && strcmp(again, buf) == 0;
    }
    fp->offset = saved;
    if (!ok) return nullptr;
    auto *line = static_cast<X_LINE *>(calloc(1, sizeof(X_LINE)));
    if (!line || !(line->text = strdup(buf))) {
        free(line);
        return nullptr;
    }
    line->end = end;
    line->last = last;
    line->len = strlen(buf);
    return line;
}

bool starts(const char *s, const char *tag) {
    return strncmp(s, tag, strlen(tag)) == 0;
}

// Sorts a cut line into its kind and makes the plan where there is one.
void classify(X_LINE *line) {
    const char *s = line->text;
    if (s[0] != '<' || s[1] != '@') {
        line->kind = X_LINE_TEXT;
        line->planned = X_text_prepare(s, &line->text_plan) == 0;
    } else if (starts(s, "<@end>")) {
        line->kind = X_LINE_END;
    } else if (starts(s, "<@continue>")) {
        line->kind = X_LINE_CONTINUE;
    } else if (starts(s, "<@break>")) {
        line->kind = X_LINE_BREAK;
    } else if (starts(s, "<@else>") && (s[7] == 0 || s[7] == ' ') && !strchr(s + 7, '>') &&
               X_command_code(s) == 0) {
        line->kind = X_LINE_ELSE;
    } else if (int code = X_command_code(s); code == 0) {
        line->kind = X_LINE_LET;
        line->planned = X_let_prepare(s, &line->let_plan) == 0;
    } else if (code == 23 && *(s + 5) && strstr(s + 6, "<@")) {  // an inline command
        line->kind = X_LINE_IF;
        line->planned = X_if_prepare(s, &line->if_plan) == 0;
    } else if (code == 23 || code == 24) {
        line->kind = code == 23 ? X_LINE_IFBLOCK : X_LINE_ELIF;
        line->planned = X_if_head_prepare(s, &line->if_plan) == 0;
    } else {
        line->kind = X_LINE_COMMAND;
    }
}

bool add(Table *t, X_LINE *line) {
    if (t->count == t->cap) {
        int cap = t->cap ? 2 * t->cap : 64;
        auto *lines = static_cast<X_LINE **>(realloc(t->lines, cap * sizeof(X_LINE *)));
        if (!lines) return false;
        t->lines = lines;
        t->cap = cap;
    }
    t->lines[t->count++] = line;
    return true;
}

}  // namespace

namespace {

// X_line_at for a position without an entry yet, or in another image.
[[gnu::noinline]] X_LINE *line_at_slow(X_FILE *fp) {
    if (fp->offset < 0 || fp->offset >= fp->size) return nullptr;
    Table *t = table_of(fp);
    if (!t) return nullptr;
    long pos = fp->offset;
    Seen *e = enter(t, static_cast<int32_t>(pos));
    if (!e) return nullptr;
    int slot = e->state;
    if (slot > 0) {
        X_LINE *line = t->lines[slot - 1];
        X_where_mark(fp, line->last);  // reports name the line as if it was read
        return line;
    }
    if (slot == 0) e->state = -2;
    if (slot != -2) return nullptr;
    X_LINE *line = read_line(fp, pos);
    if (line) classify(line);
    e = slot_of(t->seen, t->bits, static_cast<int32_t>(pos));  // as the hash stands now
    if (!line || !add(t, line)) {
        e->state = -1;
        return nullptr;
    }
    e->state = t->count;
    X_where_mark(fp, line->last);
    return line;
}

}  // namespace

X_LINE *X_line_at(X_FILE *fp) {
    if (!X_prepared || Trace || Debug) return nullptr;
    // The common case: a prepared line of the image read last.
    const Table *t = last_table;
    long at = fp->offset;
    if (t && t->file == fp && t->text == fp->text && t->size == fp->size && at >= 0 && at < t->size) {
        if (int slot = slot_of(t->seen, t->bits, static_cast<int32_t>(at))->state; slot > 0) {
            X_LINE *line = t->lines[slot - 1];
            X_where_mark(fp, line->last);
            return line;
        }
    }
    return line_at_slow(fp);
}

int X_line_run(X_LINE *line, int compile) {
    if (!line->planned || !compile) return -1;
    // An assignment without a reference reads the same however low the
    // stack runs; references and ifs are cut short then, the usual way.
    if (line->kind == X_LINE_LET && !line->let_plan.operand.name) return X_let_run(&line->let_plan);
    if (X_stack_low()) return -1;
    switch (line->kind) {
    case X_LINE_TEXT:
        if (!(IgnoreEmpty && line->text[0] == '\n')) X_text_run(&line->text_plan);
        return 0;
    case X_LINE_LET:
        return X_let_run(&line->let_plan);
    case X_LINE_IF:
        return X_if_run(&line->if_plan);
    default:
        return -1;
    }
}
