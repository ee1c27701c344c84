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

// Uploaded files of this run. X_upload_add records PATH, the value of a
// file field, with the file it names now (-1 when there is none, though
// the value is still known as a file field's);
// X_upload_is answers 1 when VAL is such a value (the same pointer);
// X_upload_cleanup removes the recorded files that still are where the
// decoder put them and returns how many it removed (none in a forked child).
int X_upload_add(const char *path);
int X_upload_is(const char *val);
int X_upload_cleanup();
// The content type is URL-encoded form data: exactly so, or in the safe
// profile also with parameters (";charset=UTF-8") and in any letter case.
int X_urlencoded();
