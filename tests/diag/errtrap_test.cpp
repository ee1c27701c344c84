// The error trap's name: kept to 126 characters, kept when the trap is removed.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "diag/diag.h"

namespace {

TEST(ErrTrap, NameIsCutAndOutlivesRemoval) {
    std::string name(127, 'f');
    name.back() = 'g';
    EXPECT_EQ(ERRTRAP(name.c_str()), 0);
    EXPECT_EQ(err_trap, 1);
    EXPECT_EQ(std::string(err_func), std::string(126, 'f'));

    EXPECT_EQ(ERRTRAP(""), 0);
    EXPECT_EQ(err_trap, 0);
    EXPECT_EQ(std::string(err_func), std::string(126, 'f'));

    EXPECT_EQ(ERRTRAP("Short"), 0);
    EXPECT_EQ(err_trap, 1);
    EXPECT_STREQ(err_func, "Short");
}

}  // namespace
