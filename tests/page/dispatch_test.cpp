// The keyword table against the dispatcher, and the sandbox switch.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "page/dispatch.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/store.h"

TEST(Dispatch, EveryKeywordIsFoundWithItsCode) {
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.ctree = {nullptr, X_avlcmp};
    // Without a log the sorted table answers; with one, the tree that shows
    // each search. Both must know every keyword and nothing else.
    for (int debug : {0, 1}) {
        Debug = debug;
        int rows = 0;
        for (const X_CMDROW *r = x_CMD; r->keyword; r++, rows++) {
            EXPECT_TRUE(r->code >= 1 && r->code <= 51) << r->keyword;
            EXPECT_EQ(X_search_command(r->keyword), r->code) << r->keyword << " debug " << debug;
        }
        EXPECT_EQ(rows, 53);
        for (const char *miss : {"SET", "set ", "se", "sets", "", "a", "zzz", "<@set", "if>"})
            EXPECT_EQ(X_search_command(miss), -1) << miss << " debug " << debug;
    }
    Debug = 0;
    // The tree holds every keyword once, in order, balanced.
    std::string prev;
    int nodes = 0;
    auto walk = [&](auto &self, const avl *n) -> int {
        if (!n) return 0;
        int left = self(self, n->left);
        std::string key = static_cast<const char *>(n->key);
        EXPECT_LT(prev, key);
        prev = key;
        nodes++;
        int right = self(self, n->right);
        EXPECT_EQ(n->balance, right - left) << key;
        EXPECT_LE(std::abs(right - left), 1) << key;
        return 1 + std::max(left, right);
    };
    EXPECT_LE(walk(walk, x_BUFFERS.ctree.root), 8);  // 53 keywords
    EXPECT_EQ(nodes, 53);
}

// In a sandbox the commands that reach outside the process are consumed and
// do nothing; everything else still runs.
TEST(Dispatch, SandboxSkipsCommandsThatLeaveTheProcess) {
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.ctree = {nullptr, X_avlcmp};
    x_BUFFERS.vtree = {nullptr, X_avlcmp};
    char dir[] = "/tmp/tolm-sandbox.XXXXXX";
    ASSERT_TRUE(mkdtemp(dir));
    std::string kept = std::string(dir) + "/kept", made = std::string(dir) + "/made";
    fclose(fopen(kept.c_str(), "w"));
    char here[4096];
    ASSERT_TRUE(getcwd(here, sizeof here));
    char empty[] = "";
    X_FILE page{};
    page.text = empty;
    auto run = [&](std::string line) {
        int compile = 1;
        return X_command(&page, line.data(), &compile, 0);
    };
    X_sandbox = 1;
    time_t start = time(nullptr);
    for (std::string line : {"<@shell> touch " + made, "<@unlink> " + kept,
                             std::string("<@chdir> /"), std::string("<@sleep> 3"),
                             std::string("<@option> alarm 1")})
        EXPECT_EQ(run(line), 0) << line;
    EXPECT_LT(time(nullptr) - start, 2);
    EXPECT_EQ(access(made.c_str(), F_OK), -1);
    EXPECT_EQ(access(kept.c_str(), F_OK), 0);
    char now[4096];
    ASSERT_TRUE(getcwd(now, sizeof now));
    EXPECT_STREQ(now, here);
    EXPECT_EQ(alarm(0), 0u);
    EXPECT_EQ(run("<@set> v 1"), 0);
    EXPECT_STREQ(X_get_value("v"), "1");
    X_sandbox = 0;
    EXPECT_EQ(run("<@unlink> " + kept), 0);
    EXPECT_EQ(access(kept.c_str(), F_OK), -1);
    rmdir(dir);
}
