// Session ids, the cookie reader, stored values and the store connection.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "db/db.h"
#include "session/session.h"
#include "session/store.h"
#include "storage/store.h"
#include "storage/tree.h"

namespace {

int keycmp(avl *a, avl *b) {
    return strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

class SessionVars : public ::testing::Test {
protected:
    void SetUp() override { x_BUFFERS.vtree = avl_tree{nullptr, keycmp}; }
    void TearDown() override {
        while (X_USER *u = reinterpret_cast<X_USER *>(x_BUFFERS.vtree.root)) {
            ASSERT_EQ(AVL_remove(&x_BUFFERS.vtree, u->name), 0);
            X_USER_free(u);
        }
    }
};

TEST(SessionId, FreshIdsAreWellFormedAndDistinct) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; i++) {
        char id[X_SID_LEN + 1];
        ASSERT_EQ(X_sid_new(id), 0);
        ASSERT_EQ(strlen(id), static_cast<size_t>(X_SID_LEN));
        ASSERT_TRUE(X_sid_valid(id)) << id;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 1000u);
    EXPECT_GE(X_SID_BYTES * 8, 128);
}

TEST(SessionId, OnlyExactBase64urlIdsAreValid) {
    std::string good(X_SID_LEN, 'A');
    struct { std::string id; int valid; } cases[] = {
        {good, 1},
        {"abcdefghijklmnopqrstuvwxyz01-_89", 1},
        {good.substr(1), 0},                   // short
        {good + "A", 0},                       // long
        {"", 0},
        {good.substr(1) + "=", 0},             // padding
        {good.substr(1) + "+", 0},             // base64, not base64url
        {good.substr(2) + "%0", 0},
        {good.substr(1) + "'", 0},
        {std::string(X_SID_LEN - 1, 'A') + "\xc3", 0},
    };
    for (const auto &c : cases) EXPECT_EQ(X_sid_valid(c.id.c_str()), c.valid) << c.id;
}

TEST(SessionId, CookieIsFoundByItsExactName) {
    struct { const char *header; int found; const char *value; } cases[] = {
        {"tolm_sid=abc", 1, "abc"},
        {"a=1; tolm_sid=abc; b=2", 1, "abc"},
        {"xtolm_sid=evil; tolm_sid=good", 1, "good"},   // a longer name is another cookie
        {"tolm_sid=first; tolm_sid=second", 1, "first"},
        {"tolm_sidx=1", 0, ""},
        {"tolm_sid", 0, ""},
        {"tolm_sid=", 1, ""},
        {";;  tolm_sid=v;", 1, "v"},
        {"", 0, ""},
        {nullptr, 0, ""},
    };
    for (const auto &c : cases) {
        char out[64] = "junk";
        EXPECT_EQ(X_cookie_value(c.header, "tolm_sid", out, sizeof out), c.found)
            << (c.header ? c.header : "(null)");
        EXPECT_STREQ(out, c.value);
    }
    std::string huge = "tolm_sid=" + std::string(100000, 'A');
    char out[X_SID_LEN + 2];
    EXPECT_EQ(X_cookie_value(huge.c_str(), "tolm_sid", out, sizeof out), 1);
    EXPECT_EQ(strlen(out), sizeof out - 1);  // cut, and then too long to be an id
    EXPECT_FALSE(X_sid_valid(out));
}

TEST(SessionId, SecretsCompareWhole) {
    struct { const char *a, *b; int same; } cases[] = {
        {"tok", "tok", 1}, {"tok", "toK", 0}, {"tok", "to", 0}, {"to", "tok", 0},
        {"", "", 0},  // no token is never a match
    };
    for (const auto &c : cases) EXPECT_EQ(X_same_secret(c.a, c.b), c.same) << c.a << "/" << c.b;
}

TEST_F(SessionVars, StoredTextsAreInertAndComeBackValueByValue) {
    std::vector<std::vector<std::string>> cases = {
        {"plain"},
        {""},
        {"", ""},
        {"a&b", "c%d", "%41"},
        {"'); DROP TABLE tolm_sessions; --", "back\\slash"},
        {"line\nbreak\r\t", "\x01\x7f", "caf\xc3\xa9", "\xff"},
    };
    for (const auto &values : cases) {
        X_sbuf text{};
        for (size_t i = 0; i < values.size(); i++) {
            if (i) X_sbuf_add(&text, "&", 1);
            X_session_encode(&text, values[i].c_str());
        }
        X_sbuf_add(&text, "", 0);
        for (const char *p = text.data; *p; ++p)  // safe in any SQL literal and encoding
            ASSERT_TRUE(*p >= 0x20 && *p < 0x7f && *p != '\'' && *p != '\\') << text.data;
        ASSERT_EQ(X_session_decode("S_v", text.data), 0);
        for (unsigned n = 1; n <= values.size(); n++)
            EXPECT_EQ(X_get_Mvalue("S_v", n), values[n - 1]) << text.data;
        EXPECT_EQ(X_get_Mvalue("S_v", values.size() + 1), nullptr);
        X_sbuf_free(&text);
    }
    X_sbuf name{}, back{};
    X_session_encode(&name, "S_caf\xc3\xa9 & co");
    X_sbuf_add(&name, "", 0);
    X_session_unescape(&back, name.data);  // names come back whole, "&" included
    EXPECT_STREQ(back.data, "S_caf\xc3\xa9 & co");
    X_sbuf_free(&name);
    X_sbuf_free(&back);
    ASSERT_EQ(X_session_decode("S_w", "%zz%4"), 0);  // broken escapes stay as they are
    EXPECT_STREQ(X_get_value("S_w"), "%zz%4");
}

// The store keeps a connection of its own: the page's database results are
// untouched, the tables are made on first use, a failed statement rolls
// the whole transaction back, and values come back through LOAD.
TEST_F(SessionVars, StoreKeepsThePagesResultsAndCommitsWhole) {
    char dir[] = "/tmp/tolm-session-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    char *home = X_HOME;
    X_HOME = dir;
    X_rowcount = 7;
    X_INSERT_ID = 9;
    std::string got;
    auto row = [](void *ctx, int n, X_val *v) {
        for (int i = 0; i < n; i++) *static_cast<std::string *>(ctx) += std::string(v[i].value) + ";";
    };
    ASSERT_EQ(X_sstore_load("s", row, &got), 0) << X_sstore_error();  // makes the tables
    EXPECT_EQ(got, "");
    ASSERT_EQ(X_sstore_begin(), 0) << X_sstore_error();
    EXPECT_EQ(X_sstore_run(X_SSQL::NEW, {{"s", 0}, {nullptr, 1}, {nullptr, 2}, {"t", 0}}), 0);
    EXPECT_EQ(X_sstore_run(X_SSQL::PUT, {{"s", 0}, {"S_a", 0}, {"x&y", 0}}), 0);
    EXPECT_EQ(X_sstore_run(X_SSQL::PUT, {{"nobody", 0}, {"S_a", 0}, {"lost", 0}}), 0);
    ASSERT_EQ(X_sstore_commit(), 0) << X_sstore_error();
    ASSERT_EQ(X_sstore_begin(), 0);
    EXPECT_EQ(X_sstore_run(X_SSQL::TOUCH, {{"s", 0}, {nullptr, 5}}), 0);
    EXPECT_EQ(X_sstore_run(X_SSQL::PUT, {{"s", 0}, {"S_b", 0}, {"z", 0}}), 0);
    EXPECT_NE(X_sstore_run(X_SSQL::NEW, {{"s", 0}, {nullptr, 1}, {nullptr, 2}, {"t", 0}}), 0);
    EXPECT_NE(X_sstore_commit(), 0);  // the touch and S_b go with the failed statement
    EXPECT_NE(std::string(X_sstore_error()).find("UNIQUE"), std::string::npos) << X_sstore_error();
    X_sstore_close();
    ASSERT_EQ(X_sstore_load("s", row, &got), 0) << X_sstore_error();  // opened again
    EXPECT_EQ(got, "1;2;t;S_a;x&y;");
    X_sstore_close();
    // A session ended meanwhile gets no variables: its row is not found,
    // whether the transaction touches it or only looks for it.
    for (X_SSQL first : {X_SSQL::TOUCH, X_SSQL::FIND}) {
        ASSERT_EQ(X_sstore_begin(), 0);
        EXPECT_EQ(X_sstore_run(first, {{"gone", 0}, {nullptr, 3}}), 0);
        EXPECT_EQ(X_sstore_run(X_SSQL::PUT, {{"gone", 0}, {"S_a", 0}, {"lost", 0}}), 0);
        ASSERT_EQ(X_sstore_commit(), 0) << X_sstore_error();
    }
    // Found, it takes them without its row being written.
    ASSERT_EQ(X_sstore_begin(), 0);
    EXPECT_EQ(X_sstore_run(X_SSQL::FIND, {{"s", 0}}), 0);
    EXPECT_EQ(X_sstore_run(X_SSQL::PUT, {{"s", 0}, {"S_c", 0}, {"w", 0}}), 0);
    ASSERT_EQ(X_sstore_commit(), 0) << X_sstore_error();
    X_sstore_close();
    sqlite3 *db;
    sqlite3_stmt *st;
    std::string file = std::string(dir) + "/sessions-shell_00.db";
    ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT group_concat(v.sid || v.name || s.seen) FROM "
                                 "tolm_session_vars v JOIN tolm_sessions s ON s.sid = v.sid",
                                 -1, &st, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(st), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char *>(sqlite3_column_text(st, 0)), "sS_a2,sS_c2");
    sqlite3_finalize(st);
    sqlite3_close(db);
    EXPECT_EQ(X_rowcount, 7);
    EXPECT_EQ(X_INSERT_ID, 9);
    X_HOME = home;
    std::string cmd = std::string("rm -rf ") + dir;
    ASSERT_EQ(system(cmd.c_str()), 0);
}

// The page's own SQLite connection, here on the very file the store uses,
// keeps working while the store opens, writes and closes; and the store's
// log stays short however many runs write to it.
TEST_F(SessionVars, StoreLeavesThePagesConnectionAloneAndItsLogShort) {
    char dir[] = "/tmp/tolm-session-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string file = std::string(dir) + "/site.db";
    ASSERT_EQ(X_put_value("X_BASE", ("sqlite:" + file).c_str()), 0);
    ASSERT_EQ(X_database(("sqlite:" + file).c_str(), nullptr, nullptr), 0);
    ASSERT_EQ(X_noselect_sql("CREATE TABLE page (a)", 0, nullptr), 0);
    auto none = [](void *, int, X_val *) {};
    ASSERT_EQ(X_sstore_load("s", none, nullptr), 0) << X_sstore_error();
    ASSERT_EQ(X_sstore_begin(), 0);
    ASSERT_EQ(X_sstore_run(X_SSQL::NEW, {{"s", 0}, {nullptr, 1}, {nullptr, 1}, {"", 0}}), 0);
    ASSERT_EQ(X_sstore_commit(), 0) << X_sstore_error();
    EXPECT_EQ(X_noselect_sql("INSERT INTO page VALUES (1)", 0, nullptr), 0);
    X_sstore_close();
    EXPECT_EQ(X_noselect_sql("INSERT INTO page VALUES (2)", 0, nullptr), 0);
    X_finish();
    struct stat st{};
    off_t longest = 0;
    for (int run = 0; run < 60; run++) {  // one write per run, as requests do
        std::string v = std::to_string(run);
        ASSERT_EQ(X_sstore_begin(), 0) << X_sstore_error();
        ASSERT_EQ(X_sstore_run(X_SSQL::TOUCH, {{"s", 0}, {nullptr, run}}), 0);
        ASSERT_EQ(X_sstore_run(X_SSQL::PUT, {{"s", 0}, {"S_n", 0}, {v.c_str(), 0}}), 0);
        ASSERT_EQ(X_sstore_commit(), 0) << X_sstore_error();
        X_sstore_close();
        if (stat((file + "-wal").c_str(), &st) == 0 && st.st_size > longest) longest = st.st_size;
    }
    EXPECT_GT(longest, 0);
    EXPECT_LT(longest, 48 * (4096 + 24));  // emptied at 32 pages, never let grow
    std::string got;
    auto row = [](void *ctx, int, X_val *v) { *static_cast<std::string *>(ctx) += v[4].value; };
    ASSERT_EQ(X_sstore_load("s", row, &got), 0);
    EXPECT_EQ(got, "59");
    X_sstore_close();
    X_clear_value("X_BASE");
    std::string cmd = std::string("rm -rf ") + dir;
    ASSERT_EQ(system(cmd.c_str()), 0);
}

}  // namespace
