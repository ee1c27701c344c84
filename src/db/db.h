// Database back-end interface; this build links a back end without a database.
#pragma once

#include "x.h"

int X_database(const char *dbname, const char *user, const char *passwd);
int X_select_sql(int cmd, const char *cursor, const char *query, X_heap *dalloc, int *numb,
                 X_val *val);
int X_noselect_sql(const char *query, int numb, X_val *val);
int sql_error(char *buff);
int X_finish();
