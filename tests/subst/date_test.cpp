// Date conversion both ways: items, flags, invalid fields, partial years,
// bounded output, strings that end early, the summer-time correction.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "subst/date.h"
#include "x.h"

namespace {

constexpr long FEB3_2001 = 981173106;  // 2001-02-03 04:05:06 UTC
constexpr long YEAR_10000 = 253402300800;
int rc;  // the result of the last fmt

// Both directions work on heap copies of exact size, so a read past the end
// of the text or the format is caught.
std::vector<char> copy(const char *s) { return std::vector<char>(s, s + strlen(s) + 1); }

std::string fmt(long dt, const char *format) {
    static char out[X_MAXLINE];
    rc = X_dt2str(dt, copy(format).data(), out);
    return out;
}

long parse(const char *text, const char *format) {
    long t = -12345;
    X_str2dt(copy(text).data(), copy(format).data(), &t);
    return t;
}

// The field flags of the last conversion: year month day hours minutes seconds.
std::string flags() {
    short f[6];
    X_date_info(&f[0], &f[1], &f[2], &f[3], &f[4], &f[5]);
    std::string s;
    for (short x : f) s += std::to_string(x);
    return s;
}

void use_tz(const char *tz) {
    setenv("TZ", tz, 1);
    tzset();
}

TEST(Date, FormatItemsFlagsAndBounds) {
    use_tz("UTC");
    const struct { const char *format, *text; int rc; } cases[] = {
        {"YYYY-MM-DD HH:MI:SS", "2001-02-03 04:05:06", 0}, {"DD.MM.YY", "03.02.01", 0},
        {"yyyy/mm/dd", "2001/02/03", 0}, {"jj JJ AAAA aa a YYY", "03 03 2001 01 1 001", 0},
        {"hh+mi#ss!\t%", "04+05#06!\t%", 0}, {"YYYYY", "20011", 0}, {"MIMM", "0502", 0},
        {"Yy", "11", 0}, {"T", "T", -1}, {"DDThh", "03T04", -1}, {"M", "M", -1},
        {"Ss", "Ss", -1}, {"HH_", "04_", -1}, {"T::", "T::", -1}, {"SS ", "06 ", 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(fmt(FEB3_2001, c.format), c.text) << c.format;
        EXPECT_EQ(rc, c.rc) << c.format;
    }
    EXPECT_EQ(fmt(YEAR_10000, "YYYY YYY YY Y"), "10000 000 00 0");
    EXPECT_EQ(fmt(0x7fffffffffffffffL, "YYYY").size(), 4u);  // no local time
    EXPECT_EQ(rc, -1);
    fmt(0, "DD MM Y");
    EXPECT_EQ(flags(), "111000");
    parse("24:10:99", "HH:MI:SS");  // invalid values count as used
    EXPECT_EQ(flags(), "000111");

    char small[6];
    X_dt2str_size(FEB3_2001, "YYYY-MM-DD", small, sizeof small);
    EXPECT_STREQ(small, "2001-");
    // "YYYY" past the year 9999 writes more than it reads, so a long format
    // can outgrow the X_MAXLINE buffer of the caller.
    std::string format;
    while (format.size() < X_MAXLINE) format += "YYYY";
    EXPECT_EQ(fmt(YEAR_10000, format.c_str()).size(), size_t(X_MAXLINE - 1));
}

TEST(Date, ParsesFieldsDefaultsAndPartialYears) {
    use_tz("UTC");
    time_t now = time(nullptr);
    long today = long(now) / 86400 * 86400;
    const struct { const char *text, *format; long t; int ok; } cases[] = {
        {"31/12/2024", "DD/MM/YYYY", 1735603200, 0},
        {"3.2.2001 4:5:6", "dd.mm.yyyy hh:mi:ss", FEB3_2001, 0},
        {"32/12/2024", "DD/MM/YYYY", 1733011200, -1},  // day 1
        {"00/12/2024", "JJ/MM/AAAA", 1733011200, -1},
        {"01/13/2024", "DD/MM/YYYY", 1704067200, -1},  // January
        {"01x12/2024", "DD-MM/YYYY", 1733011200, 0},   // any character
        {"01/01/2024T10", "DD/MM/YYYYTHH", 1704103200, -1},
        {"10:30 and more", "HH:MI", today + 37800, 0}, {"10:60", "HH:MI", today + 36000, -1},
        {"24:10:99", "HH:MI:SS", today + 600, -1},     {"ab", "HH", today, -1},
        {"x12", "HH:MI", today, -1},  // "HH" and then "H" fail
        {"123:45", "HH:MI", today + 43200, -1},  // ":" skips the "3"
        {"10", "HH:MI:SS", today + 36000, -1},   {"1", "H", today, -1},
        {"", "T::", today, -1},  {"5", "SS ", today + 5, 0},  {"", "", today, 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(parse(c.text, c.format), c.t) << c.text << " / " << c.format;
        EXPECT_EQ(X_date_ok(), c.ok) << c.text << " / " << c.format;
    }
    // A partial year replaces the last digits of this year's ("YY", "5" in 2026: 205).
    std::string y = std::to_string(gmtime(&now)->tm_year + 1900);
    const struct { const char *format, *text; std::string year; } years[] = {
        {"DD/MM/YY", "01/01/45", y.substr(0, 2) + "45"}, {"DD/MM/YY", "01/01/5", y.substr(0, 2) + "5"},
        {"DD/MM/YYY", "01/01/5", y.substr(0, 1) + "5"},  {"DD/MM/Y", "01/01/7", y.substr(0, 3) + "7"},
        {"DD/MM/YYYY", "01/01/99", "99"},                {"DD/MM/aaaa", "01/01/12345", "1234"},
        {"DD/MM/YYYY", "01/01/1", "1"},                  {"DD/MM/Y", "01/01/", y},
    };
    for (const auto &c : years) {
        time_t t = parse(c.text, c.format);
        EXPECT_EQ(gmtime(&t)->tm_year + 1900, std::stoi(c.year)) << c.text;
    }
}

TEST(Date, SummerTimeIsCorrected) {
    use_tz("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(parse("15/07/2024 10:00", "DD/MM/YYYY HH:MI"), 1721030400);  // 08:00 UTC
    EXPECT_EQ(parse("15/01/2024 10:00", "DD/MM/YYYY HH:MI"), 1705309200);  // 09:00 UTC
    EXPECT_EQ(fmt(1721030400, "HH:MI"), "10:00");
    use_tz("UTC");
}

}  // namespace
