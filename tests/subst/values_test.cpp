// Value functions: each reference is resolved into a buffer, with its
// variables set up through the store.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <string>

#include "runtime/runtime.h"
#include "storage/store.h"
#include "subst/values.h"

namespace {

class Values : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!x_BUFFERS.vtree.cmp) {
            x_BUFFERS.vtree = {nullptr, X_avlcmp};
            x_BUFFERS.ftree = {nullptr, X_avlcmp};
        }
        Trace = 0;
        X_len = -1;
        IgnoreEmpty = 1;
    }

    static void set(const char *name, const char *value) { ASSERT_EQ(X_put_value(name, value), 0); }

    // The value of one reference as written into a buffer.
    static std::string tv(const char *ref)
    {
        static char buf[X_MAXLINE];
        strcpy(buf, "garbage");
        X_transvalue(ref, buf);
        return buf;
    }

    struct Case {
        const char *ref, *value;
    };
    static void expect_all(std::initializer_list<Case> cases)
    {
        for (const Case &c : cases)
            EXPECT_EQ(tv(c.ref), c.value) << c.ref;
    }
};

bool matches(const std::string &s, const char *re)
{
    return std::regex_match(s, std::regex(re));
}

TEST_F(Values, TableOrderAndExactRows)
{
    set("X_VERSIONx", "mine");
    set("len:v_x", "mine");
    set("todayx", "mine");
    set("DIRx", "mine");
    set("v_Case", "upper");
    expect_all({
        {"X_VERSIONx", "878"}, {"len:v_x", "0"}, {"todayx", "mine"}, {"DIRx", "mine"},
        {"v_case", ""},        {"v_nosuch", ""}, {"\\t", "\t"},      {"\\tx", ""},
    });
}

TEST_F(Values, StringRowsAndTheirLimits)
{
    set("v_s", "abcdef");
    set("v_colon", "a:b:c");
    set("v_empty", "");
    set("v_tab", "a \tb");
    set("v_cmd", "ls; rm $x");
    set("v_multi", "first");
    X_add_value("v_multi", "second");
    expect_all({
        {"sh:v_cmd", "ls\\; rm \\$x"},
        {"cut:3:v_s", "abc"}, {"cut:10:v_s", "abcdef"}, {"cut:3", ""}, {"cut:2:upper:v_s", "AB"},
        {"str:6:6:v_s", "f"}, {"str:7:9:v_s", ""}, {"str:1:0:v_s", ""}, {"str:2:4", ""},
        {"str:1:1:upper:v_s", "A"},
        {"strpos:3:v_s:cd", "3"}, {"strpos:1:v_s:", "-1"}, {"strpos:0:v_s:a", "-1"},
        {"strpos:7:v_s:a", "-1"}, {"strpos:1:v_s", "-1"}, {"strpos:1", "-1"},
        {"strpos:1:v_colon:b:c", "3"},
        {"chrpos:6:v_s:fe", "6"}, {"chrpos:-2:v_s:a", "-1"}, {"chrpos:1:v_empty:a", "-1"},
        {"word:v_tab:1", "a"}, {"word:v_tab:2", ""}, {"word:v_tab:3", "b"}, {"word:v_tab:4", ""},
        {"word:v_tab:-1", ""}, {"word:v_tab", ""}, {"word:v_nosuch:1", ""},
        {"mval:v_multi:2", "second"}, {"mval:v_multi:3", ""}, {"mval:v_multi:0", ""},
        {"mval:v_multi:-1", ""}, {"mval:v_multi", ""},
    });
    EXPECT_EQ(X_len, -1);
    set("v_two", "  one   two ");
    EXPECT_EQ(tv("word:v_two:2"), "two");
    EXPECT_STREQ(X_get_value("v_two"), "one two");  // squeezed in place
}

TEST_F(Values, NumberFormats)
{
    set("v_price", "3.14159");
    set("v_count", "12abc");
    set("v_blank", "");
    expect_all({
        {"int:%05ld:42", "00042"}, {"int:%ld:", "0"}, {"int:%ld:12abc", "12"},
        {"int:no directive", "no directive"},
        {"printf:%e:v_price", "3.141590e+00"}, {"printf:%d:v_price", "3"},
        {"printf:%04d:v_count", "0012"}, {"printf:%d:v_blank", "0"},
        {"printf:%.1f:v_blank", "0.0"}, {"printf:%c:v_count", "1"},
        {"printf:%d:v_nosuch", ""}, {"printf:%d", ""},
    });
    // The format is cut at 79 characters, letters past the cut do not count.
    std::string ref = "printf:" + std::string(78, '-') + "%s:v_count";
    EXPECT_EQ(tv(ref.c_str()), std::string(78, '-') + "%");
    // Page formats never reach the C library's printf.
    EXPECT_EQ(tv("int:%n%n%s%s%s:1"), "");
    EXPECT_EQ(tv("printf:%s%s%s%n:v_count"), "12abc");
    EXPECT_LT(tv("int:%99999999d:1").size(), static_cast<size_t>(X_MAXLINE));
}

TEST_F(Values, HugeValuesStayInTheBuffer)
{
    std::string long_pw(X_MAXLINE - 1, 'z');
    set("v_bigpw", long_pw.c_str());
    EXPECT_LT(tv("crypt:v_bigpw").size(), static_cast<size_t>(X_MAXLINE));

    std::string big(X_MAXLINE - 1, ';');
    set("v_semis", big.c_str());
    std::string sh = tv("sh:v_semis");
    EXPECT_LT(sh.size(), static_cast<size_t>(X_MAXLINE));
    EXPECT_EQ(sh.substr(0, 4), "\\;\\;");
    std::string url = tv("txt2url:v_semis");
    EXPECT_LT(url.size(), static_cast<size_t>(X_MAXLINE));
    EXPECT_EQ(url.size() % 3, 0u);
}

TEST_F(Values, CryptVectors)
{
    const Case cases[] = {
        {"a", "1c900c883cb02cb85cd04cc87cf06c"},
        {"abcdefghijklmno", "6dee30b244d618faec3e8042d46699"},
        {"abcdefghijklmnop", "11ce8b4005c29f5419d693682deaa77c"},
        {"The quick brown fox jumps over the lazy dog",
         "33bb7934f8a3602babd952129f894352c93333a4b76c2fb4ab1311829b4947c2de64fc69ab068b"
         "51a63bda"},
        {"\xe9t\xe9", "6d34c521e8b9155cad8950017d04d5"},  // bytes above 127 are unsigned
        {"", ""},
    };
    char out[256];
    for (const Case &c : cases) {
        X_crypt(c.ref, out);
        EXPECT_STREQ(out, c.value) << c.ref;
    }
    X_crypt(std::string(100, 'q').c_str(), out);
    EXPECT_EQ(strlen(out), 200u);
    EXPECT_EQ(key_ptr, 100 % 32);
}

TEST_F(Values, SpecialNamesAndRunResults)
{
    X_rowcount = 5;
    X_sqlcode = -1;
    X_INSERT_ID = 1234567890123L;
    snprintf(X_ERRMSG, sizeof X_ERRMSG, "%s", "last error");
    expect_all({{"X_ROWS", "5"}, {"X_SQLCODE", "-1"}, {"X_INSERT_ID", "1234567890123"},
                {"X_ERRMSG", "last error"}, {"DIR", DIR}});
    X_rowcount = 0;
    X_sqlcode = 0;
    X_INSERT_ID = 0;
    X_ERRMSG[0] = 0;
    EXPECT_TRUE(matches(tv("X_UDT"), "[0-9]+\\.[0-9]{6}"));
    EXPECT_TRUE(matches(tv("today"), "[0-9]{4}-[0-9]{2}-[0-9]{2}"));
    EXPECT_TRUE(matches(tv("X_RANDOM"), "[0-9]+"));

    std::smatch m;
    std::string before = tv("X_NVAL");
    ASSERT_TRUE(std::regex_match(before, m, std::regex("([0-9]+) \\[([0-9]+)\\]")));
    std::string name = "v_count_" + std::string(std::stoul(m[2]), 'n');
    set(name.c_str(), "1");
    EXPECT_EQ(tv("X_NVAL"),
              std::to_string(std::stoi(m[1]) + 1) + " [" + std::to_string(name.size()) + "]");
    EXPECT_TRUE(matches(tv("X_NFUN"), "[0-9]+ \\[[0-9]+\\]"));
}

TEST_F(Values, OpenStreamPositions)
{
    FILE *f = tmpfile();
    fputs("12345", f);
    x_OPEN[3].fp = f;
    snprintf(x_OPEN[3].name, sizeof x_OPEN[3].name, "v_stream");
    expect_all({{"ftell:v_stream", "5"}, {"ftell:v_strea", "-1"}});
    x_OPEN[3].fp = nullptr;
    EXPECT_EQ(tv("ftell:v_stream"), "-1");
    fclose(f);
}

TEST_F(Values, SelfReferenceEndsQuietly)
{
    // A value that begins with a newline is not expanded again.
    set("v_nl", "\n$(v_nosuch)");
    EXPECT_EQ(tv("eval:v_nl"), "");
    // Referring to itself twice over must not take exponential time.
    set("v_two", "$(eval:v_two)$(eval:v_two)");
    EXPECT_EQ(tv("eval:v_two"), "");
}

}  // namespace
