// The page check's warning for a working directory too long for its buffer.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "runtime/runtime.h"

TEST(Checkpage, WorkingDirectoryTooLong) {
    char top[] = "/tmp/tolm-cwd-XXXXXX";
    ASSERT_NE(mkdtemp(top), nullptr);
    std::filesystem::path back = std::filesystem::current_path(), dir = top;
    for (int i = 0; i < 6; ++i) dir /= std::string(100, 'd');
    std::filesystem::create_directories(dir);
    std::filesystem::current_path(dir);
    fclose(fopen("p.html", "w"));
    testing::internal::CaptureStdout();
    EXPECT_EQ(X_checkpage("p.html"), -1);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\n!! WARNING: your path to X_PAGE is too long: [p.html]...\n");
    std::filesystem::current_path(back);
    std::filesystem::remove_all(top);
}
