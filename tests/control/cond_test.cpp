// Conditions: comparisons, format checkers, simple tests and the
// left-to-right combination of connectors and groups.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "control/cond.h"
#include "runtime/runtime.h"
#include "storage/store.h"

namespace {

// A failing run shows its message on standard output; the child sends it
// to stderr so that the death test can match it.
#define EXPECT_FATAL(stmt, re) EXPECT_EXIT({ dup2(2, 1); stmt; }, ::testing::ExitedWithCode(254), re)

class Cond : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!x_BUFFERS.vtree.cmp) x_BUFFERS.vtree = {nullptr, X_avlcmp};
        Trace = Debug = X_eof = 0;
        IgnoreEmpty = 1;
        X_put_value("c_empty", "");
        X_put_value("c_full", "apple");
        X_put_value("c_n", "12");
        X_put_value("c_bad", "12a");
    }

    // Evaluates a condition on a writable copy with an exactly sized
    // scratch buffer, so that any write past it is caught.
    static int cond(const std::string &text, int compile = 0)
    {
        std::vector<char> c(text.begin(), text.end());
        c.push_back(0);
        std::vector<char> scratch(X_MAXLINE);
        return X_if_SCAN(c.data(), scratch.data(), compile);
    }
};

TEST_F(Cond, ComparisonOperators)
{
    EXPECT_EQ(X_user_cmp("10", "9", "<"), 0);  // byte order
    EXPECT_EQ(X_user_cmp("\xc3\xa9", "z", "&gt;"), 0);
    EXPECT_EQ(X_user_cmp("a", "a", "&gt;="), 0);
    EXPECT_EQ(X_user_cmp("b", "a", "&lt;="), -1);
    EXPECT_EQ(X_user_cmp("a", "a", "!="), -1);
    EXPECT_EQ(X_user_cmp("abc", "x||a*", "like"), 0);
    EXPECT_EQ(X_user_cmp("bac", "a*", "!like"), 0);
    EXPECT_EQ(X_user_cmp("c_full", "a*", "vlike"), 0);
    EXPECT_EQ(X_user_cmp("c_none", "*", "vlike"), -1);
    EXPECT_EQ(X_user_cmp("c_none", "a*", "!vlike"), 0);
    EXPECT_EQ(X_user_cmp("c_full", "a*", "!vlike"), -1);
    EXPECT_EQ(X_user_icmp(3, 2, "&ge;"), 0);
    EXPECT_EQ(X_user_fcmp(0.1 + 0.2, 0.3, "=="), -1);  // exact
    EXPECT_FATAL(X_user_icmp(1, 1, "like"), "Unknown ICMP operator: like ");
    EXPECT_FATAL(X_user_fcmp(1, 1, "vlike"), "Unknown FCMP operator: vlike ");
    EXPECT_FATAL(X_user_cmp("a", "b", "=>"), "Unknown CMP operator: => ");
}

TEST_F(Cond, FormatCheckers)
{
    for (const char *ok : {"", "-", "123", "-45"}) EXPECT_EQ(X_check_int(ok), 0) << ok;
    for (const char *bad : {"+1", "1-2", "12a", "1.0"}) EXPECT_EQ(X_check_int(bad), -1) << bad;
    for (const char *ok : {".", "-.5", "3."}) EXPECT_EQ(X_check_float(ok), 0) << ok;
    for (const char *bad : {"1.2.3", "1e5"}) EXPECT_EQ(X_check_float(bad), -1) << bad;
    for (const char *ok : {"2024-02-29", "2023-02-29", "2x24-01-01", "-999-12-31", "2024-1x-3x"})
        EXPECT_EQ(X_check_date(ok), 0) << ok;
    for (const char *bad : {"2024-02-30", "2024-04-31", "2024-13-01", "2024-00-10", "2024-01-00",
                            "x024-01-01", "2024-01-x1", "2024-1-01", "2024/01/01", "2024-01-011"})
        EXPECT_EQ(X_check_date(bad), -1) << bad;

    char val[8] = "keep";
    EXPECT_EQ(X_get_int("a1", val, 2), -1);
    EXPECT_STREQ(val, "keep");
    EXPECT_EQ(X_get_int("-x9", val, 2), 0);
    EXPECT_STREQ(val, "-x");
    EXPECT_EQ(X_get_int("a1", val, 0), 0);
    EXPECT_STREQ(val, "");
    char today[16];
    EXPECT_EQ(X_today(today), 0);
    EXPECT_EQ(X_check_date(today), 0);
}

TEST_F(Cond, NumbersVersusStrings)
{
    EXPECT_EQ(cond("b > a"), 0);       // both read as 0
    EXPECT_EQ(cond("10 == 10.0"), 0);  // "==" compares strings
    EXPECT_EQ(cond("icmp 12abc == 12"), 1);
    EXPECT_EQ(cond("icmp 4294967297 == 1"), 1);  // 32 bits
    EXPECT_EQ(cond("fcmp abc == 0"), 1);
    EXPECT_EQ(cond("cmp \"a b\" == 'a b'"), 1);
    EXPECT_EQ(cond("$(c_n) == 12", 1), 1);
    EXPECT_EQ(cond("$(c_n) == 12", 0), 0);  // not expanded
}

TEST_F(Cond, VariablesFilesAndEndOfFile)
{
    for (std::string k : {"set ", "filled "}) {
        EXPECT_EQ(cond(k + "c_empty"), 0);
        EXPECT_EQ(cond("!" + k + "c_empty"), 1);
        EXPECT_EQ(cond(k + "c_full"), 1);
        EXPECT_EQ(cond("!" + k + "c_none"), 1);
    }
    EXPECT_EQ(cond("c_full"), 1);
    EXPECT_EQ(cond("!c_full"), 0);
    EXPECT_EQ(cond("!c_none"), 1);
    EXPECT_EQ(cond("!EOF"), 1);
    X_eof = 1;
    EXPECT_EQ(cond("EOF"), 1);

    EXPECT_EQ(cond("exist /"), 1);
    EXPECT_EQ(cond("!access /no/such/file"), 1);
    EXPECT_EQ(cond("isDir /"), 1);
    EXPECT_EQ(cond("isFile /"), 0);
    EXPECT_EQ(cond("isFile /proc/self/status"), 1);
    EXPECT_EQ(cond("!isDir /no/such/dir"), 1);
}

TEST_F(Cond, FormatTestFailureIsAnError)
{
    EXPECT_EQ(cond("!fmt c_n float"), 0);
    EXPECT_EQ(cond("fmt -42 int"), 1);  // no such variable: the word itself
    EXPECT_FATAL(cond("!fmt c_bad int"), "Unknown option in FMT: int ");
    EXPECT_FATAL(cond("fmt c_n number"), "Unknown option in FMT: number ");
}

TEST_F(Cond, ConnectorsApplyToTheRestOfTheCondition)
{
    // a && (b || c), a || (b && c)
    EXPECT_EQ(cond("cmp 1 == 1 && cmp 1 == 2 || cmp 1 == 1"), 1);
    EXPECT_EQ(cond("cmp 1 == 2 || cmp 1 == 1 && cmp 1 == 2"), 0);
    // Short-circuit: the unknown operator after it is never evaluated.
    EXPECT_EQ(cond("cmp 1 == 2 && cmp a ?? b"), 0);
    EXPECT_EQ(cond("cmp 1 == 1 || cmp a ?? b"), 1);
    // Connectors and parentheses inside quotes belong to the word.
    EXPECT_EQ(cond("cmp \"a && b\" == 'a && b'"), 1);
    EXPECT_EQ(cond("cmp [x||y] == {x||y}"), 1);
    EXPECT_EQ(cond(" \t\n cmp a == a&&cmp b == b"), 1);

    EXPECT_EQ(cond("(cmp 1 == 1 && cmp 1 == 2) || cmp a == a"), 1);
    EXPECT_EQ(cond("((cmp \"a)\" == \"a)\"))  "), 1);
    EXPECT_EQ(cond("(cmp 1 == 1"), 1);  // unbalanced: runs to the end
    EXPECT_FATAL(cond("(cmp 1 == 1) junk"), "Incorrect IF condition: cmp 1 == 1 ");
    EXPECT_FATAL(cond("!cmp a ?? b"), "Unknown CMP operator: \\?\\? ");
    EXPECT_FATAL(cond(""), "Unknown CMP operator:  ");
    EXPECT_FATAL(cond("cmp 1 == 1 &&"), "Unknown CMP operator:  ");
}

TEST_F(Cond, LongAndDeepConditionsStayInBounds)
{
    std::string a(32760, 'a');
    EXPECT_EQ(cond("cmp " + a + " == " + a), 1);
    std::string b(32763, 'b');
    EXPECT_EQ(cond("cmp " + b + " == " + b), 0);  // the last word is cut
    std::string ok = std::string(100, '(') + "cmp 1 == 1" + std::string(100, ')');
    EXPECT_EQ(cond(ok), 1);
    std::string deep = std::string(30000, '(') + "cmp 1 == 1" + std::string(30000, ')');
    EXPECT_FATAL(cond(deep), "Incorrect IF condition: ");
    EXPECT_FATAL(cond(std::string(60000, '(')), "Incorrect IF condition: ");
}

}  // namespace
