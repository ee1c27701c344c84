// The database back end of this build: there is no database, so opening,
// selecting and running statements fail, and the rest does nothing.
#include "db/db.h"

#include "diag/diag.h"

int X_database(const char *, const char *, const char *)
{
    X_TRACE("X_database: ...");
    return -1;
}

int X_select_sql(int, const char *, const char *, X_heap *, int *, X_val *)
{
    X_TRACE("X_select_sql: ...");
    return -1;
}

int X_noselect_sql(const char *, int, X_val *)
{
    X_TRACE("X_noselect_sql: ...");
    return -1;
}

// Leaves buff as it is: there is no message to give.
int sql_error(char *)
{
    return 0;
}

int X_finish()
{
    return 0;
}
