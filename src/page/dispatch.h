// Command dispatch: the keyword table, X_command and the block-body runner.
#pragma once

#include "x.h"

// One row of the keyword table.
struct X_CMDROW {
    const char *keyword;
    int code;
};

constexpr int X_NCMD = 54;  // 53 keywords and the empty end row
extern const X_CMDROW x_CMD[X_NCMD];
extern const char *const NEXT_name[4];

// Non-zero: the commands that leave the process (shell, fork, popen, sleep,
// usleep, chdir, unlink, shmat, shmdt, and the signal and alarm options) do
// nothing. Set by harnesses that run pages inside one long-lived process.
extern int X_sandbox;

int X_command(X_FILE *fp, char *buff, int *compile, int ignore);
int X_notfound(X_FILE *fp, int compile, int ignore);
int X_search_command(const char *keyword);
// The handler code that X_command gives the "<@" line BUFF, or 0 when the
// line goes straight to the assignment form.
int X_command_code(const char *buff);
