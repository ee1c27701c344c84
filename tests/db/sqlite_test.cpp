// The back-end switch and the SQLite back end, through the five operations.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "dbtest.h"
#include "storage/store.h"
#include "storage/tree.h"

namespace {

int keycmp(avl *a, avl *b)
{
    return strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

class Sqlite : public ::testing::Test {
protected:
    std::string dir;
    void SetUp() override
    {
        x_BUFFERS.vtree = avl_tree{nullptr, keycmp};
        char tmpl[] = "/tmp/tolm-db-XXXXXX";
        dir = mkdtemp(tmpl);
        X_put_value("X_ROOT", dir.c_str());
    }
    void TearDown() override
    {
        X_finish();
        X_clear_value("*");
        std::string cmd = "rm -rf " + dir;
        EXPECT_EQ(system(cmd.c_str()), 0);
    }
};

TEST(Switch, NamesChooseTheBackEnd)
{
    struct {
        const char *name;
        const X_backend *want;
    } cases[] = {
        {"sqlite:t.db", &X_sqlite}, {"sqlite::memory:", &X_sqlite}, {"SQLITE:t.db", &X_nosql},
        {"Tolm", &X_nosql},         {"", &X_nosql},                 {nullptr, &X_nosql},
    };
    for (auto &c : cases) EXPECT_EQ(X_backend_for(c.name), c.want) << (c.name ? c.name : "null");
}

TEST_F(Sqlite, RelativeFileUnderRootAndRequestRefusal)
{
    ASSERT_EQ(X_database("sqlite:t.db", nullptr, nullptr), 0) << error_text();
    EXPECT_EQ(X_backend_active(), &X_sqlite);
    exec("create table t (a)");
    EXPECT_EQ(access((dir + "/t.db").c_str(), F_OK), 0);
    X_finish();
    EXPECT_EQ(X_backend_active(), &X_nosql);

    for (const char *name : {"X_BASE", "X_USER", "X_PASSWD"}) {
        X_put_value(name, "x");
        X_mark_request(name);
        EXPECT_EQ(X_database("sqlite:t.db", nullptr, nullptr), -1);
        EXPECT_EQ(error_text(), std::string(name) + " was set by the request; only the site or "
                                                    "the page may set it");
        EXPECT_EQ(X_database("Tolm", nullptr, nullptr), -1);  // the stub is left alone
        X_put_value(name, "y");  // the page takes over
    }
    EXPECT_EQ(X_database("sqlite:t.db", nullptr, nullptr), 0) << error_text();
}

TEST_F(Sqlite, ValuesComeBackByteForByte)
{
    ASSERT_EQ(X_database("sqlite::memory:", nullptr, nullptr), 0);
    exec("create table t (id integer primary key, v text)");
    std::string big(100 * 1024, 'x');
    for (size_t i = 0; i < big.size(); i += 97) big[i] = static_cast<char>('a' + i % 26);
    const std::vector<std::string> values = {"O'Brien", "a\"b\\c%s%n", "\xc3\xa9t\xc3\xa9 \xe2\x82\xac",
                                             "\x01\x7f\xff line\nbreak\ttab", big, ""};
    std::string want;
    for (auto &v : values) {
        exec("insert into t (v) values (" + quoted(v) + "); insert into t (v) values (null)");
        EXPECT_EQ(X_rowcount, 1);  // the last statement's changes
        want += "v=" + (v.empty() ? "~" : v) + ";v=~;";
    }
    EXPECT_EQ(X_INSERT_ID, 2L * static_cast<long>(values.size()));
    EXPECT_TRUE(rows("c0", "select v from t order by id") == want);  // no 200 KiB diff
}

TEST_F(Sqlite, NestedCursorsWalkApart)
{
    ASSERT_EQ(X_database("sqlite::memory:", nullptr, nullptr), 0);
    exec("create table t (n); insert into t values (1), (2), (3)");
    X_heap *hp = X_heap_new();
    X_val val[X_MAXVAL];
    int numb = 0;
    ASSERT_EQ(X_select_sql(0, "c0", "select n from t order by n", hp, &numb, val), 0);
    std::string seen;
    while (X_select_sql(1, "c0", nullptr, hp, &numb, val) == 0) {
        std::string n = val[0].value;
        seen += rows("c1", "select n as m from t where n >= " + n) + " ";
        exec("update t set n = n where n = " + n);  // a write while the walk goes on
    }
    EXPECT_EQ(seen, "m=1;m=2;m=3; m=2;m=3; m=3; ");
    EXPECT_EQ(X_select_sql(2, "c0", nullptr, hp, &numb, val), 0);
    EXPECT_EQ(X_select_sql(1, "c0", nullptr, hp, &numb, val), -1);  // closed
    EXPECT_EQ(error_text(), "the cursor is not open");
    X_heap_free(hp);
}

TEST_F(Sqlite, BadInputTakesTheErrorPath)
{
    ASSERT_EQ(X_database("sqlite::memory:", nullptr, nullptr), 0);
    X_heap *hp = X_heap_new();
    X_val val[X_MAXVAL];
    int numb = 0;
    struct {
        const char *query;
        const char *error;
    } cases[] = {
        {"selec 1", "near \"selec\": syntax error"},
        {"select * from nosuch", "no such table: nosuch"},
        {"  -- nothing", "the query holds no statement"},
    };
    for (auto &c : cases) {
        EXPECT_EQ(X_select_sql(0, "c0", c.query, hp, &numb, val), -1) << c.query;
        EXPECT_EQ(error_text(), c.error);
        EXPECT_EQ(X_noselect_sql(c.query, 0, nullptr), c.query[2] == '-' ? 0 : -1);
    }
    // A value over the limit is refused, not handed over.
    int end = 0;
    EXPECT_EQ(rows("c0", "select zeroblob(" + std::to_string(X_MAXCELL + 1) + ") as z"),
              "ERR: column z holds 4194305 bytes; at most 4194304 are allowed");
    rows("c0", "select 1", &end);
    EXPECT_EQ(end, X_FETCH_END);
    X_heap_free(hp);
}

TEST_F(Sqlite, LockedFileIsWaitedForThenReported)
{
    ASSERT_EQ(X_database("sqlite:t.db", nullptr, nullptr), 0);
    exec("create table t (a)");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t pid = fork();
    if (pid == 0) {  // holds a write transaction for five seconds
        X_finish();
        X_database("sqlite:t.db", nullptr, nullptr);
        X_noselect_sql("begin exclusive; insert into t values (1)", 0, nullptr);
        (void)!write(ready[1], "x", 1);
        sleep(5);
        _exit(0);
    }
    char c;
    ASSERT_EQ(read(ready[0], &c, 1), 1);
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(X_noselect_sql("insert into t values (2)", 0, nullptr), -1);
    double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_EQ(error_text(), "database is locked");
    EXPECT_GT(waited, 1.5);
    EXPECT_LT(waited, 4.5);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    exec("insert into t values (3)");  // the lock died with its holder
}

TEST_F(Sqlite, LongWalkKeepsMemoryBounded)
{
    ASSERT_EQ(X_database("sqlite::memory:", nullptr, nullptr), 0);
    exec("create table t (a, b, c, d, e)");
    exec("with recursive n(i) as (select 1 union all select i + 1 from n where i < 20000) "
         "insert into t select i, i * 2, 'row ' || i, printf('%.500c', 'x'), null from n");
    auto walk = [] {
        X_heap *hp = X_heap_new();
        X_val val[X_MAXVAL];
        int numb = 0, n = 0;
        X_select_sql(0, "c0", "select * from t", hp, &numb, val);
        while (X_select_sql(1, "c0", nullptr, hp, &numb, val) == 0) {
            n++;
            X_heap_reduce(hp);
        }
        X_select_sql(2, "c0", nullptr, hp, &numb, val);
        X_heap_free(hp);
        return n;
    };
    walk();
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    EXPECT_EQ(walk(), 20000);
    getrusage(RUSAGE_SELF, &after);
#ifndef __SANITIZE_ADDRESS__  // its quarantine keeps freed memory mapped
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 2048);  // KiB; all rows would take 12 MiB
#endif
}

}  // namespace
