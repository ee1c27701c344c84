// The keyword table against the dispatcher.
#include <gtest/gtest.h>

#include "page/dispatch.h"
#include "runtime/runtime.h"
#include "storage/heap.h"

TEST(Dispatch, EveryKeywordIsFoundWithItsCode) {
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.ctree = {nullptr, X_avlcmp};
    int rows = 0;
    for (const X_CMDROW *r = x_CMD; r->keyword; r++, rows++) {
        EXPECT_TRUE(r->code >= 1 && r->code <= 50) << r->keyword;
        EXPECT_EQ(X_search_command(r->keyword), r->code) << r->keyword;
    }
    EXPECT_EQ(rows, 52);
    EXPECT_EQ(X_search_command("SET"), -1);  // exact and case-sensitive
    EXPECT_EQ(X_search_command("set "), -1);
}
