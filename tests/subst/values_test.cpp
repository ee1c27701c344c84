// Value functions: each reference is resolved into a buffer, with its
// variables set up through the store.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
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

    // The value of one reference as written to the output stream.
    static std::string printed(const char *ref)
    {
        FILE *f = tmpfile();
        X_stdout = f;
        HTML = 0;
        X_printvalue(ref);
        X_stdout = nullptr;
        HTML = 1;
        std::string s;
        rewind(f);
        for (int c; (c = fgetc(f)) != EOF;)
            s += static_cast<char>(c);
        fclose(f);
        return s;
    }
};

bool matches(const std::string &s, const char *re)
{
    return std::regex_match(s, std::regex(re));
}

// ---- Variables and the order of the table ------------------------------

TEST_F(Values, VariablesAndUnknownNames)
{
    set("v_plain", "hello");
    EXPECT_EQ(tv("v_plain"), "hello");
    EXPECT_EQ(tv("v_nosuch"), "");
    EXPECT_EQ(printed("v_plain"), "hello");
    EXPECT_EQ(printed("v_nosuch"), "");
    set("v_Case", "upper");
    EXPECT_EQ(tv("v_case"), "");
}

TEST_F(Values, SpecialNamesComeBeforeVariables)
{
    set("X_VERSIONx", "mine");
    EXPECT_EQ(tv("X_VERSIONx"), "878");
    set("len:v_plain2", "mine");
    EXPECT_EQ(tv("len:v_plain2"), "0");
    // Exact rows claim nothing else.
    set("todayx", "mine");
    EXPECT_EQ(tv("todayx"), "mine");
    set("DIRx", "mine");
    EXPECT_EQ(tv("DIRx"), "mine");
}


// ---- String rows -------------------------------------------------------


TEST_F(Values, ShellEscapes)
{
    set("v_cmd", "ls; rm $x");
    EXPECT_EQ(tv("sh:v_cmd"), "ls\\; rm \\$x");
}

TEST_F(Values, EscapesOfHugeValuesStayInTheBuffer)
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

TEST_F(Values, CutLimitsOnlyTheValue)
{
    set("v_abc", "abcdef");
    EXPECT_EQ(tv("cut:3:v_abc"), "abc");
    EXPECT_EQ(X_len, -1);
    EXPECT_EQ(tv("cut:10:v_abc"), "abcdef");
    EXPECT_EQ(tv("cut:3"), "");
    EXPECT_EQ(tv("cut:2:upper:v_abc"), "AB");
}

TEST_F(Values, Substrings)
{
    set("v_sub", "abcdef");
    EXPECT_EQ(tv("str:2:4:v_sub"), "bcd");
    EXPECT_EQ(tv("str:5:9:v_sub"), "ef");
    EXPECT_EQ(tv("str:6:6:v_sub"), "f");
    EXPECT_EQ(tv("str:1:1:upper:v_sub"), "A");
    EXPECT_EQ(tv("str:0:3:v_sub"), "");
    EXPECT_EQ(tv("str:4:2:v_sub"), "");
    EXPECT_EQ(tv("str:7:9:v_sub"), "");
    EXPECT_EQ(tv("str:1:0:v_sub"), "");
    EXPECT_EQ(tv("str:2:4"), "");
}

// ---- Positions ---------------------------------------------------------

TEST_F(Values, StringPositions)
{
    set("v_pos", "abcdef");
    EXPECT_EQ(tv("strpos:1:v_pos:cd"), "3");
    EXPECT_EQ(tv("strpos:3:v_pos:cd"), "3");
    EXPECT_EQ(tv("strpos:4:v_pos:cd"), "-1");
    EXPECT_EQ(tv("strpos:1:v_pos:"), "-1");
    EXPECT_EQ(tv("strpos:0:v_pos:a"), "-1");
    EXPECT_EQ(tv("strpos:7:v_pos:a"), "-1");
    EXPECT_EQ(tv("strpos:1:v_nosuch:a"), "-1");
    EXPECT_EQ(tv("strpos:1:v_pos"), "-1");
    EXPECT_EQ(tv("strpos:1"), "-1");
    set("v_colon", "a:b:c");
    EXPECT_EQ(tv("strpos:1:v_colon:b:c"), "3");
}

TEST_F(Values, CharacterPositions)
{
    set("v_chr", "abcdef");
    EXPECT_EQ(tv("chrpos:1:v_chr:fe"), "5");
    EXPECT_EQ(tv("chrpos:6:v_chr:fe"), "6");
    EXPECT_EQ(tv("chrpos:1:v_chr:xyz"), "-1");
    EXPECT_EQ(tv("chrpos:-2:v_chr:a"), "-1");
    EXPECT_EQ(tv("chrpos:1:v_chr"), "-1");
    set("v_empty", "");
    EXPECT_EQ(tv("chrpos:1:v_empty:a"), "-1");
}

// ---- Words and values --------------------------------------------------

TEST_F(Values, WordsCountEveryBlankAndTab)
{
    set("v_tab", "a \tb");
    EXPECT_EQ(tv("word:v_tab:1"), "a");
    EXPECT_EQ(tv("word:v_tab:2"), "");
    EXPECT_EQ(tv("word:v_tab:3"), "b");
    EXPECT_EQ(tv("word:v_tab:4"), "");
    EXPECT_EQ(tv("word:v_tab:-1"), "");
    EXPECT_EQ(tv("word:v_tab"), "");
    EXPECT_EQ(tv("word:v_nosuch:1"), "");
}

TEST_F(Values, WordsSqueezeTheStoredValue)
{
    set("v_two", "  one   two ");
    EXPECT_EQ(tv("word:v_two:2"), "two");
    EXPECT_STREQ(X_get_value("v_two"), "one two");
}

TEST_F(Values, NthValues)
{
    set("v_multi", "first");
    X_add_value("v_multi", "second");
    EXPECT_EQ(tv("mval:v_multi:1"), "first");
    EXPECT_EQ(tv("mval:v_multi:2"), "second");
    EXPECT_EQ(tv("mval:v_multi:3"), "");
    EXPECT_EQ(tv("mval:v_multi:0"), "");
    EXPECT_EQ(tv("mval:v_multi:-1"), "");
    EXPECT_EQ(tv("mval:v_multi"), "");
}

// ---- Formats -----------------------------------------------------------

TEST_F(Values, IntegerFormats)
{
    EXPECT_EQ(tv("int:%05ld:42"), "00042");
    EXPECT_EQ(tv("int:[%d]:-7"), "[-7]");
    EXPECT_EQ(tv("int:%x:255"), "ff");
    EXPECT_EQ(tv("int:%ld:"), "0");
    EXPECT_EQ(tv("int:%ld:12abc"), "12");
    EXPECT_EQ(tv("int:no directive"), "no directive");
}

TEST_F(Values, PrintfChoosesTheTypeByLetters)
{
    set("v_price", "3.14159");
    set("v_count", "12abc");
    set("v_name", "Tolm");
    set("v_blank", "");
    EXPECT_EQ(tv("printf:%.2f:v_price"), "3.14");
    EXPECT_EQ(tv("printf:%e:v_price"), "3.141590e+00");
    EXPECT_EQ(tv("printf:%d:v_price"), "3");
    EXPECT_EQ(tv("printf:%04d:v_count"), "0012");
    EXPECT_EQ(tv("printf:%d:v_blank"), "0");
    EXPECT_EQ(tv("printf:%.1f:v_blank"), "0.0");
    EXPECT_EQ(tv("printf:[%-6s]:v_name"), "[Tolm  ]");
    EXPECT_EQ(tv("printf:%c:v_name"), "T");
    EXPECT_EQ(tv("printf:%d:v_nosuch"), "");
    EXPECT_EQ(tv("printf:%d"), "");
}

TEST_F(Values, PrintfFormatIsCutAt79Characters)
{
    set("v_fmt", "x");
    std::string ref = "printf:" + std::string(78, '-') + "%s:v_fmt";
    EXPECT_EQ(tv(ref.c_str()), std::string(78, '-') + "%");
}

TEST_F(Values, PageFormatsCannotReachMemory)
{
    set("v_evil", "1");
    EXPECT_EQ(tv("int:%n%n%s%s%s:1"), "");
    EXPECT_EQ(tv("printf:%s%s%s%n:v_evil"), "1");
    EXPECT_LT(tv("int:%99999999d:1").size(), static_cast<size_t>(X_MAXLINE));
}

// ---- Scrambler ---------------------------------------------------------

TEST_F(Values, CryptKnownVectors)
{
    char out[256];
    X_crypt("a", out);
    EXPECT_STREQ(out, "1c900c883cb02cb85cd04cc87cf06c");
    X_crypt("secret", out);
    EXPECT_STREQ(out, "e34fbdd1127329e583472079bfeb29");
    X_crypt("abcdefghijklmno", out);
    EXPECT_STREQ(out, "6dee30b244d618faec3e8042d46699");
    X_crypt("abcdefghijklmnop", out);
    EXPECT_STREQ(out, "11ce8b4005c29f5419d693682deaa77c");
    X_crypt("The quick brown fox jumps over the lazy dog", out);
    EXPECT_STREQ(out,
                 "33bb7934f8a3602babd952129f894352c93333a4b76c2fb4ab1311829b4947c2de64fc69ab068b"
                 "51a63bda");
    // Bytes above 127 count as unsigned.
    X_crypt("\xe9t\xe9", out);
    EXPECT_STREQ(out, "6d34c521e8b9155cad8950017d04d5");
    X_crypt("", out);
    EXPECT_STREQ(out, "");
}

TEST_F(Values, CryptLengthsAndRepeatability)
{
    char out[256];
    for (int n = 1; n <= 15; ++n) {
        std::string in(n, 'q');
        X_crypt(in.c_str(), out);
        EXPECT_EQ(strlen(out), 30u) << n;
        EXPECT_TRUE(matches(out, "[0-9a-f]{30}"));
    }
    X_crypt(std::string(16, 'q').c_str(), out);
    EXPECT_EQ(strlen(out), 32u);
    X_crypt(std::string(100, 'q').c_str(), out);
    EXPECT_EQ(strlen(out), 200u);

    char again[256];
    X_crypt("secret", out);
    X_crypt("secret", again);
    EXPECT_STREQ(out, again);
    EXPECT_EQ(key_ptr, 15);
}




// ---- Special names -----------------------------------------------------


TEST_F(Values, ClockFormats)
{
    EXPECT_TRUE(matches(tv("X_UDT"), "[0-9]+\\.[0-9]{6}"));
    EXPECT_TRUE(matches(tv("today"), "[0-9]{4}-[0-9]{2}-[0-9]{2}"));
    EXPECT_TRUE(matches(tv("X_RANDOM"), "[0-9]+"));
}

TEST_F(Values, RunResults)
{
    X_rowcount = 5;
    X_sqlcode = -1;
    X_INSERT_ID = 1234567890123L;
    EXPECT_EQ(tv("X_ROWS"), "5");
    EXPECT_EQ(tv("X_SQLCODE"), "-1");
    EXPECT_EQ(tv("X_INSERT_ID"), "1234567890123");
    X_rowcount = 0;
    X_sqlcode = 0;
    X_INSERT_ID = 0;
    snprintf(X_ERRMSG, sizeof X_ERRMSG, "%s", "last error");
    EXPECT_EQ(tv("X_ERRMSG"), "last error");
    X_ERRMSG[0] = 0;
    EXPECT_EQ(tv("DIR"), DIR);
}

TEST_F(Values, CountsOfVariables)
{
    std::smatch m;
    std::string before = tv("X_NVAL");
    ASSERT_TRUE(std::regex_match(before, m, std::regex("([0-9]+) \\[([0-9]+)\\]")));
    int count = std::stoi(m[1]);
    int longest = std::stoi(m[2]);
    std::string name = "v_count_" + std::string(static_cast<size_t>(longest), 'n');
    set(name.c_str(), "1");
    EXPECT_EQ(tv("X_NVAL"),
              std::to_string(count + 1) + " [" + std::to_string(name.size()) + "]");
    EXPECT_TRUE(matches(tv("X_NFUN"), "[0-9]+ \\[[0-9]+\\]"));
}

TEST_F(Values, EnvironmentAndStreams)
{
    setenv("TOLM_VALUES_TEST", "from env", 1);
    EXPECT_EQ(tv("env:TOLM_VALUES_TEST"), "from env");
    EXPECT_EQ(tv("env:TOLM_VALUES_NOSUCH"), "");

    EXPECT_EQ(tv("ftell:v_stream"), "-1");
    FILE *f = tmpfile();
    fputs("12345", f);
    x_OPEN[3].fp = f;
    snprintf(x_OPEN[3].name, sizeof x_OPEN[3].name, "v_stream");
    EXPECT_EQ(tv("ftell:v_stream"), "5");
    EXPECT_EQ(tv("ftell:v_strea"), "-1");
    x_OPEN[3].fp = nullptr;
    EXPECT_EQ(tv("ftell:v_stream"), "-1");
    fclose(f);
}


// ---- Re-expansion ------------------------------------------------------


TEST_F(Values, SelfReferenceEndsQuietly)
{
    set("v_loop", "x$(eval:v_loop)");
    std::string s = tv("eval:v_loop");
    EXPECT_FALSE(s.empty());
    EXPECT_EQ(s.find_first_not_of('x'), std::string::npos);
    // A value that begins with a newline is not expanded again.
    set("v_nl", "\n$(v_loop)");
    EXPECT_EQ(tv("eval:v_nl"), "");
    EXPECT_EQ(tv("v_inner2"), "");
    // Referring to itself twice over must not take exponential time.
    set("v_two", "$(eval:v_two)$(eval:v_two)");
    EXPECT_EQ(tv("eval:v_two"), "");
}

}  // namespace
