// Database back-end interface. The five operations below are what the
// database commands use; they forward to the back end that X_database chose
// from the database name: "sqlite:PATH" (built in), "postgresql://...",
// "postgres://..." or "pg:KEYWORDS" (through the tolm-pg companion), and
// the back end without a database for every other name.
#pragma once

#include "x.h"

int X_database(const char *dbname, const char *user, const char *passwd);
int X_select_sql(int cmd, const char *cursor, const char *query, X_heap *dalloc, int *numb,
                 X_val *val);
int X_noselect_sql(const char *query, int numb, X_val *val);
int sql_error(char *buff);
int X_finish();

constexpr int X_SQLERR = 256;         // message text a back end keeps, terminator included
constexpr int X_MAXCELL = 4 << 20;    // longest column value a back end hands over
constexpr int X_FETCH_END = 100;      // X_select_sql(1, ...) at the end of the rows

struct sqlite3;

// One back end: the five operations with the same contracts.
struct X_backend {
    const char *name;
    int (*open)(const char *dbname, const char *user, const char *passwd);
    int (*select)(int cmd, const char *cursor, const char *query, X_heap *dalloc, int *numb,
                  X_val *val);
    int (*noselect)(const char *query, int numb, X_val *val);
    int (*error)(char *buff);
    int (*finish)();
};

extern const X_backend X_nosql;   // no database: opening fails
extern const X_backend X_sqlite;  // SQLite, linked in
// The file of "sqlite:PATH": PATH itself, or PATH under the site root.
void X_sqlite_file(const char *dbname, char *path, size_t cap);
// Opens the SQLite file path read-write (made when missing) with the busy
// wait of busy_ms, for the page's back end and the session store alike.
// SQLITE_OK, or an SQLite error code with *db set for its message or null.
int X_sqlite_open(const char *path, sqlite3 **db, int busy_ms);
extern const X_backend X_pgsql;   // PostgreSQL through the companion program

// The back end that serves dbname (never null).
const X_backend *X_backend_for(const char *dbname);
// The back end of the open connection, X_nosql when none is open.
const X_backend *X_backend_active();
