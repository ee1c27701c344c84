// Multipart form-data bodies (file uploads). The first line of the body is
// the boundary; every part yields one pair in ent: an ordinary field its
// raw value, a file field the path of a file in the temporary directory
// that holds the uploaded bytes.
#include <fcntl.h>
#include <unistd.h>
#include <climits>
#include <cstdlib>
#include <cstring>
#include "diag/diag.h"
#include "form/form.h"

static constexpr int SEPSIZE = 256;   // separator: CR LF and the first line
static constexpr int LINESIZE = 512;  // one header line (longer: in pieces)
static constexpr int NAMESIZE = 256;  // a field or file name
static constexpr int LASTPAIR = X_MAXENT - 1;
static constexpr const char *BROKEN = "Broken Input...";

// The reading state of one body.
struct Body {
    FILE *in;             // the body
    char sep[SEPSIZE];    // CR LF and the boundary line
    int seplen;           // bytes of sep
    char line[LINESIZE];  // the last line read
};

// Copies the text behind key up to the next double quote into out (at most
// NAMESIZE-1 characters); false when the line has no key.
static bool quoted(const char *line, const char *key, char *out) {
    const char *p = strstr(line, key);
    if (!p) return false;
    p += strlen(key);
    int n = 0;
    while (p[n] && p[n] != '"' && n < NAMESIZE - 1) {
        out[n] = p[n];
        ++n;
    }
    out[n] = '\0';
    return true;
}

// Skips the part's header lines up to and including the empty line.
static void skip_headers(Body *b) {
    for (;;) {
        int end = getLine(b->line, LINESIZE, b->in);
        if (!b->line[0] || end) return;
    }
}

// Copies the part's content up to the separator to out (NULL: discard),
// comparing the separator at every byte position through a ring buffer of
// its size. Returns the number of bytes copied, or -1 when the input ends
// before the separator.
static long copy_content(Body *b, FILE *out) {
    char ring[SEPSIZE];
    const int n = b->seplen;
    for (int k = 0; k < n; ++k) {
        int c = getc(b->in);
        if (c == EOF) return -1;
        ring[k] = static_cast<char>(c);
    }
    long written = 0;
    int head = 0;  // index of the oldest byte
    for (;;) {
        int k = 0;
        while (k < n && ring[(head + k) % n] == b->sep[k]) ++k;
        if (k == n) return written;
        if (out) putc(ring[head], out);
        ++written;
        int c = getc(b->in);
        if (c == EOF) return -1;
        ring[head] = static_cast<char>(c);
        head = (head + 1) % n;
    }
}

// Value of an ordinary field, staged through the buffer file; NULL when
// empty. Sets *broken when the input ended inside the content.
static char *field_value(Body *b, FILE *buf, bool *broken) {
    X_TRACE("VALUE... \n");
    if (buf) rewind(buf);
    skip_headers(b);
    long n = copy_content(b, buf);
    if (n < 0) {
        *broken = true;
        return nullptr;
    }
    char *val = nullptr;
    if (n > 0 && buf && (val = static_cast<char *>(malloc(n + 2)))) {
        rewind(buf);
        size_t got = fread(val, 1, n, buf);
        val[got] = '\0';
    }
    X_TRACE("VALUE: [%s] \n", val ? val : "NULL");
    getLine(b->line, LINESIZE, b->in);
    return val;
}

// The client's file name without any directory part, either style.
static const char *basename_of(const char *name) {
    const char *p = strrchr(name, '/');
    if (p) name = p + 1;
    p = strrchr(name, '\\');
    if (p) name = p + 1;
    return name;
}

// A new file at PATH, readable by this user only. A stale file of an
// earlier process with the same id is replaced; a symbolic link there is
// removed, never followed. NULL when the file cannot be made.
static FILE *create(const char *path) {
    unlink(path);
    int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return nullptr;
    FILE *f = fdopen(fd, "w");
    if (!f) close(fd);
    return f;
}

// A file field: the content goes to "%s/%s..%d.%d" in tmp; the value is
// that path, or NULL when no file was chosen. Sets *broken as above.
static char *file_value(Body *b, const char *tmp, int i, bool *broken) {
    char src[NAMESIZE];
    quoted(b->line, "filename=\"", src);
    X_TRACE("FILE-src: [%s] \n", src);
    const char *base = basename_of(src);
    X_TRACE("FILE: [%s] \n", base);
    if (!base[0]) {
        // No file chosen: the empty content and the separator line follow.
        skip_headers(b);
        getLine(b->line, LINESIZE, b->in);
        getLine(b->line, LINESIZE, b->in);
        return nullptr;
    }
    // The base holds no slash and the "..PID.index" tail follows it, so the
    // path always names a plain file in tmp; one that does not fit is not made.
    // A base too long for one file name is cut so that the upload is kept.
    char tail[48];
    int taillen = snprintf(tail, sizeof tail, "..%d.%d", getpid(), i);
    int room = NAME_MAX - taillen;
    char path[4096];
    int len = snprintf(path, sizeof path, "%s/%.*s%s", tmp, room, base, tail);
    bool keep = len < static_cast<int>(sizeof path);
    char *val = keep ? strdup(path) : nullptr;
    FILE *out = keep ? create(path) : nullptr;
    X_upload_add(val);
    skip_headers(b);
    long n = copy_content(b, out);
    if (out) fclose(out);
    if (n < 0) {
        *broken = true;
        return val;
    }
    getLine(b->line, LINESIZE, b->in);
    return val;
}

// A file no other process can reach: unnamed in DIR (or the system's
// temporary directory) and gone when it is closed or the process ends.
static FILE *private_file(const char *dir) {
    int fd = open(dir, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    FILE *f = fd >= 0 ? fdopen(fd, "w+") : nullptr;
    if (!f && fd >= 0) close(fd);
    return f ? f : tmpfile();
}

// With tracing on the body is first copied, so that it can be looked at
// after the run in "%s/post.input". The body is read back from a private
// copy of this process, since another traced request may rewrite
// post.input at any time.
static FILE *body_input(const char *tmp) {
    if (!Trace) return stdin;
    FILE *own = private_file(tmp);
    if (!own) return stdin;
    char path[4096];
    snprintf(path, sizeof path, "%s/post.input", tmp);
    FILE *copy = fopen(path, "w");
    char block[512];
    size_t n;
    while ((n = fread(block, 1, sizeof block, stdin)) > 0) {
        fwrite(block, 1, n, own);
        if (copy) fwrite(block, 1, n, copy);
    }
    if (copy) fclose(copy);
    rewind(own);
    return own;
}

int E_POST_parser(entry *list) {
    X_TRACE("E_POST_parser: ");
    const char *tmp = getenv("TMP_DIR");
    if (!tmp) tmp = "/tmp";
    Body b;
    b.in = body_input(tmp);
    b.sep[0] = '\r';
    b.sep[1] = '\n';
    getLine(b.sep + 2, SEPSIZE - 2, b.in);
    b.seplen = static_cast<int>(strlen(b.sep));
    X_TRACE("SEP: %s \nSIZE: %d\n", b.sep + 2, b.seplen);
    FILE *buf = private_file(tmp);  // ordinary values are staged here

    for (int i = 0;; ++i) {
        if (i == LASTPAIR) {
            list[i] = entry{nullptr, nullptr};
            return 0;
        }
        for (;;) {
            int end = getLine(b.line, LINESIZE, b.in);
            X_TRACE("TAKE: %s \n", b.line);
            if (strstr(b.line, "name=\"")) break;
            if (end) {
                list[i] = entry{nullptr, nullptr};
                X_TRACE("END: %d values\n", i);
                return 0;
            }
        }
        char name[NAMESIZE];
        quoted(b.line, "name=\"", name);
        list[i].name = strdup(name);
        list[i].val = nullptr;
        X_TRACE("NAME: %s \n", name);
        bool broken = false;
        if (!strstr(b.line, "filename=\""))
            list[i].val = field_value(&b, buf, &broken);
        else
            list[i].val = file_value(&b, tmp, i, &broken);
        if (broken) {
            POST_errmsg = BROKEN;
            return -1;
        }
    }
}
