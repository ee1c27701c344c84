// The response on standard output: the header block and the body.
//
// Everything the run writes to standard output goes through this layer:
// page text through X_out (page.h), which starts the body when it hands
// out standard output; the header lines through X_head_*; anything else
// that writes to standard output directly (error output, a child process,
// the end of the run) calls X_body first.
//
// Shell mode, and CGI mode until X_head_begin: lines and the banner are
// written at once, as they come. From X_head_begin (CGI mode) the header
// block is held in memory: the content type line, the cookie lines and
// whatever the page sets, and the banner comment that ends it once
// X_header has asked for it. X_body writes the held block, the banner when
// asked for (only its blank line when the page set a content type other
// than HTML), and flushes; after that lines go out at once again, and once
// the banner is out the header is closed. A page that sets nothing gets the
// same bytes in the same order as when every line went out at once.
#pragma once

#include <cstdio>

// The response's progress.
enum X_HEAD_STATE {
    X_HEAD_OPEN,    // lines are written at once; the header is not ended yet
    X_HEAD_HELD,    // lines are held until the body starts
    X_HEAD_CLOSED,  // the blank line that ends the header is out: no more lines
};

// CGI mode: holds the header block from now on, starting with the content
// type line LINE (written as given, line end included).
void X_head_begin(const char *line);
// Adds the header text LINE (line end included) to the block, or writes it
// at once when nothing is held. Returns 0, -1 once the header is closed.
int X_head_line(const char *line);
// Sets the header NAME to VALUE in the held block: "Content-Type" and
// "Status" replace the earlier line of that name, "Set-Cookie" lines are
// added, any other name replaces the page's earlier line of that name
// (case-insensitively). Written as "NAME: VALUE\r\n". The caller checks
// NAME and VALUE. Returns 0, -1 when the header is closed, or when the
// run has no HTTP header (shell mode) in which case nothing is written.
int X_head_set(const char *name, const char *value);
// Sets the status line "Status: TEXT": held, or written at once while the
// header is open (also before X_head_begin, for a request refused while it
// is read). X_head_has_status answers 1 once a status was given.
void X_head_status(const char *text);
int X_head_has_status();
// The banner comment that ends the header: written now, or after the held
// block when the body starts (X_header, runtime.h, calls this).
void X_head_banner(const char *text);
// The body starts: writes and flushes what is held. Does nothing otherwise.
void X_body();

// ---- Collected output ------------------------------------------------------
// Under the default flushing policy (MY_fflush -1, DO_fflush set) text meant
// for standard output is collected in its stream buffer instead of being
// flushed at every write: it goes out when the buffer fills, when it has
// waited 100 ms (at the next write or loop round), and before anything else
// could write to the response or keep the client waiting. The bytes and
// their order do not change; "option fflush on" flushes every write.

// Collected text goes out now: before a child process, a wait, a read of
// standard input, or a write that is not itself to be flushed.
void X_flush_out();
// Collected text that has waited long enough goes out (loops call this).
void X_out_tick();
// Whether a flush of F would only collect (F is standard output and
// output is being collected).
bool X_out_collecting(FILE *f);
// No more collecting for this run (an alarm may end it at any moment).
void X_out_immediate();

// The current state, and whether this run answers a web server.
X_HEAD_STATE X_head_state();
int X_head_cgi();
