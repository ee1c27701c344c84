// Definitions and start values of the process-wide state declared in x.h.
#include "x.h"

int Trace = 0;
int Debug = 0;

X_BUFFERS x_BUFFERS;
FILE *X_fp = nullptr;
char *X_HOME = nullptr;
char *TMP_DIR = nullptr;
char *X_PAGE = nullptr;
char *X_ERROR = nullptr;
char *X_BASE = nullptr;
int X_BASE_hold = 0;
entry ent[X_MAXENT];

FILE *X_stdout = nullptr;
int HTML = 1;
int IgnoreEmpty = 1;
int X_len = -1;
int MY_fflush = -1;
int DO_fflush = 1;
static char dot[] = ".";
char *DIR = dot;

int Continue = 0;
int Break = 0;
int ContinueBreak = 0;
char *Return = nullptr;

char X_ERRMSG[X_MAXLINE];
int err_trap = 0;
char err_func[128];

const char *POST_errmsg = nullptr;

X_OPEN x_OPEN[X_NOPEN];
X_SHM x_SHM[X_NSHM];
char SignalFUNC[X_NSIG][32];
int X_eof = 0;

int X_sqlTRAP = 1;
int X_sqlTRANS = 1;
int X_sqlFUNC = 0;
int X_sqlcase = 0;
char TRAPfunc[64];
int X_sqlcode = 0;
int X_rowcount = 0;
long X_INSERT_ID = 0;
int X_lines = 0;
