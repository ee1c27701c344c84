// PostgreSQL back end: the interpreter's side of the tolm-pg companion.
#pragma once

// Uses fd as the channel to an already running companion (pid, or 0 when
// there is no process to wait for) instead of starting one; for tests.
void X_pg_attach(int fd, int pid);
