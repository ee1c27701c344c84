// System commands: fork's child state, and the database commands against a
// scripted back end. This program defines the five back-end operations
// itself, so the database-less back end is not linked in.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "db/db.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/store.h"
#include "syscmd/process.h"
#include "syscmd/sql.h"

namespace {

std::vector<std::vector<std::pair<std::string, std::string>>> rows;  // "-" is SQL NULL
size_t next_row;
int end_rc;         // result of the fetch after the last row
std::string calls;  // what the interpreter asked of the back end

char *copy(X_heap *hp, const std::string &s)
{
    return strcpy(static_cast<char *>(X_heap_alloc(hp, (int)s.size() + 1)), s.c_str());
}

}  // namespace

int X_database(const char *db, const char *user, const char *pw)
{
    calls += std::string(db) + " " + (user ? user : "-") + " " + (pw ? pw : "-") + "; ";
    return 0;
}

int X_select_sql(int cmd, const char *cursor, const char *, X_heap *hp, int *numb, X_val *val)
{
    if (cmd != 1) {
        calls += (cmd ? "close " : "open ") + std::string(cursor) + "; ";
        next_row = 0;
        return 0;
    }
    if (next_row == rows.size()) return end_rc;
    auto &row = rows[next_row++];
    *numb = (int)row.size();
    for (size_t i = 0; i < row.size(); i++)
        val[i] = {copy(hp, row[i].first), copy(hp, row[i].second),
                  row[i].second == "-" ? 0 : (int)row[i].second.size()};
    return 0;
}

int X_noselect_sql(const char *query, int, X_val *)
{
    calls += std::string("exec") + query + "; ";
    return 0;
}

int sql_error(char *) { return 0; }
int X_finish() { return 0; }

namespace {

class SysCmd : public ::testing::Test {
protected:
    static void SetUpTestSuite() { [[maybe_unused]] static const int started = X_start(); }
    // Runs a handler on a command line as dispatch does (compile 1).
    template <typename F> static int run(F handler, std::string line) { return handler(line.data(), 1, 0); }
    static std::string get(const char *name) { return X_get_value(name) ? X_get_value(name) : "<unset>"; }
};

TEST_F(SysCmd, ForkRenewsPidAndSeedInTheChild)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    X_put_value("X_PID", std::to_string(getpid()).c_str(), 1, 0);
    run(X_fork, "<@fork> pid");
    if (get("pid") == "0") {  // the child reports what it sees and leaves
        std::string seen = get("X_PID") + " " + std::to_string(random()) + " " +
                           std::to_string(X_put_value("X_PID", "1"));
        _exit(write(fds[1], seen.data(), seen.size()) < 0);
    }
    close(fds[1]);
    pid_t child = (pid_t)std::stol(get("pid"));
    char seen[100] = {};
    EXPECT_GT(read(fds[0], seen, sizeof seen - 1), 0);
    close(fds[0]);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    srandom((unsigned)child);  // the start-up seeding, for the child's id
    long r1 = random();
    srandom((unsigned)r1 + (unsigned)random());
    EXPECT_EQ(std::string(seen), std::to_string(child) + " " + std::to_string(random()) + " -1");
    EXPECT_EQ(get("X_PID"), std::to_string(getpid()));  // the parent keeps its own
}

class Sql : public SysCmd {
protected:
    void SetUp() override
    {
        X_sqlline("Disconnected");  // a prefix of disconnect: no connection, no cursors made
        rows.clear(), calls.clear(), end_rc = 100;
        X_sqlTRAP = 0;  // errors are checked in X_ERRMSG instead of ending the run
        X_put_value("X_BASE", "shop");
        X_put_value("X_USER", "ann");
        X_put_value("X_PASSWD", "");  // empty counts as none
    }
    // Runs an "sql" line on the block in page and answers the page output.
    static std::string block(std::string line, std::string page)
    {
        X_stdout = tmpfile();
        X_FILE fp{};
        fp.text = page.data();
        fp.size = (long)page.size();
        EXPECT_EQ(X_sql(&fp, line.data(), 1, 0), 0);
        EXPECT_EQ(fp.offset, (long)page.find("<@end>") + 7) << "block not consumed";
        std::string out(ftell(X_stdout), '\0');
        rewind(X_stdout);
        out.resize(fread(out.data(), 1, out.size(), X_stdout));
        fclose(X_stdout);
        X_stdout = nullptr;
        return out;
    }
};

TEST_F(Sql, RowsBecomeVariablesAndTheBlockRunsPerRow)
{
    rows = {{{"ID", "1"}, {"Name", "ann"}, {"note", "-"}}, {{"ID", "2"}, {"Name", "bob"}, {"note", "x"}}};
    EXPECT_EQ(block("<@sql> Select id, name from t", "row: $(id) $(name) [$(note)]\n<@end>\nafter\n"),
              "row: 1 ann []\nrow: 2 bob [x]\n");
    EXPECT_EQ(calls, "shop ann -; open c0; close c0; ");
    EXPECT_EQ(get("X_sqlnames"), "id;name;note");
    EXPECT_TRUE(X_lines == 2 && X_rowcount == 2 && X_eof == 1);
}

TEST_F(Sql, UpperCaseNamesAndBreak)
{
    run(X_sqlnames, "<@sqlnames> lowercase uppercase");
    EXPECT_EQ(X_sqlcase, 1);
    rows = {{{"a", "1"}}, {{"a", "2"}}, {{"a", "3"}}};
    EXPECT_EQ(block("<@sql> select a from t", "$(A)\n<@break>\nnot shown\n<@end>\n"), "1\n");
    EXPECT_TRUE(X_lines == 1 && X_eof == 0 && Break == 0 && Continue == 0);
    run(X_sqlnames, "<@sqlnames> lowercase");
    EXPECT_EQ(X_sqlcase, 0);
}

TEST_F(Sql, ZeroRowsNonRowQueriesAndFetchErrors)
{
    EXPECT_EQ(block("<@sql> select * from empty", "never\n<@end>\n"), "");
    EXPECT_EQ(X_lines, 0);
    // "select*" is no row query: the statement runs, then the block once.
    EXPECT_EQ(block("<@sql> select* from t", "once\n<@end>\n"), "once\n");
    EXPECT_EQ(calls, "shop ann -; open c0; close c0; exec select* from t; ");
    end_rc = -1;
    rows = {{{"a", "1"}}};
    EXPECT_EQ(block("<@sql> execute p", "$(a)\n<@end>\n"), "1\n");
    EXPECT_STREQ(X_ERRMSG, "### DATABASE QUERY ERROR:  ");
    EXPECT_TRUE(X_sqlcode == -1 && X_lines == 1);
}

TEST_F(Sql, CursorsAreReusedAndLimitedToTen)
{
    for (int i = 0; i < 10; i++) EXPECT_EQ(X_get_cid(), "c" + std::to_string(i));
    EXPECT_STREQ(X_get_cid(), "none");
    EXPECT_STREQ(X_ERRMSG, "### SYSTEM ERROR: more than 10 DB Session in proccess!");
    X_sqlline("disconnect");  // freed cursors come back before new names are made
    EXPECT_STREQ(X_get_cid(), "c0");
    run(X_sqlexec, "<@sqlexec> update t");  // takes c1 and gives it back
    EXPECT_STREQ(X_get_cid(), "c1");
}

}  // namespace
