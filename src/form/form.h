// Form input: request method, query strings, URL-encoded and multipart posts,
// and the escape helpers.
#pragma once

#include <cstdio>
#include "x.h"

int GetMethod();
int CheckEnctypeMethod();
int POST_parser(entry *list);
int GET_parser(entry *list, const char *pagename);
int GET_path(entry *list, const char *pagename);
int E_POST_parser(entry *list);
char *makeword(const char *line, char stop);
char *fmakeword(FILE *f, char stop, int *cl);
char x2c(const char *what);
void unescape_url(char *url);
void escape_url(const char *src, char *dst);
void plustospace(char *str);
int rind(const char *s, char c);
int ind(const char *s, char c);
int getLine(char *s, int n, FILE *f);
void escape_shell_cmd(char *cmd);
const char *GETenv(const char *name);
