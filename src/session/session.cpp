// The run's session: start, renew, end, the form token, and the save at
// the end of the run (see session.h).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <unistd.h>

#include "diag/diag.h"
#include "runtime/site.h"
#include "session/session.h"
#include "session/store.h"
#include "storage/store.h"
#include "subst/args.h"
#include "subst/subst.h"

namespace {

constexpr int GC_ROWS = 20;  // expired sessions a new session removes at most

// SQLite: a commit need not wait for the disk (a crash may lose the last
// changes of a session, never the database), and the write lock is taken
// at once, so that two writers never deadlock upgrading a read lock.
constexpr const char *SQLITE_BEGIN = "PRAGMA synchronous=NORMAL; BEGIN IMMEDIATE;";

// What the run loaded of one variable, to see at the end what changed.
struct Loaded {
    char *name;   // malloc
    char *text;   // its stored text, malloc
    bool seen;    // still present at save time
};

// ---- The state of the run's session -------------------------------------
struct Session {
    bool active;                   // a session is begun
    bool ended;                    // ended in this run: the request's id is spent
    bool fresh;                    // not in the store yet
    bool token_changed;            // token to be written
    bool saving;                   // the save has run (or runs)
    pid_t pid;                     // the process that began it (not a fork)
    char sid[X_SID_LEN + 1];       // the id
    char moved[X_SID_LEN + 1];     // the stored id its rows move from (after renew)
    char dropped[X_SID_LEN + 1];   // a stored id whose rows go (after end)
    char token[X_SID_LEN + 1];     // the form token, "" until asked for
    long created, seen;            // times in the store
    Loaded *loaded;                // the variables as loaded (malloc)
    int nloaded, caploaded;
};

Session s;

// Copies an id or token (at most X_SID_LEN characters) into a field.
void copy_id(char *dst, const char *src) {
    size_t n = strnlen(src, X_SID_LEN);
    memcpy(dst, src, n);
    dst[n] = '\0';
}

long now() {
    return static_cast<long>(time(nullptr));
}

// The Set-Cookie value for ID, or the one that deletes the cookie.
void send_cookie(const char *id) {
    const char *https = getenv("HTTPS");
    const char *scheme = getenv("REQUEST_SCHEME");
    bool secure = (https && !strcmp(https, "on")) || (scheme && !strcmp(scheme, "https"));
    char line[256];
    snprintf(line, sizeof line, "%s=%s; Path=/;%s HttpOnly; SameSite=Lax%s", X_SID_COOKIE,
             id ? id : "", id ? "" : " Max-Age=0;", secure ? "; Secure" : "");
    X_session_cookie(line);
}

void forget_loaded() {
    for (int i = 0; i < s.nloaded; i++) {
        free(s.loaded[i].name);
        free(s.loaded[i].text);
    }
    free(s.loaded);
    s.loaded = nullptr;
    s.nloaded = s.caploaded = 0;
}

void remember(const char *name, const char *text) {
    if (s.nloaded == s.caploaded) {
        s.caploaded = s.caploaded ? s.caploaded * 2 : 16;
        auto *l = static_cast<Loaded *>(realloc(s.loaded, s.caploaded * sizeof(Loaded)));
        if (!l) abort();
        s.loaded = l;
    }
    s.loaded[s.nloaded++] = {strdup(name), strdup(text), false};
}

// Appends the SQL string literal of text (quotes doubled, though ids and
// stored texts hold none).
void lit(X_sbuf *b, const char *text) {
    X_sbuf_add(b, "'", 1);
    for (const char *p = text; *p; ++p) X_sbuf_add(b, *p == '\'' ? "''" : p, *p == '\'' ? 2 : 1);
    X_sbuf_add(b, "'", 1);
}

void num(X_sbuf *b, long n) {
    char t[32];
    snprintf(t, sizeof t, "%ld", n);
    X_sbuf_str(b, t);
}

// ---- Loading ---------------------------------------------------------------
struct Found {
    bool any;
    long created, seen;
    char token[X_SID_LEN + 1];
};

// One row of the load query: created, seen, token, name, value.
void load_row(void *ctx, int n, X_val *v) {
    auto *f = static_cast<Found *>(ctx);
    if (n < 5) return;
    f->any = true;
    f->created = atol(v[0].value);
    f->seen = atol(v[1].value);
    copy_id(f->token, v[2].value);
    if (v[3].len <= 0) return;  // a session without variables
    X_sbuf name{};
    X_session_unescape(&name, v[3].value);
    // Only names a page could have written; a value is never a name.
    if (!strncmp(name.data, X_SESSION_PREFIX, strlen(X_SESSION_PREFIX)) &&
        X_session_decode(name.data, v[4].value) == 0)
        remember(name.data, v[4].value);
    X_sbuf_free(&name);
}

bool expired(long created, long seen, long t) {
    return t - seen > x_SITE.session_idle || t - created > x_SITE.session_life;
}

void drop_sql(X_sbuf *b, const char *sid) {
    X_sbuf_str(b, "DELETE FROM tolm_session_vars WHERE sid = ");
    lit(b, sid);
    X_sbuf_str(b, "; DELETE FROM tolm_sessions WHERE sid = ");
    lit(b, sid);
    X_sbuf_str(b, ";");
}

// Resumes the stored session ID: 1 resumed, 0 unknown or expired, -1 the
// store failed.
int resume(const char *id) {
    if (X_sstore_open() != 0) return -1;
    X_sbuf q{};
    X_sbuf_str(&q, "SELECT s.created, s.seen, s.token, v.name, v.value FROM tolm_sessions s "
                   "LEFT JOIN tolm_session_vars v ON v.sid = s.sid WHERE s.sid = ");
    lit(&q, id);
    Found f{};
    int rc = X_sstore_query(q.data, load_row, &f);
    long t = now();
    if (rc == 0 && f.any && expired(f.created, f.seen, t)) {
        X_clear_value("S_*");
        forget_loaded();
        q.len = 0;
        drop_sql(&q, id);
        X_sstore_exec(q.data);  // it would be removed later anyway
        f.any = false;
    }
    X_sbuf_free(&q);
    X_sstore_close();
    if (rc != 0) return -1;
    if (!f.any) return 0;
    copy_id(s.sid, id);
    copy_id(s.token, f.token);
    s.created = f.created;
    s.seen = f.seen;
    return 1;
}

int begin_fresh() {
    if (X_sid_new(s.sid) != 0) {
        ERRMSG("### Session: no random bytes for an id");
        return -1;
    }
    s.fresh = true;
    s.created = s.seen = now();
    s.token[0] = '\0';
    send_cookie(s.sid);
    return 0;
}

// ---- Saving ----------------------------------------------------------------
struct Change {
    X_sbuf *sql;
    bool any;
};

Loaded *loaded_of(const char *name) {
    for (int i = 0; i < s.nloaded; i++)
        if (!strcmp(s.loaded[i].name, name)) return &s.loaded[i];
    return nullptr;
}

// Adds the write of variable u when it differs from what was loaded.
void change_of(X_USER *u, Change *c) {
    if (u->fixed || u->clean || u->request) return;  // not the page's session value
    X_sbuf text{};
    for (X_var *v = &u->var; v; v = v->next) {
        if (v != &u->var) X_sbuf_add(&text, "&", 1);
        X_session_encode(&text, v->value ? v->value : "");
    }
    X_sbuf_add(&text, "", 0);
    Loaded *l = loaded_of(u->name);
    if (l) l->seen = true;
    if (!l || strcmp(l->text, text.data)) {
        X_sbuf *b = c->sql;
        X_sbuf name{};
        X_session_encode(&name, u->name);
        X_sbuf_add(&name, "", 0);
        X_sbuf_str(b, "INSERT INTO tolm_session_vars (sid, name, value) SELECT ");
        lit(b, s.sid);
        X_sbuf_str(b, ", ");
        lit(b, name.data);
        X_sbuf_str(b, ", ");
        lit(b, text.data);
        X_sbuf_str(b, " WHERE EXISTS (SELECT 1 FROM tolm_sessions WHERE sid = ");
        lit(b, s.sid);
        X_sbuf_str(b, ") ON CONFLICT (sid, name) DO UPDATE SET value = excluded.value;");
        X_sbuf_free(&name);
        c->any = true;
    }
    X_sbuf_free(&text);
}

// Visits the session variables of the tree in name order.
void walk(avl *n, Change *c) {
    if (!n) return;
    const char *key = static_cast<const char *>(n->key);
    int cmp = strncmp(key, X_SESSION_PREFIX, strlen(X_SESSION_PREFIX));
    if (cmp >= 0) walk(n->left, c);
    if (cmp == 0) change_of(reinterpret_cast<X_USER *>(n), c);
    if (cmp <= 0) walk(n->right, c);
}

// Adds the removal of loaded variables the page cleared.
void removals(Change *c) {
    for (int i = 0; i < s.nloaded; i++) {
        if (s.loaded[i].seen) continue;
        X_sbuf name{};
        X_session_encode(&name, s.loaded[i].name);
        X_sbuf_add(&name, "", 0);
        X_sbuf_str(c->sql, "DELETE FROM tolm_session_vars WHERE sid = ");
        lit(c->sql, s.sid);
        X_sbuf_str(c->sql, " AND name = ");
        lit(c->sql, name.data);
        X_sbuf_str(c->sql, ";");
        X_sbuf_free(&name);
        c->any = true;
    }
}

// Removes at most GC_ROWS expired sessions (work bounded per request).
void collect(X_sbuf *b, long t) {
    char where[160];
    snprintf(where, sizeof where,
             "SELECT sid FROM tolm_sessions WHERE seen < %ld OR created < %ld ORDER BY sid LIMIT %d",
             t - x_SITE.session_idle, t - x_SITE.session_life, GC_ROWS);
    X_sbuf_str(b, "DELETE FROM tolm_session_vars WHERE sid IN (");
    X_sbuf_str(b, where);
    X_sbuf_str(b, "); DELETE FROM tolm_sessions WHERE sid IN (");
    X_sbuf_str(b, where);
    X_sbuf_str(b, ");");
}

// The statements of the session's own row: made, moved or touched.
void session_row(X_sbuf *b, long t) {
    if (s.moved[0]) {
        for (const char *table : {"tolm_sessions", "tolm_session_vars"}) {
            X_sbuf_str(b, "UPDATE ");
            X_sbuf_str(b, table);
            X_sbuf_str(b, " SET sid = ");
            lit(b, s.sid);
            X_sbuf_str(b, " WHERE sid = ");
            lit(b, s.moved);
            X_sbuf_str(b, ";");
        }
    }
    if (s.fresh) {
        X_sbuf_str(b, "INSERT INTO tolm_sessions (sid, created, seen, token) VALUES (");
        lit(b, s.sid);
        X_sbuf_str(b, ", ");
        num(b, s.created);
        X_sbuf_str(b, ", ");
        num(b, t);
        X_sbuf_str(b, ", ");
        lit(b, s.token);
        X_sbuf_str(b, ");");
        collect(b, t);
        return;
    }
    X_sbuf_str(b, "UPDATE tolm_sessions SET seen = ");
    num(b, t);
    if (s.token_changed) {
        X_sbuf_str(b, ", token = ");
        lit(b, s.token);
    }
    X_sbuf_str(b, " WHERE sid = ");
    lit(b, s.sid);
    X_sbuf_str(b, ";");
}

// The statements of the save, or nothing to do (empty).
void save_sql(X_sbuf *b) {
    long t = now();
    X_sbuf body{};
    Change c{&body, false};
    if (s.active) {
        walk(x_BUFFERS.vtree.root, &c);
        removals(&c);
    }
    long touch = x_SITE.session_idle / 16 > 1 ? x_SITE.session_idle / 16 : 1;
    bool row = s.active && (c.any || s.token_changed || s.moved[0] || t - s.seen >= touch);
    if (s.fresh && !c.any && !s.token[0]) row = false;  // nothing worth a row yet
    if (!row && !s.dropped[0]) {
        X_sbuf_free(&body);
        return;
    }
    if (s.dropped[0]) drop_sql(b, s.dropped);
    if (row) {
        session_row(b, t);
        if (body.len) X_sbuf_add(b, body.data, body.len);
    }
    X_sbuf_free(&body);
}

int end_session() {
    if (!s.active) return 0;
    if (!s.fresh) copy_id(s.dropped, s.moved[0] ? s.moved : s.sid);
    X_clear_value("S_*");
    forget_loaded();
    s.active = s.fresh = s.token_changed = false;
    s.moved[0] = s.token[0] = s.sid[0] = '\0';
    s.ended = true;
    send_cookie(nullptr);
    return 0;
}

}  // namespace

int X_session_start() {
    if (s.active) return 0;
    s.pid = getpid();
    X_clear_value("S_*");  // whatever the request sent under these names
    char id[X_SID_LEN + 2];
    const char *cookies = getenv("HTTP_COOKIE");
    int rc = 0;
    if (!s.ended && X_cookie_value(cookies, X_SID_COOKIE, id, sizeof id) && X_sid_valid(id))
        rc = resume(id);
    if (rc < 0) {
        ERRMSG("### Session store: %s", X_sstore_error());
        return -1;
    }
    if (rc == 0 && begin_fresh() != 0) return -1;
    s.active = true;
    return 0;
}

int X_session_renew() {
    if (!s.active && X_session_start() != 0) return -1;
    if (!s.fresh && !s.moved[0]) copy_id(s.moved, s.sid);
    if (X_sid_new(s.sid) != 0) {
        ERRMSG("### Session: no random bytes for an id");
        return -1;
    }
    if (s.token[0]) {  // a token an attacker may have seen goes with the old id
        X_sid_new(s.token);
        s.token_changed = true;
    }
    send_cookie(s.sid);
    return 0;
}

int X_session_end() {
    return end_session();
}

const char *X_session_token() {
    if (!s.active) return "";
    if (!s.token[0] && X_sid_new(s.token) == 0) s.token_changed = true;
    return s.token;
}

int X_session_check() {
    const char *sent = X_get_value(X_TOKEN_FIELD);
    if (!s.active || !s.token[0] || !sent || !X_same_secret(sent, s.token)) {
        ERRMSG("### Session token missing or wrong");
        return -1;
    }
    return 0;
}

void X_session_save() {
    if (s.saving || s.pid != getpid() || (!s.active && !s.dropped[0])) return;
    s.saving = true;
    X_sbuf sql{};
    save_sql(&sql);
    if (sql.len) {
        X_TRACE("X_session_save: %s", sql.data);
        X_sbuf tx{};  // one transaction; SQLite takes the write lock at once
        if (X_sstore_open() == 0) {
            X_sbuf_str(&tx, X_sstore_pg() ? "BEGIN;" : SQLITE_BEGIN);
            X_sbuf_add(&tx, sql.data, sql.len);
            X_sbuf_str(&tx, "COMMIT;");
        }
        if (!tx.data || (s.fresh && X_sstore_tables() != 0) || X_sstore_exec(tx.data) != 0)
            fprintf(stderr, "Tolm: session not saved: %s\n", X_sstore_error());
        X_sstore_close();
        X_sbuf_free(&tx);
    }
    X_sbuf_free(&sql);
}

void X_session_forget() {
    forget_loaded();
    s = Session{};
}

int X_session(char *line, int compile, int ignore) {
    static constexpr const char *tag = "<@session>";
    if (strncmp(line, tag, strlen(tag))) return -1;
    if (ignore) return 0;
    char buff[X_MAXLINE], verb[64];
    X_expand_args(line + strlen(tag), buff, compile);
    X_DEBUG("%s // %s \n", line, buff);
    X_arg_stringn(buff, verb, sizeof verb);
    // Failures are reported here; the line is never taken for an assignment.
    if (!strcmp(verb, "start")) X_session_start();
    else if (!strcmp(verb, "renew")) X_session_renew();
    else if (!strcmp(verb, "end")) X_session_end();
    else if (!strcmp(verb, "check")) X_session_check();
    else ERRMSG("### Unknown session action: %s", verb);
    return 0;
}
