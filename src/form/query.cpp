// Request method, query strings, PATH_INFO and URL-encoded POST bodies:
// each decoder fills ent with name/value pairs ended by an empty row.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include "diag/diag.h"
#include "form/form.h"
#include "runtime/site.h"

static constexpr const char *URLENCODED = "application/x-www-form-urlencoded";
static constexpr int LASTPAIR = X_MAXENT - 1;  // index kept for the end mark

// The page value cut from PATH_INFO; GET_path replaces it in ent by the whole
// PATH_INFO, and this keeps the block referenced until the process ends like
// every other decoded pair.
static char *path_page;

int GetMethod() {
    const char *m = GETenv("REQUEST_METHOD");
    if (!strcmp(m, "POST")) return 1;
    if (!strcmp(m, "GET")) return 2;
    return -1;
}

int X_urlencoded() {
    const char *type = GETenv("CONTENT_TYPE");
    if (!strcmp(type, URLENCODED)) return 1;
    if (!X_safe()) return 0;
    size_t n = strlen(URLENCODED);
    if (strncasecmp(type, URLENCODED, n)) return 0;
    type += n;
    while (*type == ' ' || *type == '\t') ++type;
    return *type == ';' || !*type;
}

int CheckEnctypeMethod() {
    return X_urlencoded() ? 0 : 1;
}

static void endmark(entry *e) {
    e->name = nullptr;
    e->val = nullptr;
}

// Turns one raw word into a pair: "+" to blank, escapes decoded, then cut at
// the first "=" (so an escaped "=" in a name splits it too).
static void split(char *word, entry *e) {
    plustospace(word);
    unescape_url(word);
    e->name = word;
    char *eq = strchr(word, '=');
    if (eq) {
        *eq = '\0';
        e->val = eq + 1;
    } else {
        e->val = nullptr;
    }
}

// Reads the next word of f up to stop, counting every byte read in *cl. At
// the end of input or of the count the last byte read is kept (the end of
// input thus leaves the byte that EOF turns into). Values are cut at
// X_MAXPOST characters, the rest is still read so the stream stays in step.
char *fmakeword(FILE *f, char stop, int *cl) {
    static char word[X_MAXPOST + 1];
    int len = 0;
    bool cut = false;
    for (;;) {
        char c = static_cast<char>(getc(f));
        --(*cl);
        if (c == stop) break;
        if (len < X_MAXPOST)
            word[len++] = c;
        else
            cut = true;
        if (feof(f) || *cl == 0) break;
    }
    word[len] = '\0';
    if (cut) X_TRACE("### WARNING: Value size is over %d!!! [cut]... ", X_MAXPOST);
    char *block = static_cast<char *>(malloc(len + 1));
    memcpy(block, word, len + 1);
    return block;
}

int POST_parser(entry *list) {
    if (strcmp(GETenv("REQUEST_METHOD"), "POST")) {
        POST_errmsg = "This script should be referenced with a METHOD of POST.\n";
        return -1;
    }
    if (!X_urlencoded()) {
        POST_errmsg = "This script can only be used to decode form results. \n";
        return -1;
    }
    // Read wide and checked before it becomes an int: a count beyond the
    // largest accepted body, or below 0, is refused.
    errno = 0;
    long wide = strtol(GETenv("CONTENT_LENGTH"), nullptr, 10);
    if (errno == ERANGE || wide < 0 || wide > X_MAXPOST) {
        POST_errmsg = "Invalid CONTENT_LENGTH.\n";
        endmark(&list[0]);
        return -1;
    }
    int cl = static_cast<int>(wide);
    X_TRACE("POST: CONTENT_LENGTH= %d", cl);
    int i = 0;
    if (cl == 0) {
        endmark(&list[0]);
        return 0;
    }
    for (; !feof(stdin); ++i) {
        char *word = fmakeword(stdin, '&', &cl);
        X_TRACE("fmakeword: [%s]\n", word);
        split(word, &list[i]);
        X_TRACE("makeword: name= [%s], val= [%s]\n", list[i].name,
                list[i].val ? list[i].val : "(null)");
        if (i == LASTPAIR) {
            endmark(&list[i]);
            return 0;
        }
        if (cl == 0) {
            ++i;
            break;
        }
    }
    endmark(&list[i]);
    return 0;
}

// Cuts text at "&" into pairs from index i on; returns 0.
static int parse_query(entry *list, const char *text, int i) {
    while (*text) {
        char *word = makeword(text, '&');
        size_t len = strlen(word);
        text += len;
        if (*text == '&') ++text;
        split(word, &list[i]);
        if (i == LASTPAIR) break;
        ++i;
    }
    endmark(&list[i]);
    return 0;
}

int GET_parser(entry *list, const char *pagename) {
    if (strcmp(GETenv("REQUEST_METHOD"), "GET")) {
        POST_errmsg = "This script should be referenced with a METHOD GET.\n";
        return -1;
    }
    const char *query = getenv("QUERY_STRING");
    if (query) return parse_query(list, query, 0);
    const char *path = getenv("PATH_INFO");
    if (!path) {
        endmark(&list[0]);
        return 0;
    }
    // The page pair first, cut at "&"; the rest of PATH_INFO is a query.
    list[0].name = const_cast<char *>(pagename);
    list[0].val = path_page = makeword(path, '&');
    const char *amp = strchr(path, '&');
    return parse_query(list, amp ? amp + 1 : "", 1);
}

int GET_path(entry *list, const char *pagename) {
    char *path = getenv("PATH_INFO");
    if (!path) return 0;
    int i = 0;
    for (; i < LASTPAIR && (list[i].name || list[i].val); ++i) {
        if (list[i].name && !strcmp(list[i].name, pagename)) {
            list[i].val = path;
            return 0;
        }
    }
    if (i >= LASTPAIR) return 0;  // full: no room for the page pair
    list[i].name = const_cast<char *>(pagename);
    list[i].val = path;
    endmark(&list[i + 1]);
    return 0;
}
