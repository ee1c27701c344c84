// Form decoding: escape tools, query strings, PATH_INFO, URL-encoded and
// multipart bodies, with broken and oversized input.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "form/form.h"

namespace {

using Strings = std::vector<std::string>;

std::string unescaped(std::string s) {
    unescape_url(s.data());
    return s.c_str();
}

std::string slurp(const char *path) {
    std::string out;
    FILE *f = fopen(path, "rb");
    for (int c; f && (c = fgetc(f)) != EOF;) out += static_cast<char>(c);
    if (f) fclose(f);
    return out;
}

// Escapes of either case decode; a "%" without two characters behind it
// is kept; bad digits convert unchecked (high digit masked to four bits).
TEST(Escapes, DecodeEncodeAndShell) {
    EXPECT_EQ(unescaped("%41%4a%4A a%20b%2fc"), "AJJ a b/c");
    EXPECT_EQ(unescaped("100%"), "100%");
    EXPECT_EQ(unescaped("x%4"), "x%4");
    EXPECT_EQ(unescaped("%%41"), "T1");
    EXPECT_EQ(x2c("4g"), 0x50);
    EXPECT_EQ(x2c("zz"), 'S');
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    std::string esc(3 * all.size() + 1, '\0');
    escape_url(all.c_str(), esc.data());
    EXPECT_EQ(unescaped(esc), all);
    char sh[64] = "&;`'\"|*?~<>^()[]{}$\\ a\n";  // line feed is not escaped
    escape_shell_cmd(sh);
    EXPECT_STREQ(sh, "\\&\\;\\`\\'\\\"\\|\\*\\?\\~\\<\\>\\^\\(\\)\\[\\]\\{\\}\\$\\\\ a\n");
}

// A carriage return gives way to the byte behind it; a long line comes in
// pieces that each lose their last byte; 1 tells the end of input.
TEST(Readers, GetLine) {
    FILE *f = tmpfile();
    fputs("one\r\ntwo\rX\nabcdefgh\nend", f);
    rewind(f);
    char buf[64];
    Strings got;
    int last = 0;
    for (int n : {64, 64, 4, 4, 4, 64}) last = getLine(buf, n, f), got.push_back(buf);
    EXPECT_EQ(got, (Strings{"one", "twoX", "abc", "efg", "", "end"}));
    EXPECT_EQ(last, 1);
    fclose(f);
}

class Form : public ::testing::Test {
protected:
    std::vector<entry> list = std::vector<entry>(X_MAXENT);
    std::string tmp;

    void SetUp() override {
        for (const char *v : {"REQUEST_METHOD", "QUERY_STRING", "PATH_INFO", "CONTENT_TYPE",
                              "CONTENT_LENGTH"})
            unsetenv(v);
        char dir[] = "/tmp/tolm-form-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        tmp = dir;
        setenv("TMP_DIR", dir, 1);
        POST_errmsg = nullptr;
    }
    void TearDown() override { std::filesystem::remove_all(tmp); }

    // The list up to its end marker as "name=value"; a null value is "(null)".
    Strings pairs() {
        Strings out;
        for (const entry &e : list) {
            if (!e.name && !e.val) break;
            out.push_back(std::string(e.name ? e.name : "") + "=" + (e.val ? e.val : "(null)"));
        }
        return out;
    }
    void input(const std::string &data) {
        std::string path = tmp + "/in";
        FILE *f = fopen(path.c_str(), "wb");
        fwrite(data.data(), 1, data.size(), f);
        fclose(f);
        ASSERT_NE(freopen(path.c_str(), "r", stdin), nullptr);
        unlink(path.c_str());
    }
    void get(const char *query, const char *path = nullptr) {
        setenv("REQUEST_METHOD", "GET", 1);
        query ? setenv("QUERY_STRING", query, 1) : unsetenv("QUERY_STRING");
        path ? setenv("PATH_INFO", path, 1) : unsetenv("PATH_INFO");
        GET_parser(list.data(), "X_PAGE");
        GET_path(list.data(), "X_PAGE");
    }
    int post(const std::string &data, const char *length = nullptr) {
        setenv("REQUEST_METHOD", "POST", 1);
        setenv("CONTENT_TYPE", "application/x-www-form-urlencoded", 1);
        setenv("CONTENT_LENGTH", length ? length : std::to_string(data.size()).c_str(), 1);
        input(data);
        return POST_parser(list.data());
    }
    int multipart(const std::string &data) {
        input(data);
        return E_POST_parser(list.data());
    }
};

// "+" turns blank before escapes decode, and the split at "=" comes after
// them; a doubled "&" gives an empty name, a trailing one nothing.
TEST_F(Form, QueryAndPathInfo) {
    get("a=1&b&c=&&d=x%2By+z&%41%3Db=v&");
    EXPECT_EQ(pairs(), (Strings{"a=1", "b=(null)", "c=", "=(null)", "d=x+y z", "A=b=v"}));
    list[0].name = const_cast<char *>("stale");
    get(nullptr);
    EXPECT_TRUE(pairs().empty());
    // Alone, PATH_INFO up to "&" names the page, then the uncut text does.
    get(nullptr, "/p.html&k=v&m=%41");
    EXPECT_EQ(pairs(), (Strings{"X_PAGE=/p.html&k=v&m=%41", "k=v", "m=A"}));
    get("a=1", "/p.html");
    EXPECT_EQ(pairs(), (Strings{"a=1", "X_PAGE=/p.html"}));
    get("X_PAGE=/other.html&b=2", "/p.html");
    EXPECT_EQ(pairs(), (Strings{"X_PAGE=/p.html", "b=2"}));
}

TEST_F(Form, MethodsAndTheirMessages) {
    for (const char *m : {"get", "GETX", "POSTX", ""}) {
        setenv("REQUEST_METHOD", m, 1);
        EXPECT_EQ(GetMethod(), -1) << m;
    }
    EXPECT_EQ(GET_parser(list.data(), "X_PAGE"), -1);
    EXPECT_STREQ(POST_errmsg, "This script should be referenced with a METHOD GET.\n");
    EXPECT_EQ(POST_parser(list.data()), -1);
    EXPECT_STREQ(POST_errmsg, "This script should be referenced with a METHOD of POST.\n");
    setenv("REQUEST_METHOD", "POST", 1);
    setenv("CONTENT_TYPE", "application/x-www-form-urlencoded; charset=UTF-8", 1);
    EXPECT_EQ(CheckEnctypeMethod(), 1);  // any suffix sends it to the multipart decoder
    EXPECT_EQ(POST_parser(list.data()), -1);
    EXPECT_STREQ(POST_errmsg, "This script can only be used to decode form results. \n");
}

// 10000 pairs keep the first 9999, and a full list has no room for the page.
TEST_F(Form, TenThousandPairs) {
    std::string q;
    for (int i = 0; i < 10000; ++i) q += "p" + std::to_string(i) + "=" + std::to_string(i) + "&";
    get(q.c_str(), "/p.html");
    ASSERT_EQ(pairs().size(), 9999u);
    EXPECT_EQ(pairs().back(), "p9998=9998");
    ASSERT_EQ(post(q), 0);
    EXPECT_EQ(pairs().size(), 9999u);
}

// The count rules the read: nothing without it; a count beyond the body
// keeps the byte the end of input turns into; the largest body is read
// whole, and a count outside 0..X_MAXPOST is refused before any read.
TEST_F(Form, PostCountAndValueSize) {
    EXPECT_EQ(post("a=1", ""), 0);
    EXPECT_TRUE(pairs().empty());
    EXPECT_EQ(getchar(), 'a');
    EXPECT_EQ(post("a=1&b=2", "100"), 0);
    EXPECT_EQ(pairs(), (Strings{"a=1", "b=2\xff"}));
    ASSERT_EQ(post("v=" + std::string(X_MAXPOST - 6, 'x') + "&w=1"), 0);
    ASSERT_EQ(pairs().size(), 2u);
    EXPECT_EQ(strlen(list[0].val), size_t(X_MAXPOST - 6));
    EXPECT_STREQ(list[1].val, "1");
    for (const char *n : {"262145", "-1", "-2147483648", "2147483648", "4294967296",
                          "9223372036854775808", "-99999999999999999999"}) {
        EXPECT_EQ(post("a=1", n), -1) << n;
        EXPECT_STREQ(POST_errmsg, "Invalid CONTENT_LENGTH.\n");
        EXPECT_TRUE(pairs().empty());
        EXPECT_EQ(getchar(), 'a');
    }
}

const std::string B = "----b7x";  // the boundary line of the bodies below

std::string field(const std::string &name, const std::string &value) {
    return B + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
}
std::string file(const std::string &name, const std::string &fname, const std::string &data) {
    return B + "\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" + fname +
           "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + data + "\r\n";
}

// Only the base name of a client's path is kept, and the "..PID.index" tail
// keeps even "." and ".." inside the temporary directory. Empty values and
// files not chosen give null and create nothing.
TEST_F(Form, MultipartFieldsAndFileNames) {
    std::string data("bin\0ary\r\n\r\n--x\xff", 15);
    ASSERT_EQ(multipart(field("a", "x") + file("f", "C:\\dir\\r.txt", data) +
                        file("g", "../../etc/passwd", "p") + file("h", "..", "r") +
                        file("i", "a/.", "s") + field("e", "") + file("n", "", "") + B + "--\r\n"),
              0);
    auto up = [&](std::string base, int i) {
        return tmp + "/" + base + ".." + std::to_string(getpid()) + "." + std::to_string(i);
    };
    EXPECT_EQ(pairs(), (Strings{"a=x", "f=" + up("r.txt", 1), "g=" + up("passwd", 2),
                                "h=" + up("..", 3), "i=" + up(".", 4), "e=(null)", "n=(null)"}));
    EXPECT_EQ(slurp(list[1].val), data);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tmp), {}), 4);
}

// An upload file is made anew, for this user only: a stale file is
// replaced and a symbolic link in its place is removed, not followed.
TEST_F(Form, MultipartFilesNeverFollowLinks) {
    auto up = [&](int i) {
        return tmp + "/u.txt.." + std::to_string(getpid()) + "." + std::to_string(i);
    };
    std::string target = tmp + "/target";
    std::filesystem::create_directory(tmp + "/dir");
    std::ofstream(target) << "keep";
    std::filesystem::create_symlink(target, up(0));
    std::filesystem::create_symlink(tmp + "/dir", up(1));
    std::ofstream(up(2)) << "stale content, longer than the new";
    ASSERT_EQ(multipart(file("a", "u.txt", "new0") + file("b", "u.txt", "new1") +
                        file("c", "u.txt", "new2") + B + "--\r\n"),
              0);
    EXPECT_EQ(slurp(target.c_str()), "keep");
    for (int i = 0; i < 3; ++i) {
        struct stat st;
        ASSERT_EQ(lstat(up(i).c_str(), &st), 0);
        EXPECT_TRUE(S_ISREG(st.st_mode)) << i;
        EXPECT_EQ(st.st_mode & 0777, 0600u) << i;
        EXPECT_EQ(slurp(up(i).c_str()), "new" + std::to_string(i));
    }
    EXPECT_TRUE(std::filesystem::is_empty(tmp + "/dir"));
}

// A body cut inside a part is broken input and keeps what came before; one
// that ends among a part's headers is a normal end.
TEST_F(Form, MultipartCutBodies) {
    std::string half = B + "\r\nContent-Disposition: form-data; name=\"b\"\r\n\r\nhalf";
    EXPECT_EQ(multipart(field("a", "1") + half), -1);
    EXPECT_STREQ(POST_errmsg, "Broken Input...");
    EXPECT_STREQ(list[0].val, "1");
    EXPECT_STREQ(list[1].name, "b");
    std::string cut = file("f", "c.txt", "abc");
    EXPECT_EQ(multipart(cut.substr(0, cut.size() - 2)), -1);
    EXPECT_EQ(multipart(field("a", "1") + B + "\r\nContent-Type: text/plain\r\n"), 0);
    EXPECT_EQ(pairs(), (Strings{"a=1"}));
    EXPECT_EQ(multipart("no boundary line at all"), 0);
    EXPECT_TRUE(pairs().empty());
}

// Names, file names and the boundary line longer than their buffers are cut;
// a file name also to what one directory entry holds;
// parts beyond 9999 are dropped.
TEST_F(Form, MultipartLimits) {
    std::string b(400, '-');
    ASSERT_EQ(multipart(b + "\r\nContent-Disposition: form-data; name=\"" + std::string(1000, 'n') +
                        "\"; filename=\"" + std::string(300, 'f') + "\"\r\n\r\ndata\r\n" + b +
                        "--\r\n"),
              0);
    ASSERT_NE(list[0].name, nullptr);
    EXPECT_LT(strlen(list[0].name), 256u);
    // A file name too long for the directory is cut so that the upload is kept.
    ASSERT_EQ(multipart(file("f", std::string(300, 'f'), "data") + B + "--\r\n"), 0);
    std::string up = std::filesystem::path(list[0].val).filename();
    EXPECT_EQ(up.size(), size_t(NAME_MAX));
    EXPECT_TRUE(up.ends_with("f.." + std::to_string(getpid()) + ".0")) << up;
    EXPECT_EQ(slurp(list[0].val), "data");
    std::string body;
    for (int i = 0; i < 10005; ++i) body += field("p" + std::to_string(i), "v");
    ASSERT_EQ(multipart(body + B + "--\r\n"), 0);
    EXPECT_EQ(pairs().size(), 9999u);
}

}  // namespace
