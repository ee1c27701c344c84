// Site configuration and request values. x.config names, per server, the
// document root, the site's base name and whether that name is read-only;
// X_values picks the line of this request, publishes the run's fixed
// values, moves the form fields into the store and settles the page and the
// error page. X_set_cookies writes the cookie header lines.
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <cstring>
#include <string>
#include "diag/diag.h"
#include "form/form.h"
#include "runtime/config.h"
#include "runtime/site.h"
#include "storage/heap.h"
#include "storage/store.h"
#include "subst/args.h"
#include "page/output.h"

static constexpr int CONFIGLINE = 100;  // one read of x.config
static constexpr int ROOTSIZE = 200;
static constexpr int BASESIZE = 40;
static constexpr int PIDSIZE = 24;
static constexpr int MAXNAME = 500;     // longest accepted page path

// The words of one x.config line; a missing word is empty.
struct SiteLine {
    char server[CONFIGLINE];
    char root[ROOTSIZE];
    char base[BASESIZE];
    char hold[CONFIGLINE];
};

static bool blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// Copies the next blank-separated word of p into out (cut to size-1
// characters, the rest of the word skipped); returns the position behind it.
static const char *word(const char *p, char *out, int size) {
    while (*p && blank(*p)) ++p;
    int n = 0;
    for (; *p && !blank(*p); ++p)
        if (n < size - 1) out[n++] = *p;
    out[n] = '\0';
    return p;
}

static void split_line(const char *line, SiteLine *s) {
    line = word(line, s->server, sizeof s->server);
    line = word(line, s->root, sizeof s->root);
    line = word(line, s->base, sizeof s->base);
    word(line, s->hold, sizeof s->hold);
}

// The server key of the request: HTTP_HOST (":80" added when it names no
// port), else SERVER_NAME:SERVER_PORT with "shell" and "00" for unset ones.
void X_server_key(char *key, int size) {
    const char *host = getenv("HTTP_HOST");
    if (host) {
        X_join(key, size, {host, strchr(host, ':') ? "" : ":80"});
        return;
    }
    const char *name = getenv("SERVER_NAME");
    const char *port = getenv("SERVER_PORT");
    X_join(key, size, {name ? name : "shell", ":", port ? port : "00"});
}

// Reads x.config and fills s with the first line for key ("*:*" matches
// any server, except in shell mode). Returns true when a line matched.
static bool find_site(const char *key, int shell, SiteLine *s) {
    char path[4096];
    X_join(path, sizeof path, {X_HOME ? X_HOME : ".", "/x.config"});
    FILE *f = fopen(path, "r");
    if (!f) {
        if (!shell) {
            ERRMSG("Cannot open X_HOME config file: %s", path);
            ERRMSG("No X_ROOT configuration for SERVER: %s\n", key);
        }
        return false;
    }
    char line[CONFIGLINE];
    bool matched = false;
    while (!matched && fgets(line, sizeof line, f)) {
        split_line(line, s);
        matched = !strcmp(s->server, key) || (!shell && !strcmp(s->server, "*:*"));
    }
    fclose(f);
    if (!matched && !shell) ERRMSG("No X_ROOT configuration for SERVER: %s\n", key);
    return matched;
}

static bool is_regular(const char *path) {
    struct stat st;
    return !stat(path, &st) && S_ISREG(st.st_mode);
}

// The same, with the trace of the page checks.
static bool regular_file(const char *path) {
    X_TRACE("regular_file: %s ==> ? \n", path);
    if (!is_regular(path)) return false;
    X_TRACE("regular_file: %s ==> OK.\n", path);
    return true;
}

// Whether the request may set the variable of this pair. The safe profile
// keeps the X_ names for the site and the page, except X_PAGE from a text
// field; a refused pair is noted on standard error.
static bool from_request(const entry &e) {
    if (!X_safe() || strncmp(e.name, "X_", 2)) return true;
    if (!strcmp(e.name, "X_PAGE") && !X_upload_is(e.val)) return true;
    X_log("the request may not set %.64s", e.name);
    return false;
}

int X_values(const char *prog, int shell) {
    X_TRACE("X_values: entry \n");
    char key[512];
    X_server_key(key, sizeof key);

    static SiteLine site;
    static char root[ROOTSIZE];
    static char base[BASESIZE];
    static char pid[PIDSIZE];
    bool matched = find_site(key, shell, &site);
    if (matched) {
        X_join(root, sizeof root, {site.root});
        if (chdir(root)) {
            // An unusable root leaves the working directory as it is.
        }
    } else {
        X_join(root, sizeof root, {"/"});
        site.base[0] = site.hold[0] = '\0';
    }
    X_TRACE("X_ROOT ===> {%s} \n", root);

    X_decimal(getpid(), pid);
    const char *slash = prog ? strrchr(prog, '/') : nullptr;
    X_put_value("X_ROOT", root, 1, 0);
    X_put_value("X_HOME", X_HOME ? X_HOME : ".", 1, 0);
    X_put_value("X_PID", pid, 1, 0);
    X_put_value("X_MAXBUFF", "65536", 1, 0);
    X_put_value("X_MAXPOST", "262144", 1, 0);
    X_put_value("X_PROG", slash ? slash + 1 : (prog ? prog : ""), 1, 0);

    X_join(base, sizeof base, {site.base[0] ? site.base : "Tolm"});
    X_BASE_hold = !strcmp(site.hold, "hold");
    X_BASE = base;
    X_put_value("X_BASE", base, X_BASE_hold, 0);
    X_TRACE("==> Server: %s Root: %s  Base: %s Hold: %d \n", key, root, base, X_BASE_hold);

    // Form fields; fixed names refuse them, so the values above hold.
    for (int i = 0; i < X_MAXENT && ent[i].name; ++i)
        if (ent[i].val && ent[i].val[0] && from_request(ent[i]) &&
            X_add_value(ent[i].name, ent[i].val) == 0)
            X_mark_request(ent[i].name);

    if (X_get_value("X_PAGE")) {
        if (matched) X_check_name(root, "X_PAGE");
        X_PAGE = X_get_value("X_PAGE");
    }
    if (X_get_value("X_ERROR")) {
        if (matched) X_check_name(root, "X_ERROR");
        X_ERROR = X_get_value("X_ERROR");
    }
    X_default_names(root);
    if (!X_PAGE) ERRMSG("### Not found X_PAGE value...");
    return 0;
}

// Replaces every run of slashes with one slash.
static void trim_slashes(std::string &s) {
    std::string out;
    out.reserve(s.size());
    for (char c : s)
        if (c != '/' || out.empty() || out.back() != '/') out += c;
    s.swap(out);
}

// Replaces "/./" with "/" until none is left.
static void trim_dots(std::string &s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        if (!s.compare(i, 3, "/./"))
            i += 2;  // the second slash is looked at again
        else
            out += s[i++];
    }
    s.swap(out);
}

// True when the directories of path below the root stay at or under it:
// "." keeps the depth, ".." lowers it, other names raise it; the file name
// (the last component) is not counted.
static bool within_root(const std::string &path, size_t start) {
    int depth = 0;
    while (start < path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) break;
        std::string_view name(path.data() + start, end - start);
        if (name == "..") {
            if (--depth < 0) return false;
        } else if (name != ".") {
            ++depth;
        }
        start = end + 1;
    }
    return true;
}

// Gives the variable var the value text, emptying its heap first.
static void replace_value(const char *var, const std::string &text) {
    X_USER *u = X_find_user(var);
    if (!u || u->fixed == 2) return;
    X_heap_reduce(u->hp);
    char *copy = static_cast<char *>(X_heap_alloc(u->hp, static_cast<int>(text.size() + 1)));
    if (!copy) return;
    memcpy(copy, text.c_str(), text.size() + 1);
    u->var.value = copy;
    u->var.next = nullptr;
}

// Checks the page path held by var against root and stores it as an
// absolute, normalised path. Every problem is reported through ERRMSG and
// the check goes on when that returns.
int X_check_name(const char *root, const char *var) {
    const char *held = X_get_value(var);
    if (!held) return 0;
    std::string value(held);  // the store's copy goes away on replacement
    X_TRACE("Check name: %s value: %s for root: %s \n", var, value.c_str(), root);
    if (value.size() > MAXNAME) ERRMSG("Invalid (too long) %s value: %s \n", var, value.c_str());

    // The value is under the root when the root is followed by "/" or the
    // end; "/www2/x" does not lie under "/www".
    size_t rootlen = strlen(root);
    bool under = !value.compare(0, rootlen, root) &&
                 (value.size() == rootlen || value[rootlen] == '/' ||
                  (rootlen && root[rootlen - 1] == '/'));
    std::string fname = under ? value : std::string(root) + "/" + value;
    X_TRACE(" ==> fname: %s for root: %s \n", fname.c_str(), root);
    trim_slashes(fname);
    X_TRACE(" trim //  ==> fname: %s for root: %s \n", fname.c_str(), root);
    trim_dots(fname);
    X_TRACE(" trim /./ ==> fname: %s for root: %s \n", fname.c_str(), root);

    // The walk starts behind the root's closing slash: the root's own when
    // it ends in one (x.config may say "/www/"), else the one that follows.
    size_t start = rootlen > 1 && root[rootlen - 1] == '/' ? rootlen : rootlen + 1;
    if (!within_root(fname, start))
        ERRMSG("Invalid (not matching root level: %s) %s value: %s \n", root, var, value.c_str());
    if (!regular_file(fname.c_str()))
        ERRMSG("Invalid (not existing/regular file: %s) %s value: %s \n", fname.c_str(), var,
               value.c_str());
    if (fname != value) replace_value(var, fname);
    return 0;
}

// Supplies x.page under the root when no page was named, and x.error
// beside the page when no error page was. -1 when there is no page.
int X_default_names(const char *root) {
    if (!X_PAGE) {
        X_TRACE("def: X_PAGE");
        char page[512];
        snprintf(page, sizeof page, "%s/x.page", root);
        if (!regular_file(page)) return -1;
        X_put_value("X_PAGE", page);
        X_PAGE = X_get_value("X_PAGE");
        X_TRACE("def: X_PAGE: %s", X_PAGE);
    }
    if (X_ERROR || !X_PAGE) return 0;
    std::string error(X_PAGE);
    size_t slash = error.rfind('/');
    error = slash == std::string::npos ? "x.error" : error.substr(0, slash) + "/x.error";
    if (!is_regular(error.c_str())) return 0;  // looked for without a trace
    X_put_value("X_ERROR", error.c_str());
    X_ERROR = X_get_value("X_ERROR");
    X_TRACE("def: X_ERROR: %s", X_ERROR);
    return 0;
}

// A cookie name goes into a header line as it stands: one holding a
// control character (a line break, say) is not written at all.
static bool header_safe(const char *name) {
    for (; *name; ++name)
        if (static_cast<unsigned char>(*name) < 32 || *name == 127) return false;
    return true;
}

// Adds one cookie line, FMT filled with NAME and VALUE, to the header.
static void cookie_line(const char *fmt, const char *name, const char *value)
    __attribute__((format(printf, 1, 0)));
static void cookie_line(const char *fmt, const char *name, const char *value) {
    std::string line(strlen(fmt) + strlen(name) + strlen(value) + 1, '\0');
    snprintf(line.data(), line.size(), fmt, name, value);
    X_head_line(line.c_str());
}

// Writes one header line per name of the list held by listvar: the value
// of the variable of that name, URL-escaped, or the deletion line.
static void cookie_lines(const char *listvar, bool session) {
    const char *list = X_get_value(listvar);
    if (!list) return;
    std::string name(strlen(list) + 1, '\0');
    for (int pos = 0, n; (n = X_arg_string(list + pos, name.data())) > 0; pos += n) {
        const char *nm = name.c_str();
        if (!header_safe(nm)) continue;
        const char *value = X_get_value(nm);
        if (value && value[0]) {
            std::string esc(3 * strlen(value) + 1, '\0');
            escape_url(value, esc.data());
            if (session) {
                cookie_line("Set-Cookie: %s=%s; path=/; \n", nm, esc.c_str());
            } else {
                cookie_line("Set-Cookie: %s=%s; path=/; expires=31-Dec-2037 23:55:00 GMT \n", nm,
                            esc.c_str());
                X_DEBUG("Set-Cookie: %s=%s\n", nm, esc.c_str());
            }
        } else {
            cookie_line("Set-Cookie: %s=NULL; path=/; expires=Wednesday, 21-Aug-1996 01:21:36 GMT \n",
                        nm, "");
            X_DEBUG("Del-Cookie: %s\n", nm);
        }
    }
}

int X_set_cookies() {
    cookie_lines("X_ServerCOOKIES", false);
    cookie_lines("X_SessionCOOKIES", true);
    return 0;
}
