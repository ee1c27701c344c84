// Tolm: types, sizes and process-wide state shared by every subsystem.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sys/stat.h>

// ---- Sizes -------------------------------------------------------------
constexpr int X_MAXLINE = 65536;     // line, command and expansion buffers
constexpr int X_MAXREF = 32768;      // one $( ) reference and its expansion
constexpr int X_MAXPOST = 262144;    // one decoded form value
constexpr int X_MAXENT = 10000;      // rows of ent, the last always the end mark
constexpr int X_NOPEN = 32;          // rows of the stream table
constexpr int X_NSHM = 16;           // rows of the shared-memory table
constexpr int X_NSIG = 32;           // rows of the signal function table
constexpr int X_MAXVAL = 500;        // columns of one database row
constexpr int X_MAXNEST = 11;        // nested page runs

constexpr const char *X_VERSION_TEXT = "Tolm v.8.7-8";

// ---- Ordered tree ------------------------------------------------------
// Intrusive AVL node; embedded first in every record kept in a tree.
struct avl {
    avl *left;      // smaller keys
    avl *right;     // greater keys
    int balance;    // height(right) - height(left)
    void *key;      // NUL-terminated name of the owning record
    void *data;     // owner's payload, unused by the tree
};

// Tree handle: root and the order of two nodes (tree node first, probe second).
struct avl_tree {
    avl *root;
    int (*cmp)(avl *, avl *);
};

// ---- Block heap --------------------------------------------------------
// Header of every heap block; the data area follows it directly.
struct heapblock {
    heapblock *m_next;  // next block of the same chain
    int16_t m_used;     // small: bytes handed out; big: request size
    int16_t m_shift;    // small: bytes before the header in its allocation
};
using heapblock_t = heapblock;

// Arena handle: a chain of 1024-byte small blocks and a chain of big ones.
struct heapalloc {
    heapblock *smallreq;  // never empty while the arena lives
    heapblock *bigreq;    // NULL when there are none
};
using X_heap = heapalloc;

// ---- Variables ---------------------------------------------------------
// One value cell of a variable.
struct X_var {
    X_var *next;   // next value, NULL at the end
    char *value;   // text in the owning variable's heap
};

// One page variable; its name is stored right behind the record.
struct X_USER {
    struct avl avl;  // tree node; key points to name
    char *name;      // the variable's name
    X_var var;       // first value cell
    int16_t fixed;   // 0 ordinary, 1 read-only, 2 shared-memory buffer
    int16_t cookie;  // marker; for fixed 2 the buffer capacity
    int16_t clean;   // non-zero: counts as having no values
    int16_t request; // 1: set by the request (form field or cookie)
    X_heap *hp;      // the variable's own heap
    X_USER *next;    // result chain while clearing by pattern
    // A whole number kept beside the text: valid while the first value is
    // still num_of (the start of a block of hp) and its first 24 bytes are
    // still num_text (commands also edit texts in place).
    long num;
    const char *num_of;
    char num_text[24];
};

// ---- Pages and functions -----------------------------------------------
// A cached page image and its shared read position.
struct X_FILE {
    char *text;         // the whole file, NUL-terminated
    long offset;        // current read position in text
    long size;          // file size at loading
    struct stat stat;   // stat record at loading
    char path[256];     // the path as given; unterminated when it fills all 256
    X_FILE *next;       // next cached image
};

// A page function: where its body lies and its parameter names.
struct X_FUN {
    struct avl avl;  // tree node; key points to name
    char *name;      // function name
    X_FILE *file;    // image holding the body
    long offset;     // read position just after the function line
    X_var *var;      // parameter names, in order
    X_FUN *next;     // record link (unused)
};

// A command keyword node of the dispatch tree.
struct X_CMD {
    struct avl avl;  // tree node; key points to the keyword
    int16_t code;    // handler code
};

// The interpreter's one global container.
struct X_BUFFERS {
    X_FILE *files;       // cached page images
    X_FUN *functions;    // user functions (list head, unused)
    X_USER *x_USER;      // variable records (list head, unused)
    X_USER *freelist;    // released records (never filled)
    avl_tree vtree;      // variables by name
    avl_tree ftree;      // functions by name
    avl_tree ctree;      // command keywords
    X_heap *hp;          // run-wide heap
};

// ---- Form input --------------------------------------------------------
// One decoded request pair; both NULL marks the end of the list.
struct entry {
    char *name;
    char *val;   // NULL when the pair had no "="
};

// ---- Command tables ----------------------------------------------------
// A row of the stream table; fp NULL means free.
struct X_OPEN {
    FILE *fp;
    char name[128];
};

// A row of the shared-memory attachment table; shm NULL means free.
struct X_SHM {
    char name[32];
    char *shm;
};

// One database result column; len <= 0 is SQL NULL.
struct X_val {
    char *name;
    char *value;
    int len;
};

// ---- Process-wide state ------------------------------------------------
// Logs (diag)
extern int Trace;             // trace mode 0..3
extern int Debug;             // debug mode 0..2
// Entry and exit (runtime)
extern X_BUFFERS x_BUFFERS;
extern FILE *X_fp;            // current output file, NULL for stdout
extern char *X_HOME;          // home of x.config and x.env
extern char *TMP_DIR;         // per-process temporary files
extern char *X_PAGE;          // page to run
extern char *X_ERROR;         // error page, or NULL
extern char *X_BASE;          // site base name
extern int X_BASE_hold;       // 1 when X_BASE is read-only
extern entry ent[X_MAXENT];   // decoded request pairs
// Output (page, subst)
extern FILE *X_stdout;        // output redirection of file blocks
extern int HTML;              // translate Latin bytes to entities on output
extern int IgnoreEmpty;       // drop empty lines and references
extern int X_len;             // >0: cut values to this many characters
extern int MY_fflush;         // flush policy
extern int DO_fflush;         // flush policy
extern char *DIR;             // directory of the running page
// Block control (page, control)
extern int Continue;          // skip the rest of the block
extern int Break;             // leave the enclosing loop or page run
extern int ContinueBreak;     // a return is unwinding to its call
extern char *Return;          // buffer of the running call's return value
// Errors (diag)
extern char X_ERRMSG[X_MAXLINE];
extern int err_trap;
extern char err_func[128];
// Form decoding (form)
extern const char *POST_errmsg;
// System commands (syscmd)
extern X_OPEN x_OPEN[X_NOPEN];
extern X_SHM x_SHM[X_NSHM];
extern char SignalFUNC[X_NSIG][32];
extern int X_eof;             // last stream read hit end of file
// Database (syscmd, db)
extern int X_sqlTRAP;
extern int X_sqlTRANS;
extern int X_sqlFUNC;
extern int X_sqlcase;
extern char TRAPfunc[64];
extern int X_sqlcode;
extern int X_rowcount;
extern long X_INSERT_ID;
extern int X_lines;

static_assert(sizeof(x_OPEN) / sizeof(x_OPEN[0]) == 32, "stream table has 32 rows");
static_assert(sizeof(x_SHM) / sizeof(x_SHM[0]) == 16, "shared-memory table has 16 rows");
