// The session store: two tables in the site's database, or in an SQLite
// file of the store's own.
//
//   tolm_sessions      sid, created, seen (seconds since the epoch), token
//   tolm_session_vars  sid, name, value: one row per session variable
//
// On SQLite the store has a connection of its own (never the page's),
// opened at its first use in a run and kept until X_sstore_close, with its
// few statements prepared once. On PostgreSQL it goes through the shared
// back end with cursor names of its own, connected only while it is used
// (X_sstore_idle lets go in between), so it never replaces the page's.
#pragma once

#include <initializer_list>

#include "x.h"

// The store's statements; their parameters ?1, ?2, ... come as X_sarg.
enum class X_SSQL {
    LOAD,         // sid: created, seen, token, name, value (name null: no variables)
    NEW,          // sid, created, seen, token
    TOUCH,        // sid, seen
    TOUCH_TOKEN,  // sid, seen, token
    FIND,         // sid: finds the session's row, and waits for a transaction that
                  // is removing it, without writing it
    PUT,          // sid, name, value: made or replaced while the session exists; the
                  // transaction makes, touches or finds the session's row first
    DEL,          // sid, name
    DROP_VARS,    // sid
    DROP,         // sid
    MOVE_VARS,    // new sid, old sid
    MOVE,         // new sid, old sid
    GC_VARS,      // idle limit, life limit, count: variables of expired sessions
    GC,           // the same sessions
    COUNT
};

// A parameter: the text, or the number num when text is null.
struct X_sarg {
    const char *text;
    long num;
};

// Opens the store when it is not open: the site's database when X_BASE
// (set by the site or the page, not the request) names one, else the SQLite
// file X_HOME/sessions-KEY.db. 0, or -1 with the reason in X_sstore_error().
int X_sstore_open();
// Between the load and the save: lets go of a shared back end's connection
// (PostgreSQL); the store's own SQLite connection stays open.
void X_sstore_idle();
// Closes the store; the page's database results are as they were before.
void X_sstore_close();
// Makes the tables when they are missing. 0 or -1.
int X_sstore_tables();
// Reads the session SID, calling row(ctx, 5, cols) for each row of LOAD.
// Opens the store, and makes the tables when the store has none. 0 or -1.
int X_sstore_load(const char *sid, void (*row)(void *, int, X_val *), void *ctx);
// One transaction: begin, statements, commit. SQLite runs each statement at
// once under the write lock; PostgreSQL sends them all with the commit.
// 0 or -1; a failed transaction is rolled back.
int X_sstore_begin();
int X_sstore_run(X_SSQL which, std::initializer_list<X_sarg> args);
int X_sstore_commit();
const char *X_sstore_error();
