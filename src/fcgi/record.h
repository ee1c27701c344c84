// FastCGI record layer and the relay between one connection and one page
// process.
#pragma once

#include <cstddef>

// ---- Protocol (version 1) ------------------------------------------------
enum {
    FCGI_BEGIN_REQUEST = 1,
    FCGI_ABORT_REQUEST = 2,
    FCGI_END_REQUEST = 3,
    FCGI_PARAMS = 4,
    FCGI_STDIN = 5,
    FCGI_STDOUT = 6,
    FCGI_STDERR = 7,
    FCGI_DATA = 8,
    FCGI_GET_VALUES = 9,
    FCGI_GET_VALUES_RESULT = 10,
    FCGI_UNKNOWN_TYPE = 11,
};
// Protocol status of an FCGI_END_REQUEST.
enum { FCGI_REQUEST_COMPLETE, FCGI_CANT_MPX_CONN, FCGI_OVERLOADED, FCGI_UNKNOWN_ROLE };
constexpr int FCGI_RESPONDER = 1;    // the only role served
constexpr int FCGI_HEADER = 8;       // bytes of a record header
constexpr int FCGI_MAXDATA = 65535;  // content bytes of one record
constexpr int FCGI_MAXPARAMS = 1 << 20;  // bytes of all parameters of a request

// One record as found in a reader's buffer; data stays valid until the next
// fcgi_fill on the same reader.
struct FCGI_RECORD {
    int type;                   // FCGI_* record type
    int id;                     // request id, 0 for management records
    int len;                    // content bytes
    const unsigned char *data;  // content
};

// Buffered input of one connection: room for one whole record.
struct FCGI_READER {
    unsigned char buf[FCGI_HEADER + FCGI_MAXDATA + 255];
    int have;  // bytes in buf
    int used;  // bytes of buf already handed out as records
};

// Reads what FD has (never blocks when FD is non-blocking) into R, after
// moving unread bytes to the front. Returns the bytes read, 0 at end of
// input, -1 on error, -2 when nothing was ready.
int fcgi_fill(FCGI_READER *r, int fd);
// Takes the next whole record of R into REC. Returns 1, 0 when more input is
// needed, -1 for a header of another protocol version.
int fcgi_next(FCGI_READER *r, FCGI_RECORD *rec);
// Writes one record of LEN (at most FCGI_MAXDATA) bytes. 0 or -1.
int fcgi_write(int fd, int type, int id, const void *data, int len);
// Writes DATA as records of TYPE, as many as it takes. 0 or -1.
int fcgi_stream(int fd, int type, int id, const void *data, size_t len);
// Ends request ID with the page's exit STATUS and a protocol status. 0 or -1.
int fcgi_end(int fd, int id, int status, int protocol);
// Appends one name-value pair to DST of ROOM bytes; returns its size, or -1
// when it does not fit.
int fcgi_pair_put(unsigned char *dst, int room, const char *name, int nlen,
                  const char *val, int vlen);
// Reads the pair at *POS of the LEN bytes at P and moves *POS behind it.
// Returns 1, 0 at the end, -1 for a pair that runs past the end.
int fcgi_pair_next(const unsigned char *p, int len, int *pos, const unsigned char **name,
                   int *nlen, const unsigned char **val, int *vlen);

// ---- Page process and relay ---------------------------------------------
// The relay's ends of a pre-forked page process.
struct FCGI_PAGE {
    int pid;  // page process, leader of its own process group
    int ctl;  // parameters to the page (write end)
    int in;   // request body to the page's standard input (write end)
    int out;  // the page's standard output (read end)
    int err;  // the page's standard error (read end)
};

// Forks a page process that waits for a request. In the caller it fills PG
// and returns 1 (-1 when it could not). In the page process it closes
// CLOSE_FD, waits for the parameters, puts them into the environment, binds
// standard input, output and error to the relay and returns 0; it exits when
// the relay goes away without a request.
int fcgi_page_start(FCGI_PAGE *pg, int close_fd);
// Serves the one request arriving on CONN with the page process PG, which it
// kills after TIMEOUT seconds; always ends the request with an
// FCGI_END_REQUEST unless the connection broke, then reads away what the web
// server still sends, so that the caller can close CONN at once. Answers
// management records on the way, with MAXCONNS as the connections served at
// once.
// Returns the page's exit status (128 + signal for a killed page), or -1
// when no page ran.
int fcgi_serve(int conn, FCGI_PAGE *pg, int timeout, int maxconns);
