// The PostgreSQL back end. libpq stays out of the interpreter: the first
// PostgreSQL open of a run starts the companion program tolm-pg (found
// beside the interpreter, or at $TOLM_PG) on one end of a socketpair and
// hands it the operations (protocol in pgwire.h). Rows arrive in batches
// per cursor and are handed out one by one. The companion ends with the
// run; if it dies, the operations fail with a message, never a hang.
#include "db/pg.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "db/db.h"
#include "db/pgwire.h"
#include "diag/diag.h"
#include "storage/heap.h"

extern char **environ;

namespace {

constexpr int NCURSOR = 10;
constexpr int BATCH = 256;  // rows asked for at a time

struct Cursor {
    char name[16];       // the interpreter's cursor name; empty when free
    int ncols;           // columns of every row
    char **names;        // their names (malloc)
    pgw_frame batch;     // the last 'R' frame
    int64_t left;        // rows of batch not yet handed out
    bool done;           // the companion said there are no more rows
};

int chan = -1;        // socket to the companion, -1 when none
pid_t child;          // the companion's process, 0 when not ours
pgw_frame req, ans;   // frames being sent and received
Cursor cursors[NCURSOR];
char last[X_SQLERR];  // text of the last error

int fail(const char *msg)
{
    snprintf(last, sizeof last, "%s", msg);
    return -1;
}

void hang_up()
{
    if (chan >= 0) close(chan);
    chan = -1;
    if (child > 0) {  // it ends on end of input; one stuck on its server gets a second
        int i = 0;
        while (waitpid(child, nullptr, WNOHANG) == 0) {
            if (++i > 5000) {
                kill(child, SIGKILL);
                waitpid(child, nullptr, 0);
                break;
            }
            timespec ts{0, 200 * 1000};
            nanosleep(&ts, nullptr);
        }
    }
    child = 0;
}

// Sends req and reads the answer into ans. 0 when the answer has the
// wanted type; -1 after an 'E' answer (its text kept) or a lost companion.
int ask(char want)
{
    if (chan < 0) return fail("the database companion is not running");
    if (pgw_send(chan, &req) != 0 || pgw_recv(chan, &ans) != 0) {
        hang_up();
        return fail("the database companion tolm-pg ended unexpectedly");
    }
    char type = ans.data[0];
    if (type == want) return 0;
    const char *msg;
    uint32_t len;
    if (type == 'E' && pgw_get_text(&ans, &msg, &len) && msg) {
        snprintf(last, sizeof last, "%.*s", static_cast<int>(len), msg);
        return -1;
    }
    hang_up();
    return fail("the database companion sent a bad answer");
}

// The companion program: $TOLM_PG, or tolm-pg beside the interpreter.
void companion_path(char *path, size_t cap)
{
    const char *env = getenv("TOLM_PG");
    if (env && *env) {
        snprintf(path, cap, "%s", env);
        return;
    }
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    self[n > 0 ? n : 0] = '\0';
    char *slash = strrchr(self, '/');
    if (slash) *slash = '\0';
    snprintf(path, cap, "%s/tolm-pg", slash ? self : ".");
}

int start_companion()
{
    char path[4200];
    companion_path(path, sizeof path);
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv) != 0)
        return fail("cannot make the channel to the database companion");
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, sv[1], 0);  // its input and answers
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);  // never the page
    char *argv[] = {path, nullptr};
    pid_t pid;
    int rc = posix_spawn(&pid, path, &fa, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&fa);
    close(sv[1]);
    if (rc != 0) {
        close(sv[0]);
        char msg[X_SQLERR];
        snprintf(msg, sizeof msg, "cannot start the database companion %.150s: %s", path,
                 strerror(rc));
        return fail(msg);
    }
    X_pg_attach(sv[0], pid);
    return 0;
}

Cursor *find(const char *name, bool make)
{
    return pgw_cursor(cursors, name, make);
}

void forget(Cursor *c)
{
    for (int i = 0; i < c->ncols; i++) free(c->names[i]);
    free(c->names);
    pgw_free(&c->batch);
    *c = Cursor{};
}

int open_pg(const char *dbname, const char *user, const char *passwd)
{
    X_TRACE("X_database: %s", dbname);
    if (chan < 0 && start_companion() != 0) return -1;
    const char *conninfo = strncmp(dbname, "pg:", 3) == 0 ? dbname + 3 : dbname;
    pgw_reset(&req, 'O');
    pgw_put_str(&req, conninfo);
    pgw_put_str(&req, user);
    pgw_put_str(&req, passwd);
    if (ask('K') == 0) return 0;
    hang_up();
    return -1;
}

int open_cursor(const char *cursor, const char *query)
{
    Cursor *c = find(cursor, true);
    if (!c) return fail("no free cursor");
    if (c->ncols || c->batch.data) forget(c);
    snprintf(c->name, sizeof c->name, "%s", cursor);
    pgw_reset(&req, 'S');
    pgw_put_str(&req, cursor);
    pgw_put_str(&req, query);
    int64_t n;
    if (ask('C') != 0) {
        forget(c);
        return -1;
    }
    if (!pgw_get_num(&ans, &n) || n < 0) {
        forget(c);
        return fail("the database companion sent a bad answer");
    }
    if (n > X_MAXVAL) {
        char msg[X_SQLERR];
        snprintf(msg, sizeof msg, "the result has %lld columns; at most %d are allowed",
                 static_cast<long long>(n), X_MAXVAL);
        pgw_reset(&req, 'Z');
        pgw_put_str(&req, cursor);
        ask('K');
        forget(c);
        return fail(msg);
    }
    c->names = static_cast<char **>(calloc(static_cast<size_t>(n) + 1, sizeof(char *)));
    for (int i = 0; i < n; i++) {
        const char *s;
        uint32_t len;
        if (!pgw_get_text(&ans, &s, &len)) s = "", len = 0;
        c->names[i] = strndup(s ? s : "", len);
        c->ncols = i + 1;
    }
    return 0;
}

// Asks for the next batch of c's rows.
int refill(Cursor *c)
{
    pgw_reset(&req, 'F');
    pgw_put_str(&req, c->name);
    pgw_put_num(&req, BATCH);
    if (ask('R') != 0) return -1;
    int64_t rows, cols;
    if (!pgw_get_num(&ans, &rows) || !pgw_get_num(&ans, &cols) || rows < 0 ||
        (rows && cols != c->ncols))
        return fail("the database companion sent a bad answer");
    pgw_frame tmp = c->batch;  // keep the answer; ans takes the old buffer
    c->batch = ans;
    ans = tmp;
    c->left = rows;
    c->done = rows == 0;
    return 0;
}

char *heap_text(X_heap *hp, const char *s, uint32_t len)
{
    auto *t = static_cast<char *>(X_heap_alloc(hp, static_cast<int>(len) + 1));
    if (!t) return nullptr;
    if (len) memcpy(t, s, len);
    t[len] = '\0';
    return t;
}

int fetch(const char *cursor, X_heap *hp, int *numb, X_val *val)
{
    Cursor *c = find(cursor, false);
    if (!c) return fail("the cursor is not open");
    if (!c->left && !c->done && refill(c) != 0) return -1;
    if (c->done) return X_FETCH_END;
    for (int i = 0; i < c->ncols; i++) {
        const char *s;
        uint32_t len;
        if (!pgw_get_text(&c->batch, &s, &len)) return fail("the database companion sent a bad answer");
        if (len > static_cast<uint32_t>(X_MAXCELL)) {
            char msg[X_SQLERR];
            snprintf(msg, sizeof msg, "column %.60s holds %u bytes; at most %d are allowed",
                     c->names[i], len, X_MAXCELL);
            return fail(msg);
        }
        val[i].name = heap_text(hp, c->names[i], static_cast<uint32_t>(strlen(c->names[i])));
        val[i].value = heap_text(hp, s ? s : "", len);
        val[i].len = s ? static_cast<int>(len) : 0;
        if (!val[i].name || !val[i].value) return fail("out of memory");
    }
    c->left--;
    *numb = c->ncols;
    return 0;
}

int close_cursor(const char *cursor)
{
    Cursor *c = find(cursor, false);
    if (!c) return 0;
    forget(c);
    if (chan < 0) return 0;
    pgw_reset(&req, 'Z');
    pgw_put_str(&req, cursor);
    return ask('K');
}

int select_pg(int cmd, const char *cursor, const char *query, X_heap *hp, int *numb,
              X_val *val)
{
    X_TRACE("X_select_sql: cmd: %d cursor: %s", cmd, cursor ? cursor : "");
    if (!cursor) return fail("no cursor");
    if (cmd == 0) return query ? open_cursor(cursor, query) : fail("no query");
    if (cmd == 1) return fetch(cursor, hp, numb, val);
    return close_cursor(cursor);
}

int noselect_pg(const char *query, int, X_val *)
{
    X_TRACE("X_noselect_sql: %s", query ? query : "");
    pgw_reset(&req, 'X');
    pgw_put_str(&req, query ? query : "");
    if (ask('D') != 0) return -1;
    int64_t rows = 0, has_id = 0, id = 0;
    pgw_get_num(&ans, &rows);
    pgw_get_num(&ans, &has_id);
    pgw_get_num(&ans, &id);
    X_rowcount = rows > INT_MAX ? INT_MAX : static_cast<int>(rows);
    if (has_id) X_INSERT_ID = static_cast<long>(id);
    return 0;
}

int error_pg(char *buff)
{
    snprintf(buff, X_SQLERR, "%s", last);
    return 0;
}

int finish_pg()
{
    for (Cursor &c : cursors)
        if (c.name[0]) forget(&c);
    hang_up();
    pgw_free(&req);
    pgw_free(&ans);
    return 0;
}

}  // namespace

void X_pg_attach(int fd, int pid)
{
    if (chan >= 0) finish_pg();
    chan = fd;
    child = pid;
}

const X_backend X_pgsql = {"postgresql", open_pg, select_pg, noselect_pg, error_pg, finish_pg};
