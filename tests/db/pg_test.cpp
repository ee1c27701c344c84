// The PostgreSQL back end: the channel against a scripted companion, the
// start-up failures, and (when PGHOST names a running server, as the
// postgres test driver arranges) the companion against a real server.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "db/pg.h"
#include "db/pgwire.h"
#include "dbtest.h"

namespace {

// A request as text: its type, then each field ("~" for NIL, numbers as #n).
std::string describe(pgw_frame *f)
{
    std::string s(1, f->data[0]);
    bool nums = s == "F";
    const char *t;
    uint32_t len;
    while (f->pos < f->len) {
        int64_t n;
        if (nums && f->len - f->pos == 8 && pgw_get_num(f, &n))
            s += " #" + std::to_string(n);
        else if (pgw_get_text(f, &t, &len))
            s += " " + (t ? std::string(t, len) : std::string("~"));
        else
            break;
    }
    return s;
}

// A scripted companion: for each request it records what it got and sends
// the next prepared answer; it hangs up when the answers run out.
struct FakePeer {
    int fd[2];
    std::vector<pgw_frame> answers;
    std::vector<std::string> got;
    std::thread th;

    FakePeer() { socketpair(AF_UNIX, SOCK_STREAM, 0, fd); }
    pgw_frame &answer(char type)
    {
        answers.emplace_back();
        pgw_reset(&answers.back(), type);
        return answers.back();
    }
    void start()
    {
        X_pg_attach(fd[0], 0);
        th = std::thread([this] {
            pgw_frame in{};
            for (auto &a : answers) {
                if (pgw_recv(fd[1], &in) != 0) break;
                got.push_back(describe(&in));
                pgw_send(fd[1], &a);
            }
            pgw_free(&in);
            close(fd[1]);
        });
    }
    ~FakePeer()
    {
        X_finish();
        if (th.joinable()) th.join();
        for (auto &a : answers) pgw_free(&a);
    }
};

TEST(PgChannel, FramesRoundTripAndRejectShortFields)
{
    pgw_frame f{};
    pgw_reset(&f, 'S');
    pgw_put_str(&f, "c0");
    pgw_put_str(&f, nullptr);
    pgw_put_text(&f, "a\0b", 3);
    pgw_put_num(&f, -5);
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    ASSERT_EQ(pgw_send(sv[0], &f), 0);
    pgw_frame g{};
    ASSERT_EQ(pgw_recv(sv[1], &g), 0);
    const char *t;
    uint32_t len;
    int64_t n;
    ASSERT_TRUE(pgw_get_text(&g, &t, &len));
    EXPECT_EQ(std::string(t, len), "c0");
    ASSERT_TRUE(pgw_get_text(&g, &t, &len));
    EXPECT_EQ(t, nullptr);
    ASSERT_TRUE(pgw_get_text(&g, &t, &len));
    EXPECT_EQ(std::string(t, len), std::string("a\0b", 3));
    ASSERT_TRUE(pgw_get_num(&g, &n));
    EXPECT_EQ(n, -5);
    EXPECT_FALSE(pgw_get_num(&g, &n));
    EXPECT_FALSE(pgw_get_text(&g, &t, &len));
    // A frame announcing more than arrives, or nothing at all, is refused.
    uint32_t bogus = 100;
    ASSERT_EQ(write(sv[0], &bogus, 4), 4);
    ASSERT_EQ(write(sv[0], "X", 1), 1);
    close(sv[0]);
    EXPECT_EQ(pgw_recv(sv[1], &g), -1);
    EXPECT_EQ(pgw_recv(sv[1], &g), -1);
    close(sv[1]);
    pgw_free(&f);
    pgw_free(&g);
}

TEST(PgChannel, OperationsAgainstAScriptedCompanion)
{
    FakePeer peer;
    peer.answer('K');
    auto &names = peer.answer('C');
    pgw_put_num(&names, 2);
    pgw_put_str(&names, "Id");
    pgw_put_str(&names, "v");
    auto &batch = peer.answer('R');
    pgw_put_num(&batch, 2);
    pgw_put_num(&batch, 2);
    for (const char *v : {"1", "O'Brien", "2", static_cast<const char *>(nullptr)})
        pgw_put_str(&batch, v);
    auto &end = peer.answer('R');
    pgw_put_num(&end, 0);
    pgw_put_num(&end, 2);
    peer.answer('K');
    auto &done = peer.answer('D');
    for (int64_t n : {3, 1, 42}) pgw_put_num(&done, n);
    pgw_put_str(&peer.answer('E'), "relation \"nosuch\" does not exist");
    peer.answer('?');
    peer.start();

    X_heap *hp = X_heap_new();
    X_val val[X_MAXVAL];
    int numb = 0;
    ASSERT_EQ(X_database("pg:dbname=x", "me", nullptr), 0) << error_text();
    ASSERT_EQ(X_select_sql(0, "c3", "select 1", hp, &numb, val), 0);
    std::string rows;
    while (X_select_sql(1, "c3", nullptr, hp, &numb, val) == 0) rows += cells(numb, val) + ";";
    EXPECT_EQ(rows, "Id=1,v=O'Brien;Id=2,v=~;");
    EXPECT_EQ(X_select_sql(1, "c3", nullptr, hp, &numb, val), X_FETCH_END);  // no new question
    EXPECT_EQ(X_select_sql(2, "c3", nullptr, hp, &numb, val), 0);
    EXPECT_EQ(X_noselect_sql("insert", 0, nullptr), 0);
    EXPECT_EQ(X_rowcount, 3);
    EXPECT_EQ(X_INSERT_ID, 42);
    EXPECT_EQ(X_noselect_sql("delete from nosuch", 0, nullptr), -1);
    EXPECT_EQ(error_text(), "relation \"nosuch\" does not exist");
    EXPECT_EQ(X_noselect_sql("x", 0, nullptr), -1);
    EXPECT_EQ(error_text(), "the database companion sent a bad answer");
    EXPECT_EQ(X_noselect_sql("x", 0, nullptr), -1);  // the channel was dropped
    EXPECT_EQ(error_text(), "the database companion is not running");
    X_heap_free(hp);
    X_finish();
    peer.th.join();
    EXPECT_EQ(testing::PrintToString(peer.got),
              testing::PrintToString(std::vector<std::string>{
                  "O dbname=x me ~", "S c3 select 1", "F c3 #256", "F c3 #256", "Z c3",
                  "X insert", "X delete from nosuch", "X x"}));
}

TEST(PgChannel, CompanionMissingOrDyingIsAnError)
{
    struct {
        const char *path;
        const char *error;
    } cases[] = {
        {"/nonexistent/tolm-pg",
         "cannot start the database companion /nonexistent/tolm-pg: No such file or directory"},
        {"/bin/true", "the database companion tolm-pg ended unexpectedly"},
    };
    for (auto &c : cases) {
        setenv("TOLM_PG", c.path, 1);
        EXPECT_EQ(X_database("postgresql://", nullptr, nullptr), -1);
        EXPECT_EQ(error_text(), c.error);
        EXPECT_EQ(X_backend_active(), &X_nosql);
    }
    unsetenv("TOLM_PG");
}

// ---- Against a real server ------------------------------------------------
// The postgres test driver starts a server and sets TOLM_TEST_PG, PGHOST,
// PGUSER and PGDATABASE; TOLM_PG names the companion it built.

class PgServer : public ::testing::Test {
protected:
    X_heap *hp = nullptr;
    X_val val[X_MAXVAL];
    int numb = 0;
    void SetUp() override
    {
        if (!getenv("TOLM_TEST_PG")) GTEST_SKIP() << "no PostgreSQL server (run by the postgres test)";
        ASSERT_EQ(X_database("postgresql://", nullptr, nullptr), 0) << error_text();
        hp = X_heap_new();
    }
    void TearDown() override
    {
        X_finish();
        if (hp) X_heap_free(hp);
    }
};

TEST_F(PgServer, ValuesKeysTransactionsAndNestedCursors)
{
    exec("drop table if exists t; create table t (id serial primary key, v text unique)");
    std::string big(100 * 1024, 'x');
    for (size_t i = 0; i < big.size(); i += 89) big[i] = static_cast<char>('a' + i % 26);
    const std::vector<std::string> values = {"O'Brien", "a\"b\\c%s", "\xc3\xa9t\xc3\xa9 \xe2\x82\xac",
                                             "\x01\x7f line\nbreak\ttab", big};
    for (auto &v : values) exec("insert into t (v) values (" + quoted(v) + ")");
    EXPECT_EQ(X_rowcount, 1);
    EXPECT_EQ(X_INSERT_ID, 5);
    exec("insert into t (v) values (null)");
    for (size_t i = 0; i < values.size(); i++)
        EXPECT_EQ(rows("c0", "select v from t where id = " + std::to_string(i + 1)),
                  "v=" + values[i] + ";");
    EXPECT_EQ(rows("c0", "select v, id from t where v is null"), "v=~,id=6;");

    exec("begin");
    exec("insert into t (v) values ('gone')");
    EXPECT_EQ(X_INSERT_ID, 7);  // inside a transaction: under a savepoint
    exec("create table nokey (a int); insert into nokey values (1)");
    EXPECT_EQ(X_INSERT_ID, 7);  // no sequence used: the key stays
    exec("rollback");
    EXPECT_EQ(rows("c0", "select count(*) as n from t where v = 'gone'"), "n=0;");

    // Nested: an outer cursor open while inner queries and writes run.
    std::string seen;
    ASSERT_EQ(X_select_sql(0, "c0", "select id from t where id <= 3 order by id", hp, &numb, val), 0);
    while (X_select_sql(1, "c0", nullptr, hp, &numb, val) == 0) {
        std::string id = val[0].value;
        seen += rows("c1", "select count(*) as n from t where id >= " + id + " and id <= 3") + " ";
        exec("update t set v = v where id = " + id);
    }
    X_select_sql(2, "c0", nullptr, hp, &numb, val);
    EXPECT_EQ(seen, "n=3; n=2; n=1; ");
    EXPECT_EQ(rows("c2", "show standard_conforming_strings"), "standard_conforming_strings=on;");
}

TEST_F(PgServer, BadInputAndReconnect)
{
    exec("drop table if exists u; create table u (v text unique); insert into u values ('a')");
    struct {
        const char *query;
        const char *error;
    } cases[] = {
        {"selec 1", "syntax error at or near \"selec\""},
        {"insert into nosuch values (1)", "relation \"nosuch\" does not exist"},
        {"insert into u values ('a')", "duplicate key value violates unique constraint \"u_v_key\""},
    };
    for (auto &c : cases) {
        EXPECT_EQ(X_noselect_sql(c.query, 0, nullptr), -1) << c.query;
        EXPECT_EQ(error_text(), c.error);
    }
    EXPECT_EQ(rows("c0", "select * from nosuch"), "ERR: relation \"nosuch\" does not exist");
    std::string wide = "select 1 as c0";
    for (int i = 1; i <= X_MAXVAL; i++) wide += ",1 as c" + std::to_string(i);
    EXPECT_EQ(rows("c0", wide), "ERR: the result has 501 columns; at most 500 are allowed");
    EXPECT_EQ(rows("c0", "select repeat('x', " + std::to_string(X_MAXCELL + 1) + ") as z"),
              "ERR: column z holds 4194305 bytes; at most 4194304 are allowed");
    EXPECT_EQ(rows("c0", "select length(repeat('x', 70000)) as n"), "n=70000;");
    X_finish();
    ASSERT_EQ(X_database("pg:", nullptr, nullptr), 0) << error_text();
    EXPECT_EQ(rows("c0", "select v from u"), "v=a;");
}

TEST_F(PgServer, LongWalkComesInBatches)
{
    ASSERT_EQ(X_select_sql(0, "c0", "select i, i * 2 as d, 'row ' || i as t, repeat('x', 500) as p, "
                           "null as e from generate_series(1, 20000) as i", hp, &numb, val), 0);
    int n = 0;
    long sum = 0;
    while (X_select_sql(1, "c0", nullptr, hp, &numb, val) == 0) {
        n++;
        sum += atol(val[0].value);
        X_heap_reduce(hp);
    }
    X_select_sql(2, "c0", nullptr, hp, &numb, val);
    EXPECT_EQ(n, 20000);
    EXPECT_EQ(sum, 20000L * 20001 / 2);
}

}  // namespace
