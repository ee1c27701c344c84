// Ordered tree: order and balance under long random use, duplicate names.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "storage/tree.h"

namespace {

struct Rec {
    avl node{};
    char name[16]{};
    void set(const char *n) { snprintf(name, sizeof name, "%s", n), node.key = name; }
};

int keycmp(avl *a, avl *b)
{
    return strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

// Appends the keys in order and answers the height; fails where a balance is off.
int walk(const avl *n, std::string &keys)
{
    if (!n) return 0;
    int hl = walk(n->left, keys);
    keys += static_cast<const char *>(n->key) + std::string(" ");
    int hr = walk(n->right, keys);
    EXPECT_TRUE(n->balance == hr - hl && std::abs(hr - hl) <= 1) << keys;
    return 1 + std::max(hl, hr);
}

TEST(Tree, RandomInsertRemoveKeepsOrderAndBalance)
{
    constexpr int N = 400;  // names differing only in case are distinct keys
    std::vector<Rec> recs(N);
    for (int i = 0; i < N; ++i)
        recs[i].set(((i % 3 ? "k" : "K") + std::to_string(1000 + (i * 7919) % N)).c_str());
    avl_tree t{nullptr, keycmp};
    std::set<std::string> ref;
    std::mt19937 rng(12345);
    for (int step = 0; step < 12000; ++step) {
        Rec &r = recs[rng() % N];
        if (rng() % 2)
            ASSERT_EQ(AVL_insert(&t, &r.node), ref.insert(r.name).second ? 0 : -1);
        else
            ASSERT_EQ(AVL_remove(&t, r.name), ref.erase(r.name) ? 0 : -1);
        if (step % 37 && step < 11900) continue;
        std::string want, got;
        for (const std::string &k : ref) want += k + ' ';
        walk(t.root, got);
        ASSERT_EQ(got, want) << "step " << step;
        ASSERT_FALSE(HasFailure());
    }
    for (const std::string &k : ref) EXPECT_NE(AVL_search(&t, k.c_str()), nullptr) << k;
    // A second record under a taken name is refused and left unlinked.
    Rec dup;
    dup.set(ref.begin()->c_str());
    dup.node.balance = 7;
    EXPECT_EQ(AVL_insert(&t, &dup.node), -1);
    EXPECT_TRUE(dup.node.balance == 7 && !dup.node.left && !dup.node.right);
    EXPECT_NE(AVL_search(&t, dup.name), &dup.node);
}

}  // namespace
