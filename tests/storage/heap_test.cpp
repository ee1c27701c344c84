// Block heap: alignment, threshold, block chaining, reuse and zero-filling.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "storage/heap.h"

namespace {

char *data_of(heapblock *b)
{
    return reinterpret_cast<char *>(b) + sizeof(heapblock);
}

uintptr_t addr(const void *p)
{
    return reinterpret_cast<uintptr_t>(p);
}

// The small block holding p, or null.
heapblock *block_of(X_heap *hp, const void *p)
{
    for (heapblock *b = hp->smallreq; b; b = b->m_next)
        if (addr(p) >= addr(data_of(b)) && addr(p) <= addr(data_of(b) + X_HEAP_BLOCK))
            return b;
    return nullptr;
}

int chain_len(heapblock *b)
{
    int n = 0;
    for (; b; b = b->m_next)
        ++n;
    return n;
}

TEST(Heap, PiecesAreAlignedZeroedAndDisjoint)
{
    X_heap *hp = X_heap_new();
    ASSERT_NE(hp, nullptr);
    std::mt19937 rng(7);
    struct Piece {
        unsigned char *p;
        int size;
        unsigned char fill;
    };
    std::vector<Piece> pieces;
    for (int i = 0; i < 2000; ++i) {
        int size = 1 + static_cast<int>(rng() % (i % 50 == 0 ? 600 : X_HEAP_SMALL));
        auto *p = static_cast<unsigned char *>(X_heap_alloc(hp, size));
        ASSERT_NE(p, nullptr);
        for (int k = 0; k < size; ++k)
            ASSERT_EQ(p[k], 0) << "piece " << i << " byte " << k;
        if (size <= X_HEAP_SMALL) {
            heapblock *b = block_of(hp, p);
            ASSERT_NE(b, nullptr);
            EXPECT_LE(addr(p + size), addr(data_of(b) + X_HEAP_BLOCK));
            if (p != reinterpret_cast<unsigned char *>(data_of(b))) {
                EXPECT_EQ(addr(p) % X_HEAP_ALIGN, 0u) << "piece " << i;
            }
        }
        auto fill = static_cast<unsigned char>(1 + i % 251);
        memset(p, fill, static_cast<size_t>(size));
        pieces.push_back({p, size, fill});
    }
    for (const Piece &pc : pieces)
        for (int k = 0; k < pc.size; ++k)
            ASSERT_EQ(pc.p[k], pc.fill);
    EXPECT_EQ(X_heap_free(hp), 0);
}

TEST(Heap, ThresholdAndChaining)
{
    // 256 bytes is small: four fill an aligned block exactly, the fifth
    // opens a new head block.
    X_heap *hp = X_heap_new();
    heapblock *first = hp->smallreq;
    ASSERT_EQ(addr(data_of(first)) % X_HEAP_ALIGN, 0u);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(X_heap_alloc(hp, 256), data_of(first) + 256 * i);
    EXPECT_EQ(first->m_used, 1024);
    EXPECT_EQ(hp->bigreq, nullptr);
    char *fifth = static_cast<char *>(X_heap_alloc(hp, 256));
    EXPECT_EQ(hp->smallreq->m_next, first);
    EXPECT_EQ(fifth, data_of(hp->smallreq));

    // 257 is big: a block of its own, right after its header, pushed first.
    char *big = static_cast<char *>(X_heap_alloc(hp, 257));
    ASSERT_NE(hp->bigreq, nullptr);
    EXPECT_EQ(big, data_of(hp->bigreq));
    EXPECT_EQ(hp->bigreq->m_used, 257);
    char *big2 = static_cast<char *>(X_heap_alloc(hp, 40000));
    EXPECT_EQ(big2, data_of(hp->bigreq));
    EXPECT_EQ(hp->bigreq->m_next->m_used, 257);
    big2[39999] = 'x';
    X_heap_free(hp);
}

TEST(Heap, FirstFitTakesOlderBlockWhenHeadIsFull)
{
    X_heap *hp = X_heap_new();
    heapblock *a = hp->smallreq;
    for (int i = 0; i < 3; ++i)
        X_heap_alloc(hp, 250);  // 3 x 256 with slack
    EXPECT_EQ(a->m_used, 768);
    X_heap_alloc(hp, 256);  // fits exactly: 1024
    X_heap_alloc(hp, 200);  // new block b
    heapblock *b = hp->smallreq;
    ASSERT_NE(b, a);
    for (int i = 0; i < 3; ++i)
        X_heap_alloc(hp, 256);  // b: 224 + 768 = 992
    EXPECT_EQ(b->m_used, 992);
    for (int i = 0; i < 4; ++i)
        X_heap_alloc(hp, 256);  // fills a third block c
    EXPECT_EQ(chain_len(hp->smallreq), 3);
    EXPECT_EQ(hp->smallreq->m_used, 1024);
    char *p = static_cast<char *>(X_heap_alloc(hp, 32));  // c is full: back into b
    EXPECT_EQ(p, data_of(b) + 992);
    X_heap_free(hp);
}

TEST(Heap, ReduceReusesHeadBlockWithZeroedBytes)
{
    X_heap *hp = X_heap_new();
    char *p = static_cast<char *>(X_heap_alloc(hp, 200));
    memset(p, 0xAB, 200);
    for (int i = 0; i < 10; ++i)
        memset(X_heap_alloc(hp, 250), 0xCD, 250);
    X_heap_alloc(hp, 1000);
    int blocks = chain_len(hp->smallreq);
    EXPECT_EQ(X_heap_reduce(hp), 0);
    EXPECT_EQ(hp->bigreq, nullptr);
    EXPECT_EQ(chain_len(hp->smallreq), blocks);
    for (heapblock *b = hp->smallreq; b; b = b->m_next)
        EXPECT_EQ(b->m_used, 0);
    auto *q = static_cast<unsigned char *>(X_heap_alloc(hp, 256));
    EXPECT_EQ(reinterpret_cast<char *>(q), data_of(hp->smallreq));
    for (int k = 0; k < 256; ++k)
        ASSERT_EQ(q[k], 0);
    X_heap_free(hp);
}

TEST(Heap, ZeroAndNegativeSizesOnlyAlignAndNullHandles)
{
    X_heap *hp = X_heap_new();
    heapblock *b = hp->smallreq;
    X_heap_alloc(hp, 5);
    EXPECT_EQ(b->m_used, 32);
    char *z = static_cast<char *>(X_heap_alloc(hp, 0));
    ASSERT_NE(z, nullptr);
    EXPECT_EQ(z, data_of(b) + 32);
    EXPECT_EQ(b->m_used, 32);
    char *neg = static_cast<char *>(X_heap_alloc(hp, -100));
    EXPECT_EQ(neg, data_of(b) + 32);
    EXPECT_EQ(b->m_used, 32);
    X_heap_free(hp);
    EXPECT_EQ(X_heap_reduce(nullptr), -1);
    EXPECT_EQ(X_heap_free(nullptr), -1);
}

}  // namespace
