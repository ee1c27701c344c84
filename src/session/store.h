// The session store: two tables in a database reached through the same
// back ends as the page's database commands, on a connection of its own
// (opened and closed around each use, so it never meets the page's) and
// with cursor names of its own.
//
//   tolm_sessions      sid, created, seen (seconds since the epoch), token
//   tolm_session_vars  sid, name, value: one row per session variable
#pragma once

#include "x.h"

// Opens the store: the site's database when X_BASE (set by the site or the
// page, not the request) names one, else the SQLite file
// X_HOME/sessions-KEY.db. 0, or -1 with the reason in X_sstore_error().
int X_sstore_open();
void X_sstore_close();
int X_sstore_pg();  // 1 when the store is PostgreSQL (its SQL differs a little)
// Runs statements that return no rows. 0 or -1.
int X_sstore_exec(const char *sql);
// Runs a row query, calling row(ctx, ncols, cols) for each row. The tables
// are made on first use. 0 or -1.
int X_sstore_query(const char *sql, void (*row)(void *, int, X_val *), void *ctx);
// Makes the tables when they are missing. 0 or -1.
int X_sstore_tables();
const char *X_sstore_error();
