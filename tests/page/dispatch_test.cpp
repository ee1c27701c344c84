// The keyword table against the dispatcher.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "page/dispatch.h"
#include "runtime/runtime.h"
#include "storage/heap.h"

namespace {

TEST(Dispatch, EveryKeywordIsFoundWithItsCode) {
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.ctree = {nullptr, X_avlcmp};
    std::set<std::string> seen;
    int rows = 0;
    for (const X_CMDROW *r = x_CMD; r->keyword; r++, rows++) {
        EXPECT_TRUE(seen.insert(r->keyword).second) << r->keyword;
        EXPECT_GE(r->code, 1);
        EXPECT_LE(r->code, 45);
        EXPECT_EQ(X_search_command(r->keyword), r->code) << r->keyword;
    }
    EXPECT_EQ(rows, 47);
    EXPECT_EQ(x_CMD[47].keyword, nullptr);
    EXPECT_EQ(X_search_command("SET"), -1);
    EXPECT_EQ(X_search_command("set "), -1);
}

}  // namespace
