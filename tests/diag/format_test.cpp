// The safe formatter: page-given formats with missing or mismatched arguments.
#include <gtest/gtest.h>

#include "diag/diag.h"

namespace {

std::string fmt(const char *f, std::initializer_list<X_fmtarg> args = {}) {
    char out[256];
    X_format(out, sizeof out, f, args.begin(), static_cast<int>(args.size()));
    return out;
}

X_fmtarg L(long v) { return {X_fmtarg::LONG, v, 0, nullptr}; }
X_fmtarg D(double v) { return {X_fmtarg::DOUBLE, 0, v, nullptr}; }
X_fmtarg T(const char *s) { return {X_fmtarg::TEXT, 0, 0, s}; }

TEST(Format, DirectivesWithTheirArguments) {
    EXPECT_EQ(fmt("%05ld|%-4d|%x", {L(42), L(7), L(255)}), "00042|7   |ff");
    EXPECT_EQ(fmt("%.2f %e", {D(3.14159), D(1000)}), "3.14 1.000000e+03");
    EXPECT_EQ(fmt("[%5s][%-5s][%.2s]", {T("ab"), T("cd"), T("xyz")}), "[   ab][cd   ][xy]");
    EXPECT_EQ(fmt("100%%"), "100%");
}

TEST(Format, MissingArgumentsPrintAsZeroOrEmpty) {
    EXPECT_EQ(fmt("bad %d"), "bad 0");
    EXPECT_EQ(fmt("[%s] %f %c|"), "[] 0.000000 |");
    EXPECT_EQ(fmt("%d %d", {L(1)}), "1 0");
}

TEST(Format, ArgumentsAreConvertedToWhatTheDirectiveTakes) {
    EXPECT_EQ(fmt("%d", {T("12abc")}), "12");
    EXPECT_EQ(fmt("%s", {L(-5)}), "-5");
    EXPECT_EQ(fmt("%c", {T("xyz")}), "x");
    EXPECT_EQ(fmt("%.1f", {T("2.25")}), "2.2");
}

TEST(Format, DangerousDirectivesNeverReachTheCLibrary) {
    EXPECT_EQ(fmt("a%nb", {L(1)}), "ab");
    EXPECT_EQ(fmt("%999999999d", {L(1)}).size(), 255u);  // clamped, then cut at the size
    EXPECT_EQ(fmt("%q|%"), "%q|%");
    EXPECT_EQ(fmt("%*d", {L(3), L(4)}), "  4");
}

TEST(Format, OutputIsCutAtTheDestinationSize) {
    char out[8];
    EXPECT_EQ(X_format(out, sizeof out, "%s and more", nullptr, 0), 7);
    EXPECT_STREQ(out, " and mo");
}

}  // namespace
