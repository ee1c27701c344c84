// Chooses the back end by the database name and forwards the five
// operations to it. Until a real back end has opened a connection every
// operation goes to the back end without a database, so names that no real
// back end claims behave exactly as a build without a database.
//
// A visitor never picks the database: a real back end refuses X_BASE,
// X_USER and X_PASSWD when their values came from the request.
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "db/db.h"
#include "storage/store.h"

namespace {

const X_backend *active = &X_nosql;
char refusal[X_SQLERR];  // why the last open was refused before reaching a back end

bool starts(const char *s, const char *prefix)
{
    return strncmp(s, prefix, strlen(prefix)) == 0;
}

// The first of X_BASE, X_USER, X_PASSWD that the request set, or null.
const char *forged_login()
{
    for (const char *name : {"X_BASE", "X_USER", "X_PASSWD"})
        if (X_from_request(name)) return name;
    return nullptr;
}

}  // namespace

const X_backend *X_backend_for(const char *dbname)
{
    if (!dbname) return &X_nosql;
    if (starts(dbname, "sqlite:")) return &X_sqlite;
    if (starts(dbname, "postgresql://") || starts(dbname, "postgres://") || starts(dbname, "pg:"))
        return &X_pgsql;
    return &X_nosql;
}

const X_backend *X_backend_active()
{
    return active;
}

int X_database(const char *dbname, const char *user, const char *passwd)
{
    refusal[0] = '\0';
    const X_backend *b = X_backend_for(dbname);
    if (b != &X_nosql) {
        if (const char *name = forged_login()) {
            snprintf(refusal, sizeof refusal,
                     "%s was set by the request; only the site or the page may set it", name);
            return -1;
        }
    }
    active->finish();  // one connection at a time
    active = b;
    int rc = b->open(dbname, user, passwd);
    if (rc != 0 && b != &X_nosql) {
        b->error(refusal);  // keep the message: the failed back end is left
        active = &X_nosql;
    }
    return rc;
}

int X_select_sql(int cmd, const char *cursor, const char *query, X_heap *dalloc, int *numb,
                 X_val *val)
{
    return active->select(cmd, cursor, query, dalloc, numb, val);
}

int X_noselect_sql(const char *query, int numb, X_val *val)
{
    return active->noselect(query, numb, val);
}

int sql_error(char *buff)
{
    if (refusal[0]) {
        snprintf(buff, X_SQLERR, "%s", refusal);
        return 0;
    }
    return active->error(buff);
}

int X_finish()
{
    int rc = active->finish();
    active = &X_nosql;
    return rc;
}
