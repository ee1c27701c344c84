// Variable store: assignment and append rules, fixed and shared variables, clearing.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "storage/store.h"
#include "storage/tree.h"

namespace {

int keycmp(avl *a, avl *b)
{
    return strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

// The values of a variable joined by "|", or "<null>" when it does not exist.
std::string vals(const char *name)
{
    std::string all;
    for (unsigned n = 1; const char *v = X_get_Mvalue(name, n); ++n)
        all += (n > 1 ? "|" : "") + std::string(v);
    return X_get_value(name) ? all : "<null>";
}

class Store : public ::testing::Test {
protected:
    void SetUp() override { x_BUFFERS.vtree = avl_tree{nullptr, keycmp}; }
    void TearDown() override
    {
        while (X_USER *u = reinterpret_cast<X_USER *>(x_BUFFERS.vtree.root)) {
            ASSERT_EQ(AVL_remove(&x_BUFFERS.vtree, u->name), 0);
            X_USER_free(u);
        }
    }
};

TEST_F(Store, AssignAppendAndClean)
{
    ASSERT_EQ(X_put_value("empty", ""), 0);
    EXPECT_EQ(vals("empty"), "");
    std::string big(5000, 'v');  // beyond the small-block size
    for (const char *v : {"one", "two", big.c_str()}) ASSERT_EQ(X_add_value("list", v), 0);
    EXPECT_EQ(vals("list"), "one|two|" + big);
    EXPECT_EQ(X_get_Mvalue("list", 0), nullptr);
    ASSERT_EQ(X_put_value("list", "only"), 0);
    EXPECT_EQ(vals("list"), "only");
    X_find_user("list")->clean = 1;  // an append to a clean variable replaces its values
    ASSERT_EQ(X_add_value("list", "fresh"), 0);
    EXPECT_EQ(vals("list") + std::to_string(X_find_user("list")->clean), "fresh0");
    // Given its own value: a big block freed on reset, then a small block reused.
    X_add_value("list", big.c_str());
    ASSERT_EQ(X_put_value("list", X_get_Mvalue("list", 2)), 0);
    EXPECT_EQ(vals("list"), big);
    ASSERT_EQ(X_put_value("list", X_get_value("list") + 4990), 0);
    EXPECT_EQ(vals("list"), std::string(10, 'v'));
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
    EXPECT_EQ(vals("conf"), "v1");
    // An ordinary variable can become fixed, never the reverse; a cookie marker stays.
    ASSERT_EQ(X_put_value("late", "a", 0, 3), 0);
    ASSERT_EQ(X_put_value("late", "b", 1, 0), 0);
    EXPECT_EQ(X_put_value("late", "c", 0, 0), -1);
    EXPECT_EQ(vals("late") + std::to_string(X_find_user("late")->cookie), "b3");
}

TEST_F(Store, SharedBufferTakesAtMostItsCapacity)
{
    char seg[12];
    memset(seg, 'Z', sizeof seg);
    ASSERT_EQ(X_put_value("shm", ""), 0);
    X_USER *u = X_find_user("shm");
    u->fixed = 2, u->cookie = 8, u->var.value = seg;
    ASSERT_EQ(X_put_value("shm", "0123456789"), 0);
    EXPECT_EQ(std::string(seg, 9), "01234567Z");  // no terminator, nothing past 8
    ASSERT_EQ(X_put_value("shm", "ab"), 0);
    EXPECT_EQ(std::string(seg, 9), std::string("ab\0\0\0\0\0\0Z", 9));
    memcpy(seg, "abcdefgh", 8);
    ASSERT_EQ(X_put_value("shm", seg + 3), 0);  // overlapping, running on past the capacity
    EXPECT_EQ(std::string(seg, 9), "defghZZZZ");
    EXPECT_EQ(X_add_value("shm", "x"), -1);
    u->var.value = nullptr;  // the segment is not the record's to free
}

TEST_F(Store, ClearByPatternSkipsFixedVariables)
{
    EXPECT_EQ(X_clear_value("*"), -1);  // empty tree
    for (const char *n : {"a1", "a2", "b1"}) X_put_value(n, "x");
    X_put_value("a3", "x", 1, 0);
    X_put_value("ac", "x", 0, 1);  // cookie variables are cleared too
    EXPECT_EQ(X_clear_value("a*"), 0);
    EXPECT_EQ(vals("a1") + vals("a2") + vals("ac") + vals("a3") + vals("b1"), "<null><null><null>xx");
    EXPECT_EQ(X_clear_value("a*"), -1);  // only the fixed one matches
    int maxlen = 0;
    EXPECT_TRUE(count_tree(x_BUFFERS.vtree.root, &maxlen) == 2 && maxlen == 2);
}

TEST_F(Store, RequestMarkLastsUntilTheNextAssignment)
{
    X_put_value("a", "site");
    EXPECT_FALSE(X_from_request("a"));
    X_add_value("a", "visitor");
    X_mark_request("a");
    X_mark_request("nosuch");
    EXPECT_TRUE(X_from_request("a"));
    EXPECT_FALSE(X_from_request("nosuch"));
    X_add_value("a", "more");
    EXPECT_TRUE(X_from_request("a"));
    X_put_value("a", "page");
    EXPECT_FALSE(X_from_request("a"));
}

}  // namespace

TEST_F(Store, KeptNumbersFollowTheText)
{
    char text[24], want[24];
    for (long n : {0L, 7L, -7L, 10L, 99L, 100L, -100L, 123456789L, LONG_MAX, LONG_MIN, LONG_MIN + 1}) {
        snprintf(want, sizeof want, "%ld", n);
        EXPECT_EQ(X_decimal(n, text), static_cast<int>(strlen(want)));
        EXPECT_STREQ(text, want);
    }
    // Whatever the record held before (several values, a big one), a number
    // assignment leaves one value and keeps the number beside it.
    std::string big(5000, '1');
    X_add_value("n", big.c_str());
    X_add_value("n", "2");
    X_USER *u = X_find_user("n");
    long kept = 0;
    for (long n : {LONG_MIN, 42L, -1L}) {
        ASSERT_EQ(X_put_number(u, n), 0);
        EXPECT_EQ(vals("n"), std::to_string(n));
        EXPECT_TRUE(X_user_number(u, &kept) && kept == n);
    }
    // Edited in place, replaced, or assigned as text: the kept number no
    // longer counts until the text is noted again.
    u->var.value[0] = '7';
    EXPECT_FALSE(X_user_number(u, &kept));
    X_note_number(u, 71);
    EXPECT_TRUE(X_user_number(u, &kept) && kept == 71);
    X_put_value("n", "71 ");
    EXPECT_FALSE(X_user_number(u, &kept));
    X_note_number(u, 71);  // not its decimal text
    EXPECT_FALSE(X_user_number(u, &kept));
    X_put_number(u, 5);
    char word[] = "5";
    u->var.value = word;  // a loop shows a word of its own
    EXPECT_FALSE(X_user_number(u, &kept));
}
