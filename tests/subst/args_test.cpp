// Argument scanners, the entity lookup and the built-ins of "exec".
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "runtime/runtime.h"
#include "storage/store.h"
#include "subst/args.h"

namespace {

TEST(Args, ScannersQuotesAndResults) {
    const struct { const char *src, *sep, *val; int result; } cases[] = {
        {"  abc def", nullptr, "abc", 5}, {" def", nullptr, "def", 4}, {"'a b' c", nullptr, "a b", 5},
        {"\"a b\"", nullptr, "a b", 5}, {"`a b`", nullptr, "a b", 5}, {"~a b~", nullptr, "a b", 5},
        {"^a b^", nullptr, "a b", 5}, {"[x]", nullptr, "x", 3}, {"{a}b", nullptr, "a", 3},
        {"[a [b] c]", nullptr, "a [b", 6}, {"\"\"", nullptr, "", 2}, {"[]", nullptr, "", 2},
        {"\"abc", nullptr, "abc", 4}, {"a~b c", nullptr, "a~b", 3}, {"a\tb c", nullptr, "a\tb", 3},
        {"\t\n\r x y", nullptr, "x", 5}, {"]x", nullptr, "]x", 2}, {"", nullptr, "", 0},
        {" \t\x01 ", nullptr, "", 0}, {"\xC3\xA9 x", nullptr, "\xC3\xA9", 2},
        // a separator set: no quoting, blanks are ordinary; an empty set quotes
        {",,x;y", ",;", "x", 3}, {",;,", ",;", "", 0}, {"  'a b'|c", "|", "  'a b'", 7},
        {" 'a b' c", "", "a b", 6},
    };
    for (const auto &c : cases) {
        // A heap buffer exactly as long as the source (the size callers must
        // give), so a write past the argument is caught.
        std::vector<char> val(strlen(c.src) + 1);
        int r = c.sep ? X_arg_string_sep(c.src, val.data(), c.sep) : X_arg_string(c.src, val.data());
        EXPECT_STREQ(val.data(), c.val) << c.src;
        EXPECT_EQ(r, c.result) << c.src;
    }
    EXPECT_EQ(X_stop_char(']'), ' ');
    char val[100];
    EXPECT_EQ(X_arg_stringn(("[" + std::string(150, 'w') + "] x").c_str(), val, sizeof val), 152);
    EXPECT_EQ(std::string(val), std::string(99, 'w'));  // only the copy is cut
    EXPECT_EQ(X_take_string("  'a b", val), 4);
    EXPECT_STREQ(val, "'a");
}

TEST(Args, HtmlStringMapsOnlyTheTwoLeadBytes) {
    EXPECT_STREQ(HTML_string(-61), "&ordmas;");  // 0xC3 as a signed char
    for (int c = 1; c < 256; c++) {
        std::string one(1, char(c));
        EXPECT_EQ(HTML_string(c), c == 0xC2 ? "&questi;" : c == 0xC3 ? "&ordmas;" : one) << c;
    }
}

TEST(Args, ExecBuiltins) {
    if (!x_BUFFERS.vtree.cmp) x_BUFFERS.vtree = {nullptr, X_avlcmp};
    auto value = [](const std::string &name) { return std::string(X_get_value(name.c_str())); };
    X_put_value("ex_c", "a-b-c");
    EXPECT_EQ(chchar("chchar", "ex_c '- .'"), 0);  // the middle character is ignored
    EXPECT_EQ(chchar("chchar", "ex_c ./"), -1);
    EXPECT_EQ(chchar("chchar", "ex_c ./-="), -1);
    EXPECT_EQ(chchar("chchar", "ex_none ab"), 0);  // a missing variable comes first
    EXPECT_EQ(X_exec_call("strlen", "ex_c ex_n") + X_exec_call("strcut", "ex_c .b"), 0);
    EXPECT_EQ(strcut("chchar", "ex_c .") + StrLen("StrLen", "ex_c ex_n"), -2);  // not their names
    EXPECT_EQ(value("ex_c") + value("ex_n"), "a5");
    // Arguments are read into 100 characters.
    std::string name(300, 'n');
    X_put_value(name.substr(0, 99).c_str(), "x-y");
    EXPECT_EQ(chchar("chchar", (name + " -/+").c_str()), 0);
    EXPECT_EQ(value(name.substr(0, 99)), "x+y");
    EXPECT_EQ(strcut("strcut", ("'" + name + "' " + name).c_str()), 0);
}

}  // namespace

TEST(Args, NumberReadsAsStrtol) {
    for (const char *s : {"0", "-0", "42", "-17x", "0012", "", "-", "+5", " 7", "x1", "123456789012345678",
                          "-123456789012345678", "1234567890123456789", "99999999999999999999", "-9223372036854775808",
                          "9223372036854775807", "--3", "5 6"})
        EXPECT_EQ(X_number(s), strtol(s, nullptr, 10)) << s;
}
