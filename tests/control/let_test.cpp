// The assignment line: numeric and text operators on page variables.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "control/let.h"
#include "runtime/runtime.h"
#include "storage/store.h"

namespace {

class Let : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!x_BUFFERS.vtree.cmp) x_BUFFERS.vtree = {nullptr, X_avlcmp};
        Trace = Debug = 0;
        IgnoreEmpty = 1;
        X_put_value("let_t", "abcdef");
    }

    static int let(const std::string &line, int compile = 0, int ignore = 0)
    {
        std::vector<char> b(line.begin(), line.end());
        b.push_back(0);
        return X_let(b.data(), compile, ignore);
    }

    static std::string val(const char *name)
    {
        const char *v = X_get_value(name);
        return v ? v : "(none)";
    }
};

// One operator applied to let_n holding old (nullptr: missing).
struct Case {
    const char *old, *line, *want;
};

TEST_F(Let, Operators)
{
    const Case cases[] = {
        {nullptr, "++", "1"}, {nullptr, "--", "-1"}, {nullptr, "+= 7", "7"}, {nullptr, "-= 7", "-7"},
        {nullptr, "*= 5", "5"}, {nullptr, "/= 2", "0"}, {nullptr, "/= 0", "1"}, {nullptr, "%= 3", "0"},
        {"41", "++", "42"}, {"10", "-= 15", "-5"}, {"6", "*= -7", "-42"}, {"-7", "/= 2", "-3"},
        {"-7", "%= 3", "-1"}, {"7", "%= -3", "1"}, {"7", "/= 0", "7"}, {"7", "%= 0", "0"},
        {"abc", "++", "1"}, {"12abc", "+= 3xyz", "15"},
        // 64 bits, wrapping instead of trapping
        {"4294967296", "*= 2", "8589934592"},
        {"9223372036854775807", "++", "-9223372036854775808"},
        {"-9223372036854775808", "/= -1", "-9223372036854775808"},
        {"-9223372036854775808", "%= -1", "0"},
        {nullptr, "-= -9223372036854775808", "-9223372036854775808"},
        {"99999999999999999999", "+= 0", "9223372036854775807"},
        // text
        {"old", "= hello world", "hello"}, {"old", "= \"hello world\"", "hello world"}, {"old", "=", ""},
        {"ab", ";= cd", "abcd"}, {nullptr, ";= cd", "cd"},
        {"abcdef", ":4;= x", "abcx"}, {"abcd", ":4;= x", "abcdx"}, {"abc", ":1;= z", "z"},
        {"", "$= let_t:2:4", "bcd"}, {"", "$= let_t:2", "bcdef"}, {"", "$= let_t:0:2", "abc"},
        {"", "$= let_t:9:2", "abc"}, {"", "$= let_t:6", "abcdef"}, {"", "$= let_t:5:5", "ef"},
        {"", "$= let_t:-3:-1", "abcdef"}, {"x", "$= let_none:1:2", "x"}, {nullptr, "$= let_none", ""},
        {"xyz", ":2$= let_t:3:3", "xcdef"},
    };
    for (const Case &c : cases) {
        X_clear_value("let_n");
        if (c.old) X_put_value("let_n", c.old);
        std::string line = c.line;
        // "let_n:4;= x" carries the length in the name.
        std::string full = line[0] == ':' ? "<@let_n" + line.substr(0, 2) + ">" + line.substr(2)
                                          : "<@let_n>" + line;
        EXPECT_EQ(let(full), 0) << full;
        EXPECT_EQ(val("let_n"), c.want) << (c.old ? c.old : "(none)") << " " << full;
    }
}

TEST_F(Let, WhatIsAnAssignmentLine)
{
    EXPECT_EQ(let("<@let_a> 5"), -1);
    EXPECT_EQ(let("let_a>++"), -1);
    EXPECT_EQ(let("<@let_a>+ 5"), -1);
    EXPECT_EQ(let("<@let_a>++", 0, 1), 0);  // ignored
    EXPECT_EQ(val("let_a"), "(none)");
    // ">=" is searched before ">+=": the name ends at the operand's ">=".
    EXPECT_EQ(let("<@let_a>+= b>=c"), 0);
    EXPECT_EQ(val("let_a"), "(none)");
    EXPECT_EQ(val("let_a>+= b"), "c");

    ASSERT_EQ(X_put_value("let_fixed", "3", 1), 0);
    EXPECT_EQ(let("<@let_fixed>++"), -1);
    EXPECT_EQ(val("let_fixed"), "3");
    EXPECT_STREQ(X_ERRMSG, "## Fixed Value: let_fixed");
}

TEST_F(Let, ReferencesAreExpandedWhenCompiling)
{
    X_put_value("let_total", "10");
    X_put_value("let_which", "let_total");
    EXPECT_EQ(let("<@$(let_which)>+= $(let_total)", 1), 0);
    EXPECT_EQ(val("let_total"), "20");
    EXPECT_EQ(let("<@$(let_which)>++", 0), 0);
    EXPECT_EQ(val("$(let_which)"), "1");
}

TEST_F(Let, TextValuesStopAtTheLineSize)
{
    X_put_value("let_big", std::string(X_MAXLINE - 100, 'a').c_str());
    EXPECT_EQ(let("<@let_big>;= " + std::string(1000, 'b')), 0);
    std::string v = val("let_big");
    EXPECT_EQ(v.size(), size_t(X_MAXLINE - 1));
    EXPECT_EQ(v.back(), 'b');
    X_put_value("let_src", std::string(X_MAXLINE - 10, 'c').c_str());
    EXPECT_EQ(let("<@let_big>$= let_src"), 0);
    EXPECT_EQ(val("let_big").size(), size_t(X_MAXLINE - 1));
}

}  // namespace
