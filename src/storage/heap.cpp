// Block heap: arenas whose pieces are released all at once.
//
// Requests of at most X_HEAP_SMALL bytes are cut from 1024-byte small blocks
// (first fit, newest block first); larger ones get a block of their own.
// Small blocks are placed so that their data area starts on a 32-byte
// boundary; after each small allocation the free position is rounded up to
// the next 32-byte address, so every piece but the first of a block is
// 32-aligned and four 256-byte pieces fill a block exactly.
#include "storage/heap.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"

constexpr size_t HDR = sizeof(heapblock);

static char *data_of(heapblock *b)
{
    return reinterpret_cast<char *>(b) + HDR;
}

static long num(const void *p)
{
    return static_cast<long>(reinterpret_cast<uintptr_t>(p));
}

// A new zero-filled small block, or null. The allocator's addresses are
// 16-aligned: the header goes at the one of the first two 16-byte steps
// that puts the data area on a 32-byte boundary (cheaper than an aligned
// allocation, which splits a larger chunk every time).
static heapblock *small_new()
{
    static_assert(HDR % 16 == 0 && X_HEAP_ALIGN == 32 && alignof(std::max_align_t) >= 16);
    constexpr size_t size = 16 + HDR + X_HEAP_BLOCK;
    auto *base = static_cast<char *>(malloc(size));
    if (!base)
        return nullptr;
    memset(base, 0, size);
    int16_t shift = (reinterpret_cast<uintptr_t>(base) + HDR) % X_HEAP_ALIGN ? 16 : 0;
    auto *b = reinterpret_cast<heapblock *>(base + shift);
    b->m_shift = shift;
    return b;
}

static void small_free(heapblock *b)
{
    free(reinterpret_cast<char *>(b) - b->m_shift);
}

static void big_free_all(heapblock *b)
{
    while (b) {
        heapblock *next = b->m_next;
        free(b);
        b = next;
    }
}

X_heap *X_heap_new()
{
    auto *hp = static_cast<X_heap *>(malloc(sizeof(X_heap)));
    if (!hp) {
        ERRMSG("X_heap: NO MEMORY...");
        return nullptr;
    }
    hp->bigreq = nullptr;
    hp->smallreq = small_new();
    if (!hp->smallreq) {
        free(hp);
        ERRMSG("X_heap: NO MEMORY...");
        return nullptr;
    }
    return hp;
}

// A big request: a block of its own, pushed on bigreq.
static void *big_alloc(X_heap *hp, int size)
{
    auto *b = static_cast<heapblock *>(calloc(1, HDR + static_cast<size_t>(size)));
    if (!b) {
        ERRMSG("X_heap: NO MEMORY...");
        return nullptr;
    }
    b->m_used = static_cast<int16_t>(size);
    b->m_next = hp->bigreq;
    hp->bigreq = b;
    return data_of(b);
}

// The first small block with room for size bytes; a new head block if none.
static heapblock *small_fit(X_heap *hp, int size)
{
    for (heapblock *b = hp->smallreq; b; b = b->m_next)
        if (b->m_used + size <= X_HEAP_BLOCK)
            return b;
    heapblock *b = small_new();
    if (!b) {
        ERRMSG("X_heap: NO MEMORY...");
        return nullptr;
    }
    b->m_next = hp->smallreq;
    hp->smallreq = b;
    return b;
}

// Hands out size zero-filled bytes from the arena, or null when memory runs
// out. A size of 0 or less reserves nothing but the alignment step.
void *X_heap_alloc(X_heap *currheap, int size)
{
    if (!currheap)
        return nullptr;
    X_TRACE("X_heap_alloc: hp: %ld  size: %d ", num(currheap), size);
    X_TRACE("X_heap_info hp: %ld  mb: %ld  m_used: %d ", num(currheap),
            num(currheap->smallreq), currheap->smallreq ? currheap->smallreq->m_used : -1);
    if (size <= 0) {
        X_TRACE("WARNING: heap_alloc( size= %d ) \n", size);
        size = 0;
    }
    if (size > X_HEAP_SMALL)
        return big_alloc(currheap, size);

    heapblock *b = small_fit(currheap, size);
    if (!b)
        return nullptr;
    char *res = data_of(b) + b->m_used;
    b->m_used = static_cast<int16_t>(b->m_used + size);

    X_TRACE("rmalign: mb: %ld  m_used: %d ", num(b), b->m_used);
    uintptr_t at = reinterpret_cast<uintptr_t>(data_of(b) + b->m_used);
    uintptr_t slack = (X_HEAP_ALIGN - at % X_HEAP_ALIGN) % X_HEAP_ALIGN;
    b->m_used = static_cast<int16_t>(b->m_used + slack);
    X_TRACE("rmalign ==> mb: %ld  m_used: %d ", num(b), b->m_used);

    memset(res, 0, static_cast<size_t>(size));
    return res;
}

// Empties the arena: small blocks are kept for reuse, big ones released.
int X_heap_reduce(X_heap *currheap)
{
    X_TRACE("X_heap_reduce: %d ", static_cast<int>(num(currheap)));  // handle, cut to int
    if (!currheap)
        return -1;
    for (heapblock *b = currheap->smallreq; b; b = b->m_next)
        b->m_used = 0;
    big_free_all(currheap->bigreq);
    currheap->bigreq = nullptr;
    return 0;
}

void *X_heap_first(X_heap *currheap, int size)
{
    heapblock *b = currheap ? currheap->smallreq : nullptr;
    if (Trace || !b || b->m_next || currheap->bigreq || size <= 0 || size > X_HEAP_SMALL) {
        X_heap_reduce(currheap);
        return X_heap_alloc(currheap, size);
    }
    // The data area is aligned and size is at most X_HEAP_SMALL: the piece
    // starts the block and its end rounds up within it.
    char *res = data_of(b);
    b->m_used = static_cast<int16_t>((size + X_HEAP_ALIGN - 1) / X_HEAP_ALIGN * X_HEAP_ALIGN);
    memset(res, 0, static_cast<size_t>(size));
    return res;
}

const char *X_heap_start(const X_heap *currheap)
{
    return currheap && currheap->smallreq ? data_of(currheap->smallreq) : nullptr;
}

// Releases the arena and all its blocks; the handle is invalid afterwards.
int X_heap_free(X_heap *currheap)
{
    X_TRACE("X_heap_free: %ld ", num(currheap));
    if (!currheap)
        return -1;
    for (heapblock *b = currheap->smallreq; b;) {
        heapblock *next = b->m_next;
        small_free(b);
        b = next;
    }
    big_free_all(currheap->bigreq);
    free(currheap);
    return 0;
}
