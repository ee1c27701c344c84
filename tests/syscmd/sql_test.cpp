// Database commands against a scripted back end. This program links its
// own definitions of the five back-end operations, so the library's
// database-less back end is not pulled in here.
#include <string>
#include <vector>

#include "db/db.h"
#include "storage/heap.h"
#include "syscmd/sql.h"
#include "syscmd_fixture.h"

namespace fake {

using Row = std::vector<std::pair<std::string, std::string>>;

int connect_rc;                 // result of X_database
int open_rc;                    // result of opening a cursor
int exec_rc;                    // result of X_noselect_sql
int end_rc = 100;               // result of the fetch after the last row
std::vector<Row> rows;          // rows of the next opened cursor
size_t next_row;
std::string error_text;         // written by sql_error when not empty
std::vector<std::string> calls; // what the interpreter asked for

char *copy(X_heap *hp, const std::string &s)
{
    char *p = (char *)X_heap_alloc(hp, (int)s.size() + 1);
    memcpy(p, s.c_str(), s.size() + 1);
    return p;
}

}  // namespace fake

int X_database(const char *dbname, const char *user, const char *passwd)
{
    fake::calls.push_back(std::string("database ") + dbname + " " + (user ? user : "(null)") +
                          " " + (passwd ? passwd : "(null)"));
    return fake::connect_rc;
}

int X_select_sql(int cmd, const char *cursor, const char *query, X_heap *dalloc, int *numb,
                 X_val *val)
{
    if (cmd == 0) {
        fake::calls.push_back(std::string("open ") + cursor + " " + query);
        fake::next_row = 0;
        return fake::open_rc;
    }
    if (cmd == 2) {
        fake::calls.push_back(std::string("close ") + cursor);
        return 0;
    }
    if (fake::next_row >= fake::rows.size()) return fake::end_rc;
    const fake::Row &row = fake::rows[fake::next_row++];
    *numb = (int)row.size();
    for (size_t i = 0; i < row.size(); i++) {
        val[i].name = fake::copy(dalloc, row[i].first);
        val[i].value = fake::copy(dalloc, row[i].second);
        val[i].len = row[i].second == "<null>" ? 0 : (int)row[i].second.size();
    }
    return 0;
}

int X_noselect_sql(const char *query, int, X_val *)
{
    fake::calls.push_back(std::string("exec ") + query);
    return fake::exec_rc;
}

int sql_error(char *buff)
{
    if (!fake::error_text.empty()) snprintf(buff, 256, "%s", fake::error_text.c_str());
    return 0;
}

int X_finish()
{
    fake::calls.push_back("finish");
    return 0;
}

namespace {

class Sql : public SysCmd {
protected:
    void SetUp() override
    {
        SysCmd::SetUp();
        X_sqlline("disconnect");  // no connection, all cursors never used
        fake::connect_rc = fake::open_rc = fake::exec_rc = 0;
        fake::end_rc = 100;
        fake::rows.clear();
        fake::error_text.clear();
        fake::calls.clear();
        X_sqlTRAP = 0;  // errors are checked through X_ERRMSG, not by ending the run
        X_sqlTRANS = 1;
        X_sqlFUNC = 0;
        X_sqlcase = 0;
        X_put_value("X_BASE", "shop");
        X_clear_value("X_USER");
        X_clear_value("X_PASSWD");
        X_stdout = tmpfile();
    }

    void TearDown() override
    {
        fclose(X_stdout);
        X_stdout = nullptr;
        SysCmd::TearDown();
    }

    // Runs an "sql" line followed by the body lines of page, and answers
    // the page output.
    static std::string sql_block(const std::string &line, const std::string &page)
    {
        std::string text = page;
        X_FILE fp{};
        fp.text = text.data();
        fp.size = (long)text.size();
        std::string copy = line;
        EXPECT_EQ(X_sql(&fp, copy.data(), 1, 0), 0);
        EXPECT_EQ(fp.offset, (long)text.find("<@end>") + 7) << "block not consumed";
        return output();
    }

    static std::string output()
    {
        fflush(X_stdout);
        rewind(X_stdout);
        std::string out;
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, X_stdout)) > 0) out.append(buf, n);
        return out;
    }
};

TEST_F(Sql, ConnectionOnceAndItsErrors)
{
    X_put_value("X_USER", "ann");
    X_put_value("X_PASSWD", "");  // empty counts as none
    run(X_sqlexec, "<@sqlexec> update t");
    run(X_sqlexec, "<@sqlexec> delete from t");
    std::vector<std::string> want = {"database shop ann (null)", "exec  update t",
                                     "exec  delete from t"};
    EXPECT_EQ(fake::calls, want);
    EXPECT_STREQ(X_get_base(), "shop");

    X_sqlline("disconnect");
    X_clear_value("X_BASE");
    EXPECT_STREQ(X_get_cid(), "none");
    EXPECT_STREQ(X_ERRMSG, "### Database name was not specified...");
    EXPECT_EQ(X_sqlcode, -1);

    X_put_value("X_BASE", "shop");
    fake::connect_rc = -7;
    strcpy(X_ERRMSG, "stale text that must not leak into the message");
    EXPECT_STREQ(X_get_cid(), "none");
    EXPECT_STREQ(X_ERRMSG, "### Cannot open database: shop ERR: -7  SQLERR: ");
    EXPECT_EQ(X_get_base(), nullptr);  // a failed connection leaves none open
}

TEST_F(Sql, CursorsAreReusedAndLimitedToTen)
{
    std::vector<std::string> got;
    for (int i = 0; i < 10; i++) got.push_back(X_get_cid());
    EXPECT_EQ(got.front(), "c0");
    EXPECT_EQ(got.back(), "c9");
    EXPECT_STREQ(X_get_cid(), "none");
    EXPECT_STREQ(X_ERRMSG, "### SYSTEM ERROR: more than 10 DB Session in proccess!");

    // Freed cursors come back before new names would be made.
    X_sqlline("disconnect");
    EXPECT_EQ(X_get_base(), nullptr);
    EXPECT_STREQ(X_get_cid(), "c0");
    run(X_sqlexec, "<@sqlexec> select 1");  // takes c1 and gives it back
    EXPECT_STREQ(X_get_cid(), "c1");
}

TEST_F(Sql, StatementRulesByFirstWord)
{
    X_sqlTRANS = 0;
    EXPECT_EQ(X_sqlline("BEGIN work"), -1);
    EXPECT_EQ(X_sqlline("commit"), -1);
    EXPECT_EQ(X_sqlline("rollbackx"), -1);  // prefix tests
    EXPECT_EQ(X_sqlcode, 0);
    EXPECT_TRUE(fake::calls.empty());
    X_sqlTRANS = 1;
    EXPECT_EQ(X_sqlline("begin"), 0);
    EXPECT_EQ(X_sqlline("Disconnected now"), 0);  // a prefix of disconnect too
    std::vector<std::string> want = {"exec begin", "finish"};
    EXPECT_EQ(fake::calls, want);
    EXPECT_EQ(X_sqlline(""), 0);
}

TEST_F(Sql, StatementErrorsAreCutTo200InErrmsg)
{
    fake::exec_rc = -1;
    fake::error_text = std::string(300, 'e');
    std::string query = "insert " + std::string(400, 'q');
    EXPECT_EQ(X_sqlline(query.c_str()), -1);
    EXPECT_EQ(X_sqlcode, -1);
    std::string want = "### DATABASE Query ERROR: QUERY: " + query.substr(0, 200) +
                       " ; ### ERRMSG: " + std::string(200, 'e') + " ";
    EXPECT_EQ(std::string(X_ERRMSG), want);
}

TEST_F(Sql, RowsBecomeVariablesAndTheBlockRunsPerRow)
{
    fake::rows = {{{"ID", "1"}, {"Name", "ann"}, {"note", "<null>"}},
                  {{"ID", "2"}, {"Name", "bob"}, {"note", "x"}}};
    std::string out = sql_block("<@sql> Select id, name from t",
                                "row: $(id) $(name) [$(note)]\n<@end>\nafter\n");
    EXPECT_EQ(out, "row: 1 ann []\nrow: 2 bob [x]\n");
    EXPECT_EQ(get("X_sqlnames"), "id;name;note");
    EXPECT_EQ(X_lines, 2);
    EXPECT_EQ(X_rowcount, 2);
    EXPECT_EQ(X_eof, 1);
    EXPECT_EQ(fake::calls.back(), "close c0");
}

TEST_F(Sql, UpperCaseNamesAndBreak)
{
    run(X_sqlnames, "<@sqlnames> lowercase uppercase");
    EXPECT_EQ(X_sqlcase, 1);
    fake::rows = {{{"a", "1"}}, {{"a", "2"}}, {{"a", "3"}}};
    std::string out = sql_block("<@sql> select a from t",
                                "$(A)\n<@break>\nnot shown\n<@end>\n");
    EXPECT_EQ(out, "1\n");
    EXPECT_EQ(X_lines, 1);
    EXPECT_EQ(X_eof, 0);
    EXPECT_EQ(Break + Continue, 0);
    run(X_sqlnames, "<@sqlnames> lowercase");
    EXPECT_EQ(X_sqlcase, 0);
}

TEST_F(Sql, ZeroRowsAndNonRowQueries)
{
    EXPECT_EQ(sql_block("<@sql> select * from empty", "never\n<@end>\n"), "");
    EXPECT_EQ(X_lines, 0);

    // "select*" is no row query: the statement runs and the block runs once.
    fake::calls.clear();
    EXPECT_EQ(sql_block("<@sql> select* from t", "once\n<@end>\n"), "once\n");
    EXPECT_EQ(fake::calls.front(), "exec  select* from t");  // the text after ">" as it stands

    fake::exec_rc = -1;
    fclose(X_stdout);
    X_stdout = tmpfile();
    EXPECT_EQ(sql_block("<@sql> update t", "skipped\n<@end>\n"), "");
    EXPECT_EQ(X_sqlcode, -1);
}

TEST_F(Sql, OpenAndFetchErrors)
{
    fake::open_rc = -1;
    fake::error_text = "no table";
    EXPECT_EQ(sql_block("<@sql> show tables", "skipped\n<@end>\n"), "");
    EXPECT_STREQ(X_ERRMSG, "### DATABASE Query ERROR: QUERY:  show tables ; ### ERRMSG: no table ");
    EXPECT_EQ(fake::calls.back(), "close c0");

    fake::open_rc = 0;
    fake::end_rc = -1;
    fake::rows = {{{"a", "1"}}};
    EXPECT_EQ(sql_block("<@sql> execute p", "$(a)\n<@end>\n"), "1\n");
    EXPECT_STREQ(X_ERRMSG, "### DATABASE QUERY ERROR: no table ");
    EXPECT_EQ(X_sqlcode, -1);
    EXPECT_EQ(X_lines, 1);
}

TEST_F(Sql, TrapSwitchesFirstMatchDecides)
{
    X_sqlTRAP = 1;
    EXPECT_EQ(run(X_sqltrap, "<@sqltrap> off_transactions"), 0);
    EXPECT_EQ(X_sqlTRANS, 0);
    EXPECT_EQ(X_sqlTRAP, 1);  // "OFF" inside it does not count
    EXPECT_EQ(run(X_sqltrap, "<@sqltrap> maybe"), -1);
    X_sqlTRAP = 0;
}

}  // namespace
