// Value functions, line translation and the variable commands, with their
// variables set up through the store.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "runtime/runtime.h"
#include "storage/store.h"
#include "subst/subst.h"
#include "subst/values.h"
#include "subst/varcmd.h"

namespace {

void set(const std::string &name, const std::string &value) {
    if (!x_BUFFERS.vtree.cmp) x_BUFFERS.vtree = {nullptr, X_avlcmp};
    ASSERT_EQ(X_put_value(name.c_str(), value.c_str()), 0);
}

// One reference resolved, or with LINE a text expanded, into a dirty buffer.
std::string tv(const std::string &ref, bool line = false, int compile = 1) {
    static char buf[X_MAXLINE];
    strcpy(buf, "garbage");
    if (line) X_transline(ref.c_str(), buf, compile);
    else X_transvalue(ref.c_str(), buf);
    return buf;
}

int run(int (*handler)(char *, int, int), std::string line, int compile = 1) {
    return handler(line.data(), compile, 0);
}

// Which names a value function claims: the first character narrows the
// search, whole-name rows need the whole name, prefix rows only its start.
TEST(Values, NamesClaimedByValueFunctions) {
    const std::pair<const char *, bool> names[] = {
        {"", false},         {"name", true},      {"today", false},     {"today2", true},
        {"tod", true},       {"trim:x", false},   {"txt2url:a", false}, {"t", true},
        {"X_ROWS", false},   {"X_ROWSx", false},  {"X_ERRMSG", false},  {"X_ERRMSGx", true},
        {"X_", true},        {"DIR", false},      {"DIRx", true},       {"\\t", false},
        {"\\tx", true},      {"sh:ls", false},    {"session:id", false}, {"sql", true},
        {"year:2020", false}, {"yea", true},      {"eval:x", false},    {"env:HOME", false},
        {"expr:1", false},   {"e", true},         {"\xe9t\xe9", true},
    };
    for (auto [name, plain] : names) EXPECT_EQ(X_value_plain(name), plain) << name;
}

TEST(Values, RowsInTableOrder) {
    for (const char *name : {"X_VERSIONx", "len:v_x", "todayx", "DIRx", "v_Case"}) set(name, "mine");
    for (auto [name, value] : {std::pair{"v_s", "abcdef"}, {"v_colon", "a:b:c"}, {"v_empty", ""},
                               {"v_cmd", "ls; rm $x"}, {"v_price", "3.14159"}, {"v_count", "12abc"},
                               {"v_15", "abcdefghijklmno"}, {"v_16", "abcdefghijklmnop"},
                               {"v_fox", "The quick brown fox jumps over the lazy dog"}, {"v_hi", "\xe9t\xe9"}})
        set(name, value);
    X_add_value("v_s", "second");
    X_rowcount = 5, X_sqlcode = -1, X_INSERT_ID = 1234567890123L;
    const std::pair<const char *, const char *> cases[] = {
        // prefixes and special names hide variables; exact rows claim nothing else
        {"X_VERSIONx", "878"}, {"len:v_x", "0"}, {"todayx", "mine"}, {"DIRx", "mine"},
        {"v_case", ""}, {"\\t", "\t"}, {"\\tx", ""}, {"sh:v_cmd", "ls\\; rm \\$x"},
        {"cut:3", ""}, {"cut:2:upper:v_s", "AB"}, {"str:6:6:v_s", "f"}, {"str:7:9:v_s", ""},
        {"str:1:0:v_s", ""}, {"str:2:4", ""}, {"strpos:3:v_s:cd", "3"}, {"strpos:1:v_s:", "-1"},
        {"strpos:0:v_s:a", "-1"}, {"strpos:7:v_s:a", "-1"}, {"strpos:1:v_s", "-1"}, {"strpos:1", "-1"},
        {"strpos:1:v_colon:b:c", "3"}, {"chrpos:6:v_s:fe", "6"}, {"chrpos:-2:v_s:a", "-1"},
        {"chrpos:1:v_empty:a", "-1"}, {"word:v_s:-1", ""}, {"word:v_s", ""}, {"word:v_nosuch:1", ""},
        {"mval:v_s:2", "second"}, {"mval:v_s:3", ""}, {"mval:v_s:0", ""}, {"mval:v_s:-1", ""},
        {"mval:v_s", ""}, {"int:%05ld:42", "00042"}, {"int:%ld:", "0"}, {"int:%ld:12abc", "12"},
        {"int:no directive", "no directive"}, {"printf:%e:v_price", "3.141590e+00"},
        {"printf:%04d:v_count", "0012"}, {"printf:%d:v_empty", "0"}, {"printf:%.1f:v_empty", "0.0"},
        {"printf:%d:v_nosuch", ""}, {"printf:%d", ""}, {"X_ROWS", "5"}, {"X_SQLCODE", "-1"},
        {"X_INSERT_ID", "1234567890123"}, {"DIR", DIR}, {"crypt:v_empty", ""},
        {"crypt:v_15", "6dee30b244d618faec3e8042d46699"}, {"crypt:v_16", "11ce8b4005c29f5419d693682deaa77c"},
        {"crypt:v_fox", "33bb7934f8a3602babd952129f894352c93333a4b76c2fb4ab1311829b4947c2de64fc69ab068b51a63bda"},
        {"crypt:v_hi", "6d34c521e8b9155cad8950017d04d5"},  // bytes above 127 are unsigned
        // page formats never reach the C library's printf
        {"int:%n%n%s%s%s:1", ""}, {"printf:%s%s%s%n:v_count", "12abc"},
    };
    for (const auto &[ref, value] : cases) EXPECT_EQ(tv(ref), value) << ref;
    X_rowcount = X_sqlcode = X_INSERT_ID = 0;
    // A printf format is cut at 79 characters; letters past the cut do not count.
    EXPECT_EQ(tv("printf:" + std::string(78, '-') + "%s:v_count"), std::string(78, '-') + "%");
    EXPECT_LT(tv("int:%99999999d:1").size(), size_t(X_MAXLINE));
    // Escapes of huge values stay in the buffer.
    set("v_semis", std::string(X_MAXLINE - 1, ';'));
    EXPECT_EQ(tv("sh:v_semis").substr(0, 4), "\\;\\;");
    EXPECT_EQ(tv("txt2url:v_semis").size(), size_t(X_MAXLINE - 1) / 3 * 3);
    EXPECT_LT(tv("crypt:v_semis").size(), size_t(X_MAXLINE));
    // ... and every escaped or scrambled value that fits it comes out whole.
    set("v_long", std::string(X_MAXLINE / 2 - 1, 'w'));
    EXPECT_EQ(tv("txt2url:v_long") + tv("sh:v_long"), tv("v_long") + tv("v_long"));
    EXPECT_EQ(tv("crypt:v_long").size(), size_t(X_MAXLINE - 2));
}

TEST(Values, LineTranslationAndReexpansion) {
    set("t_x", "abcdef");
    set("t_i", "x");
    // "cut:" limits the value only; an unclosed reference runs to the end.
    EXPECT_EQ(tv("a$b $ (x) $(t_$(t_i)) [$(cut:2:t_x)] $(t_x", true), "a$b $ (x) abcdef [ab] abcdef");
    EXPECT_EQ(X_len, -1);
    EXPECT_EQ(tv("$(t_x)", true, 0), "$(t_x)");
    // While IgnoreEmpty is set a text or reference that begins with a newline
    // is not expanded, nor is such a value by eval:.
    EXPECT_EQ(tv("\n$(t_x)", true), "garbage");
    EXPECT_EQ(tv("[$(\nt_x)]", true), "[]");
    set("t_nl", "\n$(t_x)");
    EXPECT_EQ(tv("eval:t_nl"), "");
    IgnoreEmpty = 0;
    EXPECT_EQ(tv("\n$(t_x)", true), "\nabcdef");
    IgnoreEmpty = 1;
}

TEST(Values, VariableCommands) {
    set("c_which", "c_named");
    EXPECT_EQ(run(X_set, "<@set>   c_b   [bracketed value]  "), 0);
    run(X_set, "<@set> $(c_which) $(c_b)");
    run(X_set, "<@set> c_raw $(c_b)", 0);
    run(X_set, "<@set>\nc_b changed");  // argument text after a newline is not read
    EXPECT_EQ(tv("c_b") + "|" + tv("c_named") + "|" + tv("c_raw"), "bracketed value|bracketed|$(c_b)");
    // replace cuts where TO no longer fits in a line, and cuts a longer value
    // even when nothing is replaced; NAME is read into 128 characters.
    set("c_r", std::string(X_MAXLINE - 1, 'a'));
    run(X_replace, "<@replace> c_r a bb");
    EXPECT_EQ(tv("c_r"), std::string(X_MAXLINE - 2, 'b'));
    set("c_r", std::string(3 * X_MAXLINE, 'x'));
    run(X_replace, "<@replace> c_r a ''");
    EXPECT_EQ(X_get_value("c_r"), std::string(X_MAXLINE - 1, 'x'));
    set(std::string(127, 'n'), "abc");
    run(X_replace, "<@replace> " + std::string(127, 'n') + "EXTRA b B");
    EXPECT_EQ(tv(std::string(127, 'n')), "aBc");
}

}  // namespace
