// Database commands. The interpreter holds the connection (opened on the
// first command from the variables X_BASE, X_USER and X_PASSWD) and up to
// ten cursor names; rows are copied into page variables and the "sql"
// block is read again for every row. Errors take the database error path:
// ERRMSG when X_sqlTRAP is set, X_sqlcode -1, then the page's database
// trap function when one is set.
#include "syscmd/sql.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "control/blocks.h"
#include "db/db.h"
#include "diag/diag.h"
#include "page/output.h"
#include "page/dispatch.h"
#include "page/page.h"
#include "storage/heap.h"
#include "storage/store.h"
#include "subst/subst.h"
#include "syscmd/argcut.h"

namespace {

constexpr int NCURSOR = 10;
constexpr int WORD = 25;     // first word of a query: 24 characters
constexpr int ERRBUF = 512;  // message buffer handed to sql_error
constexpr int MAXQUERY = X_MAXLINE - 2;  // longest query taken from a variable

char cid[NCURSOR][10];  // cursor names "c0".."c9", made on first use
int c_free[NCURSOR] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};  // -1 new, 1 free, 0 busy
char *base;             // database of the open connection; NULL: not connected
X_val val[X_MAXVAL];    // columns of the fetched row

// The back end's text of its last error, in a buffer cleared first.
void last_error(char *buff)
{
    memset(buff, 0, ERRBUF);
    sql_error(buff);
}

// The page's database trap function, when one is set.
void trap_call(bool debug)
{
    if (!X_sqlFUNC) return;
    char func[sizeof TRAPfunc];
    snprintf(func, sizeof func, "%.*s", (int)sizeof func - 1, TRAPfunc);
    char cmd[sizeof func + 16];
    snprintf(cmd, sizeof cmd, "<@call> %s ", func);
    X_TRACE("==> SQLTRAP call: CALL: [%s] ", func);
    if (debug) X_DEBUG("==> SQLTRAP call: CALL: [%s] ", func);
    X_call(cmd, 1, 0, nullptr);
}

// The end of the error path, after the message has been given.
void fail_tail(bool debug)
{
    X_sqlcode = -1;
    trap_call(debug);
}

// Reports an error of a statement: the whole message to ERRMSG, then the
// message with both parts cut to 200 characters into X_ERRMSG.
void query_error(const char *query)
{
    char msg[ERRBUF];
    last_error(msg);
    if (X_sqlTRAP) ERRMSG("### DATABASE Query ERROR: QUERY: %s ; ### ERRMSG: %s ", query, msg);
    snprintf(X_ERRMSG, sizeof X_ERRMSG,
             "### DATABASE Query ERROR: QUERY: %.200s ; ### ERRMSG: %.200s ", query, msg);
    fail_tail(false);
}

// The first word of a query, at most 24 characters, in lower case.
void first_word(const char *query, char *word)
{
    word[0] = '\0';
    if (sscanf(query, "%24s", word) != 1) word[0] = '\0';
    lowercase(word);
}

bool starts(const char *word, const char *prefix)
{
    return strncmp(word, prefix, strlen(prefix)) == 0;
}

// Gives a value of the variable store or NULL; empty counts as NULL.
const char *login_value(const char *name)
{
    const char *v = X_get_value(name);
    return v && *v ? v : nullptr;
}

// Opens the connection. 0, or -1 after reporting.
int open_base()
{
    const char *name = X_get_value("X_BASE");
    if (!name) {
        snprintf(X_ERRMSG, sizeof X_ERRMSG, "%s", "### Database name was not specified...");
        if (X_sqlTRAP) ERRMSG("### Database name was not specified...");
        fail_tail(false);
        return -1;
    }
    char *db = strdup(name);
    const char *user = login_value("X_USER");
    const char *passwd = login_value("X_PASSWD");
    int rc = X_database(db, user, passwd);
    if (rc == 0) {
        base = db;
        return 0;
    }
    char msg[ERRBUF];
    last_error(msg);
    snprintf(X_ERRMSG, sizeof X_ERRMSG, "### Cannot open database: %s ERR: %d  SQLERR: %s", db,
             rc, msg);
    if (X_sqlTRAP) ERRMSG("### Cannot open database: %s ERR: %d  SQLERR: %s", db, rc, msg);
    free(db);
    fail_tail(false);
    return -1;
}

// Marks the cursor of that name free again; "none" matches nothing.
void release(const char *name)
{
    for (int i = 0; i < NCURSOR; i++) {
        if (strcmp(cid[i], name) == 0) {
            c_free[i] = 1;
            return;
        }
    }
}

// Builds the query of an "sql" or "sqlexec" command into query (X_MAXLINE):
// the expanded text, or for the "v" forms the value of the variable it names.
void build_query(const char *line, int tlen, bool vform, char *query, int compile)
{
    X_expand_args(line + tlen, query, compile);
    if (vform) {
        trim_buff(query);
        X_USER *user = X_find_user(query);
        const char *v = user && !user->clean ? user->var.value : nullptr;
        snprintf(query, X_MAXLINE, "%.*s", MAXQUERY, v ? v : "NULL");
    }
    X_DEBUG("%s // %s \n", line, query);
}

bool row_query(const char *word)
{
    return strcmp(word, "select") == 0 || strcmp(word, "(select") == 0 ||
           strcmp(word, "show") == 0 || strcmp(word, "execute") == 0;
}

// Stores the columns of one fetched row as variables; on the first row the
// names are also listed in names, joined by ";".
void store_row(int numb, bool first, char *names, size_t cap)
{
    for (int i = 0; i < numb; i++) {
        X_val &col = val[i];
        if (!col.name) continue;
        if (X_sqlcase == 1)
            uppercase(col.name);
        else
            lowercase(col.name);
        const char *v = col.len <= 0 || !col.value ? "" : col.value;
        X_TRACE("Name: %s Value: %s", col.name, v);
        X_put_value(col.name, v);
        if (first) {
            size_t used = strlen(names);
            snprintf(names + used, cap - used, "%s%s", used ? ";" : "", col.name);
        }
    }
}

}  // namespace

const char *X_get_base()
{
    return base;
}

const char *X_get_cid()
{
    if (!base && open_base() != 0) return "none";
    for (int i = 0; i < NCURSOR; i++) {
        if (c_free[i] == 1) {
            c_free[i] = 0;
            return cid[i];
        }
    }
    for (int i = 0; i < NCURSOR; i++) {
        if (c_free[i] == -1) {
            snprintf(cid[i], sizeof cid[i], "c%d", i);
            c_free[i] = 0;
            return cid[i];
        }
    }
    snprintf(X_ERRMSG, sizeof X_ERRMSG, "%s",
             "### SYSTEM ERROR: more than 10 DB Session in proccess!");
    if (X_sqlTRAP) ERRMSG("### SYSTEM ERROR: more than 10 DB Session in proccess!");
    fail_tail(false);
    return "none";
}

int X_sqlline(const char *query)
{
    X_sqlcode = 0;
    char word[WORD];
    first_word(query, word);
    if (starts(word, "disconnect")) {
        X_finish();
        free(base);
        base = nullptr;
        for (int &c : c_free) c = -1;
        return 0;
    }
    if (!X_sqlTRANS &&
        (starts(word, "begin") || starts(word, "commit") || starts(word, "rollback")))
        return -1;
    if (X_noselect_sql(query, 0, nullptr) == 0) return 0;
    query_error(query);
    return -1;
}

int X_found(const char *cursor, X_heap *hp, X_FILE *fp, int compile)
{
    X_TRACE("X_found: cid: %s compile: %d \n", cursor, compile);
    X_eof = 1;
    Continue = 0;
    Break = 0;
    static char names[X_MAXLINE];  // column names of the first row
    names[0] = '\0';

    long start = fp->offset;
    int n = 1;
    int numb = 0;
    int rc;
    while ((rc = X_select_sql(1, cursor, nullptr, hp, &numb, val)) == 0) {
        if (numb < 0) numb = 0;
        if (numb > X_MAXVAL) numb = X_MAXVAL;
        X_TRACE("Fetch: %d values", numb);
        X_DEBUG("  ** SQL fetch row: %d columns\n", numb);
        fp->offset = start;
        store_row(numb, n == 1, names, sizeof names);
        if (n == 1) X_put_value("X_sqlnames", names);
        X_lines = n;
        X_notfound(fp, compile, 0);
        X_heap_reduce(hp);
        if (Break) {
            Continue = 0;
            Break = 0;
            X_eof = 0;
            X_lines = n;
            return n;
        }
        Continue = 0;
        n++;
    }
    int rows = n - 1;
    X_lines = rows;
    Continue = 0;
    Break = 0;
    if (rc == -1) {
        char msg[ERRBUF];
        last_error(msg);
        if (X_sqlTRAP) ERRMSG("### DATABASE QUERY ERROR: %s ", msg);
        snprintf(X_ERRMSG, sizeof X_ERRMSG, "### DATABASE QUERY ERROR: %.200s ", msg);
        fail_tail(true);
    }
    if (rows == 0) X_notfound(fp, compile, 1);
    return rows;
}

// sql / vsql QUERY: a block run once per row of a row query ("select",
// "(select", "show", "execute"), or once after any other statement that
// succeeded; skipped when the statement fails or no row comes back.
int X_sql(X_FILE *fp, char *line, int compile, int ignore)
{
    int vform = X_has_tag(line, "<@vsql>");
    if (!vform && !X_has_tag(line, "<@sql>")) return -1;
    X_TRACE("X_sql: {%s} compile: %d ignore: %d VVAL: %d\n", line, compile, ignore, vform);
    if (ignore) {
        X_notfound(fp, compile, ignore);
        return 0;
    }
    X_flush_out();  // the page's text does not wait for the database

    char query[X_MAXLINE];
    build_query(line, vform ? 7 : 6, vform, query, compile);
    const char *cursor = X_get_cid();
    X_TRACE("X_sql: query: %s \n", query);
    char word[WORD];
    first_word(query, word);
    X_rowcount = 0;
    X_sqlcode = 0;

    if (row_query(word)) {
        X_heap *hp = X_heap_new();
        int numb = 0;
        if (X_select_sql(0, cursor, query, hp, &numb, val) != 0) {
            query_error(query);
            X_notfound(fp, compile, 1);
        } else {
            int rows = X_found(cursor, hp, fp, compile);
            if (X_rowcount == 0) X_rowcount = rows;
        }
        X_select_sql(2, cursor, nullptr, hp, &numb, val);
        X_heap_free(hp);
    } else {
        X_notfound(fp, compile, X_sqlline(query) == 0 ? 0 : 1);
    }
    release(cursor);
    return 0;
}

// sqlexec / vsqlexec QUERY: runs a statement without a block. Getting a
// cursor is how the command connects; the statement does not use it.
int X_sqlexec(char *line, int compile, int ignore)
{
    int vform = X_has_tag(line, "<@vsqlexec>");
    if (!vform && !X_has_tag(line, "<@sqlexec>")) return -1;
    X_TRACE("X_sqlexec: {%s} compile: %d ignore: %d VVAL: %d \n", line, compile, ignore, vform);
    if (ignore) return 0;
    X_flush_out();  // the page's text does not wait for the database

    char query[X_MAXLINE];
    build_query(line, vform ? 11 : 10, vform, query, compile);
    const char *cursor = X_get_cid();
    X_TRACE("X_sqlexec: query: %s \n", query);
    X_sqlline(query);
    release(cursor);
    return 0;
}

// Switches transaction statements (OFF_/ON_TRANSACTIONS) or the reporting of
// errors (OFF/ON); the first word found in that order wins.
int X_sqltrap(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@sqltrap>")) return -1;
    X_TRACE("X_sqltrap: buff= %s; compile= %d ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE];
    X_expand_args(line + 10, text, compile);
    X_DEBUG("%s // %s \n", line, text);
    uppercase(text);
    if (strstr(text, "OFF_TRANSACTIONS"))
        X_sqlTRANS = 0;
    else if (strstr(text, "ON_TRANSACTIONS"))
        X_sqlTRANS = 1;
    else if (strstr(text, "OFF"))
        X_sqlTRAP = 0;
    else if (strstr(text, "ON"))
        X_sqlTRAP = 1;
    else
        return -1;
    return 0;
}

// Column names in lower case ("lowercase") or upper case ("uppercase");
// with both words upper case wins.
int X_sqlnames(char *line, int compile, int ignore)
{
    if (!X_has_tag(line, "<@sqlnames>")) return -1;
    X_TRACE("X_sqlnames: buff= %s; compile= %d ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char text[X_MAXLINE];
    X_expand_args(line + 11, text, compile);
    X_DEBUG("%s // %s \n", line, text);
    if (strstr(text, "lowercase")) X_sqlcase = 0;
    if (strstr(text, "uppercase")) X_sqlcase = 1;
    return 0;
}
