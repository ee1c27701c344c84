// Placeholder until the module lands.
#include <unistd.h>
#include "syscmd/sql.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_sql(X_FILE *fp, char *line, int compile, int ignore) { return 0; }
int X_sqlexec(char *line, int compile, int ignore) { return 0; }
int X_sqltrap(char *line, int compile, int ignore) { return 0; }
int X_sqlnames(char *line, int compile, int ignore) { return 0; }
const char * X_get_base() { return nullptr; }
