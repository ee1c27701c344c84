// Variable commands: set, vset, add, vadd, clear, replace.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "runtime/runtime.h"
#include "storage/store.h"
#include "subst/varcmd.h"

namespace {

class VarCmd : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!x_BUFFERS.vtree.cmp) {
            x_BUFFERS.vtree = {nullptr, X_avlcmp};
            x_BUFFERS.ftree = {nullptr, X_avlcmp};
        }
        Trace = 0;
        Debug = 0;
        IgnoreEmpty = 1;
    }

    // Runs one command line through a handler, compiled unless told not to.
    static int run(int (*handler)(char *, int, int), const std::string &line, int compile = 1,
                   int ignore = 0)
    {
        std::string copy = line;
        return handler(copy.data(), compile, ignore);
    }

    static std::string value(const char *name, unsigned n = 1)
    {
        const char *v = X_get_Mvalue(name, n);
        return v ? v : "<none>";
    }
};

TEST_F(VarCmd, ExpansionOfTheArgumentText)
{
    EXPECT_EQ(run(X_set, "<@set>   c_b   [bracketed value]  "), 0);
    EXPECT_EQ(value("c_b"), "bracketed value");
    EXPECT_EQ(run(X_set, "<@set> c_b"), 0);
    EXPECT_EQ(value("c_b"), "");
    X_put_value("c_src", "expanded");
    run(X_set, "<@set> c_dst $(c_src)", 0);
    EXPECT_EQ(value("c_dst"), "$(c_src)");
    // A reference may name the variable itself.
    X_put_value("c_which", "c_named");
    run(X_set, "<@set> $(c_which) 1");
    EXPECT_EQ(value("c_named"), "1");
    // Argument text that begins with a newline is not read at all.
    X_put_value("c_nl", "kept");
    run(X_set, "<@set>\nc_nl changed");
    EXPECT_EQ(value("c_nl"), "kept");
    EXPECT_EQ(value(""), "");
}

TEST_F(VarCmd, OtherKeywordsAreNotTheirs)
{
    EXPECT_EQ(run(X_set, "<@vset> c_x y"), -1);
    EXPECT_EQ(run(X_vset, "<@set> c_x y"), -1);
    EXPECT_EQ(run(X_add, "<@set> c_x y"), -1);
    EXPECT_EQ(run(X_vadd, "<@add> c_x y"), -1);
    EXPECT_EQ(run(X_clear, "<@set> c_x"), -1);
    EXPECT_EQ(run(X_replace, "<@set> c_x a b"), -1);
    EXPECT_EQ(run(X_vadd, "<@vadd> c_x y", 1, 1), 0);
    EXPECT_EQ(value("c_x"), "<none>");
}

TEST_F(VarCmd, FixedVariablesRefuseChanges)
{
    X_put_value("c_fixed", "fixed", 1, 0);
    EXPECT_EQ(run(X_set, "<@set> c_fixed other"), -1);
    EXPECT_EQ(run(X_add, "<@add> c_fixed other"), -1);
    EXPECT_EQ(run(X_replace, "<@replace> c_fixed f F"), -1);
    EXPECT_EQ(value("c_fixed"), "fixed");
    EXPECT_EQ(run(X_clear, "<@clear> c_fixed"), 0);
    EXPECT_EQ(value("c_fixed"), "fixed");
}

TEST_F(VarCmd, ReplaceEdges)
{
    X_put_value("c_r", "abab");
    run(X_replace, "<@replace> c_r ab ''");
    EXPECT_EQ(value("c_r"), "");
    // The new value is cut where TO no longer fits in a line.
    X_put_value("c_r", std::string(X_MAXLINE - 1, 'a').c_str());
    run(X_replace, "<@replace> c_r a bb");
    EXPECT_EQ(value("c_r"), std::string(X_MAXLINE - 2, 'b'));
    // A value longer than a line is cut even when nothing is replaced.
    X_put_value("c_r", std::string(3 * X_MAXLINE, 'x').c_str());
    run(X_replace, "<@replace> c_r a ''");
    EXPECT_EQ(value("c_r"), std::string(X_MAXLINE - 1, 'x'));
    // NAME is read into 128 characters.
    std::string name(127, 'n');
    X_put_value(name.c_str(), "abc");
    run(X_replace, "<@replace> " + name + "EXTRA b B");
    EXPECT_EQ(value(name.c_str()), "aBc");
}

}  // namespace
