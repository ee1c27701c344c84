// The session store on the database back ends (see store.h).
#include "session/store.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "db/db.h"
#include "runtime/config.h"
#include "storage/heap.h"
#include "storage/store.h"

namespace {

constexpr const char *CURSOR = "session";  // never one of the page's c0..c9

const X_backend *be;     // the open store's back end, null when closed
char why[X_SQLERR];      // the last failure
int saved_rowcount;      // the page's database results, kept across a use
long saved_insert_id;

const char *TABLES =
    "CREATE TABLE IF NOT EXISTS tolm_sessions (sid VARCHAR(64) PRIMARY KEY, "
    "created BIGINT NOT NULL, seen BIGINT NOT NULL, token VARCHAR(64) NOT NULL DEFAULT '');"
    "CREATE TABLE IF NOT EXISTS tolm_session_vars (sid VARCHAR(64) NOT NULL, "
    "name TEXT NOT NULL, value TEXT NOT NULL, PRIMARY KEY (sid, name));";

// A value of X_BASE, X_USER or X_PASSWD that the store may use: set by the
// site or the page, never by the request.
const char *trusted(const char *name) {
    X_USER *u = X_find_user(name);
    if (!u || u->request || !u->var.value || !u->var.value[0]) return nullptr;
    return u->var.value;
}

void file_name(char *out, size_t size) {
    char key[512];
    X_server_key(key, sizeof key);
    for (char *p = key; *p; ++p)
        if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') ||
              *p == '.' || *p == '-'))
            *p = '_';
    // X_HOME holds the configuration, outside every document root; a
    // relative one would now point into the root, so TMP_DIR is used then.
    const char *dir = X_HOME && X_HOME[0] == '/' ? X_HOME : TMP_DIR ? TMP_DIR : "/tmp";
    snprintf(out, size, "sqlite:%s/sessions-%s.db", dir, key);
}

// The back end of a database name, null when no real one serves it. The
// names are those X_BASE takes; the choice is made here rather than in the
// page's back-end switch, whose connection this one must not replace.
const X_backend *backend_for(const char *name) {
    for (const char *p : {"postgresql://", "postgres://", "pg:"})
        if (!strncmp(name, p, strlen(p))) return &X_pgsql;
    return strncmp(name, "sqlite:", 7) ? nullptr : &X_sqlite;
}

int fail_be() {
    be->error(why);
    return -1;
}

}  // namespace

int X_sstore_open() {
    if (be) return 0;
    saved_rowcount = X_rowcount;
    saved_insert_id = X_INSERT_ID;
    char name[4400];
    const char *base = trusted("X_BASE");
    if (base && backend_for(base)) {
        snprintf(name, sizeof name, "%s", base);
    } else {
        file_name(name, sizeof name);
        base = nullptr;
    }
    const X_backend *b = backend_for(name);
    why[0] = '\0';
    if (b->open(name, base ? trusted("X_USER") : nullptr,
                base ? trusted("X_PASSWD") : nullptr) != 0) {
        b->error(why);
        b->finish();
        return -1;
    }
    be = b;
    return 0;
}

void X_sstore_close() {
    if (!be) return;
    be->finish();
    be = nullptr;
    X_rowcount = saved_rowcount;
    X_INSERT_ID = saved_insert_id;
}

int X_sstore_pg() {
    return be == &X_pgsql;
}

int X_sstore_exec(const char *sql) {
    if (!be) return -1;
    return be->noselect(sql, 0, nullptr) == 0 ? 0 : fail_be();
}

int X_sstore_query(const char *sql, void (*row)(void *, int, X_val *), void *ctx) {
    if (!be) return -1;
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

int X_sstore_tables() {
    if (!be) return -1;
    if (be->noselect(TABLES, 0, nullptr) != 0) return fail_be();
    // Readers then never wait for the writer of another request.
    if (be == &X_sqlite) be->noselect("PRAGMA journal_mode=WAL", 0, nullptr);
    return 0;
}

const char *X_sstore_error() {
    return why;
}
