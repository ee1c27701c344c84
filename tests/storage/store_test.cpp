// Variable store: assignment rules, value lists, shared buffers, clearing.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "storage/store.h"
#include "storage/tree.h"
#include "x.h"

namespace {

int keycmp(avl *a, avl *b)
{
    return strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

class Store : public ::testing::Test {
protected:
    void SetUp() override { x_BUFFERS.vtree = avl_tree{nullptr, keycmp}; }
    void TearDown() override
    {
        while (avl *root = x_BUFFERS.vtree.root) {
            X_USER *u = reinterpret_cast<X_USER *>(root);
            ASSERT_EQ(AVL_remove(&x_BUFFERS.vtree, u->name), 0);
            X_USER_free(u);
        }
    }
    static std::string get(const char *name)
    {
        const char *v = X_get_value(name);
        return v ? v : "<null>";
    }
    static std::string nth(const char *name, unsigned n)
    {
        const char *v = X_get_Mvalue(name, n);
        return v ? v : "<null>";
    }
};

TEST_F(Store, ValuesAppendsAndIndexing)
{
    ASSERT_EQ(X_put_value("empty", ""), 0);
    EXPECT_EQ(get("empty"), "");
    X_put_value("Name", "upper");
    X_put_value("name", "lower");
    EXPECT_EQ(get("Name"), "upper");
    EXPECT_EQ(get("NAME"), "<null>");

    ASSERT_EQ(X_add_value("list", "one"), 0);
    ASSERT_EQ(X_add_value("list", "two"), 0);
    EXPECT_EQ(nth("list", 1), "one");
    EXPECT_EQ(nth("list", 2), "two");
    EXPECT_EQ(nth("list", 3), "<null>");
    EXPECT_EQ(nth("list", 0), "<null>");
    EXPECT_EQ(nth("nolist", 1), "<null>");
    EXPECT_EQ(get("list"), "one");

    std::string big(5000, 'v');  // a value beyond the small-block size
    ASSERT_EQ(X_add_value("list", big.c_str()), 0);
    EXPECT_EQ(nth("list", 3), big);

    ASSERT_EQ(X_put_value("list", "only"), 0);
    EXPECT_EQ(nth("list", 1), "only");
    EXPECT_EQ(nth("list", 2), "<null>");
}

TEST_F(Store, AssigningAVariableItsOwnValueIsSafe)
{
    std::string big(3000, 'b');
    X_put_value("self", "first");
    X_add_value("self", big.c_str());
    ASSERT_EQ(X_put_value("self", X_get_Mvalue("self", 2)), 0);  // big block, freed on reset
    EXPECT_EQ(get("self"), big);
    ASSERT_EQ(X_put_value("self", X_get_value("self") + 2990), 0);  // small block, reused
    EXPECT_EQ(get("self"), "bbbbbbbbbb");
    EXPECT_EQ(nth("self", 2), "<null>");
}

TEST_F(Store, CleanVariableIsReplacedByAppend)
{
    X_add_value("c", "a");
    X_add_value("c", "b");
    X_find_user("c")->clean = 1;
    ASSERT_EQ(X_add_value("c", "fresh"), 0);
    EXPECT_EQ(nth("c", 1), "fresh");
    EXPECT_EQ(nth("c", 2), "<null>");
    EXPECT_EQ(X_find_user("c")->clean, 0);
}

TEST_F(Store, FixedVariablesRefuseChange)
{
    ASSERT_EQ(X_put_value("conf", "v1", 1, 0), 0);
    snprintf(X_ERRMSG, sizeof X_ERRMSG, "untouched");
    EXPECT_EQ(X_add_value("conf", "more"), -1);
    EXPECT_STREQ(X_ERRMSG, "untouched");  // appending fails silently
    EXPECT_EQ(X_put_value("conf", "v2"), -1);
    EXPECT_STREQ(X_ERRMSG, "## Fixed Value: conf");
    EXPECT_EQ(X_put_value("conf", "v3", 0, 5), -1);
    EXPECT_EQ(get("conf"), "v1");

    // An ordinary variable can become fixed, never the reverse.
    ASSERT_EQ(X_put_value("late", "a"), 0);
    ASSERT_EQ(X_put_value("late", "b", 1, 0), 0);
    EXPECT_EQ(X_put_value("late", "c", 0, 0), -1);
    EXPECT_EQ(get("late"), "b");

    // A cookie marker is kept on the record.
    ASSERT_EQ(X_put_value("ck", "a", 0, 3), 0);
    ASSERT_EQ(X_put_value("ck", "b"), 0);
    EXPECT_EQ(X_find_user("ck")->cookie, 3);
}

TEST_F(Store, SharedBufferTakesAtMostItsCapacity)
{
    char segment[12];
    memset(segment, 'Z', sizeof segment);
    ASSERT_EQ(X_put_value("shm", ""), 0);
    X_USER *u = X_find_user("shm");
    u->fixed = 2;
    u->cookie = 8;
    u->var.value = segment;

    ASSERT_EQ(X_put_value("shm", "0123456789"), 0);
    EXPECT_EQ(std::string(segment, 8), "01234567");
    EXPECT_EQ(segment[8], 'Z');  // no terminator, nothing past the capacity
    ASSERT_EQ(X_put_value("shm", "ab"), 0);
    EXPECT_EQ(std::string(segment, 8), std::string("ab\0\0\0\0\0\0", 8));
    EXPECT_EQ(segment[8], 'Z');
    memcpy(segment, "abcdefgh", 8);
    ASSERT_EQ(X_put_value("shm", segment + 3), 0);  // overlapping source
    EXPECT_EQ(std::string(segment, 8), "defghZZZ");  // the source runs on past the capacity
    EXPECT_EQ(segment[8], 'Z');
    EXPECT_EQ(X_add_value("shm", "x"), -1);
    u->var.value = nullptr;  // the segment is not the record's to free

    // Made shared by an assignment: the value gets its full capacity.
    ASSERT_EQ(X_put_value("s2", "ab", 2, 16), 0);
    ASSERT_EQ(X_put_value("s2", "0123456789abcdefXYZ"), 0);
    EXPECT_EQ(std::string(X_find_user("s2")->var.value, 16), "0123456789abcdef");
}

TEST_F(Store, ClearByPatternSkipsFixedVariables)
{
    EXPECT_EQ(X_clear_value("*"), -1);  // empty tree
    X_put_value("a1", "x");
    X_put_value("a2", "x");
    X_add_value("a2", "y");
    X_put_value("b1", "x");
    X_put_value("a3", "x", 1, 0);
    X_put_value("ac", "x", 0, 1);  // cookie variables are cleared too
    EXPECT_EQ(X_clear_value("a*"), 0);
    EXPECT_EQ(get("a1"), "<null>");
    EXPECT_EQ(get("a2"), "<null>");
    EXPECT_EQ(get("ac"), "<null>");
    EXPECT_EQ(get("a3"), "x");
    EXPECT_EQ(get("b1"), "x");
    EXPECT_EQ(X_clear_value("a*"), -1);  // only the fixed one matches
    int maxlen = 0;
    EXPECT_EQ(count_tree(x_BUFFERS.vtree.root, &maxlen), 2);
    EXPECT_EQ(maxlen, 2);
    EXPECT_EQ(X_clear_value("zz||b?"), 0);
    EXPECT_EQ(get("b1"), "<null>");
}

}  // namespace
