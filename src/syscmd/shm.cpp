// Shared-memory variables: "shmat" binds a page variable to LEN bytes at
// OFFSET of a System V segment, "shmdt" releases an attachment.
//
// Rows of x_SHM keep the empty name they start with: only the empty name
// finds a row again, so every shmat takes a new row until all 16 are used.
//
// Each segment is attached in front of a read-only page of zeros, so a
// value that fills its bytes up to the segment's end still ends in a NUL
// for its readers. A variable is never left pointing into memory that was
// detached: such variables become ordinary empty ones.
#include "syscmd/shm.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include "diag/diag.h"
#include "storage/heap.h"
#include "storage/store.h"
#include "storage/tree.h"
#include "subst/subst.h"
#include "syscmd/argcut.h"

namespace {

constexpr int SHORT = 1000;  // scratch of one argument

// Bytes of the mapping behind each row's address, the zero page included.
size_t span[X_NSHM];

size_t page_size()
{
    return (size_t)sysconf(_SC_PAGESIZE);
}

// Attaches segment id in front of a read-only zero page and records the
// whole mapping for row. NULL when the window of len bytes at offset does
// not lie inside the segment (a negative offset or len included), or when a
// mapping fails: a variable never reaches outside its segment.
char *map_segment(int id, int row, long offset, int len)
{
    shmid_ds ds;
    if (shmctl(id, IPC_STAT, &ds) != 0) return nullptr;
    size_t page = page_size();
    size_t body = (ds.shm_segsz + page - 1) / page * page;
    if (offset < 0 || len < 0 || (size_t)offset > ds.shm_segsz ||
        (size_t)len > ds.shm_segsz - (size_t)offset)
        return nullptr;
    void *area = mmap(nullptr, body + page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (area == MAP_FAILED) return nullptr;
    void *at = shmat(id, area, SHM_REMAP);
    if (at == (void *)-1) {
        munmap(area, body + page);
        return nullptr;
    }
    span[row] = body + page;
    return (char *)at;
}

// Turns every shared-memory variable whose value lies in [lo, hi) into an
// ordinary empty variable.
void orphan(avl *node, uintptr_t lo, uintptr_t hi)
{
    if (!node) return;
    orphan(node->left, lo, hi);
    orphan(node->right, lo, hi);
    X_USER *user = (X_USER *)node;  // the node is the record's first member
    uintptr_t at = (uintptr_t)user->var.value;
    if (user->fixed != 2 || at < lo || at >= hi) return;
    static char none[1];
    char *empty = user->hp ? (char *)X_heap_alloc(user->hp, 1) : nullptr;
    if (empty) empty[0] = '\0';
    user->var.value = empty ? empty : none;
    user->fixed = 0;
    user->cookie = 0;
}

// Detaches the segment of row and frees the row.
void unmap_row(int row)
{
    char *at = x_SHM[row].shm;
    orphan(x_BUFFERS.vtree.root, (uintptr_t)at, (uintptr_t)at + span[row]);
    shmdt(at);
    if (span[row]) munmap(at + span[row] - page_size(), page_size());
    x_SHM[row].shm = nullptr;
    span[row] = 0;
}

// Puts msg into X_ERRMSG and answers -1.
int fail(const char *msg)
{
    snprintf(X_ERRMSG, sizeof X_ERRMSG, "%s", msg);
    return -1;
}

// Binds name to len bytes at offset of segment key of size bytes.
int attach(const char *name, long key, long size, long offset, int16_t len)
{
    SHM_del(name);
    int row = 0;
    while (row < X_NSHM && x_SHM[row].shm) row++;
    if (row == X_NSHM) return fail("## Reached MAX SHM list value");

    int id = shmget((key_t)key, (size_t)size, IPC_CREAT | 0777);
    if (id < 0) return fail("## Cannot get SHM...");
    char *at = map_segment(id, row, offset, len);
    if (!at) return fail("## Cannot attach SHM...");
    x_SHM[row].shm = at;

    X_put_value(name, "");
    X_USER *user = X_find_user(name);
    if (!user) {
        SHM_del(name);
        return fail("## Cannot assign SHM Variable...");
    }
    user->fixed = 2;
    user->cookie = len;
    user->var.value = at + offset;
    return 0;
}

}  // namespace

// NAME KEY SIZE OFFSET LEN [STATUS]. The window OFFSET..OFFSET+LEN must lie
// inside the segment; LEN is taken as a 16-bit number.
int X_shmat(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@shmat>")) return -1;
    X_TRACE("X_shmat: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;

    char text[X_MAXLINE];
    X_expand_args(line + 8, text, compile);
    X_DEBUG("%s // %s \n", line, text);

    X_argcut cut{text, 0};
    char name[SHORT], key[SHORT], size[SHORT], offset[SHORT], len[SHORT], status[SHORT];
    X_next_arg(&cut, name, SHORT);
    X_next_arg(&cut, key, SHORT);
    X_next_arg(&cut, size, SHORT);
    X_next_arg(&cut, offset, SHORT);
    X_next_arg(&cut, len, SHORT);
    X_next_arg(&cut, status, SHORT);

    int rc = attach(name, strtol(key, nullptr, 10), strtol(size, nullptr, 10),
                    strtol(offset, nullptr, 10), (int16_t)strtol(len, nullptr, 10));
    return X_set_status(status, rc);
}

// NAME [STATUS]: releases what SHM_del finds under NAME; the status is "0".
int X_shmdt(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@shmdt>")) return -1;
    X_TRACE("X_shmdt: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;

    char text[X_MAXLINE];
    X_expand_args(line + 8, text, compile);
    X_DEBUG("%s // %s \n", line, text);

    X_argcut cut{text, 0};
    char name[SHORT], status[SHORT];
    X_next_arg(&cut, name, SHORT);
    X_next_arg(&cut, status, SHORT);
    SHM_del(name);
    return X_set_status(status, 0);
}

// Releases the first attached row recorded under name, with the variable of
// that name. Always 0.
int SHM_del(const char *name)
{
    for (int row = 0; row < X_NSHM; row++) {
        X_SHM &shm = x_SHM[row];
        std::string_view rowname(shm.name, strnlen(shm.name, sizeof shm.name));
        if (!shm.shm || rowname != name) continue;
        if (X_USER *user = X_find_user(name)) {
            AVL_remove(&x_BUFFERS.vtree, name);
            X_USER_free(user);
        }
        unmap_row(row);
        return 0;
    }
    return 0;
}
