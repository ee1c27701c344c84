// The page reader: the page cache and the main loop of a page run.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "diag/diag.h"
#include "page/dispatch.h"
#include "page/page.h"
#include "page/prepared.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/store.h"
#include "subst/args.h"
#include "subst/subst.h"

// Reads the next line of FILE (through its newline, at most size-1 bytes).
// The page line read last, for reports: its image and where it starts.
static X_FILE *where_file;
static long where_start;

void X_where_mark(X_FILE *file, long start) {
    where_file = file;
    where_start = start;
}

long X_where_start() {
    return where_start;
}

int X_where(const char **path) {
    *path = where_file ? where_file->path : nullptr;
    if (!where_file) return 0;
    const char *text = where_file->text;
    // At the end of the page: its last line.
    long end = where_start < where_file->size ? where_start : where_file->size - 1;
    if (end < 0) end = 0;
    int line = 1;
    for (const char *p = text; (p = static_cast<const char *>(memchr(p, '\n', text + end - p)));
         ++p)
        ++line;
    return line;
}

int X_fgets(char *buff, int size, X_FILE *file) {
    where_file = file;
    where_start = file->offset;
    if (size <= 1 || file->offset >= file->size) {
        if (size > 0) buff[0] = 0;
        return 0;
    }
    const char *p = file->text + file->offset;
    long left = file->size - file->offset;
    long n = size - 1 < left ? size - 1 : left;
    if (const void *nl = memchr(p, '\n', n)) n = static_cast<const char *>(nl) - p + 1;
    memcpy(buff, p, n);
    buff[n] = 0;
    file->offset += n;
    return static_cast<int>(n);
}

// The cached image of PATH if the file is unchanged since it was loaded.
// Paths are compared over the 256 characters an image keeps of them, so a
// long path finds its image again and paths that differ only past that
// share one.
static X_FILE *cached(const char *path, const struct stat &st) {
    for (X_FILE *f = x_BUFFERS.files; f; f = f->next)
        if (strncmp(f->path, path, sizeof f->path) == 0 && f->stat.st_size == st.st_size &&
            f->stat.st_mtime == st.st_mtime)
            return f;
    return nullptr;
}

// Loads PATH into a new image of the run-wide heap; NULL if it cannot be read.
static X_FILE *load(const char *path, const struct stat &st) {
    // Read straight into the image: no stream, no buffer of its own.
    int in = open(path, O_RDONLY | O_CLOEXEC);
    if (in < 0) return nullptr;
    auto *f = static_cast<X_FILE *>(X_heap_alloc(x_BUFFERS.hp, sizeof(X_FILE)));
    long size = st.st_size;
    char *text = f && size < 0x7fff0000 ? static_cast<char *>(X_heap_alloc(x_BUFFERS.hp, static_cast<int>(size) + 16)) : nullptr;
    if (!text) {
        close(in);
        return nullptr;
    }
    long got = 0;
    while (got < size) {
        ssize_t n = read(in, text + got, static_cast<size_t>(size - got));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += n;
    }
    size = got;
    text[size] = 0;
    close(in);
    f->text = text;
    f->offset = 0;
    f->size = size;
    f->stat = st;
    // All 256 characters are kept; a path that fills them has no terminator.
    size_t n = strnlen(path, sizeof f->path);
    memcpy(f->path, path, n);
    if (n < sizeof f->path) f->path[n] = 0;
    f->next = x_BUFFERS.files;
    x_BUFFERS.files = f;
    X_TRACE("File SIZE: %d\n", static_cast<int>(size));
    if (size > 100) X_TRACE("LAST 100 CHARS ===>\n%s\n===>\n", text + size - 100);
    return f;
}

// The directory of PATH as pages see it in DIR: relative to X_ROOT as
// "./sub", the path's own directory outside it, "/" when there is none.
static void page_dir(const char *path, char *dir, size_t cap) {
    const char *root = X_get_value("X_ROOT");
    size_t rl = root ? strlen(root) : 0;
    int size = static_cast<int>(cap);
    if (root && strcmp(root, "/") != 0 && strncmp(path, root, rl) == 0)
        X_join(dir, size, {"./", path[rl] ? path + rl + 1 : ""});
    else
        X_join(dir, size, {path});
    char *slash = strrchr(dir, '/');
    if (slash) *slash = 0;
    else dir[0] = 0;
    if (!dir[0]) X_join(dir, size, {"/"});
}

// Fails the run on a page that cannot be read, unless the error trap took it.
[[noreturn]] static void unreadable(const char *html, const char *path, int err) {
    FILE *out = X_out();
    fprintf(out, html, path, err);
    X_fflush(out);
    X_exit(-2);
}

// Runs the page PATH: 0 when done, -1 when refused or trapped.
int X_printfile(const char *path, int compile) {
    static int level;
    if (int r; X_stack_moved(r, [&] { return X_printfile(path, compile); })) return r;
    X_TRACE("X_printfile: %s compile: %d level: %d\n", path, compile, level);
    if (level > X_MAXNEST - 1) return -1;
    struct stat st;
    if (stat(path, &st) != 0) {
        int err = errno;
        if (ERRMSG("Cannot access file: [%s] err: %d \n", path, err) == 0) return -1;
        unreadable("<hr><h1> Cannot access file: [%s] err: %d </h1><hr>\n", path, err);
    }
    X_FILE *file = cached(path, st);
    long saved = -1;
    if (file) {
        saved = file->offset;
        file->offset = 0;
        X_TRACE("Reused, File SIZE: %d\n", static_cast<int>(file->size));
    } else if (!(file = load(path, st))) {
        if (ERRMSG("Cannot open file: [%s] \n", path) == 0) return -1;
        unreadable("<hr><h1> Cannot open file: [%s] </h1><hr>\n", path, 0);
    }
    level++;
    X_TRACE("X_printfile: DIR-curr= %s\n", DIR);
    char dir[4096];
    page_dir(path, dir, sizeof dir);
    char *old_dir = DIR;
    DIR = dir;
    X_TRACE("X_printfile: DIR-new= %s\n", DIR);
    char line[X_MAXLINE];
    for (;;) {
        if (X_LINE *row = X_line_at(file)) {
            file->offset = row->end;
            bool planned = row->kind == X_LINE_TEXT || row->kind == X_LINE_LET || row->kind == X_LINE_IF;
            if (planned && X_line_run(row, compile) == 0) {
                if (row->kind == X_LINE_TEXT) continue;
                if (Break) {
                    Continue = Break = 0;
                    break;
                }
                continue;
            }
            memcpy(line, row->text, row->len + 1);
        } else if (!X_fgets(line, sizeof line, file)) {
            break;
        } else {
            cut_cmd(file, line);
        }
        if (line[0] == '<' && line[1] == '@' && X_command(file, line, &compile, 0) == 0) {
            if (Break) {
                Continue = Break = 0;
                break;
            }
            continue;
        }
        if (!strncmp(line, "<@end>", 6)) X_warn("<@end> without a block to end");
        if (IgnoreEmpty && line[0] == '\n') continue;
        if (compile) X_transline(line, nullptr, compile);
        else transvalue(line, nullptr);
    }
    level--;
    DIR = old_dir;
    if (saved >= 0) file->offset = saved;
    return 0;
}

// Runs an included page: the first word of the expanded ARG is its path.
int X_trans_printfile(const char *arg, int compile) {
    char text[X_MAXLINE];
    X_expand_args(arg, text, compile);
    char path[X_MAXLINE];
    X_arg_string(text, path);
    X_printfile(path, compile);
    return 0;
}

int X_include(char *line, int compile, int ignore) {
    if (strncmp(line, "<@include>", 10) != 0) return -1;
    if (ignore) return 0;
    X_DEBUG("%s \n", line);
    return X_trans_printfile(line + 10, compile);
}

int X_quit(char *line, int, int ignore) {
    if (strncmp(line, "<@quit>", 7) != 0) return -1;
    if (!ignore) X_exit(0);
    return 0;
}
