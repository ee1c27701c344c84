// FastCGI records: framing, stream splitting and name-value pairs.
//
// Written here rather than taken from libfcgi: a worker speaks to exactly one
// connection for exactly one request, so the record layer is a header of
// eight bytes, a length-prefixed pair format and a loop over write(). libfcgi
// would bring its own stream buffering over stdio (which a page's child
// processes do not inherit: they write to file descriptor 1), a second copy
// of every byte, and a library the static build would have to carry. The
// relay instead keeps the page's real descriptors and frames what arrives.
#include <cerrno>
#include <cstring>
#include <sys/uio.h>
#include <unistd.h>

#include "fcgi/record.h"

int fcgi_fill(FCGI_READER *r, int fd) {
    if (r->used) {
        memmove(r->buf, r->buf + r->used, r->have - r->used);
        r->have -= r->used;
        r->used = 0;
    }
    int room = static_cast<int>(sizeof r->buf) - r->have;
    if (room == 0) return -2;  // a whole record is waiting to be taken
    ssize_t n;
    do n = read(fd, r->buf + r->have, room);
    while (n < 0 && errno == EINTR);
    if (n < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? -2 : -1;
    r->have += static_cast<int>(n);
    return static_cast<int>(n);
}

int fcgi_next(FCGI_READER *r, FCGI_RECORD *rec) {
    const unsigned char *h = r->buf + r->used;
    int avail = r->have - r->used;
    if (avail < FCGI_HEADER) return 0;
    if (h[0] != 1) return -1;
    int len = h[4] << 8 | h[5];
    int whole = FCGI_HEADER + len + h[6];
    if (avail < whole) return 0;
    rec->type = h[1];
    rec->id = h[2] << 8 | h[3];
    rec->len = len;
    rec->data = h + FCGI_HEADER;
    r->used += whole;
    return 1;
}

// Writes all of IOV, restarting after signals and short writes.
static int write_all(int fd, iovec *iov, int cnt) {
    while (cnt > 0) {
        ssize_t n = writev(fd, iov, cnt);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        while (cnt > 0 && static_cast<size_t>(n) >= iov->iov_len) {
            n -= static_cast<ssize_t>(iov->iov_len);
            iov++;
            cnt--;
        }
        if (cnt > 0) {
            iov->iov_base = static_cast<char *>(iov->iov_base) + n;
            iov->iov_len -= n;
        }
    }
    return 0;
}

int fcgi_write(int fd, int type, int id, const void *data, int len) {
    if (len < 0 || len > FCGI_MAXDATA) return -1;
    unsigned char h[FCGI_HEADER] = {1,
                                    static_cast<unsigned char>(type),
                                    static_cast<unsigned char>(id >> 8),
                                    static_cast<unsigned char>(id),
                                    static_cast<unsigned char>(len >> 8),
                                    static_cast<unsigned char>(len),
                                    0,
                                    0};
    iovec iov[2] = {{h, sizeof h}, {const_cast<void *>(data), static_cast<size_t>(len)}};
    return write_all(fd, iov, len ? 2 : 1);
}

int fcgi_stream(int fd, int type, int id, const void *data, size_t len) {
    auto *p = static_cast<const char *>(data);
    while (len > 0) {
        int n = len > FCGI_MAXDATA ? FCGI_MAXDATA : static_cast<int>(len);
        if (fcgi_write(fd, type, id, p, n) != 0) return -1;
        p += n;
        len -= n;
    }
    return 0;
}

int fcgi_end(int fd, int id, int status, int protocol) {
    auto s = static_cast<unsigned>(status);
    unsigned char body[8] = {static_cast<unsigned char>(s >> 24),
                             static_cast<unsigned char>(s >> 16),
                             static_cast<unsigned char>(s >> 8),
                             static_cast<unsigned char>(s),
                             static_cast<unsigned char>(protocol),
                             0,
                             0,
                             0};
    return fcgi_write(fd, FCGI_END_REQUEST, id, body, sizeof body);
}

// Writes the length N in one byte below 128, else in four with the top bit.
static int put_len(unsigned char *p, int n) {
    if (n < 128) {
        p[0] = static_cast<unsigned char>(n);
        return 1;
    }
    p[0] = static_cast<unsigned char>(n >> 24 | 0x80);
    p[1] = static_cast<unsigned char>(n >> 16);
    p[2] = static_cast<unsigned char>(n >> 8);
    p[3] = static_cast<unsigned char>(n);
    return 4;
}

int fcgi_pair_put(unsigned char *dst, int room, const char *name, int nlen, const char *val,
                  int vlen) {
    long need = (nlen < 128 ? 1 : 4) + (vlen < 128 ? 1 : 4) + static_cast<long>(nlen) + vlen;
    if (nlen < 0 || vlen < 0 || need > room) return -1;
    int n = put_len(dst, nlen);
    n += put_len(dst + n, vlen);
    memcpy(dst + n, name, nlen);
    memcpy(dst + n + nlen, val, vlen);
    return static_cast<int>(need);
}

// Reads one length at *POS; -1 when it runs past LEN.
static long get_len(const unsigned char *p, int len, int *pos) {
    if (*pos >= len) return -1;
    if (p[*pos] < 128) return p[(*pos)++];
    if (len - *pos < 4) return -1;
    const unsigned char *q = p + *pos;
    *pos += 4;
    return static_cast<long>(q[0] & 0x7f) << 24 | q[1] << 16 | q[2] << 8 | q[3];
}

int fcgi_pair_next(const unsigned char *p, int len, int *pos, const unsigned char **name,
                   int *nlen, const unsigned char **val, int *vlen) {
    if (*pos >= len) return 0;
    long n = get_len(p, len, pos);
    long v = n < 0 ? -1 : get_len(p, len, pos);
    if (v < 0 || n + v > len - *pos) return -1;
    *name = p + *pos;
    *nlen = static_cast<int>(n);
    *val = p + *pos + n;
    *vlen = static_cast<int>(v);
    *pos += static_cast<int>(n + v);
    return 1;
}
