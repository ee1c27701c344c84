// Argument scanners, the entity lookup and the built-ins of "exec".
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "runtime/runtime.h"
#include "storage/store.h"
#include "subst/args.h"
#include "x.h"

namespace {

struct Scan {
    std::string val;
    int result;
};

// Scans into a heap buffer exactly as long as the source (the size callers
// must give), so a write past the argument is caught.
Scan scan(const std::string &src, const char *sep = nullptr)
{
    std::vector<char> val(src.size() + 1);
    int r = sep ? X_arg_string_sep(src.c_str(), val.data(), sep)
                : X_arg_string(src.c_str(), val.data());
    return {val.data(), r};
}

TEST(ArgString, QuotesWordsAndResults)
{
    const struct {
        const char *src, *val;
        int result;
    } cases[] = {
        {"  abc def", "abc", 5}, {" def", "def", 4},     {"'a b' c", "a b", 5},
        {"\"a b\"", "a b", 5},   {"`a b`", "a b", 5},    {"~a b~", "a b", 5},
        {"^a b^", "a b", 5},     {"[x]", "x", 3},        {"{a}b", "a", 3},
        {"[a [b] c]", "a [b", 6}, {"\"\"", "", 2},       {"[]", "", 2},
        {"\"abc", "abc", 4},     {"a~b c", "a~b", 3},    {"a\tb c", "a\tb", 3},
        {"\t\n\r x y", "x", 5},  {"]x", "]x", 2},        {"", "", 0},
        {" \t\x01 ", "", 0},     {"\xC3\xA9 x", "\xC3\xA9", 2},
    };
    for (const auto &c : cases) {
        Scan s = scan(c.src);
        EXPECT_EQ(s.val, c.val) << c.src;
        EXPECT_EQ(s.result, c.result) << c.src;
    }
    EXPECT_EQ(X_stop_char(']'), ' ');
}

TEST(ArgString, BoundedVariantCutsOnlyTheCopy)
{
    std::string word(150, 'w');
    char val[100];
    EXPECT_EQ(X_arg_stringn(("[" + word + "] x").c_str(), val, sizeof val), 152);
    EXPECT_EQ(std::string(val), std::string(99, 'w'));
}

TEST(ArgString, SeparatorsAndPlainWords)
{
    Scan s = scan(",,x;y", ",;");
    EXPECT_EQ(s.val, "x");
    EXPECT_EQ(s.result, 3);
    EXPECT_EQ(scan(",;,", ",;").result, 0);
    s = scan("  'a b'|c", "|");  // no quoting, blanks are ordinary
    EXPECT_EQ(s.val, "  'a b'");
    EXPECT_EQ(s.result, 7);
    s = scan(" 'a b' c", "");  // an empty set means the quoting rules
    EXPECT_EQ(s.val, "a b");
    EXPECT_EQ(s.result, 6);

    char val[16];
    EXPECT_EQ(X_take_string("  'a b", val), 4);
    EXPECT_STREQ(val, "'a");
}

TEST(HtmlString, OnlyTheTwoLeadBytesAreMapped)
{
    EXPECT_STREQ(HTML_string(0xC3), "&ordmas;");
    EXPECT_STREQ(HTML_string(0xC2), "&questi;");
    EXPECT_STREQ(HTML_string(-61), "&ordmas;");  // 0xC3 as a signed char
    for (int c = 1; c < 256; c++) {
        if (c == 0xC2 || c == 0xC3)
            continue;
        const char *s = HTML_string(c);
        ASSERT_EQ(strlen(s), 1u) << c;
        EXPECT_EQ((unsigned char)s[0], c);
    }
    EXPECT_STREQ(HTML_tab[50].ch, "\xC3\xB8");
    EXPECT_EQ(HTML_tab[HTML_ROWS - 1].code, nullptr);
}

class ExecBuiltin : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!x_BUFFERS.vtree.cmp)
            x_BUFFERS.vtree = {nullptr, X_avlcmp};
        Trace = 0;
    }
    static void set(const char *name, const char *value) { ASSERT_EQ(X_put_value(name, value), 0); }
    static std::string get(const char *name)
    {
        const char *v = X_get_value(name);
        return v ? v : "<none>";
    }
};

TEST_F(ExecBuiltin, StrcutChcharStrlen)
{
    set("ex_p", "/usr/local/bin");
    EXPECT_EQ(X_exec_call("strcut", "ex_p /local"), 0);
    EXPECT_EQ(get("ex_p"), "/usr");

    set("ex_c", "a-b-c");
    EXPECT_EQ(chchar("chchar", "ex_c -/_"), 0);
    EXPECT_EQ(get("ex_c"), "a_b_c");
    EXPECT_EQ(chchar("chchar", "ex_c '_ .'"), 0);  // the middle character is ignored
    EXPECT_EQ(get("ex_c"), "a.b.c");
    EXPECT_EQ(chchar("chchar", "ex_c ./"), -1);
    EXPECT_EQ(chchar("chchar", "ex_c ./-="), -1);
    EXPECT_EQ(get("ex_c"), "a.b.c");
    EXPECT_EQ(chchar("chchar", "ex_none ab"), 0);  // missing variable first

    EXPECT_EQ(X_exec_call("strlen", "ex_c ex_n"), 0);
    EXPECT_EQ(get("ex_n"), "5");
    EXPECT_EQ(StrLen("strlen", "ex_none ex_n"), 0);
    EXPECT_EQ(get("ex_n"), "5");

    EXPECT_EQ(strcut("chchar", "ex_c ."), -1);
    EXPECT_EQ(StrLen("StrLen", "ex_c ex_n"), -1);
    EXPECT_EQ(get("ex_c"), "a.b.c");
}

TEST_F(ExecBuiltin, LongArgumentsAreCut)
{
    std::string name(300, 'n');
    set(name.substr(0, 99).c_str(), "x-y");
    EXPECT_EQ(chchar("chchar", (name + " -/+").c_str()), 0);
    EXPECT_EQ(get(name.substr(0, 99).c_str()), "x+y");
    EXPECT_EQ(strcut("strcut", ("'" + name + "' " + name).c_str()), 0);
}

}  // namespace
