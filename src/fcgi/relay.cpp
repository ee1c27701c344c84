// One FastCGI request between the web server's connection and the page
// process: parameters in, body to the page's standard input, the page's
// standard output back as FCGI_STDOUT records, its exit status last.
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fcgi/record.h"

namespace {

// State of the one request of a connection.
struct Relay {
    int conn;            // the web server's connection
    FCGI_PAGE *pg;       // the page process and its pipes (-1 once closed)
    int maxconns;        // answer to FCGI_MAX_CONNS and FCGI_MAX_REQS
    int id;              // request id, 0 before FCGI_BEGIN_REQUEST
    int started;         // the parameters went to the page
    int done;            // stop reading the connection: aborted or refused
    int gone;            // the connection broke
    int eof;             // the body's stream ended: nothing more will come
    unsigned char *raw;  // the parameter stream so far (malloc)
    int rlen, rcap;      // bytes used and allocated in raw
    long sent;           // FCGI_STDOUT bytes sent
    long errs;           // FCGI_STDERR bytes sent
    int used_in, used_out;  // most bytes ever held in pending and chunk
    int blen, boff;      // body bytes waiting in pending, and those written
};

FCGI_READER rd;                          // input of the connection
unsigned char pending[FCGI_MAXDATA];     // body bytes the page has not taken
unsigned char chunk[FCGI_MAXDATA];       // page output on its way out

long now_ms() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1000L + t.tv_nsec / 1000000;
}

void close_fd(int *fd) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
}

// Keeps the raw parameter stream; past the limit the rest is lost.
void add_params(Relay *r, const unsigned char *data, int len) {
    if (len > FCGI_MAXPARAMS - r->rlen) len = FCGI_MAXPARAMS - r->rlen;
    if (len <= 0) return;
    if (r->rlen + len > r->rcap) {  // grown by hand: no stale copy stays behind
        int cap = r->rcap ? r->rcap : 4096;
        while (cap < r->rlen + len) cap *= 2;
        auto *p = static_cast<unsigned char *>(malloc(cap));
        if (!p) return;
        if (r->raw) memcpy(p, r->raw, r->rlen), explicit_bzero(r->raw, r->rcap);
        free(r->raw);
        r->raw = p;
        r->rcap = cap;
    }
    memcpy(r->raw + r->rlen, data, len);
    r->rlen += len;
}

// Turns the parameter stream, in place, into "NAME=value" strings each
// ended by a zero byte; returns their length. Names the environment cannot
// hold are dropped, values end at a zero byte, and a cut-off pair is lost.
// Each string is no longer than its encoded pair, so writing never passes
// reading.
int env_strings(Relay *r) {
    const unsigned char *name, *val;
    int pos = 0, nlen, vlen, out = 0;
    while (fcgi_pair_next(r->raw, r->rlen, &pos, &name, &nlen, &val, &vlen) == 1) {
        if (nlen == 0 || memchr(name, '=', nlen) || memchr(name, 0, nlen)) continue;
        if (const void *z = memchr(val, 0, vlen))
            vlen = static_cast<int>(static_cast<const unsigned char *>(z) - val);
        memmove(r->raw + out, name, nlen);
        r->raw[out + nlen] = '=';
        memmove(r->raw + out + nlen + 1, val, vlen);
        out += nlen + vlen + 1;
        r->raw[out++] = 0;
    }
    return out;
}

// Hands the collected parameters to the waiting page process.
void start_page(Relay *r) {
    int used = env_strings(r);
    uint32_t len = static_cast<uint32_t>(used);
    iovec iov[2] = {{&len, sizeof len}, {r->raw, static_cast<size_t>(used)}};
    size_t left = sizeof len + len;
    int cnt = 2;
    iovec *v = iov;
    while (left > 0) {
        ssize_t n = writev(r->pg->ctl, v, cnt);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;  // the page is gone: its exit status tells
        left -= n;
        while (cnt > 0 && static_cast<size_t>(n) >= v->iov_len) n -= v->iov_len, v++, cnt--;
        if (cnt > 0) v->iov_base = static_cast<char *>(v->iov_base) + n, v->iov_len -= n;
    }
    close_fd(&r->pg->ctl);
    r->started = 1;
}

// Answers FCGI_GET_VALUES with the values this server knows.
void get_values(Relay *r, const FCGI_RECORD *rec) {
    unsigned char out[256];
    int len = 0, pos = 0, nlen, vlen;
    const unsigned char *name, *val;
    char num[16];
    snprintf(num, sizeof num, "%d", r->maxconns);
    while (fcgi_pair_next(rec->data, rec->len, &pos, &name, &nlen, &val, &vlen) == 1) {
        const char *answer = nullptr;
        auto is = [&](const char *s) {
            return nlen == static_cast<int>(strlen(s)) && memcmp(name, s, nlen) == 0;
        };
        if (is("FCGI_MAX_CONNS") || is("FCGI_MAX_REQS")) answer = num;
        else if (is("FCGI_MPXS_CONNS")) answer = "0";
        if (!answer) continue;
        int n = fcgi_pair_put(out + len, sizeof out - len, reinterpret_cast<const char *>(name),
                              nlen, answer, static_cast<int>(strlen(answer)));
        if (n > 0) len += n;
    }
    fcgi_write(r->conn, FCGI_GET_VALUES_RESULT, 0, out, len);
}

// Acts on one record from the web server.
void take_record(Relay *r, const FCGI_RECORD *rec) {
    if (rec->id == 0) {
        if (rec->type == FCGI_GET_VALUES) {
            get_values(r, rec);
        } else {
            unsigned char body[8] = {static_cast<unsigned char>(rec->type)};
            fcgi_write(r->conn, FCGI_UNKNOWN_TYPE, 0, body, sizeof body);
        }
        return;
    }
    if (rec->type == FCGI_BEGIN_REQUEST) {
        if (r->id) {  // one request per connection: no multiplexing
            fcgi_end(r->conn, rec->id, 0, FCGI_CANT_MPX_CONN);
        } else if (rec->len < 2 || (rec->data[0] << 8 | rec->data[1]) != FCGI_RESPONDER) {
            fcgi_end(r->conn, rec->id, 0, FCGI_UNKNOWN_ROLE);
            r->done = 1;
        } else {
            r->id = rec->id;
        }
        return;
    }
    if (rec->id != r->id) return;
    switch (rec->type) {
    case FCGI_ABORT_REQUEST:
        kill(-r->pg->pid, SIGKILL);
        r->done = 1;
        break;
    case FCGI_PARAMS:
        if (r->started) break;
        if (rec->len == 0) {
            start_page(r);
            break;
        }
        add_params(r, rec->data, rec->len);
        break;
    case FCGI_STDIN:
        if (rec->len == 0) close_fd(&r->pg->in), r->eof = 1;
        if (rec->len == 0 || r->pg->in < 0 || !r->started) break;
        memcpy(pending, rec->data, rec->len);
        r->blen = rec->len;
        if (r->blen > r->used_in) r->used_in = r->blen;
        r->boff = 0;
        break;
    default:
        break;
    }
}

// Writes what it can of the waiting body into the page's pipe.
void feed_page(Relay *r) {
    ssize_t n = write(r->pg->in, pending + r->boff, r->blen - r->boff);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (n <= 0) {  // the page stopped reading: the rest of the body is dropped
        close_fd(&r->pg->in);
        r->blen = 0;
        return;
    }
    r->boff += static_cast<int>(n);
    if (r->boff == r->blen) r->blen = 0;
}

// Passes what the page wrote on FD (its output or error pipe) to the web
// server as records of TYPE; closes the pipe at its end.
void drain_page(Relay *r, int *fd, int type) {
    ssize_t n = read(*fd, chunk, sizeof chunk);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (n <= 0) {
        close_fd(fd);
        return;
    }
    if (fcgi_write(r->conn, type, r->id, chunk, static_cast<int>(n)) != 0) r->gone = 1;
    if (type == FCGI_STDOUT) r->sent += n;
    else r->errs += n;
    if (n > r->used_out) r->used_out = static_cast<int>(n);
}

int rd_used;  // most bytes ever held in rd during this request

// Reads what the connection has.
void read_conn(Relay *r) {
    int n = fcgi_fill(&rd, r->conn);
    if (n == 0 || n == -1) r->gone = 1;
    if (rd.have > rd_used) rd_used = rd.have;
}

// Lets the web server read the whole response when it may still be sending
// (a body the page did not wait for): closing a socket with unread input
// would reset the connection and could destroy the response in flight.
void drain_conn(int conn) {
    shutdown(conn, SHUT_WR);
    char sink[4096];
    pollfd p{conn, POLLIN, 0};
    for (int i = 0; i < 256 && poll(&p, 1, 1000) > 0; i++)
        if (read(conn, sink, sizeof sink) <= 0) break;
}

// Exit status as the web server gets it: the exit code, or 128 + signal.
int exit_code(int st) {
    if (WIFEXITED(st)) return WEXITSTATUS(st);
    if (WIFSIGNALED(st)) return 128 + WTERMSIG(st);
    return -1;
}

// Ends the response: a page that died or ran out of time before writing
// anything still gets a complete answer, and the web server's log a line.
void finish(Relay *r, int status, int timed_out) {
    if (timed_out || status > 128) {
        char note[96];
        int n = timed_out ? snprintf(note, sizeof note, "Tolm: page killed after the time limit\n")
                          : snprintf(note, sizeof note, "Tolm: page ended by signal %d\n",
                                     status - 128);
        fcgi_write(r->conn, FCGI_STDERR, r->id, note, n);
        r->errs += n;
        if (r->sent == 0) {
            static const char reply[] =
                "Status: 500 Internal Server Error\r\nContent-Type: text/html\r\n\r\n"
                "<h1>500 Internal Server Error</h1>\n";
            fcgi_write(r->conn, FCGI_STDOUT, r->id, reply, sizeof reply - 1);
        }
    }
    if (r->errs) fcgi_write(r->conn, FCGI_STDERR, r->id, nullptr, 0);
    fcgi_write(r->conn, FCGI_STDOUT, r->id, nullptr, 0);
    fcgi_end(r->conn, r->id, status, FCGI_REQUEST_COMPLETE);
}

}  // namespace

int fcgi_serve(int conn, FCGI_PAGE *pg, int timeout, int maxconns) {
    Relay r{};
    r.conn = conn;
    r.pg = pg;
    r.maxconns = maxconns;
    rd.have = rd.used = rd_used = 0;
    signal(SIGPIPE, SIG_IGN);  // a page that stops reading is not an error here
    fcntl(pg->in, F_SETFL, O_NONBLOCK);
    long deadline = now_ms() + timeout * 1000L;
    timeval tv{timeout, 0};
    setsockopt(conn, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pg->pid, 0));
    int st = 0, reaped = 0, timed_out = 0;
    while (!r.gone && (pg->out >= 0 || !reaped)) {
        FCGI_RECORD rec;
        int got = 0;
        while (!r.done && r.blen == 0 && (got = fcgi_next(&rd, &rec)) == 1) take_record(&r, &rec);
        if (got < 0) break;  // not FastCGI: nobody to answer
        if (r.done && (r.id == 0 || !r.started)) break;
        long left = deadline - now_ms();
        if (left <= 0) {
            timed_out = 1;
            break;
        }
        pollfd p[5];
        int np = 0, ic = -1, ii = -1, io = -1, ie = -1, ip = -1;
        if (!r.done && r.blen == 0) p[ic = np++] = {conn, POLLIN, 0};
        if (r.blen > 0 && pg->in >= 0) p[ii = np++] = {pg->in, POLLOUT, 0};
        if (r.started && pg->out >= 0) p[io = np++] = {pg->out, POLLIN, 0};
        if (r.started && pg->err >= 0) p[ie = np++] = {pg->err, POLLIN, 0};
        if (!reaped && pidfd >= 0) p[ip = np++] = {pidfd, POLLIN, 0};
        int wait = static_cast<int>(left);
        if (pidfd < 0 && !reaped) wait = wait > 5 ? 5 : wait;  // no pidfd: look now and then
        if (poll(p, np, wait) < 0 && errno != EINTR) break;
        if (ic >= 0 && p[ic].revents) read_conn(&r);
        if (ii >= 0 && p[ii].revents) feed_page(&r);
        if (ie >= 0 && p[ie].revents) drain_page(&r, &pg->err, FCGI_STDERR);
        if (io >= 0 && p[io].revents) drain_page(&r, &pg->out, FCGI_STDOUT);
        if (!reaped && waitpid(pg->pid, &st, WNOHANG) == pg->pid) reaped = 1;
        if (reaped && r.blen > 0) r.blen = 0;  // nobody left to take it
        if (reaped && !r.started) break;       // the page died before the request
    }
    if (pidfd >= 0) close(pidfd);
    if (!reaped) {
        kill(-pg->pid, SIGKILL);
        kill(pg->pid, SIGKILL);
        while (waitpid(pg->pid, &st, 0) < 0 && errno == EINTR) {
        }
    } else if (timed_out) {
        kill(-pg->pid, SIGKILL);  // whatever the page left holding its output
    }
    // Error output is passed on as far as it has come: the response does
    // not wait for whoever may still hold the pipe.
    if (!timed_out && !r.gone && pg->err >= 0) {
        fcntl(pg->err, F_SETFL, O_NONBLOCK);
        for (int i = 0; i < 16 && pg->err >= 0 && !r.gone; i++)
            drain_page(&r, &pg->err, FCGI_STDERR);
    }
    close_fd(&pg->ctl);
    close_fd(&pg->in);
    close_fd(&pg->out);
    close_fd(&pg->err);
    // The next page process is forked from this one: it gets nothing of
    // this request.
    if (r.raw) explicit_bzero(r.raw, r.rcap);
    free(r.raw);
    int status = exit_code(st);
    if (timed_out && status < 128) status = 128 + SIGKILL;
    if (r.id && !r.gone) finish(&r, status, timed_out);
    if (!r.eof && !r.gone) drain_conn(conn);
    explicit_bzero(rd.buf, rd_used);
    explicit_bzero(pending, r.used_in);
    explicit_bzero(chunk, r.used_out);
    return r.id && r.started ? status : -1;
}
