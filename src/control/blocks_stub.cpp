// Placeholder until the module lands.
#include <unistd.h>
#include "control/blocks.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_if(X_FILE *fp, char *buff, int compile, int ignore) { return 0; }
int X_while(X_FILE *fp, char *buff, int compile, int ignore) { return 0; }
int X_while_loop(X_FILE *fp, int compile) { return 0; }
int X_while_words(X_FILE *fp, const char *name, const char *sep, int compile) { return 0; }
int X_while_values(X_FILE *fp, const char *name, int compile) { return 0; }
int X_function(X_FILE *fp, char *buff, int compile, int ignore) { return 0; }
int X_call(char *buff, int compile, int ignore, char *ret) { return 0; }
int X_return(char *buff, int compile, int ignore) { return 0; }
int X_File(X_FILE *fp, char *buff, int compile, int ignore) { return 0; }
int X_xFile(X_FILE *fp, char *buff, int compile, int ignore) { return 0; }
