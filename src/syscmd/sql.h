// Database commands: sql, vsql, sqlexec, vsqlexec, sqltrap, sqlnames.
#pragma once

#include "x.h"

int X_sql(X_FILE *fp, char *line, int compile, int ignore);
int X_sqlexec(char *line, int compile, int ignore);
int X_sqltrap(char *line, int compile, int ignore);
int X_sqlnames(char *line, int compile, int ignore);
const char *X_get_base();
