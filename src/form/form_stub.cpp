// Placeholder until the module lands.
#include <unistd.h>
#include "form/form.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int GetMethod() { return 0; }
int CheckEnctypeMethod() { return 0; }
int POST_parser(entry *list) { return 0; }
int GET_parser(entry *list, const char *pagename) { return 0; }
int GET_path(entry *list, const char *pagename) { return 0; }
int E_POST_parser(entry *list) { return 0; }
char * makeword(const char *line, char stop) { return nullptr; }
char * fmakeword(FILE *f, char stop, int *cl) { return nullptr; }
char x2c(const char *what) { return 0; }
void unescape_url(char *url) {}
void escape_url(const char *src, char *dst) {}
void plustospace(char *str) {}
int rind(const char *s, char c) { return 0; }
int ind(const char *s, char c) { return 0; }
int getLine(char *s, int n, FILE *f) { return 0; }
void escape_shell_cmd(char *cmd) {}
const char * GETenv(const char *name) { return nullptr; }
