// Placeholder until the module lands.
#include <unistd.h>
#include "db/db.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_database(const char *dbname, const char *user, const char *passwd) { return 0; }
int X_select_sql(int cmd, const char *cursor, const char *query, X_heap *dalloc, int *numb, X_val *val) { return 0; }
int X_noselect_sql(const char *query, int numb, X_val *val) { return 0; }
int sql_error(char *buff) { return 0; }
int X_finish() { return 0; }
