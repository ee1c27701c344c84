// Arithmetic expressions: precedence, modes, number forms, defined results
// where the machine would trap, stale results, very deep and long inputs.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "subst/expr.h"

namespace {

struct Result {
    int rc;
    long i;
    double f;
};

Result eval(const std::string &text)
{
    Result r{0, -99, -99};
    r.rc = EXPR_parser(text.c_str(), &r.i, &r.f);
    return r;
}

long integer(const std::string &text)
{
    Result r = eval(text);
    EXPECT_EQ(r.rc, 1) << text;
    return r.i;
}

double floating(const std::string &text)
{
    Result r = eval(text);
    EXPECT_EQ(r.rc, 2) << text;
    return r.f;
}

TEST(Expr, IntegerResults)
{
    const struct {
        const char *text;
        long value;
    } cases[] = {
        // precedence and left associativity
        {"1+2*3", 7}, {"(1+2)*3", 9}, {"1|2&3", 3}, {"1+2&3", 3}, {"8|1&2+1", 9},
        {"-1*2", -2}, {"1--2", 3}, {"1---2", -1}, {"1-2-3", -4}, {"64/4/2", 8},
        {"100%7%3", 2}, {"2*3%4", 2}, {"3*-(2+1)", -9}, {"  1 +  2 ", 3},
        // division truncates; zero divisors and INT64_MIN / -1 do not trap
        {"-7/2", -3}, {"-7%3", -1}, {"7%-3", 1}, {"5/0", 0}, {"5%0", 5}, {"-5%0", -5},
        {"(-9223372036854775807-1)/-1", INT64_MIN}, {"(-9223372036854775807-1)%-1", 0},
        {"9223372036854775807+1", INT64_MIN}, {"4294967296*4294967296", 0},
        // octal and hexadecimal; "09" is one token worth 0
        {"010", 8}, {"09", 0}, {"0189", 1}, {"0x10", 16}, {"0x99+1", 154},
        // out-of-range literals saturate like strtoll / strtoull
        {"99999999999999999999", INT64_MAX}, {"02777777777777777777777", -1},
        {"0x99999999999999999", -1}, {"0x8000000000000000", INT64_MIN},
    };
    for (const auto &c : cases)
        EXPECT_EQ(integer(c.text), c.value) << c.text;
}

TEST(Expr, FloatingResults)
{
    const struct {
        const char *text;
        double value;
    } cases[] = {
        {"7.0/2", 3.5}, {"7/2.", 3.5}, {"010+0.5", 8.5}, {"-2.5*-2", 5.0},
        // "%", "&" and "|" through 32-bit ints and single precision
        {"-7.5%3", -1.0}, {"6.9&3.2", 2.0}, {"6.1|3", 7.0}, {"5.0%0", 5.0},
        {"16777217.0|0", 16777216.0}, {"16777217.0+0", 16777217.0},
        {"3000000000.0|0", -2147483648.0}, {"(0.0/0)&7", 0.0},
    };
    for (const auto &c : cases)
        EXPECT_DOUBLE_EQ(floating(c.text), c.value) << c.text;
    EXPECT_TRUE(std::isinf(floating("1.0/0")));
}

TEST(Expr, FailuresHandBackTheLastResultOfEachMode)
{
    const char *bad[] = {"2*(3", "2 3", ".5", "1.5.2", "0x1f", "01.5", "0xa", "", "()",
                         "1+", "1)", "*2", "1e5", "1\t+2", "1+2\n", "\xC3\xA9", "((1)"};
    for (const char *text : bad) {
        ASSERT_EQ(floating("0.25"), 0.25);
        ASSERT_EQ(integer("4242"), 4242);
        Result r = eval(text);
        EXPECT_EQ(r.rc, 1) << text;
        EXPECT_EQ(r.i, 4242) << text;
        EXPECT_EQ(r.f, 0.25) << text;
    }
    EXPECT_EQ(eval("1.5").i, 4242);  // a floating result leaves the integer one
    EXPECT_EQ(yyerror("syntax error"), -1);
}

TEST(Expr, LongAndDeepInputs)
{
    std::string sum = "1";
    for (int i = 0; i < 200000; i++)
        sum += "+1";
    EXPECT_EQ(integer(sum), 200001);
    EXPECT_EQ(integer(std::string(5000, '-') + "1"), 1);

    // The start entry, every "(", the number and the first ")" must fit.
    auto nested = [](int depth) {
        return std::string(size_t(depth), '(') + "5" + std::string(size_t(depth), ')');
    };
    EXPECT_EQ(integer(nested(EXPR_MAXDEPTH - 4)), 5);
    ASSERT_EQ(integer("11"), 11);
    ASSERT_EQ(floating("2.5"), 2.5);
    Result r = eval(nested(EXPR_MAXDEPTH - 3));
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.i, 11);
    EXPECT_EQ(r.f, 2.5);

    std::string pending;  // operators waiting on the stack count as well
    for (int i = 0; i < EXPR_MAXDEPTH; i++)
        pending += "1|-(";
    EXPECT_EQ(eval(pending + "1").rc, 2);
    EXPECT_EQ(eval(std::string(1000000, '(')).rc, 2);
    EXPECT_EQ(eval(std::string(1000000, ')')).rc, 1);
}

}  // namespace
