// The channel between the interpreter and its PostgreSQL companion.
//
// The interpreter starts tolm-pg on the first PostgreSQL open of a run and
// talks to it over one end of a stream socketpair, which the companion has
// as its standard input. Each side writes frames: a 4-byte length (host
// order, the length of what follows), a 1-byte type, then fields. A text
// field is a 4-byte length and that many bytes; the length NIL marks a
// missing text (SQL NULL, no user). A number is 8 bytes, host order.
//
//   interpreter asks            companion answers
//   'O' conninfo user passwd    'K', or 'E' message
//   'S' cursor query            'C' ncols name..., or 'E' message
//   'F' cursor max              'R' nrows ncols value... (row by row;
//                               nrows 0 at the end), or 'E' message
//   'Z' cursor                  'K'
//   'X' query                   'D' rows has_id id, or 'E' message
//
// ncols, nrows and max travel as numbers. 'S' opens the cursor: a server-side
// cursor (DECLARE ... WITH HOLD) for a select, so rows come in batches of at
// most max and nothing holds the whole result; any other row query is run
// at once and its result kept by the companion. Cursors are kept apart by
// name, so nested blocks walk side by side. 'X' runs statements; has_id is 1
// when an insert produced a key (lastval()). The companion ends when the
// interpreter closes its end of the socket.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

constexpr uint32_t PGW_NIL = 0xffffffffu;   // length of a missing text
constexpr uint32_t PGW_MAXFRAME = 1u << 30;  // longest frame either side accepts

// A frame being built or read: a growing buffer and a read position.
struct pgw_frame {
    char *data;    // type byte, then fields
    size_t len;    // bytes in data
    size_t cap;    // room in data
    size_t pos;    // next field to read
};

void pgw_reset(pgw_frame *f, char type);  // empties f and writes the type
void pgw_free(pgw_frame *f);
void pgw_put_num(pgw_frame *f, int64_t n);
void pgw_put_text(pgw_frame *f, const char *s, size_t len);  // s null: NIL
void pgw_put_str(pgw_frame *f, const char *s);               // s null: NIL

// Readers answer false when the frame is too short; a NIL text gives null.
bool pgw_get_num(pgw_frame *f, int64_t *n);
bool pgw_get_text(pgw_frame *f, const char **s, uint32_t *len);

// Whole frames over fd: 0, or -1 when the peer is gone or sent a bad frame.
int pgw_send(int fd, const pgw_frame *f);
int pgw_recv(int fd, pgw_frame *f);

// Both sides keep their cursors in a fixed table of records with a name
// (empty when the slot is free). The cursor called NAME, or with MAKE a
// free slot given that name; null when there is none.
template <class C, size_t N>
C *pgw_cursor(C (&cursors)[N], const char *name, bool make)
{
    C *spare = nullptr;
    for (C &c : cursors) {
        if (c.name[0] && strcmp(c.name, name) == 0) return &c;
        if (!c.name[0] && !spare) spare = &c;
    }
    if (!make || !spare) return nullptr;
    snprintf(spare->name, sizeof spare->name, "%s", name);
    return spare;
}
