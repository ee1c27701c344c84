// Stream commands: named files and pipes in the 32-row stream table.
#pragma once

#include "x.h"

int X_io_fopen(char *line, int compile, int ignore);
int X_io_popen(char *line, int compile, int ignore);
int X_io_fclose(char *line, int compile, int ignore);
int X_io_pclose(char *line, int compile, int ignore);
int X_io_fgets(char *line, int compile, int ignore);
int X_io_fputs(char *line, int compile, int ignore);
int X_io_fseek(char *line, int compile, int ignore);
X_OPEN *X_find_stream(const char *name);
unsigned X_stream_closes(const X_OPEN *row);  // closes of that row so far  // first open row of that name, or NULL
