// Shared-memory variables: shmat and shmdt.
#pragma once

int X_shmat(char *line, int compile, int ignore);
int X_shmdt(char *line, int compile, int ignore);
int SHM_del(const char *name);
