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

constexpr int GC_EVERY = 8;   // one new session in this many removes expired ones
constexpr int GC_ROWS = 50;   // expired sessions it removes at most

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

// Removes the stored session SID and its variables, in the open
// transaction.
void drop(const char *sid) {
    X_sstore_run(X_SSQL::DROP_VARS, {{sid, 0}});
    X_sstore_run(X_SSQL::DROP, {{sid, 0}});
}

// Resumes the stored session ID: 1 resumed, 0 unknown or expired, -1 the
// store failed.
int resume(const char *id) {
    Found f{};
    int rc = X_sstore_load(id, load_row, &f);
    if (rc == 0 && f.any && expired(f.created, f.seen, now())) {
        X_clear_value("S_*");
        forget_loaded();
        if (X_sstore_begin() == 0) {  // it would be removed later anyway
            drop(id);
            X_sstore_commit();
        }
        f.any = false;
    }
    X_sstore_idle();
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
// One variable to write: its stored name and text, or a removal.
struct Write {
    char *name;   // stored (encoded) name, malloc
    char *text;   // stored text, malloc; null: remove the variable
};

struct Writes {
    Write *w;     // malloc
    int n, cap;
};

void add_write(Writes *ws, const char *name, const char *text) {
    if (ws->n == ws->cap) {
        ws->cap = ws->cap ? ws->cap * 2 : 16;
        auto *w = static_cast<Write *>(realloc(ws->w, ws->cap * sizeof(Write)));
        if (!w) abort();
        ws->w = w;
    }
    X_sbuf enc{};
    X_session_encode(&enc, name);
    X_sbuf_add(&enc, "", 0);
    ws->w[ws->n++] = {enc.data, text ? strdup(text) : nullptr};
}

void free_writes(Writes *ws) {
    for (int i = 0; i < ws->n; i++) {
        free(ws->w[i].name);
        free(ws->w[i].text);
    }
    free(ws->w);
    *ws = Writes{};
}

Loaded *loaded_of(const char *name) {
    for (int i = 0; i < s.nloaded; i++)
        if (!strcmp(s.loaded[i].name, name)) return &s.loaded[i];
    return nullptr;
}

// Adds the write of variable u when it differs from what was loaded.
void change_of(X_USER *u, Writes *ws) {
    if (u->fixed || u->clean || u->request) return;  // not the page's session value
    X_sbuf text{};
    for (X_var *v = &u->var; v; v = v->next) {
        if (v != &u->var) X_sbuf_add(&text, "&", 1);
        X_session_encode(&text, v->value ? v->value : "");
    }
    X_sbuf_add(&text, "", 0);
    Loaded *l = loaded_of(u->name);
    if (l) l->seen = true;
    if (!l || strcmp(l->text, text.data)) add_write(ws, u->name, text.data);
    X_sbuf_free(&text);
}

// Visits the session variables of the tree in name order.
void walk(avl *n, Writes *ws) {
    if (!n) return;
    const char *key = static_cast<const char *>(n->key);
    int cmp = strncmp(key, X_SESSION_PREFIX, strlen(X_SESSION_PREFIX));
    if (cmp >= 0) walk(n->left, ws);
    if (cmp == 0) change_of(reinterpret_cast<X_USER *>(n), ws);
    if (cmp <= 0) walk(n->right, ws);
}

// What the page changed: writes, then removals of loaded variables it
// cleared.
void changes(Writes *ws) {
    walk(x_BUFFERS.vtree.root, ws);
    for (int i = 0; i < s.nloaded; i++)
        if (!s.loaded[i].seen) add_write(ws, s.loaded[i].name, nullptr);
}

// Seconds after which a visit records itself in the session's row: a
// sixteenth of the idle timeout, so that the timeout stays exact to within
// that much.
long touch_every() {
    return x_SITE.session_idle / 16 > 1 ? x_SITE.session_idle / 16 : 1;
}

// Removes at most GC_ROWS expired sessions, for one new session in
// GC_EVERY (the id is random), so that the search for them, which reads
// the whole table, is rare and the work of any request bounded.
void collect(long t) {
    if ((s.sid[0] & (GC_EVERY - 1)) != 0) return;
    std::initializer_list<X_sarg> limits = {
        {nullptr, t - x_SITE.session_idle}, {nullptr, t - x_SITE.session_life},
        {nullptr, GC_ROWS}};
    X_sstore_run(X_SSQL::GC_VARS, limits);
    X_sstore_run(X_SSQL::GC, limits);
}

// The statements of the session's own row: made, moved, touched, or only
// found while its last visit is recent enough (touch_every), so that a
// save writes the pages of its variables alone.
void session_row(long t) {
    if (s.moved[0]) {
        X_sstore_run(X_SSQL::MOVE, {{s.sid, 0}, {s.moved, 0}});
        X_sstore_run(X_SSQL::MOVE_VARS, {{s.sid, 0}, {s.moved, 0}});
    }
    if (s.fresh) {
        X_sstore_run(X_SSQL::NEW, {{s.sid, 0}, {nullptr, s.created}, {nullptr, t}, {s.token, 0}});
        collect(t);
    } else if (s.token_changed) {
        X_sstore_run(X_SSQL::TOUCH_TOKEN, {{s.sid, 0}, {nullptr, t}, {s.token, 0}});
    } else if (t - s.seen >= touch_every()) {
        X_sstore_run(X_SSQL::TOUCH, {{s.sid, 0}, {nullptr, t}});
    } else {
        X_sstore_run(X_SSQL::FIND, {{s.sid, 0}});
    }
}

// Writes what changed in one transaction; nothing when nothing did.
void write_changes() {
    long t = now();
    Writes ws{};
    if (s.active) changes(&ws);
    bool row = s.active && (ws.n || s.token_changed || s.moved[0] || t - s.seen >= touch_every());
    if (s.fresh && !ws.n && !s.token[0]) row = false;  // nothing worth a row yet
    if (row || s.dropped[0]) {
        X_TRACE("X_session_save: %d variable(s) changed", ws.n);
        int rc = (s.fresh && X_sstore_tables() != 0) || X_sstore_begin() != 0 ? -1 : 0;
        if (rc == 0) {
            if (s.dropped[0]) drop(s.dropped);
            if (row) {
                session_row(t);
                for (int i = 0; i < ws.n; i++) {
                    const Write &w = ws.w[i];
                    if (w.text) X_sstore_run(X_SSQL::PUT, {{s.sid, 0}, {w.name, 0}, {w.text, 0}});
                    else X_sstore_run(X_SSQL::DEL, {{s.sid, 0}, {w.name, 0}});
                }
            }
            rc = X_sstore_commit();
        }
        if (rc != 0) fprintf(stderr, "Tolm: session not saved: %s\n", X_sstore_error());
    }
    free_writes(&ws);
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
    if (s.saving || s.pid != getpid()) return;
    s.saving = true;
    if (s.active || s.dropped[0]) write_changes();
    X_sstore_close();
}

void X_session_forget() {
    X_sstore_close();
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
