// Block heap: alignment, the small/big threshold, chaining and reuse.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "storage/heap.h"

namespace {

char *data_of(heapblock *b) { return reinterpret_cast<char *>(b) + sizeof(heapblock); }
uintptr_t addr(const void *p) { return reinterpret_cast<uintptr_t>(p); }
char *alloc(X_heap *hp, int size) { return static_cast<char *>(X_heap_alloc(hp, size)); }

TEST(Heap, PiecesAreAlignedZeroedInsideTheirBlockAndDisjoint)
{
    X_heap *hp = X_heap_new();
    std::mt19937 rng(7);
    std::vector<std::string_view> pieces;
    for (int i = 0; i < 2000; ++i) {
        size_t size = 1 + rng() % (i % 50 ? X_HEAP_SMALL : 600);
        char *p = alloc(hp, static_cast<int>(size));
        ASSERT_EQ(std::string(p, size), std::string(size, '\0')) << i;
        heapblock *b = hp->smallreq;
        while (b && (addr(p) < addr(data_of(b)) || addr(p) > addr(data_of(b) + X_HEAP_BLOCK)))
            b = b->m_next;
        ASSERT_TRUE(size > X_HEAP_SMALL || (b && addr(p + size) <= addr(data_of(b) + X_HEAP_BLOCK) &&
                                            (p == data_of(b) || addr(p) % X_HEAP_ALIGN == 0))) << i;
        memset(p, 1 + i % 127, size);
        pieces.emplace_back(p, size);
    }
    for (size_t i = 0; i < pieces.size(); ++i)
        ASSERT_EQ(pieces[i], std::string(pieces[i].size(), static_cast<char>(1 + i % 127)));
    EXPECT_EQ(X_heap_free(hp), 0);
}

TEST(Heap, ThresholdAndChaining)
{
    X_heap *hp = X_heap_new();
    heapblock *a = hp->smallreq;
    ASSERT_EQ(addr(data_of(a)) % X_HEAP_ALIGN, 0u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(alloc(hp, 256), data_of(a) + 256 * i);  // 256 is small
    char *fifth = alloc(hp, 256);  // a is full: a new head block b
    heapblock *b = hp->smallreq;
    EXPECT_TRUE(fifth == data_of(b) && b->m_next == a && a->m_used == 1024 && !hp->bigreq);
    // 257 is big: a block of its own, the data right after its header, pushed first.
    char *big = alloc(hp, 257);
    EXPECT_TRUE(hp->bigreq && big == data_of(hp->bigreq) && hp->bigreq->m_used == 257);
    char *big2 = alloc(hp, 40000);
    EXPECT_TRUE(big2 == data_of(hp->bigreq) && hp->bigreq->m_next->m_used == 257);
    big2[39999] = 'x';
    X_heap_free(hp);
}

TEST(Heap, ReduceReusesHeadBlockZeroedAndSizeZeroOnlyAligns)
{
    X_heap *hp = X_heap_new();
    for (int i = 0; i < 10; ++i) memset(alloc(hp, 250), 0xCD, 250);
    alloc(hp, 1000);
    EXPECT_EQ(X_heap_reduce(hp), 0);
    EXPECT_EQ(hp->bigreq, nullptr);
    for (heapblock *b = hp->smallreq; b; b = b->m_next) EXPECT_EQ(b->m_used, 0);
    heapblock *head = hp->smallreq;
    ASSERT_EQ(addr(data_of(head)) % X_HEAP_ALIGN, 0u);
    char *q = alloc(hp, 256);
    EXPECT_TRUE(q == data_of(head) && std::string(q, 256) == std::string(256, '\0'));  // zeroed again
    EXPECT_EQ(alloc(hp, 5), data_of(head) + 256);
    EXPECT_EQ(alloc(hp, 0), data_of(head) + 288);
    EXPECT_EQ(head->m_used, 288);
    X_heap_free(hp);
    EXPECT_EQ(X_heap_reduce(nullptr) + X_heap_free(nullptr), -2);
}

}  // namespace
