// Variable commands: set, vset, add, vadd, clear, replace.
#pragma once

int X_set(char *cmd, int compile, int ignore);
int X_vset(char *cmd, int compile, int ignore);
int X_add(char *cmd, int compile, int ignore);
int X_vadd(char *cmd, int compile, int ignore);
int X_clear(char *cmd, int compile, int ignore);
int X_replace(char *cmd, int compile, int ignore);
