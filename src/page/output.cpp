// The output stream of the page, its flushing policy and the response's
// header block (see output.h).
#include "page/output.h"

#include <strings.h>
#include <time.h>
#include <cstring>
#include <string>

#include "page/page.h"
#include "subst/args.h"

X_OPEN *X_stdout_row;

namespace {

// ---- Collected output ----
constexpr long kHoldMs = 100;  // longest wait of collected text
bool pending;                  // collected text is waiting in stdout's buffer
long since;                    // when it started waiting (ms)
bool immediate;                // collecting is over for this run
unsigned ticks;                // loop rounds, the clock is read every 64th

long now_ms() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
    return ts.tv_sec * 1000L + ts.tv_nsec / 1000000L;
}

bool collecting() {
    return MY_fflush == -1 && DO_fflush && !immediate;
}

// Standard output would be flushed now: collect instead, unless the text
// already waited long enough.
void hold() {
    long t = now_ms();
    if (!pending) {
        pending = true;
        since = t;
    } else if (t - since >= kHoldMs) {
        fflush(stdout);
        pending = false;
    }
}

// The header block while it is held.
struct Head {
    X_HEAD_STATE state = X_HEAD_OPEN;
    bool cgi = false;        // X_head_begin was called
    std::string type;        // the content type line
    bool page_type = false;  // the page set the content type
    std::string status;      // a "Status:" line set by the page, or empty
    bool status_out = false; // a status line was written at once
    std::string lines;       // cookie lines and the page's lines, in order
    std::string banner;      // the banner, once asked for
};

Head &head() {
    static Head h;  // built on first use: no start-up work
    return h;
}

// Removes from LINES every line whose name is NAME (before its colon).
void drop(std::string &lines, const char *name) {
    size_t n = strlen(name);
    std::string kept;
    for (size_t at = 0; at < lines.size();) {
        size_t end = lines.find('\n', at);
        end = end == std::string::npos ? lines.size() : end + 1;
        const char *l = lines.c_str() + at;
        if (!(end - at > n && l[n] == ':' && !strncasecmp(l, name, n)))
            kept.append(lines, at, end - at);
        at = end;
    }
    lines.swap(kept);
}

}  // namespace

void X_head_begin(const char *line) {
    Head &h = head();
    h.cgi = true;
    h.state = X_HEAD_HELD;
    h.type = line;
}

int X_head_line(const char *line) {
    Head &h = head();
    if (h.state == X_HEAD_CLOSED) return -1;
    if (h.state == X_HEAD_HELD) {
        h.lines += line;
        return 0;
    }
    fputs(line, stdout);
    return 0;
}

int X_head_set(const char *name, const char *value) {
    Head &h = head();
    if (!h.cgi || h.state == X_HEAD_CLOSED) return -1;
    std::string line = std::string(name) + ": " + value + "\r\n";
    if (h.state == X_HEAD_OPEN) {
        fputs(line.c_str(), stdout);  // already out: the header is still open
        return 0;
    }
    if (!strcasecmp(name, "Content-Type")) {
        h.type = line;
        h.page_type = true;
    }
    else if (!strcasecmp(name, "Status")) h.status = line;
    else {
        if (strcasecmp(name, "Set-Cookie")) drop(h.lines, name);
        h.lines += line;
    }
    return 0;
}

void X_head_status(const char *text) {
    Head &h = head();
    std::string line = std::string("Status: ") + text + "\r\n";
    if (h.state == X_HEAD_HELD) {
        h.status = line;
    } else if (h.state == X_HEAD_OPEN) {
        fputs(line.c_str(), stdout);
        h.status_out = true;
    }
}

int X_head_has_status() {
    return !head().status.empty() || head().status_out;
}

void X_head_banner(const char *text) {
    Head &h = head();
    if (h.state == X_HEAD_HELD) {
        h.banner = text;
        return;
    }
    fputs(text, stdout);
    fflush(stdout);
    if (h.cgi) h.state = X_HEAD_CLOSED;
}

void X_body() {
    Head &h = head();
    if (h.state != X_HEAD_HELD) return;
    h.state = X_HEAD_OPEN;
    std::string block = h.status + h.type + h.lines;
    fwrite(block.data(), 1, block.size(), stdout);
    if (!h.banner.empty()) {
        // The banner is an HTML comment: other content only gets the blank
        // line that ends the header.
        bool html = !h.page_type || strcasestr(h.type.c_str(), "text/html");
        fputs(html ? h.banner.c_str() : "\r\n", stdout);
        h.state = X_HEAD_CLOSED;
    }
    // The header goes out with the first piece of the body.
    if (collecting()) hold();
    else fflush(stdout);
}

X_HEAD_STATE X_head_state() {
    return head().state;
}

int X_head_cgi() {
    return head().cgi;
}

FILE *X_out() {
    bool closed = X_stdout_row && X_stdout_row->fp != X_stdout;
    if (X_stdout && !closed) return X_stdout;
    if (X_fp) return X_fp;
    X_body();
    return stdout;
}

int X_fflush(FILE *stream) {
    if (!stream || !MY_fflush || !(DO_fflush || MY_fflush == 1)) return 0;
    if (stream == stdout && collecting()) {
        hold();
        return 0;
    }
    fflush(stream);
    if (stream == stdout) pending = false;
    return 0;
}

void X_flush_out() {
    if (!pending) return;
    fflush(stdout);
    pending = false;
}

void X_out_tick() {
    if (pending && (++ticks & 63) == 0 && now_ms() - since >= kHoldMs) X_flush_out();
}

bool X_out_collecting(FILE *f) {
    return f == stdout && collecting();
}

void X_out_immediate() {
    X_flush_out();
    immediate = true;
}

int X_putchar(int ch) {
    FILE *f = X_out();
    if (HTML) fputs(HTML_string(ch), f);
    else fputc(ch, f);
    return 0;
}
