// Database commands: sql, vsql, sqlexec, vsqlexec, sqltrap, sqlnames.
#pragma once

#include "x.h"

int X_sql(X_FILE *fp, char *line, int compile, int ignore);
int X_sqlexec(char *line, int compile, int ignore);
int X_sqltrap(char *line, int compile, int ignore);
int X_sqlnames(char *line, int compile, int ignore);
const char *X_get_base();

// Connects when needed and hands out a free cursor name, or "none" after
// reporting why there is none.
const char *X_get_cid();
// Runs one statement that returns no rows: 0, or -1 on an error or on a
// transaction statement suppressed by sqltrap.
int X_sqlline(const char *query);
// Runs the block of an "sql" command once per row of the open cursor cid,
// with the row's columns as variables; answers the number of rows fetched.
int X_found(const char *cid, X_heap *hp, X_FILE *fp, int compile);
