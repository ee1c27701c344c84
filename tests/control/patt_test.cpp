// Wildcard patterns: compiling, matching semantics, lists, cache, scale.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "control/patt.h"

namespace {

int match(const char *pattern, const std::string &text)
{
    PATT_LIST *p = kor_LOADpatt(pattern);
    int r = kor_EXEpatt(p, text.c_str());
    kor_FREEpatt(p);
    return r;
}

int list(const char *patterns, const char *text)
{
    std::string buf(patterns);
    int r = X_CMPpatt(buf.data(), text);
    EXPECT_EQ(buf, patterns) << "pattern text not restored";
    return r;
}

struct Case {
    const char *patt;
    const char *text;
    int want;
};

TEST(Patt, Semantics)
{
    const Case cases[] = {
        {"a*", "a", 0},         {"a*", "abc", 0},        {"a*", "ba", -1},
        {"*c", "abc", 0},       {"a?c", "abc", 0},       {"a?c", "ac", -1},
        {"abc", "abc", 0},      {"abc", "abcd", -1},     {"abc", "ab", -1},
        {"*", "", 0},           {"?", "", -1},           {"**", "xy", 0},
        {"[a-c]x", "bx", 0},    {"[a-c]x", "dx", -1},    {"[^a-c]x", "dx", 0},
        {"[^a-c]x", "ax", -1},  {"[]x", "x", 0},         {"[^]x", "x", 0},
        {"[abc]", "c", 0},      {"[abc]", "d", -1},      {"[^ab]", "c", 0},
        {"[^ab]", "b", -1},     {"[a-c0-9]", "7", 0},    {"[-a]", "-", 0},
        {"[a-]x", "x", 0},      {"[a-]x", "]", -1},      {"[!]", "!", 0},
        {"[ab", "b", 0},        {"[\xe0-\xef]", "\xe9", 0}, {"[^\x80-\xff]", "\xe9", -1},
        {"!*abc*", "xxabxc", 0}, {"!*abc*", "xabcx", -1}, {"!abc", "abx", 0},
        {"!abc", "xabc", -1},   {"!abc", "", 0},         {"a!", "a", 0},
        {"a!", "ab", -1},       {"!", "", 0},            {"!", "x", -1},
        {"a!b*", "axc", 0},     {"a!b*", "abc", -1},     {"!!*a*", "xax", -1},
        {"\\*", "*", 0},        {"\\*", "x", -1},        {"\\?", "\\z", 0},
        {"\\?", "?", -1},       {"\\x", "\\x", 0},       {"a\\", "a\\", 0},
        {"\\[a]", "[a]", 0},    {"\\!x", "!x", 0},       {"\\\\", "\\", 0},
        {"*a*a*b", "aaab", 0},  {"*a*a*b", "ab", -1},    {"?*?", "x", -1},
    };
    for (const Case &c : cases)
        EXPECT_EQ(match(c.patt, c.text), c.want) << "pattern [" << c.patt << "] text [" << c.text << "]";
}

TEST(Patt, CompiledShape)
{
    PATT_LIST *p = kor_LOADpatt("[^a-cx]y");
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->PATT_OP, PATT_NOTRANGE);
    EXPECT_EQ(p->ch0, 'a');
    EXPECT_EQ(p->ch1, 'c');
    ASSERT_NE(p->PATT_OR, nullptr);
    EXPECT_EQ(p->PATT_OR->PATT_OP, PATT_NOTCHAR);
    EXPECT_EQ(p->PATT_OR->ch0, 'x');
    EXPECT_EQ(p->PATT_OR->PATT_OR, nullptr);
    ASSERT_NE(p->PATT_NEXT, nullptr);
    EXPECT_EQ(p->PATT_NEXT->PATT_OP, PATT_CHAR);
    EXPECT_EQ(p->PATT_NEXT->ch0, 'y');
    EXPECT_EQ(p->PATT_NEXT->PATT_NEXT, nullptr);
    EXPECT_EQ(kor_ORpatt(p, 'b'), -1);
    EXPECT_EQ(kor_ORpatt(p, 'x'), -1);
    EXPECT_EQ(kor_ORpatt(p, 'd'), 0);
    EXPECT_EQ(kor_ORpatt(nullptr, 'd'), -1);
    kor_FREEpatt(p);

    EXPECT_EQ(kor_LOADpatt(""), nullptr);
    EXPECT_EQ(kor_LOADpatt("[][^]"), nullptr);  // classes without members
    EXPECT_EQ(kor_EXEpatt(nullptr, "anything"), 0);
}

TEST(Patt, SymbolCompareIsUnsignedAndStopsAtNul)
{
    EXPECT_GT(vp_SYMcmp("\xff", "a", 1), 0);
    EXPECT_LT(vp_SYMcmp("a", "b", 1), 0);
    EXPECT_EQ(vp_SYMcmp("ab", "ac", 1), 0);
    EXPECT_EQ(vp_SYMcmp("a\0x", "a\0y", 3), 0);
}

TEST(Patt, Lists)
{
    EXPECT_EQ(list("a||b", "a"), 0);
    EXPECT_EQ(list("a||b", "b"), 0);
    EXPECT_EQ(list("a||b", "c"), -1);
    EXPECT_EQ(list("a*&&*b", "axb"), 0);
    EXPECT_EQ(list("a*&&*b", "axc"), -1);
    EXPECT_EQ(list("a*&&*b", "cxb"), -1);
    EXPECT_EQ(list("x||a*&&*b", "x"), 0);
    EXPECT_EQ(list("x||a*&&*b", "ab"), 0);
    EXPECT_EQ(list("x||a*&&*b", "a"), -1);
    // Before a "||" the "&&" stays literal.
    EXPECT_EQ(list("a&&b||c", "a&&b"), 0);
    EXPECT_EQ(list("a&&b||c", "a"), -1);
    EXPECT_EQ(list("", ""), -1);
    EXPECT_EQ(list("a||", "b"), -1);
    EXPECT_EQ(list("a*&&", "a"), -1);
    EXPECT_EQ(X_CMPexec("", ""), -1);
}

// The matcher as a plain backtracking search over the compiled elements.
int reference(PATT_LIST *e, const char *t)
{
    size_t n = strlen(t), p = 0;
    for (; e; e = e->PATT_NEXT) {
        if (e->PATT_OP == PATT_STAR || e->PATT_OP == PATT_NOT) {
            PATT_LIST *r = e->PATT_NEXT;
            bool star = e->PATT_OP == PATT_STAR;
            if (p >= n && !r)
                return 0;
            for (size_t q = p; q <= n; ++q)
                if (!r || reference(r, t + q) == 0)
                    return star ? 0 : -1;
            return star ? -1 : 0;
        }
        if (p >= n || kor_ORpatt(e, static_cast<unsigned char>(t[p])) != 0)
            return -1;
        if (!e->PATT_NEXT)
            return ++p == n ? 0 : -1;
        ++p;
    }
    return 0;
}

TEST(Patt, AgreesWithBacktrackingOnRandomInputs)
{
    const char *atoms[] = {"a", "b", "*", "?", "!", "[ab]", "[^a]", "[b-c]"};
    std::mt19937 rng(99);
    int matches = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string patt;
        for (int k = rng() % 7; k >= 0; --k)
            patt += atoms[rng() % 8];
        std::string text;
        for (int k = rng() % 9; k > 0; --k)
            text += "abc"[rng() % 3];
        PATT_LIST *p = kor_LOADpatt(patt.c_str());
        int want = reference(p, text.c_str());
        ASSERT_EQ(kor_EXEpatt(p, text.c_str()), want) << "[" << patt << "] on [" << text << "]";
        matches += want == 0;
        kor_FREEpatt(p);
    }
    EXPECT_GT(matches, 2000);  // both answers are well represented
    EXPECT_LT(matches, 18000);
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
    EXPECT_EQ(match("a*?", as), 0);

    // A pattern as long as the text: no recursion per element or byte.
    std::string many(100000, '?');
    EXPECT_EQ(match(many.c_str(), as), 0);
    EXPECT_EQ(match(many.c_str(), as + "a"), -1);
    std::string stars;
    for (int i = 0; i < 500; ++i)
        stars += "*a";
    EXPECT_EQ(match(stars.c_str(), as), 0);
}

TEST(Patt, CacheReplacesRowsInFillOrder)
{
    char patt[32];
    for (int i = 0; i < X_PATT_CACHE; ++i) {
        snprintf(patt, sizeof patt, "cache%d*", i);
        EXPECT_EQ(X_CMPexec(patt, (std::string("cache") + std::to_string(i) + "z").c_str()), 0);
    }
    int row0 = -1;
    for (int r = 0; r < X_PATT_CACHE; ++r)
        if (X_CMPcache(r) && strcmp(X_CMPcache(r), "cache0*") == 0)
            row0 = r;
    ASSERT_GE(row0, 0);
    int row1 = (row0 + 1) % X_PATT_CACHE;
    ASSERT_STREQ(X_CMPcache(row1), "cache1*");

    EXPECT_EQ(X_CMPexec("cache0*", "cache0"), 0);  // use does not refresh a row
    EXPECT_EQ(X_CMPexec("next-a", "next-a"), 0);
    EXPECT_STREQ(X_CMPcache(row0), "next-a");
    EXPECT_EQ(X_CMPexec("next-b", "x"), -1);
    EXPECT_STREQ(X_CMPcache(row1), "next-b");
    EXPECT_EQ(X_CMPexec("cache0*", "cache0"), 0);  // compiled again
    EXPECT_STREQ(X_CMPcache((row0 + 2) % X_PATT_CACHE), "cache0*");
    EXPECT_EQ(X_CMPcache(-1), nullptr);
    EXPECT_EQ(X_CMPcache(X_PATT_CACHE), nullptr);
}

}  // namespace
