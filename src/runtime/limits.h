// Per-site limits on what one request may cost: the body and what it
// decodes to, checked before the page sees any of it, and the processor
// time, address space, file size and wall-clock time of the run. Each limit
// is a setting of x.site (0: none, the default); in shell mode the x.env
// variables X_CPU_SECONDS, X_MEMORY, X_FILE_SIZE and X_TIME_LIMIT set the
// run limits too.
#pragma once

#include "x.h"

// Before a POST body is read: 0 when its CONTENT_LENGTH is within
// max_body; else -1, and the refusal is pending.
int X_limit_body();
// After decoding, before the page: 0 when the pairs, upload files and the
// size of each upload are within max_pairs, max_uploads and max_upload;
// else -1, the refusal is pending and LIST is emptied.
int X_limit_form(entry *list);
// Reports a pending refusal through the error path, with the status 413
// (which ends the run); returns 0 when there is none.
int X_limit_refusal();
// Puts the run limits in force: cpu_seconds, memory and file_size through
// setrlimit, and the wall clock of time_limit. A run over its processor or
// wall-clock time is ended through the error path with a message of ours.
int X_limit_run(int shell);
