// Wildcard patterns: matching semantics, "||"/"&&" lists, the compiled-pattern
// cache, and patterns that take exponential time in a naive matcher.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "control/patt.h"

namespace {

int match(const char *patt, const std::string &text)
{
    PATT_LIST *p = kor_LOADpatt(patt);
    int r = kor_EXEpatt(p, text.c_str());
    kor_FREEpatt(p);
    return r;
}

TEST(Patt, Semantics)
{
    struct { const char *patt, *text; int want; } cases[] = {
        {"a*", "abc", 0}, {"a*", "ba", -1}, {"a?c", "abc", 0}, {"a?c", "ac", -1}, {"abc", "abcd", -1},
        {"*", "", 0}, {"?", "", -1}, {"*a*a*b", "aaab", 0}, {"?*?", "x", -1},
        // classes, ranges, negation; bytes compare unsigned
        {"[a-c]x", "bx", 0}, {"[a-c]x", "dx", -1}, {"[^a-c]x", "dx", 0}, {"[^a-c]x", "ax", -1},
        {"[abc]", "d", -1}, {"[^ab]", "b", -1}, {"[a-c0-9]", "7", 0}, {"[-a]", "-", 0}, {"[a-]x", "x", 0},
        {"[]x", "x", 0}, {"[^]x", "x", 0}, {"[!]", "!", 0}, {"[ab", "b", 0},
        {"[\xe0-\xef]", "\xe9", 0}, {"[^\x80-\xff]", "\xe9", -1},
        // "!": the rest matches nowhere from here on
        {"!*abc*", "xxabxc", 0}, {"!*abc*", "xabcx", -1}, {"!abc", "abx", 0}, {"!abc", "xabc", -1},
        {"a!", "a", 0}, {"a!", "ab", -1}, {"!", "x", -1}, {"a!b*", "abc", -1}, {"!!*a*", "xax", -1},
        // escapes: "\?" stays a backslash and any byte
        {"\\*", "*", 0}, {"\\*", "x", -1}, {"\\?", "\\z", 0}, {"\\?", "?", -1}, {"\\x", "\\x", 0},
        {"a\\", "a\\", 0}, {"\\[a]", "[a]", 0}, {"\\!x", "!x", 0}, {"\\\\", "\\", 0},
        // lists; before a "||" the "&&" stays literal
        {"a||b", "b", 0}, {"a||b", "c", -1}, {"a*&&*b", "axb", 0}, {"a*&&*b", "axc", -1},
        {"x||a*&&*b", "ab", 0}, {"x||a*&&*b", "a", -1}, {"a&&b||c", "a&&b", 0}, {"a&&b||c", "a", -1},
        {"", "", -1}, {"a||", "b", -1}, {"a*&&", "a", -1},
    };
    for (const auto &c : cases) {
        std::string buf = c.patt;
        EXPECT_EQ(X_CMPpatt(buf.data(), c.text), c.want) << "[" << c.patt << "] on [" << c.text << "]";
        EXPECT_EQ(buf, c.patt) << "pattern text not restored";
    }
    EXPECT_EQ(kor_EXEpatt(nullptr, "anything"), 0);
}

TEST(Patt, PathologicalPatternsOnLongTextsFinish)
{
    std::string as(100000, 'a');
    EXPECT_EQ(match("*a*a*a*a*a*b", as), -1);
    EXPECT_EQ(match("*a*a*a*a*a*b", as + "b"), 0);
    // Each "!" flips the answer of the rest, which holds everywhere or nowhere.
    EXPECT_EQ(match("!!!!!!!!!!!!!!!!!!!!*b*", as), -1);
    EXPECT_EQ(match("!!!!!!!!!!!!!!!!!!!!!*b*", as), 0);
    EXPECT_EQ(match("!*!*!*!*!*!*b", as), match("!*!*!*!*!*!*b", "aaaa"));
    EXPECT_EQ(match("*[^a]*", as), -1);
    // A pattern as long as the text: no recursion per element or byte.
    std::string many(100000, '?'), stars;
    EXPECT_EQ(match(many.c_str(), as), 0);
    EXPECT_EQ(match(many.c_str(), as + "a"), -1);
    for (int i = 0; i < 500; ++i) stars += "*a";
    EXPECT_EQ(match(stars.c_str(), as), 0);
}

TEST(Patt, CacheReplacesTheOldestRow)
{
    for (int i = 0; i < X_PATT_CACHE; ++i) {
        std::string p = "cache" + std::to_string(i);
        EXPECT_EQ(X_CMPexec((p + "*").c_str(), (p + "z").c_str()), 0);
    }
    int row0 = 0;
    while (row0 < X_PATT_CACHE && (!X_CMPcache(row0) || strcmp(X_CMPcache(row0), "cache0*"))) ++row0;
    ASSERT_LT(row0, X_PATT_CACHE);
    EXPECT_EQ(X_CMPexec("cache0*", "cache0"), 0);  // use does not refresh a row
    EXPECT_EQ(X_CMPexec("next-a", "next-a"), 0);
    EXPECT_STREQ(X_CMPcache(row0), "next-a");
    EXPECT_EQ(X_CMPexec("next-b", "x"), -1);
    EXPECT_STREQ(X_CMPcache((row0 + 1) % X_PATT_CACHE), "next-b");
}

}  // namespace
