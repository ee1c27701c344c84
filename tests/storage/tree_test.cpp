// Ordered tree: order and balance under random use, duplicates, removal rules.
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
    avl node;
    char name[16];
};

int keycmp(avl *a, avl *b)
{
    return strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

void init(Rec &r, const char *name)
{
    memset(&r, 0, sizeof r);
    snprintf(r.name, sizeof r.name, "%s", name);
    r.node.key = r.name;
}

// Height of a subtree; records a failure where a balance is wrong, and
// appends the keys in order.
int check(const avl *n, std::vector<std::string> &keys)
{
    if (!n)
        return 0;
    int hl = check(n->left, keys);
    keys.emplace_back(static_cast<const char *>(n->key));
    int hr = check(n->right, keys);
    EXPECT_EQ(n->balance, hr - hl) << "at " << static_cast<const char *>(n->key);
    EXPECT_LE(std::abs(n->balance), 1);
    return 1 + std::max(hl, hr);
}

std::vector<std::string> keys_of(const avl_tree &t)
{
    std::vector<std::string> keys;
    check(t.root, keys);
    return keys;
}

const char *key(const avl *n)
{
    return n ? static_cast<const char *>(n->key) : "(null)";
}

TEST(Tree, RandomInsertRemoveKeepsOrderAndBalance)
{
    constexpr int N = 400;
    std::vector<Rec> recs(N);
    for (int i = 0; i < N; ++i) {
        char name[16];
        snprintf(name, sizeof name, "k%03d", (i * 7919) % N);
        init(recs[i], name);
    }
    avl_tree t{nullptr, keycmp};
    std::set<std::string> ref;
    std::mt19937 rng(12345);
    for (int step = 0; step < 12000; ++step) {
        Rec &r = recs[rng() % N];
        if (rng() % 2) {
            bool fresh = !ref.count(r.name);
            ASSERT_EQ(AVL_insert(&t, &r.node), fresh ? 0 : -1);
            ref.insert(r.name);
        } else {
            bool present = ref.count(r.name) > 0;
            ASSERT_EQ(AVL_remove(&t, r.name), present ? 0 : -1);
            ref.erase(r.name);
        }
        if (step % 37 == 0 || step > 11900) {
            std::vector<std::string> keys = keys_of(t);
            ASSERT_EQ(keys, std::vector<std::string>(ref.begin(), ref.end())) << "step " << step;
            if (HasFailure())
                return;
        }
    }
    for (const std::string &k : ref)
        EXPECT_NE(AVL_search(&t, k.c_str()), nullptr) << k;
}

TEST(Tree, DuplicateInsertLeavesBothRecordsAlone)
{
    avl_tree t{nullptr, keycmp};
    Rec a, b, dup;
    init(a, "a");
    init(b, "b");
    init(dup, "a");
    ASSERT_EQ(AVL_insert(&t, &a.node), 0);
    ASSERT_EQ(AVL_insert(&t, &b.node), 0);
    dup.node.left = &b.node;  // must not be touched
    dup.node.balance = 7;
    EXPECT_EQ(AVL_insert(&t, &dup.node), -1);
    EXPECT_EQ(AVL_search(&t, "a"), &a.node);
    EXPECT_EQ(dup.node.left, &b.node);
    EXPECT_EQ(dup.node.balance, 7);
    EXPECT_EQ(keys_of(t), (std::vector<std::string>{"a", "b"}));
}

TEST(Tree, TwoChildRemovalPicksSuccessorOrPredecessorByBalance)
{
    // Right-leaning root: its in-order successor takes its place.
    avl_tree t{nullptr, keycmp};
    Rec r[5];
    const char *names[] = {"m", "f", "t", "p", "z"};
    for (int i = 0; i < 5; ++i) {
        init(r[i], names[i]);
        AVL_insert(&t, &r[i].node);
    }
    ASSERT_STREQ(key(t.root), "m");
    ASSERT_EQ(t.root->balance, 1);
    avl *old_left = r[0].node.left;
    ASSERT_EQ(AVL_remove(&t, "m"), 0);
    EXPECT_STREQ(key(t.root), "p");
    EXPECT_EQ(r[0].node.left, old_left);  // the removed node is left as it was
    EXPECT_EQ(keys_of(t), (std::vector<std::string>{"f", "p", "t", "z"}));

    // Left-leaning root: its in-order predecessor takes its place.
    avl_tree u{nullptr, keycmp};
    Rec s[4];
    const char *more[] = {"m", "f", "t", "h"};
    for (int i = 0; i < 4; ++i) {
        init(s[i], more[i]);
        AVL_insert(&u, &s[i].node);
    }
    ASSERT_EQ(u.root->balance, -1);
    ASSERT_EQ(AVL_remove(&u, "m"), 0);
    EXPECT_STREQ(key(u.root), "h");
    EXPECT_EQ(keys_of(u), (std::vector<std::string>{"f", "h", "t"}));

    // Root with balance 0 and two children.
    avl_tree v{nullptr, keycmp};
    Rec w[3];
    const char *three[] = {"b", "a", "c"};
    for (int i = 0; i < 3; ++i) {
        init(w[i], three[i]);
        AVL_insert(&v, &w[i].node);
    }
    ASSERT_EQ(AVL_remove(&v, "b"), 0);
    EXPECT_STREQ(key(v.root), "c");
    EXPECT_EQ(keys_of(v), (std::vector<std::string>{"a", "c"}));
}

}  // namespace
