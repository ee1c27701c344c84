// Preparing page lines: comments out, control characters blanked, command
// lines cut and joined over trailing backslashes.
#include <cstdio>
#include <cstring>

#include "diag/diag.h"
#include "page/page.h"

// Removes "<@--" ... "--@>" comments from LINE (capacity CAP). While a
// comment runs on, the next lines of FILE are read (2047 bytes at most a
// read) until one closes it; what follows its "--@>" takes the comment's
// place, cut to the room left in LINE.
static void uncomment(X_FILE *file, char *line, size_t cap) {
    char *start;
    while ((start = strstr(line, "<@--")) != nullptr) {
        char *end = strstr(start + 4, "--@>");
        if (end) {
            memmove(start, end + 4, strlen(end + 4) + 1);
            continue;
        }
        char more[2048];
        do {
            if (!X_fgets(more, sizeof more, file)) {
                *start = 0;  // never closed: the rest of the page is comment
                break;
            }
        } while ((end = strstr(more, "--@>")) == nullptr);
        if (!end) break;
        snprintf(start, cap - (start - line), "%s", end + 4);
    }
    if (line[strspn(line, " \t\r\n")] == 0) line[0] = 0;
}

void cut_comment(X_FILE *file, char *line) {
    uncomment(file, line, X_MAXLINE);
}

// Every byte is stored back, changed or not, so that the loop runs over
// whole vectors of the line.
static void blank_controls(char *s) {
    size_t n = strlen(s);
    for (size_t i = 0; i < n; i++) {
        auto c = static_cast<unsigned char>(s[i]);
        s[i] = static_cast<char>(c < 32 && c != '\n' ? ' ' : c);
    }
}

// Prepares one line of FILE held in LINE (capacity X_MAXLINE). Text lines
// keep their leading blanks and newline; a command line loses both and is
// joined with its continuation lines. A command that grows too long is
// reported and the work traced when REPORT is set; the answer is false when
// it grew too long.
static bool cut(X_FILE *file, char *line, bool report) {
    bool fits = true;
    if (report) X_TRACE("cut_cmd: IN= {%s}", line);
    if (strstr(line, "<@--")) cut_comment(file, line);
    if (!*line) return fits;
    blank_controls(line);
    char *p = line;
    while (*p == ' ') p++;
    if (p[0] != '<' || p[1] != '@') return fits;
    size_t len = strlen(p);
    memmove(line, p, len + 1);
    if (char *nl = strchr(line, '\n')) *nl = 0;
    len = strlen(line);
    if (len && line[len - 1] == '\\') {
        line[--len] = 0;
        char next[300];
        for (;;) {
            // The command as it stands when the page ends.
            if (!X_fgets(next, sizeof next, file)) return fits;
            if (strstr(next, "<@--")) uncomment(file, next, sizeof next);
            blank_controls(next);
            size_t nlen = strlen(next);
            if (nlen + len > X_MAXLINE - 1) {
                fits = false;
                if (report) ERRMSG("cut_cmd: No more memory...");
                nlen = X_MAXLINE - 1 - len;
            }
            if (nlen && next[nlen - 1] == '\n') next[--nlen] = 0;
            bool more = nlen && next[nlen - 1] == '\\';
            if (more) next[nlen - 1] = ' ';
            memcpy(line + len, next, nlen);
            len += nlen;
            line[len] = 0;
            if (!more) break;
        }
    }
    if (report) X_TRACE("cut_cmd: OUT= {%s}", line);
    return fits;
}

void cut_cmd(X_FILE *file, char *line) {
    cut(file, line, true);
}

bool X_cut_quiet(X_FILE *file, char *line) {
    return cut(file, line, false);
}

// Squeezes blanks in place: leading ones removed, runs made one, one
// trailing blank removed.
void trim_buff(char *buff) {
    char *w = buff;
    const char *r = buff;
    while (*r == ' ') r++;
    while (*r) {
        if (*r == ' ' && (w > buff && w[-1] == ' ')) {
            r++;
            continue;
        }
        *w++ = *r++;
    }
    if (w > buff && w[-1] == ' ') w--;
    *w = 0;
}
