// Command dispatch: keywords to handlers, and the block-body runner.
#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "control/blocks.h"
#include "control/let.h"
#include "control/option.h"
#include "diag/diag.h"
#include "page/dispatch.h"
#include "page/page.h"
#include "page/prepared.h"
#include "runtime/runtime.h"
#include "session/session.h"
#include "storage/heap.h"
#include "storage/tree.h"
#include "subst/varcmd.h"
#include "syscmd/headers.h"
#include "syscmd/output.h"
#include "syscmd/process.h"
#include "syscmd/shm.h"
#include "syscmd/sql.h"
#include "syscmd/streams.h"
#include "subst/subst.h"

constexpr X_CMDROW x_CMD[X_NCMD] = {
    {"option", 1},    {"compile", 2},    {"html", 3},     {"sqltrap", 4},   {"sleep", 5},
    {"usleep", 6},    {"chdir", 7},      {"sqlnames", 8}, {"quit", 9},      {"shell", 10},
    {"set", 11},      {"vset", 44},      {"add", 12},     {"vadd", 45},     {"include", 13},
    {"error", 14},    {"unlink", 15},    {"clear", 16},   {"cookie", 17},   {"fork", 18},
    {"file", 19},     {"xfile", 20},     {"replace", 21}, {"while", 22},    {"if", 23},
    {"elif", 24},     {"function", 25},  {"call", 26},    {"exec", 27},     {"return", 28},
    {"sql", 29},      {"vsql", 42},      {"sqlexec", 30}, {"vsqlexec", 43}, {"fopen", 31},
    {"popen", 32},    {"fclose", 33},    {"pclose", 34},  {"fgets", 35},    {"fputs", 36},
    {"vfputs", 41},   {"fseek", 37},     {"shmat", 38},   {"shmdt", 39},    {"end", 40},
    {"continue", 40}, {"break", 40},     {"setheader", 46}, {"status", 47}, {"redirect", 48},
    {"setcookie", 49}, {"clearcookie", 50}, {"session", 51}, {nullptr, 0},
};

const char *const NEXT_name[4] = {"none", "EOL", "AND", "OR"};

int X_sandbox = 0;

namespace {

constexpr int kMaxCode = 51;

// How dispatch treats a handler.
enum Kind {
    NONE,    // code without a handler: not a command
    PLAIN,   // dispatch traces, honours ignore, passes the line
    COMPILE, // as PLAIN, the handler may change the run's compile flag
    BLOCK,   // skipped by dispatch under ignore, else reads its own body
    SELF,    // decides for itself what ignore means; traced unless nameless (if)
    QUIT,
    INCLUDE,
};

using Plain = int (*)(char *, int, int);
using Compile = int (*)(char *, int *, int);
using Block = int (*)(X_FILE *, char *, int, int);

struct Handler {
    Kind kind;
    const char *name;  // traced by dispatch; the block handlers' own trace format
    Plain plain;
    Compile comp;
    Block block;
};

int call_self(char *b, int c, int i) { return X_call(b, c, i, nullptr); }

// Handlers by code; the keyword table above is the only list of keywords.
constexpr Handler handlers[kMaxCode + 1] = {
    /* 0 */ {NONE, nullptr, nullptr, nullptr, nullptr},
    /* 1 */ {COMPILE, "X_option", nullptr, X_option, nullptr},
    /* 2 */ {COMPILE, "X_compile", nullptr, X_compile, nullptr},
    /* 3 */ {PLAIN, "X_html", X_html, nullptr, nullptr},
    /* 4 */ {PLAIN, "X_sqltrap", X_sqltrap, nullptr, nullptr},
    /* 5 */ {PLAIN, "X_sleep", X_sleep, nullptr, nullptr},
    /* 6 */ {PLAIN, "X_usleep", X_usleep, nullptr, nullptr},
    /* 7 */ {PLAIN, "X_chdir", X_chdir, nullptr, nullptr},
    /* 8 */ {PLAIN, "X_sqlnames", X_sqlnames, nullptr, nullptr},
    /* 9 */ {QUIT, nullptr, nullptr, nullptr, nullptr},
    /* 10 */ {PLAIN, "X_shell", X_shell, nullptr, nullptr},
    /* 11 */ {PLAIN, "X_set", X_set, nullptr, nullptr},
    /* 12 */ {PLAIN, "X_add", X_add, nullptr, nullptr},
    /* 13 */ {INCLUDE, nullptr, nullptr, nullptr, nullptr},
    /* 14 */ {PLAIN, "X_error", X_error, nullptr, nullptr},
    /* 15 */ {PLAIN, "X_unlink", X_unlink, nullptr, nullptr},
    /* 16 */ {PLAIN, "X_clear", X_clear, nullptr, nullptr},
    /* 17 */ {PLAIN, "X_cookie", X_cookie, nullptr, nullptr},
    /* 18 */ {PLAIN, "X_fork", X_fork, nullptr, nullptr},
    /* 19 */ {BLOCK, "X_file: {%s} compile: %d  ignore: %d \n", nullptr, nullptr, X_File},
    /* 20 */ {BLOCK, "X_xfile: {%s} compile: %d  ignore: %d \n", nullptr, nullptr, X_xFile},
    /* 21 */ {PLAIN, "X_replace", X_replace, nullptr, nullptr},
    /* 22 */ {BLOCK, "X_while: {%s} compile: %d ignore: %d \n", nullptr, nullptr, X_while},
    /* 23 */ {SELF, nullptr, nullptr, nullptr, X_if},
    /* 24 */ {SELF, nullptr, nullptr, nullptr, X_if},
    /* 25 */ {BLOCK, "X_function: {%s} compile: %d ignore: %d \n", nullptr, nullptr, X_function},
    /* 26 */ {SELF, "X_call", call_self, nullptr, nullptr},
    /* 27 */ {PLAIN, "X_exec", X_exec, nullptr, nullptr},
    /* 28 */ {PLAIN, "X_return", X_return, nullptr, nullptr},
    /* 29 */ {SELF, "X_sql", nullptr, nullptr, X_sql},
    /* 30 */ {SELF, "X_sqlexec", X_sqlexec, nullptr, nullptr},
    /* 31 */ {PLAIN, "X_io_fopen", X_io_fopen, nullptr, nullptr},
    /* 32 */ {PLAIN, "X_io_popen", X_io_popen, nullptr, nullptr},
    /* 33 */ {PLAIN, "X_io_fclose", X_io_fclose, nullptr, nullptr},
    /* 34 */ {PLAIN, "X_io_pclose", X_io_pclose, nullptr, nullptr},
    /* 35 */ {PLAIN, "X_io_fgets", X_io_fgets, nullptr, nullptr},
    /* 36 */ {SELF, "X_io_fputs", X_io_fputs, nullptr, nullptr},
    /* 37 */ {PLAIN, "X_io_fseek", X_io_fseek, nullptr, nullptr},
    /* 38 */ {PLAIN, "X_shmat", X_shmat, nullptr, nullptr},
    /* 39 */ {PLAIN, "X_shmdt", X_shmdt, nullptr, nullptr},
    /* 40 */ {NONE, nullptr, nullptr, nullptr, nullptr},
    /* 41 */ {SELF, "X_io_fputs", X_io_fputs, nullptr, nullptr},
    /* 42 */ {SELF, "X_sql", nullptr, nullptr, X_sql},
    /* 43 */ {SELF, "X_sqlexec", X_sqlexec, nullptr, nullptr},
    /* 44 */ {PLAIN, "X_vset", X_vset, nullptr, nullptr},
    /* 45 */ {PLAIN, "X_vadd", X_vadd, nullptr, nullptr},
    /* 46 */ {PLAIN, "X_setheader", X_setheader, nullptr, nullptr},
    /* 47 */ {PLAIN, "X_status", X_status, nullptr, nullptr},
    /* 48 */ {PLAIN, "X_redirect", X_redirect, nullptr, nullptr},
    /* 49 */ {PLAIN, "X_setcookie", X_setcookie, nullptr, nullptr},
    /* 50 */ {PLAIN, "X_clearcookie", X_clearcookie, nullptr, nullptr},
    /* 51 */ {PLAIN, "X_session", X_session, nullptr, nullptr},
};

// The keywords in the order of their names, sorted by the compiler.
constexpr auto BY_NAME = [] {
    constexpr int n = X_NCMD - 1;
    std::array<int8_t, n> at{};
    for (int i = 0; i < n; i++) at[i] = static_cast<int8_t>(i);
    for (int i = 1; i < n; i++)
        for (int j = i; j > 0 && std::string_view(x_CMD[at[j]].keyword) <
                                      std::string_view(x_CMD[at[j - 1]].keyword); j--)
            std::swap(at[j], at[j - 1]);
    return at;
}();

// The keywords and their codes in the order of BY_NAME.
constexpr auto NAMES = [] {
    std::array<std::string_view, X_NCMD - 1> at{};
    for (size_t i = 0; i < at.size(); i++) at[i] = x_CMD[BY_NAME[i]].keyword;
    return at;
}();

// Builds the keyword tree on first use, every keyword inserted as the trace
// shows it.
void build_tree() {
    static int init;
    if (init) return;
    init = 1;
    for (const X_CMDROW *r = x_CMD; r->keyword; r++) {
        auto *node = static_cast<X_CMD *>(X_heap_alloc(x_BUFFERS.hp, sizeof(X_CMD)));
        if (!node) return;
        node->avl.key = const_cast<char *>(r->keyword);
        node->code = static_cast<int16_t>(r->code);
        AVL_insert(&x_BUFFERS.ctree, &node->avl);
    }
}

// The code of KEYWORD, or -1. Only a trace or debug log can tell how it was
// found: without them the sorted table is searched and no tree is built.
int search(const char *keyword) {
    if (!Trace && !Debug) {
        std::string_view k = keyword;
        const auto *at = std::lower_bound(NAMES.begin(), NAMES.end(), k);
        return at != NAMES.end() && *at == k ? x_CMD[BY_NAME[at - NAMES.begin()]].code : -1;
    }
    build_tree();
    auto *node = reinterpret_cast<X_CMD *>(AVL_search(&x_BUFFERS.ctree, keyword));
    return node ? node->code : -1;
}

int let(char *buff, int compile, int ignore) {
    return X_let(buff, compile, ignore) == 0 ? 0 : -1;
}

// Handlers that reach outside the process: consumed and skipped in a sandbox.
bool sandboxed(const Handler &h) {
    static constexpr Plain outside[] = {X_shell, X_fork, X_io_popen, X_sleep, X_usleep,
                                        X_chdir, X_unlink, X_shmat, X_shmdt};
    for (Plain p : outside)
        if (h.plain == p) return true;
    return false;
}

// Runs the handler of CODE on the command line BUFF.
int run(const Handler &h, X_FILE *fp, char *buff, int *compile, int ignore) {
    if (X_sandbox && sandboxed(h)) return 0;
    int r = -1;
    switch (h.kind) {
    case NONE:
        return -1;
    case PLAIN:
    case COMPILE:
        X_TRACE("%s: buff= %s; compile= %d ignore: %d \n", h.name, buff, *compile, ignore);
        if (ignore) return 0;
        r = h.kind == PLAIN ? h.plain(buff, *compile, 0) : h.comp(buff, compile, 0);
        break;
    case BLOCK:
        if (Trace) X_trace(h.name, buff, *compile, ignore);
        if (ignore) {
            X_notfound(fp, *compile, ignore);
            return 0;
        }
        r = h.block(fp, buff, *compile, 0);
        break;
    case SELF:
        if (h.name) X_TRACE("%s: buff= %s; compile= %d ignore: %d \n", h.name, buff, *compile, ignore);
        r = h.block ? h.block(fp, buff, *compile, ignore) : h.plain(buff, *compile, ignore);
        break;
    case QUIT:
        if (ignore) return 0;
        X_DEBUG("%s \n", buff);
        X_exit(0);
    case INCLUDE:
        X_TRACE("X_include: {%s} compile: %d  ignore: %d \n", buff, *compile, ignore);
        if (!ignore) {
            X_DEBUG("%s \n", buff);
            X_trans_printfile(buff + 10, *compile);
        }
        return 0;
    }
    return r == 0 ? 0 : let(buff, *compile, ignore);
}

}  // namespace

int X_search_command(const char *keyword) {
    return search(keyword);
}

int X_command_code(const char *buff) {
    const char *k = buff + 2;
    int n = 0;
    while (n < 16 && k[n] && k[n] != '>') n++;
    if (n == 16 || k[n] != '>') return 0;
    char keyword[16];
    memcpy(keyword, k, n);
    keyword[n] = 0;
    int code = search(keyword);
    return code < 1 || code > kMaxCode ? 0 : code;
}

namespace {

// Tells the server log about a well-formed command line whose keyword is
// not known (and that is no assignment either). "<@else>" reaches dispatch
// inside a taken branch on its way to the block runner: it is known, just
// not here.
void unknown_command(const char *buff) {
    const char *k = buff + 2;
    size_t n = strcspn(k, ">");
    if (n < 16 && k[n] == '>' && std::string_view(k, n) != "else")
        X_warn("unknown command <@%.*s>", static_cast<int>(n), k);
}

}  // namespace

// Dispatches one command line: 0 when it was consumed as a command, -1 when
// the caller is to treat it as text.
int X_command(X_FILE *fp, char *buff, int *compile, int ignore) {
    cut_cmd(fp, buff);
    if (buff[0] != '<' || buff[1] != '@') return -1;
    int code = X_command_code(buff);
    if (!code) {
        int r = let(buff, *compile, ignore);
        if (r != 0 && !ignore) unknown_command(buff);
        return r;
    }
    return run(handlers[code], fp, buff, compile, ignore);
}

// Runs (ignore 0) or skips the lines of a block body up to its <@end>,
// honouring <@continue> and <@break>.
int X_notfound(X_FILE *fp, int compile, int ignore) {
    if (int r; X_stack_moved(r, [&] { return X_notfound(fp, compile, ignore); })) return r;
    X_TRACE("X_notfound: compile: %d ignore: %d ## Continue: %d  Break: %d \n", compile, ignore,
            Continue, Break);
    if (X_stack_low()) {
        ERRMSG("Nesting too deep: blocks and calls exceed the interpreter's stack \n");
        return 0;
    }
    char line[X_MAXLINE];
    for (;;) {
        if (X_LINE *row = X_line_at(fp)) {
            // A prepared line: block ends and planned lines run here.
            if (Continue || ContinueBreak) ignore = 1;
            fp->offset = row->end;
            if (row->kind == X_LINE_END) return 0;
            if (row->kind == X_LINE_CONTINUE || row->kind == X_LINE_BREAK) {
                if (!ignore) Continue = 1;
                if (!ignore && row->kind == X_LINE_BREAK) Break = 1;
                continue;
            }
            if (ignore && (X_line_skips(row) || row->kind == X_LINE_ELSE)) continue;
            if (ignore && row->kind == X_LINE_IFBLOCK) {  // a nested block passed over
                X_notfound(fp, compile, 1);
                continue;
            }
            if (!ignore && X_line_run(row, compile) == 0) continue;
            memcpy(line, row->text, row->len + 1);
            if (!ignore && compile && row->kind == X_LINE_IFBLOCK && row->planned &&
                X_if_block(fp, line, &row->if_plan, compile) == 0)
                continue;
        } else {
            if (!X_fgets(line, sizeof line, fp)) break;
            if (Continue || ContinueBreak) ignore = 1;
            cut_cmd(fp, line);
        }
        if (line[0] == '<' && line[1] == '@' && X_command(fp, line, &compile, ignore) == 0) continue;
        if (strncmp(line, "<@end>", 6) == 0) return 0;
        if (strncmp(line, "<@continue>", 11) == 0) {
            if (!ignore) Continue = 1;
            X_TRACE("X_notfound: [continue] ==> %d \n", Continue);
            continue;
        }
        if (strncmp(line, "<@break>", 8) == 0) {
            if (!ignore) Continue = Break = 1;
            X_TRACE("X_notfound: [break] ==> Continue= %d \n", Continue);
            continue;
        }
        if (ignore) continue;
        if (IgnoreEmpty && line[0] == '\n') continue;
        if (compile) X_transline(line, nullptr, compile);
        else transvalue(line, nullptr);
    }
    X_warn("a block is still open at the end of the page");
    return 0;
}
