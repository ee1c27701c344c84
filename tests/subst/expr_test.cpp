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

Result eval(const std::string &text) {
    Result r{0, -99, -99};
    r.rc = EXPR_parser(text.c_str(), &r.i, &r.f);
    return r;
}

std::string nested(int depth) {
    return std::string(size_t(depth), '(') + "5" + std::string(size_t(depth), ')');
}

TEST(Expr, IntegerAndFloatingResults) {
    std::string sum(400001, '1');  // 1+1+...+1, long and flat
    for (size_t i = 1; i < sum.size(); i += 2) sum[i] = '+';
    const struct { std::string text; long value; } cases[] = {
        // precedence and left associativity
        {"1+2*3", 7}, {"(1+2)*3", 9}, {"1|2&3", 3}, {"1+2&3", 3}, {"8|1&2+1", 9}, {"1--2", 3},
        {"1---2", -1}, {"1-2-3", -4}, {"64/4/2", 8}, {"100%7%3", 2}, {"3*-(2+1)", -9},
        // division truncates; zero divisors and INT64_MIN / -1 do not trap
        {"-7/2", -3}, {"-7%3", -1}, {"7%-3", 1}, {"5/0", 0}, {"5%0", 5}, {"-5%0", -5},
        {"(-9223372036854775807-1)/-1", INT64_MIN}, {"(-9223372036854775807-1)%-1", 0},
        {"9223372036854775807+1", INT64_MIN}, {"4294967296*4294967296", 0},
        // octal and hexadecimal ("09" is one token worth 0); out-of-range
        // literals saturate like strtoll / strtoull
        {"010", 8}, {"09", 0}, {"0189", 1}, {"0x10", 16}, {"0x99+1", 154},
        {"99999999999999999999", INT64_MAX}, {"02777777777777777777777", -1},
        {"0x99999999999999999", -1}, {"0x8000000000000000", INT64_MIN},
        {nested(EXPR_MAXDEPTH - 4), 5}, {std::string(5000, '-') + "1", 1}, {sum, 200001},
    };
    for (const auto &c : cases) {
        Result r = eval(c.text);
        EXPECT_EQ(r.rc, 1) << c.text.substr(0, 30);
        EXPECT_EQ(r.i, c.value) << c.text.substr(0, 30);
    }

    const struct { const char *text; double value; } floating[] = {
        {"7.0/2", 3.5}, {"7/2.", 3.5}, {"010+0.5", 8.5}, {"-2.5*-2", 5.0},
        // "%", "&" and "|" through 32-bit ints and single precision
        {"-7.5%3", -1.0}, {"6.9&3.2", 2.0}, {"6.1|3", 7.0}, {"5.0%0", 5.0},
        {"16777217.0|0", 16777216.0}, {"16777217.0+0", 16777217.0},
        {"3000000000.0|0", -2147483648.0}, {"(0.0/0)&7", 0.0}, {"1.0/0", HUGE_VAL},
    };
    for (const auto &c : floating) {
        Result r = eval(c.text);
        EXPECT_EQ(r.rc, 2) << c.text;
        EXPECT_DOUBLE_EQ(r.f, c.value) << c.text;
    }
}

// A syntax error returns 1 with the last integer result; too deep a nesting
// fails with 2. Both results of the last good evaluations stay.
TEST(Expr, FailuresHandBackTheLastResults) {
    std::string pending;  // operators waiting on the stack count towards the depth
    for (int i = 0; i < EXPR_MAXDEPTH; i++)
        pending += "1|-(";
    const struct { std::string text; int rc; } cases[] = {
        {"2*(3", 1}, {"2 3", 1}, {".5", 1}, {"1.5.2", 1}, {"0x1f", 1}, {"01.5", 1}, {"0xa", 1},
        {"", 1}, {"()", 1}, {"1+", 1}, {"1)", 1}, {"*2", 1}, {"1e5", 1}, {"1\t+2", 1},
        {"1+2\n", 1}, {"\xC3\xA9", 1}, {"((1)", 1}, {std::string(1000000, ')'), 1},
        {nested(EXPR_MAXDEPTH - 3), 2}, {pending + "1", 2}, {std::string(1000000, '('), 2},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(eval("0.25").f, 0.25);
        ASSERT_EQ(eval("4242").i, 4242);
        Result r = eval(c.text);
        EXPECT_EQ(r.rc, c.rc) << c.text.substr(0, 30);
        EXPECT_EQ(r.i, 4242) << c.text.substr(0, 30);
        EXPECT_EQ(r.f, 0.25) << c.text.substr(0, 30);
    }
    EXPECT_EQ(eval("1.5").i, 4242);  // a floating result leaves the integer one
    EXPECT_EQ(yyerror("syntax error"), -1);
}

}  // namespace
