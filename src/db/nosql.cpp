// The back end without a database: opening, selecting and running
// statements fail, and the rest does nothing. It serves every database
// name that no real back end claims.
#include "db/db.h"

#include "diag/diag.h"

static int open_none(const char *, const char *, const char *)
{
    X_TRACE("X_database: ...");
    return -1;
}

static int select_none(int, const char *, const char *, X_heap *, int *, X_val *)
{
    X_TRACE("X_select_sql: ...");
    return -1;
}

static int noselect_none(const char *, int, X_val *)
{
    X_TRACE("X_noselect_sql: ...");
    return -1;
}

// Leaves buff as it is: there is no message to give.
static int error_none(char *)
{
    return 0;
}

static int finish_none()
{
    return 0;
}

const X_backend X_nosql = {"none", open_none, select_none, noselect_none, error_none,
                           finish_none};
