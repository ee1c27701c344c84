// Multipart bodies: fields, uploaded files and broken input.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "form/form.h"

namespace {

const std::string B = "----b7x";  // the boundary line of the bodies below

std::string field(const std::string &name, const std::string &value) {
    return B + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value +
           "\r\n";
}

std::string file(const std::string &name, const std::string &fname, const std::string &data) {
    return B + "\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" +
           fname + "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + data + "\r\n";
}

std::string closing() { return B + "--\r\n"; }

std::string slurp(const char *path) {
    std::string out;
    FILE *f = fopen(path, "rb");
    if (!f) return "<missing>";
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    fclose(f);
    return out;
}

class Multipart : public ::testing::Test {
protected:
    std::vector<entry> list = std::vector<entry>(X_MAXENT);
    std::string tmp;

    void SetUp() override {
        char dir[] = "/tmp/tolm-mp-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        tmp = dir;
        setenv("TMP_DIR", dir, 1);
        POST_errmsg = nullptr;
    }

    void TearDown() override {
        std::string cmd = "rm -rf '" + tmp + "'";
        ASSERT_EQ(system(cmd.c_str()), 0);
    }

    int parse(const std::string &data) {
        std::string path = tmp + "/body";
        FILE *f = fopen(path.c_str(), "wb");
        fwrite(data.data(), 1, data.size(), f);
        fclose(f);
        if (!freopen(path.c_str(), "r", stdin)) return -99;
        unlink(path.c_str());
        return E_POST_parser(list.data());
    }

    std::string upload(int i, const std::string &base) {
        return tmp + "/" + base + ".." + std::to_string(getpid()) + "." + std::to_string(i);
    }

    // Names in the temporary directory.
    std::vector<std::string> files() {
        std::vector<std::string> out;
        for (const auto &e : std::filesystem::directory_iterator(tmp))
            out.push_back(e.path().filename());
        return out;
    }
};

TEST_F(Multipart, FieldAndFileWithWindowsPath) {
    std::string data("bin\0ary\r\n\r\n--x\xff", 15);
    ASSERT_EQ(parse(field("a", "x") + file("f", "C:\\dir\\report.txt", data) + closing()), 0);
    EXPECT_STREQ(list[0].name, "a");
    EXPECT_STREQ(list[0].val, "x");
    EXPECT_STREQ(list[1].name, "f");
    ASSERT_NE(list[1].val, nullptr);
    EXPECT_EQ(list[1].val, upload(1, "report.txt"));
    EXPECT_EQ(slurp(list[1].val), data);
    EXPECT_EQ(list[2].name, nullptr);
    EXPECT_EQ(list[2].val, nullptr);
}

TEST_F(Multipart, EmptyFieldAndNoFileChosenGiveNull) {
    ASSERT_EQ(parse(field("e", "") + file("f", "", "") + field("z", "9") + closing()), 0);
    EXPECT_STREQ(list[0].name, "e");
    EXPECT_EQ(list[0].val, nullptr);
    EXPECT_STREQ(list[1].name, "f");
    EXPECT_EQ(list[1].val, nullptr);
    EXPECT_STREQ(list[2].val, "9");
    EXPECT_TRUE(files().empty());
}

// Only the base name is kept, and the "..PID.index" tail makes even "." and
// ".." plain file names inside the temporary directory.
TEST_F(Multipart, FileNameNeverLeavesTheTemporaryDirectory) {
    ASSERT_EQ(parse(file("f", "../../etc/passwd", "p") + file("g", "..\\..\\x", "q") +
                    file("h", "..", "r") + file("i", "a/.", "s") + field("k", "v") + closing()),
              0);
    EXPECT_EQ(list[0].val, upload(0, "passwd"));
    EXPECT_EQ(slurp(list[0].val), "p");
    EXPECT_EQ(list[1].val, upload(1, "x"));
    ASSERT_NE(list[2].val, nullptr);
    EXPECT_EQ(list[2].val, upload(2, ".."));
    EXPECT_EQ(slurp(list[2].val), "r");
    ASSERT_NE(list[3].val, nullptr);
    EXPECT_EQ(list[3].val, upload(3, "."));
    EXPECT_STREQ(list[4].val, "v");
    EXPECT_EQ(files().size(), 4u);
}

// A body cut inside a part's content is broken input; what came before
// stays, a file's content up to the last full separator check included.
TEST_F(Multipart, CutBodyIsBrokenInput) {
    ASSERT_EQ(parse(field("a", "1") + B + "\r\nContent-Disposition: form-data; name=\"b\"\r\n\r\nhalf"),
              -1);
    EXPECT_STREQ(POST_errmsg, "Broken Input...");
    EXPECT_STREQ(list[0].val, "1");
    EXPECT_STREQ(list[1].name, "b");

    POST_errmsg = nullptr;
    ASSERT_EQ(parse(B + "\r\nContent-Disposition: form-data; name=\"f\"; filename=\"c.txt\"\r\n\r\nabc"),
              -1);
    EXPECT_STREQ(POST_errmsg, "Broken Input...");
    ASSERT_NE(list[0].val, nullptr);
    EXPECT_EQ(slurp(list[0].val), "");  // "abc" never reached a separator check
}

TEST_F(Multipart, BodyEndingInHeadersIsANormalEnd) {
    ASSERT_EQ(parse(field("a", "1") + B + "\r\nContent-Type: text/plain\r\n"), 0);
    EXPECT_STREQ(list[0].val, "1");
    EXPECT_EQ(list[1].name, nullptr);
}

TEST_F(Multipart, LongNamesAndBoundaryAreBounded) {
    std::string longname(1000, 'n');
    std::string b(400, '-');  // a boundary line over the separator's room
    std::string body = b + "\r\nContent-Disposition: form-data; name=\"" + longname +
                       "\"; filename=\"" + std::string(300, 'f') + "\"\r\n\r\ndata\r\n" + b + "--\r\n";
    ASSERT_EQ(parse(body), 0);
    ASSERT_NE(list[0].name, nullptr);
    EXPECT_LT(strlen(list[0].name), 256u);
}

}  // namespace
