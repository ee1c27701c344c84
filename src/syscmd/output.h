// Output and cookie commands: html, compile, cookie.
#pragma once

int X_html(char *line, int compile, int ignore);
int X_compile(char *line, int *compile, int ignore);
int X_cookie(char *line, int compile, int ignore);
