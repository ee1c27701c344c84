// The SQLite back end, linked into the interpreter. "sqlite:PATH" opens
// (and creates) the database file PATH, relative to the site root X_ROOT
// unless absolute; "sqlite::memory:" is a private in-memory database.
//
// Each cursor name holds one prepared statement, stepped one row per fetch,
// so nested blocks walk their results side by side and a large result is
// never held in memory. A write lock held elsewhere is waited for at most
// BUSY_MS, then reported.
#include <climits>
#include <cstdio>
#include <cstring>
#include <sqlite3.h>

#include "db/db.h"
#include "diag/diag.h"
#include "storage/heap.h"
#include "storage/store.h"

namespace {

constexpr int BUSY_MS = 2000;
constexpr int NCURSOR = 10;

struct Cursor {
    char name[16];     // the interpreter's cursor name; empty when free
    sqlite3_stmt *st;  // its statement
};

sqlite3 *db;
Cursor cursors[NCURSOR];
char last[X_SQLERR];  // text of the last error

int fail(const char *msg)
{
    snprintf(last, sizeof last, "%s", msg);
    return -1;
}

int fail_db()
{
    return fail(db ? sqlite3_errmsg(db) : "no database is open");
}

Cursor *find(const char *name, bool make)
{
    Cursor *spare = nullptr;
    for (Cursor &c : cursors) {
        if (strcmp(c.name, name) == 0 && c.name[0]) return &c;
        if (!c.name[0] && !spare) spare = &c;
    }
    if (!make || !spare) return nullptr;
    snprintf(spare->name, sizeof spare->name, "%s", name);
    return spare;
}

void close_cursor(Cursor *c)
{
    sqlite3_finalize(c->st);
    c->st = nullptr;
    c->name[0] = '\0';
}


int open_sqlite(const char *dbname, const char *, const char *)
{
    X_TRACE("X_database: %s", dbname);
    char path[4096];
    X_sqlite_file(dbname, path, sizeof path);
    if (X_sqlite_open(path, &db, BUSY_MS) != SQLITE_OK) {
        fail_db();
        sqlite3_close(db);
        db = nullptr;
        return -1;
    }
    return 0;
}

char *heap_text(X_heap *hp, const char *s, int len)
{
    auto *t = static_cast<char *>(X_heap_alloc(hp, len + 1));
    if (!t) return nullptr;
    memcpy(t, s, static_cast<size_t>(len));
    t[len] = '\0';
    return t;
}

// Copies the current row of st into val: names and texts from hp.
int fill_row(sqlite3_stmt *st, X_heap *hp, int *numb, X_val *val)
{
    int n = sqlite3_column_count(st);
    for (int i = 0; i < n; i++) {
        const char *name = sqlite3_column_name(st, i);
        const char *text = reinterpret_cast<const char *>(sqlite3_column_text(st, i));
        int len = text ? sqlite3_column_bytes(st, i) : 0;
        if (len > X_MAXCELL) {
            char msg[X_SQLERR];
            snprintf(msg, sizeof msg, "column %.60s holds %d bytes; at most %d are allowed",
                     name ? name : "?", len, X_MAXCELL);
            return fail(msg);
        }
        val[i].name = heap_text(hp, name ? name : "", name ? (int)strlen(name) : 0);
        val[i].value = heap_text(hp, text ? text : "", len);
        val[i].len = len;
        if (!val[i].name || !val[i].value) return fail("out of memory");
    }
    *numb = n;
    return 0;
}

int open_cursor(const char *cursor, const char *query)
{
    Cursor *c = find(cursor, true);
    if (!c) return fail("no free cursor");
    if (c->st) sqlite3_finalize(c->st);
    c->st = nullptr;
    if (sqlite3_prepare_v2(db, query, -1, &c->st, nullptr) != SQLITE_OK) {
        fail_db();
        close_cursor(c);
        return -1;
    }
    if (!c->st) {
        close_cursor(c);
        return fail("the query holds no statement");
    }
    int n = sqlite3_column_count(c->st);
    if (n > X_MAXVAL) {
        char msg[X_SQLERR];
        snprintf(msg, sizeof msg, "the result has %d columns; at most %d are allowed", n,
                 X_MAXVAL);
        close_cursor(c);
        return fail(msg);
    }
    return 0;
}

int fetch(const char *cursor, X_heap *hp, int *numb, X_val *val)
{
    Cursor *c = find(cursor, false);
    if (!c || !c->st) return fail("the cursor is not open");
    switch (sqlite3_step(c->st)) {
    case SQLITE_ROW:
        return fill_row(c->st, hp, numb, val);
    case SQLITE_DONE:
        return X_FETCH_END;
    default:
        return fail_db();
    }
}

int select_sqlite(int cmd, const char *cursor, const char *query, X_heap *hp, int *numb,
                  X_val *val)
{
    X_TRACE("X_select_sql: cmd: %d cursor: %s", cmd, cursor ? cursor : "");
    if (!db) return fail("no database is open");
    if (!cursor) return fail("no cursor");
    if (cmd == 0) return query ? open_cursor(cursor, query) : fail("no query");
    if (cmd == 1) return fetch(cursor, hp, numb, val);
    if (Cursor *c = find(cursor, false)) close_cursor(c);
    return 0;
}

// Runs every statement of query in turn, stepping each to its end; stops
// at the first error.
int noselect_sqlite(const char *query, int, X_val *)
{
    X_TRACE("X_noselect_sql: %s", query ? query : "");
    if (!db) return fail("no database is open");
    const char *rest = query ? query : "";
    while (*rest) {
        sqlite3_stmt *st = nullptr;
        if (sqlite3_prepare_v2(db, rest, -1, &st, &rest) != SQLITE_OK) return fail_db();
        if (!st) break;  // only blanks or comments were left
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
        }
        if (rc != SQLITE_DONE) {
            fail_db();
            sqlite3_finalize(st);
            return -1;
        }
        sqlite3_finalize(st);
        long long changes = sqlite3_changes64(db);
        X_rowcount = changes > INT_MAX ? INT_MAX : static_cast<int>(changes);
        X_INSERT_ID = static_cast<long>(sqlite3_last_insert_rowid(db));
    }
    return 0;
}

int error_sqlite(char *buff)
{
    snprintf(buff, X_SQLERR, "%s", last);
    return 0;
}

int finish_sqlite()
{
    for (Cursor &c : cursors)
        if (c.name[0]) close_cursor(&c);
    if (db) sqlite3_close(db);
    db = nullptr;
    return 0;
}

}  // namespace

const X_backend X_sqlite = {"sqlite", open_sqlite, select_sqlite, noselect_sqlite, error_sqlite,
                            finish_sqlite};

// A run is one thread with one or two short-lived connections: no locks
// inside the library, no statistics, and memory taken as it is needed
// rather than a lookaside pool and a page cache set up front, whose pages
// every new process would have to fault in.
int X_sqlite_open(const char *path, sqlite3 **db, int busy_ms)
{
    static bool configured;
    if (!configured) {
        configured = true;
        sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
        sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
        sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
        sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
    }
    int rc = sqlite3_open_v2(path, db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc == SQLITE_OK) sqlite3_busy_timeout(*db, busy_ms);
    return rc;
}

// The file of "sqlite:PATH": PATH itself, or PATH under the site root.
void X_sqlite_file(const char *dbname, char *path, size_t cap)
{
    const char *p = dbname + strlen("sqlite:");
    const char *root = X_get_value("X_ROOT");
    if (p[0] == '/' || strcmp(p, ":memory:") == 0 || !root || !root[0] || strcmp(root, "/") == 0)
        snprintf(path, cap, "%s", p);
    else
        snprintf(path, cap, "%s/%s", root, p);
}
