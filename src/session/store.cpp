// The session store (see store.h): the statements, the store's own SQLite
// connection, and the PostgreSQL path through the shared back end.
//
// A run pays for one SQLite open and a handful of prepared statements. The
// file is in WAL mode (set when the tables are made): readers never wait for
// a writer, and commits do not wait for the disk (synchronous=NORMAL: a
// crash may lose the last change of a session, never the database). Closing
// does not checkpoint, so no run creates and deletes the log and its index
// or waits for the disk; instead the run that leaves WAL_PAGES or more pages
// in the log copies them into the database and empties it, which keeps
// short the log that the next lone run must read back.
#include "session/store.h"

#include <cstdio>
#include <cstring>
#include <sqlite3.h>
#include <unistd.h>

#include "db/db.h"
#include "runtime/config.h"
#include "session/session.h"
#include "storage/heap.h"
#include "storage/store.h"

namespace {

constexpr const char *CURSOR = "session";  // never one of the page's c0..c9
constexpr int BUSY_MS = 2000;              // longest wait for another writer
constexpr int WAL_PAGES = 32;              // log pages that start a checkpoint

// The tables; SQLite keeps each as one b-tree ordered by its key (no
// separate index to write), PostgreSQL as a heap with its key's index.
#define TABLES(KEYED)                                                                        \
    "CREATE TABLE IF NOT EXISTS tolm_sessions (sid VARCHAR(64) PRIMARY KEY, "                \
    "created BIGINT NOT NULL, seen BIGINT NOT NULL, token VARCHAR(64) NOT NULL DEFAULT '')" \
    KEYED ";"                                                                                \
    "CREATE TABLE IF NOT EXISTS tolm_session_vars (sid VARCHAR(64) NOT NULL, "               \
    "name TEXT NOT NULL, value TEXT NOT NULL, PRIMARY KEY (sid, name))" KEYED ";"
const char *PG_TABLES = TABLES("");
const char *SQLITE_TABLES = TABLES(" WITHOUT ROWID");

#define EXPIRED "SELECT sid FROM tolm_sessions WHERE seen < ?1 OR created < ?2 ORDER BY sid LIMIT ?3"

// The statements of X_SSQL in order, then the transaction's own.
enum { BEGIN = static_cast<int>(X_SSQL::COUNT), COMMIT, ROLLBACK, NSQL };
const char *const SQL[NSQL] = {
    "SELECT s.created, s.seen, s.token, v.name, v.value FROM tolm_sessions s "
    "LEFT JOIN tolm_session_vars v ON v.sid = s.sid WHERE s.sid = ?1",
    "INSERT INTO tolm_sessions (sid, created, seen, token) VALUES (?1, ?2, ?3, ?4)",
    "UPDATE tolm_sessions SET seen = ?2 WHERE sid = ?1",
    "UPDATE tolm_sessions SET seen = ?2, token = ?3 WHERE sid = ?1",
    // PostgreSQL waits here for a request that is ending the session (the
    // row lock a TOUCH would take, without writing the row); SQLite's
    // transaction holds the write lock already (SQLITE_FIND).
    "SELECT 1 FROM tolm_sessions WHERE sid = ?1 FOR SHARE",
    // PostgreSQL looks the session up; SQLite skips the statement instead
    // when the transaction did not find the session's row (SQLITE_PUT).
    "INSERT INTO tolm_session_vars (sid, name, value) SELECT ?1, ?2, ?3 WHERE EXISTS "
    "(SELECT 1 FROM tolm_sessions WHERE sid = ?1) "
    "ON CONFLICT (sid, name) DO UPDATE SET value = excluded.value",
    "DELETE FROM tolm_session_vars WHERE sid = ?1 AND name = ?2",
    "DELETE FROM tolm_session_vars WHERE sid = ?1",
    "DELETE FROM tolm_sessions WHERE sid = ?1",
    "UPDATE tolm_session_vars SET sid = ?1 WHERE sid = ?2",
    "UPDATE tolm_sessions SET sid = ?1 WHERE sid = ?2",
    "DELETE FROM tolm_session_vars WHERE sid IN (" EXPIRED ")",
    "DELETE FROM tolm_sessions WHERE sid IN (" EXPIRED ")",
    // SQLite takes the write lock at once, so that two writers never
    // deadlock upgrading a read lock.
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
};

const char *SQLITE_PUT = "REPLACE INTO tolm_session_vars (sid, name, value) VALUES (?1, ?2, ?3)";
const char *SQLITE_FIND = "SELECT 1 FROM tolm_sessions WHERE sid = ?1";
constexpr int PUT = static_cast<int>(X_SSQL::PUT);
constexpr int FIND = static_cast<int>(X_SSQL::FIND);

// ---- The store's state ----------------------------------------------------
sqlite3 *db;                // the own SQLite connection, null when closed
pid_t owner;                // the process that opened db
sqlite3_stmt *stmt[NSQL];   // db's statements, prepared at first use
int wal_pages;              // pages in db's log after its last commit
const X_backend *be;        // PostgreSQL: the back end while connected
X_sbuf tx;                  // PostgreSQL: the open transaction's text
bool broken;                // SQLite: a statement of the transaction failed
char found[X_SID_LEN + 1];  // SQLite: the session whose row the transaction made, touched or found
char why[X_SQLERR];         // the last failure
int saved_rowcount;         // the page's database results, kept across a use
long saved_insert_id;

int fail(const char *msg) {
    snprintf(why, sizeof why, "%s", msg);
    return -1;
}

int fail_db() {
    return fail(sqlite3_errmsg(db));
}

int fail_be() {
    be->error(why);
    return -1;
}

// A value of X_BASE, X_USER or X_PASSWD that the store may use: set by the
// site or the page, never by the request.
const char *trusted(const char *name) {
    X_USER *u = X_find_user(name);
    if (!u || u->request || !u->var.value || !u->var.value[0]) return nullptr;
    return u->var.value;
}

// The store's own file: X_HOME holds the configuration, outside every
// document root; a relative one would now point into the root, so TMP_DIR
// is used then.
void file_name(char *out, size_t size) {
    char key[512];
    X_server_key(key, sizeof key);
    for (char *p = key; *p; ++p)
        if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') ||
              *p == '.' || *p == '-'))
            *p = '_';
    const char *dir = X_HOME && X_HOME[0] == '/' ? X_HOME : TMP_DIR ? TMP_DIR : "/tmp";
    snprintf(out, size, "%s/sessions-%s.db", dir, key);
}

bool is_pg(const char *name) {
    for (const char *p : {"postgresql://", "postgres://", "pg:"})
        if (!strncmp(name, p, strlen(p))) return true;
    return false;
}

// ---- SQLite -----------------------------------------------------------------
// After each commit: the pages the log now holds.
int count_wal(void *, sqlite3 *, const char *, int pages) {
    wal_pages = pages;
    return SQLITE_OK;
}

// Copies a long log into the database and empties it, unless another
// request is busy with the store (one of the next ones does it then).
void checkpoint() {
    if (wal_pages < WAL_PAGES) return;
    sqlite3_busy_timeout(db, 0);
    sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
}

int open_sqlite(const char *path) {
    if (X_sqlite_open(path, &db, BUSY_MS) != SQLITE_OK) {
        fail(db ? sqlite3_errmsg(db) : "out of memory");
        sqlite3_close(db);
        db = nullptr;
        return -1;
    }
    owner = getpid();
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    wal_pages = 0;
    sqlite3_wal_hook(db, count_wal, nullptr);
    sqlite3_exec(db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    return 0;
}

// Makes the tables in WAL mode, where readers never wait for the writer of
// another request (the mode stays with the file).
int make_tables() {
    if (sqlite3_get_autocommit(db))
        sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
    return sqlite3_exec(db, SQLITE_TABLES, nullptr, nullptr, nullptr) == SQLITE_OK ? 0 : fail_db();
}

// Statement i, prepared on first use; the tables are made when missing.
sqlite3_stmt *prepare(int i) {
    if (stmt[i]) return stmt[i];
    for (int tries = 0; tries < 2; tries++) {
        const char *sql = i == PUT ? SQLITE_PUT : i == FIND ? SQLITE_FIND : SQL[i];
        if (sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt[i], nullptr) ==
            SQLITE_OK)
            return stmt[i];
        fail_db();
        if (tries || strncmp(why, "no such table", 13) || make_tables() != 0) break;
    }
    return nullptr;
}

sqlite3_stmt *bound(int i, std::initializer_list<X_sarg> args) {
    sqlite3_stmt *st = prepare(i);
    if (!st) return nullptr;
    int n = 0;
    for (const X_sarg &a : args) {
        ++n;
        if (a.text) sqlite3_bind_text(st, n, a.text, -1, SQLITE_STATIC);
        else sqlite3_bind_int64(st, n, a.num);
    }
    return st;
}

// Runs statement i to its end: the rows it gave, or -1.
int step_sqlite(int i, std::initializer_list<X_sarg> args) {
    sqlite3_stmt *st = bound(i, args);
    if (!st) return -1;
    int rc, rows = 0;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) ++rows;
    if (rc != SQLITE_DONE) fail_db();
    sqlite3_reset(st);
    return rc == SQLITE_DONE ? rows : -1;
}

// Runs a statement of the open transaction; PUT only for the session whose
// row was found.
int run_sqlite(X_SSQL which, std::initializer_list<X_sarg> args) {
    const char *sid = args.size() ? args.begin()->text : nullptr;
    if (which == X_SSQL::PUT && (!sid || strcmp(sid, found))) return 0;  // the session is gone
    int rows = step_sqlite(static_cast<int>(which), args);
    if (rows < 0) {
        broken = true;
        return -1;
    }
    bool row = which == X_SSQL::NEW || which == X_SSQL::TOUCH || which == X_SSQL::TOUCH_TOKEN;
    if (sid && ((row && sqlite3_changes(db) > 0) || (which == X_SSQL::FIND && rows > 0)))
        snprintf(found, sizeof found, "%s", sid);
    return 0;
}

int load_sqlite(const char *sid, void (*row)(void *, int, X_val *), void *ctx) {
    sqlite3_stmt *st = bound(static_cast<int>(X_SSQL::LOAD), {{sid, 0}});
    if (!st) return -1;
    X_val val[5];
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
        for (int c = 0; c < 5; c++) {
            const char *t = reinterpret_cast<const char *>(sqlite3_column_text(st, c));
            val[c].name = const_cast<char *>("");
            val[c].value = const_cast<char *>(t ? t : "");
            val[c].len = t ? sqlite3_column_bytes(st, c) : 0;
        }
        row(ctx, 5, val);
    }
    if (rc != SQLITE_DONE) fail_db();
    sqlite3_reset(st);
    return rc == SQLITE_DONE ? 0 : -1;
}

void close_sqlite() {
    if (owner == getpid()) {
        for (sqlite3_stmt *&st : stmt) sqlite3_finalize(st);
        checkpoint();
        sqlite3_close(db);
    }  // else a forked child: the connection is its parent's to close
    for (sqlite3_stmt *&st : stmt) st = nullptr;
    db = nullptr;
}

// ---- PostgreSQL -------------------------------------------------------------
// Appends the SQL string literal of text (quotes doubled, though ids and
// stored texts hold none).
void lit(X_sbuf *b, const char *text) {
    X_sbuf_add(b, "'", 1);
    for (const char *p = text; *p; ++p) X_sbuf_add(b, *p == '\'' ? "''" : p, *p == '\'' ? 2 : 1);
    X_sbuf_add(b, "'", 1);
}

// Appends statement i with its parameters written in as literals.
void pg_text(X_sbuf *b, int i, std::initializer_list<X_sarg> args) {
    for (const char *p = SQL[i]; *p; ++p) {
        if (*p != '?') {
            X_sbuf_add(b, p, 1);
            continue;
        }
        size_t n = 0;
        while (p[1] >= '0' && p[1] <= '9') n = n * 10 + static_cast<size_t>(*++p - '0');
        const X_sarg *a = n >= 1 && n <= args.size() ? args.begin() + n - 1 : nullptr;
        if (!a) {
            X_sbuf_str(b, "NULL");
        } else if (a->text) {
            lit(b, a->text);
        } else {
            char t[32];
            snprintf(t, sizeof t, "%ld", a->num);
            X_sbuf_str(b, t);
        }
    }
}

int open_pg(const char *base) {
    saved_rowcount = X_rowcount;
    saved_insert_id = X_INSERT_ID;
    if (X_pgsql.open(base, trusted("X_USER"), trusted("X_PASSWD")) != 0) {
        X_pgsql.error(why);
        X_pgsql.finish();
        X_rowcount = saved_rowcount;
        X_INSERT_ID = saved_insert_id;
        return -1;
    }
    be = &X_pgsql;
    return 0;
}

int query_pg(const char *sql, void (*row)(void *, int, X_val *), void *ctx) {
    if (be->select(0, CURSOR, sql, nullptr, nullptr, nullptr) != 0) {
        // Most likely the tables are not there yet: make them, try again.
        if (X_sstore_tables() != 0) return -1;
        if (be->select(0, CURSOR, sql, nullptr, nullptr, nullptr) != 0) return fail_be();
    }
    static X_val val[X_MAXVAL];
    X_heap *hp = X_heap_new();
    int rc, n = 0;
    while ((rc = be->select(1, CURSOR, nullptr, hp, &n, val)) == 0) {
        row(ctx, n, val);
        X_heap_reduce(hp);
    }
    if (rc != X_FETCH_END) fail_be();
    be->select(2, CURSOR, nullptr, nullptr, nullptr, nullptr);
    X_heap_free(hp);
    return rc == X_FETCH_END ? 0 : -1;
}

}  // namespace

int X_sstore_open() {
    if (db && owner != getpid()) close_sqlite();
    if (db || be) return 0;
    why[0] = '\0';
    const char *base = trusted("X_BASE");
    if (base && is_pg(base)) return open_pg(base);
    char path[4400];
    if (base && !strncmp(base, "sqlite:", 7)) X_sqlite_file(base, path, sizeof path);
    else file_name(path, sizeof path);
    return open_sqlite(path);
}

void X_sstore_idle() {
    if (!be) return;
    be->finish();
    be = nullptr;
    X_rowcount = saved_rowcount;
    X_INSERT_ID = saved_insert_id;
}

void X_sstore_close() {
    X_sstore_idle();
    X_sbuf_free(&tx);
    if (db) close_sqlite();
}

int X_sstore_tables() {
    if (X_sstore_open() != 0) return -1;
    // SQLite: preparing the statement a new session's save needs first
    // finds the tables missing, if they are, and makes them.
    if (!be) return prepare(static_cast<int>(X_SSQL::NEW)) ? 0 : -1;
    return be->noselect(PG_TABLES, 0, nullptr) == 0 ? 0 : fail_be();
}

int X_sstore_load(const char *sid, void (*row)(void *, int, X_val *), void *ctx) {
    if (X_sstore_open() != 0) return -1;
    if (!be) return load_sqlite(sid, row, ctx);
    X_sbuf q{};
    pg_text(&q, static_cast<int>(X_SSQL::LOAD), {{sid, 0}});
    int rc = query_pg(q.data, row, ctx);
    X_sbuf_free(&q);
    return rc;
}

int X_sstore_begin() {
    if (X_sstore_open() != 0) return -1;
    broken = false;
    found[0] = '\0';
    if (!be) return step_sqlite(BEGIN, {}) < 0 ? -1 : 0;
    tx.len = 0;
    X_sbuf_str(&tx, "BEGIN;");
    return 0;
}

int X_sstore_run(X_SSQL which, std::initializer_list<X_sarg> args) {
    if (!db && !be) return fail("the session store is not open");
    if (!be) return run_sqlite(which, args);
    pg_text(&tx, static_cast<int>(which), args);
    X_sbuf_add(&tx, ";", 1);
    return 0;
}

int X_sstore_commit() {
    if (!db && !be) return fail("the session store is not open");
    if (!be) {
        if (!broken && step_sqlite(COMMIT, {}) >= 0) return 0;
        if (!sqlite3_get_autocommit(db)) {
            char keep[X_SQLERR];
            memcpy(keep, why, sizeof keep);
            step_sqlite(ROLLBACK, {});
            memcpy(why, keep, sizeof why);
        }
        return -1;
    }
    X_sbuf_str(&tx, "COMMIT;");
    int rc = be->noselect(tx.data, 0, nullptr) == 0 ? 0 : fail_be();
    X_sbuf_free(&tx);
    return rc;
}

const char *X_sstore_error() {
    return why;
}
