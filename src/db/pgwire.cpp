// Frames of the interpreter-companion channel; see pgwire.h for the layout.
#include "db/pgwire.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void reserve(pgw_frame *f, size_t more)
{
    if (f->len + more <= f->cap) return;
    size_t cap = f->cap ? f->cap : 256;
    while (cap < f->len + more) cap *= 2;
    auto *d = static_cast<char *>(realloc(f->data, cap));
    if (!d) abort();  // out of memory: nothing sensible is left to do
    f->data = d;
    f->cap = cap;
}

void put(pgw_frame *f, const void *p, size_t n)
{
    reserve(f, n);
    if (n) memcpy(f->data + f->len, p, n);
    f->len += n;
}

int write_all(int fd, const char *p, size_t n)
{
    while (n) {
        ssize_t w = send(fd, p, n, MSG_NOSIGNAL);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return -1;
        p += w;
        n -= static_cast<size_t>(w);
    }
    return 0;
}

int read_all(int fd, char *p, size_t n)
{
    while (n) {
        ssize_t r = read(fd, p, n);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return -1;
        p += r;
        n -= static_cast<size_t>(r);
    }
    return 0;
}

}  // namespace

void pgw_reset(pgw_frame *f, char type)
{
    f->len = 0;
    f->pos = 1;
    put(f, &type, 1);
}

void pgw_free(pgw_frame *f)
{
    free(f->data);
    *f = pgw_frame{};
}

void pgw_put_num(pgw_frame *f, int64_t n)
{
    put(f, &n, sizeof n);
}

void pgw_put_text(pgw_frame *f, const char *s, size_t len)
{
    uint32_t n = s ? static_cast<uint32_t>(len) : PGW_NIL;
    put(f, &n, sizeof n);
    if (s) put(f, s, len);
}

void pgw_put_str(pgw_frame *f, const char *s)
{
    pgw_put_text(f, s, s ? strlen(s) : 0);
}

bool pgw_get_num(pgw_frame *f, int64_t *n)
{
    if (f->len - f->pos < sizeof *n) return false;
    memcpy(n, f->data + f->pos, sizeof *n);
    f->pos += sizeof *n;
    return true;
}

bool pgw_get_text(pgw_frame *f, const char **s, uint32_t *len)
{
    uint32_t n;
    if (f->len - f->pos < sizeof n) return false;
    memcpy(&n, f->data + f->pos, sizeof n);
    f->pos += sizeof n;
    if (n == PGW_NIL) {
        *s = nullptr;
        *len = 0;
        return true;
    }
    if (f->len - f->pos < n) return false;
    *s = f->data + f->pos;
    *len = n;
    f->pos += n;
    return true;
}

int pgw_send(int fd, const pgw_frame *f)
{
    uint32_t n = static_cast<uint32_t>(f->len);
    if (f->len > PGW_MAXFRAME || write_all(fd, reinterpret_cast<char *>(&n), sizeof n) != 0)
        return -1;
    return write_all(fd, f->data, f->len);
}

int pgw_recv(int fd, pgw_frame *f)
{
    uint32_t n;
    if (read_all(fd, reinterpret_cast<char *>(&n), sizeof n) != 0) return -1;
    if (n == 0 || n > PGW_MAXFRAME) return -1;
    f->len = 0;
    reserve(f, n + 1);
    if (read_all(fd, f->data, n) != 0) return -1;
    f->len = n;
    f->data[n] = '\0';  // texts read from the frame end at a terminator or a field
    f->pos = 1;
    return 0;
}
