// Request method, query strings, PATH_INFO and URL-encoded POST bodies.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "form/form.h"

namespace {

// One decoded pair as text; a null value shows as "(null)".
std::string pair(const entry &e) {
    return std::string(e.name ? e.name : "(none)") + "=" + (e.val ? e.val : "(null)");
}

std::vector<std::string> pairs(const std::vector<entry> &list) {
    std::vector<std::string> out;
    for (size_t i = 0; i < list.size() && (list[i].name || list[i].val); ++i)
        out.push_back(pair(list[i]));
    return out;
}

class Request : public ::testing::Test {
protected:
    std::vector<entry> list = std::vector<entry>(X_MAXENT);

    void SetUp() override {
        for (const char *v : {"REQUEST_METHOD", "QUERY_STRING", "PATH_INFO", "CONTENT_TYPE",
                              "CONTENT_LENGTH"})
            unsetenv(v);
        POST_errmsg = nullptr;
    }

    // Makes data the standard input of the decoders.
    void body(const std::string &data) {
        char path[] = "/tmp/tolm-form-XXXXXX";
        int fd = mkstemp(path);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, data.data(), data.size()), static_cast<ssize_t>(data.size()));
        close(fd);
        ASSERT_NE(freopen(path, "r", stdin), nullptr);
        unlink(path);
    }

    void get(const char *query) {
        setenv("REQUEST_METHOD", "GET", 1);
        if (query) setenv("QUERY_STRING", query, 1);
    }

    void post(const std::string &data, const char *length = nullptr) {
        setenv("REQUEST_METHOD", "POST", 1);
        setenv("CONTENT_TYPE", "application/x-www-form-urlencoded", 1);
        setenv("CONTENT_LENGTH", length ? length : std::to_string(data.size()).c_str(), 1);
        body(data);
    }
};

using Strings = std::vector<std::string>;

// A pair without "=" has no value, one with an empty value an empty one;
// a doubled "&" gives a pair with an empty name, a trailing one nothing.
TEST_F(Request, QueryPairs) {
    get("a=1&b&c=&&d=2&");
    ASSERT_EQ(GET_parser(list.data(), "X_PAGE"), 0);
    EXPECT_EQ(pairs(list), (Strings{"a=1", "b=(null)", "c=", "=(null)", "d=2"}));
    get("");
    EXPECT_EQ(GET_parser(list.data(), "X_PAGE"), 0);
    EXPECT_TRUE(pairs(list).empty());
    unsetenv("QUERY_STRING");
    list[0].name = const_cast<char *>("stale");
    EXPECT_EQ(GET_parser(list.data(), "X_PAGE"), 0);
    EXPECT_TRUE(pairs(list).empty());
}

// Both decoders check the request themselves, with their own messages.
TEST_F(Request, DecodersRefuseOtherRequests) {
    setenv("REQUEST_METHOD", "GETX", 1);
    EXPECT_EQ(GET_parser(list.data(), "X_PAGE"), -1);
    EXPECT_STREQ(POST_errmsg, "This script should be referenced with a METHOD GET.\n");
    post("a=1");
    setenv("REQUEST_METHOD", "GET", 1);
    EXPECT_EQ(POST_parser(list.data()), -1);
    EXPECT_STREQ(POST_errmsg, "This script should be referenced with a METHOD of POST.\n");
    setenv("REQUEST_METHOD", "POST", 1);
    setenv("CONTENT_TYPE", "text/plain", 1);
    EXPECT_EQ(POST_parser(list.data()), -1);
    EXPECT_STREQ(POST_errmsg, "This script can only be used to decode form results. \n");
}

TEST_F(Request, PathInfoAloneNamesThePageAndCarriesPairs) {
    get(nullptr);
    setenv("PATH_INFO", "/p.html&k=v&m=%41", 1);
    GET_parser(list.data(), "X_PAGE");
    EXPECT_EQ(pairs(list), (Strings{"X_PAGE=/p.html", "k=v", "m=A"}));
    GET_path(list.data(), "X_PAGE");
    EXPECT_EQ(pairs(list), (Strings{"X_PAGE=/p.html&k=v&m=%41", "k=v", "m=A"}));
}

TEST_F(Request, PathInfoIsAppendedOrReplacesThePagePair) {
    get("a=1");
    setenv("PATH_INFO", "/p.html", 1);
    GET_parser(list.data(), "X_PAGE");
    GET_path(list.data(), "X_PAGE");
    EXPECT_EQ(pairs(list), (Strings{"a=1", "X_PAGE=/p.html"}));

    get("X_PAGE=/other.html&b=2");
    GET_parser(list.data(), "X_PAGE");
    GET_path(list.data(), "X_PAGE");
    EXPECT_EQ(pairs(list), (Strings{"X_PAGE=/p.html", "b=2"}));
}

TEST_F(Request, TenThousandPairsKeepTheFirst9999) {
    std::string q;
    for (int i = 0; i < 10000; ++i) q += "p" + std::to_string(i) + "=" + std::to_string(i) + "&";
    get(q.c_str());
    GET_parser(list.data(), "X_PAGE");
    auto got = pairs(list);
    ASSERT_EQ(got.size(), 9999u);
    EXPECT_EQ(got.back(), "p9998=9998");
    EXPECT_EQ(list[9999].name, nullptr);

    // A full list leaves no room for the page pair.
    setenv("PATH_INFO", "/p.html", 1);
    GET_path(list.data(), "X_PAGE");
    EXPECT_EQ(pairs(list).size(), 9999u);
    EXPECT_EQ(list[9999].name, nullptr);
}

// The count rules the read: none at all without it, and a count beyond the
// body keeps the byte that the end of input turns into.
TEST_F(Request, PostCountRulesTheRead) {
    post("a=1", "");
    EXPECT_EQ(POST_parser(list.data()), 0);
    EXPECT_TRUE(pairs(list).empty());
    EXPECT_EQ(getchar(), 'a');

    post("a=1&b=2", "100");
    EXPECT_EQ(POST_parser(list.data()), 0);
    EXPECT_EQ(pairs(list), (Strings{"a=1", "b=2\xff"}));
}

}  // namespace
