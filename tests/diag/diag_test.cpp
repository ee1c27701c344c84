// The safe formatter for page-given formats, and the error trap's name.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

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

// Missing arguments print as zero or empty, others are converted to what
// the directive takes, and nothing dangerous reaches the C library.
TEST(Format, PageFormatsAreSafe) {
    EXPECT_EQ(fmt("%05ld|%-4d|%x|%.2f|%e|%5s|%.2s|100%%",
                  {L(42), L(7), L(255), D(3.14159), D(1000), T("ab"), T("xyz")}),
              "00042|7   |ff|3.14|1.000000e+03|   ab|xy|100%");
    EXPECT_EQ(fmt("bad %d [%s] %f %c|"), "bad 0 [] 0.000000 |");
    EXPECT_EQ(fmt("%d %s %c %.1f", {T("12abc"), L(-5), T("xyz"), T("2.25")}), "12 -5 x 2.2");
    EXPECT_EQ(fmt("a%nb", {L(1)}), "ab");
    EXPECT_EQ(fmt("%999999999d", {L(1)}).size(), 255u);
    EXPECT_EQ(fmt("%q|%"), "%q|%");
    EXPECT_EQ(fmt("%*d", {L(3), L(4)}), "  4");
    char out[8];
    EXPECT_EQ(X_format(out, sizeof out, "%s and more", nullptr, 0), 7);
    EXPECT_STREQ(out, " and mo");
}

// Joined paths are cut at the buffer, always terminated, and the length of
// the whole join tells a cut one (as snprintf would).
TEST(Format, JoinCutsAndTellsTheWholeLength) {
    char out[8];
    EXPECT_EQ(X_join(out, sizeof out, {"/a", "/", "x.env"}), 8);
    EXPECT_STREQ(out, "/a/x.en");
    EXPECT_EQ(X_join(out, sizeof out, {"", "ab", ""}), 2);
    EXPECT_STREQ(out, "ab");
    EXPECT_EQ(X_join(out, 1, {"abc"}), 3);
    EXPECT_STREQ(out, "");
}

// The name is kept to 126 characters, and kept when the trap is removed.
TEST(ErrTrap, NameIsCutAndOutlivesRemoval) {
    std::string name(126, 'f');
    EXPECT_EQ(ERRTRAP((name + "g").c_str()), 0);
    EXPECT_EQ(err_trap, 1);
    EXPECT_EQ(err_func, name);
    ERRTRAP("");
    EXPECT_EQ(err_trap, 0);
    EXPECT_EQ(err_func, name);
}

}  // namespace

// A call that needs room asks whether to move to the large stack, then
// whether it is refused: at any depth, one not told to move is not refused.
[[gnu::noinline]] bool refused_in_place(size_t reserve) {
    char buf[65536];  // a frame the size of an eval: level's
    buf[0] = 0;
    asm volatile("" : : "r"(buf) : "memory");
    return !X_stack_due(reserve) && X_stack_low_reserve(reserve);
}

TEST(Stack, NotMovedMeansNotRefused) {
    char here;
    auto top = reinterpret_cast<uintptr_t>(&here);
    X_stack_size(6L << 20);  // a crowded process stack: 4.5 MiB usable
    X_stack_defer(true);
    for (uintptr_t used = 0; used < (3UL << 20); used += 4096) {
        X_stack_base(reinterpret_cast<void *>(top + used));
        ASSERT_FALSE(refused_in_place(4 << 20)) << used;
    }
    X_stack_defer(false);
    X_stack_base(nullptr);
}
