// Per-site settings: reads x.site into x_SITE (see site.h for the format).
#include "runtime/site.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "runtime/config.h"
#include "x.h"

namespace {

// Every setting: name, kind, field, default, range, words.
constexpr X_SITEOPT options[] = {
    {"profile", X_SITEKIND::WORD, &X_SITE::profile, X_COMPAT, 0, 0, "compat|safe"},
    {"max_body", X_SITEKIND::SIZE, &X_SITE::max_body, 0, 0, LONG_MAX, nullptr},
    {"max_pairs", X_SITEKIND::NUMBER, &X_SITE::max_pairs, 0, 0, X_MAXENT - 1, nullptr},
    {"max_uploads", X_SITEKIND::NUMBER, &X_SITE::max_uploads, 0, 0, X_MAXENT - 1, nullptr},
    {"max_upload", X_SITEKIND::SIZE, &X_SITE::max_upload, 0, 0, LONG_MAX, nullptr},
    {"cpu_seconds", X_SITEKIND::NUMBER, &X_SITE::cpu_seconds, 0, 0, 86400, nullptr},
    {"memory", X_SITEKIND::SIZE, &X_SITE::memory, 0, 0, LONG_MAX, nullptr},
    {"file_size", X_SITEKIND::SIZE, &X_SITE::file_size, 0, 0, LONG_MAX, nullptr},
    {"time_limit", X_SITEKIND::NUMBER, &X_SITE::time_limit, 0, 0, 86400, nullptr},
    {"session", X_SITEKIND::WORD, &X_SITE::session, 0, 0, 0, "off|on"},
    {"session_idle", X_SITEKIND::NUMBER, &X_SITE::session_idle, 1800, 1, 366L * 86400, nullptr},
    {"session_life", X_SITEKIND::NUMBER, &X_SITE::session_life, 86400, 1, 366L * 86400, nullptr},
};

constexpr X_SITE defaults() {
    X_SITE s{};
    for (const X_SITEOPT &o : options) s.*o.field = o.def;
    return s;
}

bool blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Index of WORD among the "|"-separated WORDS, or -1.
long word_index(const char *words, const char *word) {
    size_t n = strlen(word);
    long i = 0;
    for (const char *p = words;; ++i) {
        const char *bar = strchr(p, '|');
        size_t len = bar ? static_cast<size_t>(bar - p) : strlen(p);
        if (len == n && !strncmp(p, word, n)) return i;
        if (!bar) return -1;
        p = bar + 1;
    }
}

// Reads a NUMBER or SIZE value; false when it is not one or out of range.
bool number(const X_SITEOPT &o, const char *text, long *out) {
    errno = 0;
    char *end;
    long v = strtol(text, &end, 10);
    if (end == text || errno) return false;
    if (o.kind == X_SITEKIND::SIZE && *end) {
        int shift = *end == 'k' || *end == 'K' ? 10 : *end == 'm' || *end == 'M' ? 20
                  : *end == 'g' || *end == 'G' ? 30 : -1;
        if (shift < 0 || v > (LONG_MAX >> shift) || v < (LONG_MIN >> shift)) return false;
        v *= 1L << shift;
        ++end;
    }
    if (*end || v < o.min || v > o.max) return false;
    *out = v;
    return true;
}

enum { STORED, UNKNOWN, BADVALUE };

// Stores the value TEXT of the setting NAME: STORED, UNKNOWN or BADVALUE.
int apply(X_SITE *site, const char *name, const char *text) {
    for (const X_SITEOPT &o : options) {
        if (strcmp(o.name, name)) continue;
        long v;
        bool ok = o.kind == X_SITEKIND::WORD ? (v = word_index(o.words, text)) >= 0
                                             : number(o, text, &v);
        if (!ok) return BADVALUE;
        site->*o.field = v;
        return STORED;
    }
    return UNKNOWN;
}

// Cuts LINE in place into its first word and the rest without outer blanks.
void split(char *line, char **name, char **value) {
    while (blank(*line)) ++line;
    *name = line;
    while (*line && !blank(*line)) ++line;
    if (*line) *line++ = '\0';
    while (blank(*line)) ++line;
    *value = line;
    char *end = line + strlen(line);
    while (end > line && blank(end[-1])) *--end = '\0';
}

}  // namespace

constinit X_SITE x_SITE = defaults();

X_SITE X_site_defaults() {
    return defaults();
}

int X_site_load(const char *path, const char *key, X_SITE *site, FILE *err) {
    FILE *f = fopen(path, "r");
    if (!f) return -1;
    char *line = nullptr;
    size_t cap = 0;
    bool mine = true;  // settings before any section apply to every server
    for (int n = 1; getline(&line, &cap, f) >= 0; ++n) {
        char *name, *value;
        split(line, &name, &value);
        if (!*name || *name == '#') continue;
        if (*name == '[') {
            size_t len = strlen(name);
            if (*value || len < 3 || name[len - 1] != ']') {
                fprintf(err, "%s:%d: bad section line\n", path, n);
                mine = false;  // its settings belong to no known server
                continue;
            }
            name[len - 1] = '\0';
            mine = !strcmp(name + 1, key);
            continue;
        }
        X_SITE scratch = *site;  // checked even when the section is not ours
        int r = apply(mine ? site : &scratch, name, value);
        if (r == UNKNOWN) fprintf(err, "%s:%d: unknown setting %s\n", path, n, name);
        if (r == BADVALUE) fprintf(err, "%s:%d: bad value for %s: \"%s\"\n", path, n, name, value);
    }
    free(line);
    fclose(f);
    return 0;
}

int X_site() {
    char key[512], path[4096];
    X_server_key(key, sizeof key);
    int n = X_join(path, sizeof path, {X_HOME ? X_HOME : ".", "/x.site"});
    if (n < static_cast<int>(sizeof path)) X_site_load(path, key, &x_SITE, stderr);
    if (X_safe()) HTML = 0;  // UTF-8 text passes unchanged
    return 0;
}
