// tolm-pg: the interpreter's PostgreSQL companion. It holds the libpq
// connection, so the interpreter itself needs no libpq. It reads requests
// from its standard input, a socket shared with the interpreter, and writes
// the answers back on it (frames and requests: db/pgwire.h). It ends when
// the interpreter closes the socket.
//
// X_INSERT_ID: after a statement whose command tag is INSERT the companion
// asks the server for lastval(), the value most recently taken from a
// sequence (a serial or identity column) in this session. Inside a
// transaction the question is put under a savepoint, so an insert without a
// sequence cannot spoil the page's transaction.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libpq-fe.h>
#include <strings.h>

#include "db/pgwire.h"

namespace {

constexpr int IN = 0;  // the socket to the interpreter
constexpr int NCURSOR = 10;
constexpr int64_t MAXBATCH = 10000;

struct Cursor {
    char name[16];    // the interpreter's name; empty when free
    bool open;        // a server cursor is declared under that name
    PGresult *held;   // a row query run at once
    int next;         // next row of held
};

PGconn *conn;
Cursor cursors[NCURSOR];
pgw_frame in, out;

// The first line of a message, without the trailing line break.
void put_message(const char *msg)
{
    if (!msg || !*msg) msg = "unknown database error";
    size_t n = strcspn(msg, "\n");
    pgw_reset(&out, 'E');
    pgw_put_text(&out, msg, n);
}

void put_result_error(PGresult *res)
{
    const char *primary = res ? PQresultErrorField(res, PG_DIAG_MESSAGE_PRIMARY) : nullptr;
    put_message(primary ? primary : PQerrorMessage(conn));
}

bool good(PGresult *res)
{
    ExecStatusType st = PQresultStatus(res);
    return st == PGRES_COMMAND_OK || st == PGRES_TUPLES_OK;
}

// Runs a statement of the companion's own; true when it worked.
bool run(const char *sql)
{
    PGresult *res = PQexec(conn, sql);
    bool ok = good(res);
    PQclear(res);
    return ok;
}

// The server cursor's name for the interpreter's cursor name.
void server_name(const char *name, char *buf, size_t cap)
{
    snprintf(buf, cap, "tolm_%s", name);
}

Cursor *find(const char *name, bool make)
{
    return pgw_cursor(cursors, name, make);
}

void drop(Cursor *c)
{
    if (c->held) {
        PQclear(c->held);
    } else if (c->open && conn && PQtransactionStatus(conn) != PQTRANS_INERROR) {
        char sn[32], sql[64];
        server_name(c->name, sn, sizeof sn);
        snprintf(sql, sizeof sql, "CLOSE %s", sn);
        run(sql);
    }
    *c = Cursor{};
}

bool is_select(const char *q)
{
    while (*q == ' ' || *q == '\t' || *q == '\n' || *q == '\r' || *q == '(') q++;
    return strncasecmp(q, "select", 6) == 0 || strncasecmp(q, "with", 4) == 0 ||
           strncasecmp(q, "values", 6) == 0;
}

void do_open(const char *conninfo, const char *user, const char *passwd)
{
    if (conn) PQfinish(conn);
    const char *keys[] = {"connect_timeout", "dbname", "user", "password", nullptr};
    const char *vals[] = {"10", conninfo, user, passwd, nullptr};
    conn = PQconnectdbParams(keys, vals, 1);
    if (PQstatus(conn) != CONNECTION_OK) {
        put_message(PQerrorMessage(conn));
        PQfinish(conn);
        conn = nullptr;
        return;
    }
    PQsetClientEncoding(conn, "UTF8");
    PQsetNoticeProcessor(conn, [](void *, const char *) {}, nullptr);  // notices are no errors
    pgw_reset(&out, 'K');
}

void put_names(PGresult *res)
{
    int n = PQnfields(res);
    pgw_reset(&out, 'C');
    pgw_put_num(&out, n);
    for (int i = 0; i < n; i++) pgw_put_str(&out, PQfname(res, i));
}

void do_select(const char *name, const char *query)
{
    Cursor *c = find(name, true);
    if (!c) return put_message("no free cursor");
    if (c->held || c->open) drop(c);
    snprintf(c->name, sizeof c->name, "%s", name);
    if (!is_select(query)) {  // show, execute: run now, hand out later
        PGresult *res = PQexec(conn, query);
        if (PQresultStatus(res) != PGRES_TUPLES_OK) {
            put_result_error(res);
            PQclear(res);
            *c = Cursor{};
            return;
        }
        c->held = res;
        return put_names(res);
    }
    char sn[32];
    server_name(name, sn, sizeof sn);
    size_t len = strlen(query) + 80;
    auto *sql = static_cast<char *>(malloc(len));
    snprintf(sql, len, "DECLARE %s NO SCROLL CURSOR WITH HOLD FOR %s", sn, query);
    PGresult *res = PQexec(conn, sql);
    free(sql);
    bool ok = good(res);
    if (!ok) put_result_error(res);
    PQclear(res);
    if (!ok) {
        *c = Cursor{};
        return;
    }
    c->open = true;
    res = PQdescribePortal(conn, sn);
    if (!good(res)) {
        put_result_error(res);
        PQclear(res);
        drop(c);
        return;
    }
    put_names(res);
    PQclear(res);
}

void put_rows(PGresult *res, int from, int count)
{
    int cols = PQnfields(res);
    pgw_reset(&out, 'R');
    pgw_put_num(&out, count);
    pgw_put_num(&out, cols);
    for (int r = from; r < from + count; r++)
        for (int i = 0; i < cols; i++)
            pgw_put_text(&out, PQgetisnull(res, r, i) ? nullptr : PQgetvalue(res, r, i),
                         static_cast<size_t>(PQgetlength(res, r, i)));
}

void do_fetch(const char *name, int64_t max)
{
    Cursor *c = find(name, false);
    if (!c) return put_message("the cursor is not open");
    if (max < 1) max = 1;
    if (max > MAXBATCH) max = MAXBATCH;
    if (c->held) {
        int left = PQntuples(c->held) - c->next;
        int n = left < max ? left : static_cast<int>(max);
        put_rows(c->held, c->next, n);
        c->next += n;
        return;
    }
    char sn[32], sql[96];
    server_name(name, sn, sizeof sn);
    snprintf(sql, sizeof sql, "FETCH FORWARD %lld FROM %s", static_cast<long long>(max), sn);
    PGresult *res = PQexec(conn, sql);
    if (PQresultStatus(res) != PGRES_TUPLES_OK)
        put_result_error(res);
    else
        put_rows(res, 0, PQntuples(res));
    PQclear(res);
}

// lastval() after an insert: has_id 0 when no sequence was used yet.
bool last_key(int64_t *id)
{
    bool in_tx = PQtransactionStatus(conn) == PQTRANS_INTRANS;
    if (in_tx && !run("SAVEPOINT tolm_key")) return false;
    PGresult *res = PQexec(conn, "SELECT lastval()");
    bool ok = PQresultStatus(res) == PGRES_TUPLES_OK && PQntuples(res) == 1;
    if (ok) *id = strtoll(PQgetvalue(res, 0, 0), nullptr, 10);
    PQclear(res);
    if (in_tx) run(ok ? "RELEASE SAVEPOINT tolm_key" : "ROLLBACK TO SAVEPOINT tolm_key");
    return ok;
}

void do_exec(const char *query)
{
    PGresult *res = PQexec(conn, query);
    if (!good(res)) {
        put_result_error(res);
        PQclear(res);
        return;
    }
    int64_t rows = strtoll(PQcmdTuples(res), nullptr, 10);
    bool insert = strncmp(PQcmdStatus(res), "INSERT", 6) == 0;
    PQclear(res);
    int64_t id = 0;
    bool has_id = insert && last_key(&id);
    pgw_reset(&out, 'D');
    pgw_put_num(&out, rows);
    pgw_put_num(&out, has_id);
    pgw_put_num(&out, id);
}

// A text field as a terminated string (it is copied: fields are not).
char *text(pgw_frame *f, bool *ok)
{
    const char *s;
    uint32_t len;
    if (!pgw_get_text(f, &s, &len)) {
        *ok = false;
        return nullptr;
    }
    return s ? strndup(s, len) : nullptr;
}

void serve()
{
    bool ok = true;
    char type = in.data[0];
    char *a = type == 'F' || type == 'Z' || type == 'S' || type == 'X' || type == 'O'
                  ? text(&in, &ok) : nullptr;
    char *b = type == 'S' || type == 'O' ? text(&in, &ok) : nullptr;
    char *c = type == 'O' ? text(&in, &ok) : nullptr;
    int64_t max = 0;
    if (type == 'F') ok = ok && pgw_get_num(&in, &max);
    if (!ok || (type != 'O' && !a) || (type == 'S' && !b)) {
        put_message("bad request");
    } else if (type == 'O') {
        do_open(a ? a : "", b, c);
    } else if (!conn) {
        put_message("no database is open");
    } else if (type == 'S') {
        do_select(a, b);
    } else if (type == 'F') {
        do_fetch(a, max);
    } else if (type == 'Z') {
        if (Cursor *cur = find(a, false)) drop(cur);
        pgw_reset(&out, 'K');
    } else if (type == 'X') {
        do_exec(a);
    } else {
        put_message("bad request");
    }
    free(a);
    free(b);
    free(c);
}

}  // namespace

int main()
{
    while (pgw_recv(IN, &in) == 0) {
        serve();
        if (pgw_send(IN, &out) != 0) break;
    }
    if (conn) PQfinish(conn);
    return 0;
}
