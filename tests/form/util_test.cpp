// String tools of form decoding: escapes, words, the line reader.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "form/form.h"

namespace {

std::string unescaped(const char *text) {
    std::string s(text);
    unescape_url(s.data());
    return s.c_str();
}

FILE *memstream(const std::string &data) {
    FILE *f = tmpfile();
    fwrite(data.data(), 1, data.size(), f);
    rewind(f);
    return f;
}

// Escapes of either case decode; a "%" without two characters after it is
// kept, and the scan never steps over the end of the string.
TEST(Unescape, DecodesEscapesAndKeepsAShortOne) {
    EXPECT_EQ(unescaped("%41%4a%4A a%20b%2fc"), "AJJ a b/c");
    EXPECT_EQ(unescaped("%e2%82%ac"), "\xe2\x82\xac");
    EXPECT_EQ(unescaped("100%"), "100%");
    EXPECT_EQ(unescaped("x%4"), "x%4");
    EXPECT_EQ(unescaped("%%41"), "T1");  // the first "%" takes "%4" as digits
}

TEST(Unescape, BadDigitsAreConvertedUnchecked) {
    // High digit masked to four bits; the low one spills into the high nibble.
    EXPECT_EQ(x2c("4g"), 0x50);
    EXPECT_EQ(x2c("zz"), 'S');  // 3 * 16 + 35
    EXPECT_EQ(static_cast<unsigned char>(x2c("ff")), 0xff);
}

// Letters and digits pass, every other byte becomes "%xx" in lower case,
// and decoding gives every byte back.
TEST(EscapeUrl, EveryByteSurvivesTheRoundTrip) {
    char out[64];
    escape_url("aZ09 -_.~/\xc3\xa9", out);
    EXPECT_STREQ(out, "aZ09%20%2d%5f%2e%7e%2f%c3%a9");
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    std::string esc(3 * all.size() + 1, '\0');
    escape_url(all.c_str(), esc.data());
    EXPECT_EQ(strlen(esc.c_str()), all.size() + 2 * (all.size() - 62));
    EXPECT_EQ(unescaped(esc.c_str()), all);
}

TEST(ShellEscape, BackslashBeforeEachMetacharacterNotNewline) {
    char s[128] = "&;`'\"|*?~<>^()[]{}$\\ a\n";
    escape_shell_cmd(s);
    EXPECT_STREQ(s, "\\&\\;\\`\\'\\\"\\|\\*\\?\\~\\<\\>\\^\\(\\)\\[\\]\\{\\}\\$\\\\ a\n");
    char t[16] = "rm *";
    escape_shell_cmd(t);
    EXPECT_STREQ(t, "rm \\*");
}

TEST(GetLine, CarriageReturnIsReplacedByTheNextByte) {
    FILE *f = memstream("one\r\ntwo\rX\nend");
    char buf[64];
    EXPECT_EQ(getLine(buf, sizeof buf, f), 0);
    EXPECT_STREQ(buf, "one");
    EXPECT_EQ(getLine(buf, sizeof buf, f), 0);
    EXPECT_STREQ(buf, "twoX");
    EXPECT_EQ(getLine(buf, sizeof buf, f), 1);  // ends at the end of input
    EXPECT_STREQ(buf, "end");
    fclose(f);
}

TEST(GetLine, LongLineComesInPiecesEachLosingItsLastByte) {
    FILE *f = memstream("abcdefgh\n");
    char buf[4];
    getLine(buf, sizeof buf, f);
    EXPECT_STREQ(buf, "abc");  // "d" was read and dropped
    getLine(buf, sizeof buf, f);
    EXPECT_STREQ(buf, "efg");
    getLine(buf, sizeof buf, f);
    EXPECT_STREQ(buf, "");  // "h" dropped, then the line feed
    fclose(f);
}

TEST(Fmakeword, StopsAtTheStopByteAndCounts) {
    FILE *f = memstream("ab&cd");
    int cl = 5;
    char *w = fmakeword(f, '&', &cl);
    EXPECT_STREQ(w, "ab");
    EXPECT_EQ(cl, 2);
    free(w);
    w = fmakeword(f, '&', &cl);  // the count ends it and keeps the last byte
    EXPECT_STREQ(w, "cd");
    EXPECT_EQ(cl, 0);
    free(w);
    fclose(f);
}

}  // namespace
