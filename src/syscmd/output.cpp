// Output and cookie commands: "html" and "compile" switch the translation
// of the page output, "cookie" reads one request cookie into a variable.
#include <cstdlib>
#include <cstring>
#include "diag/diag.h"
#include "runtime/site.h"
#include "form/form.h"
#include "storage/store.h"
#include "subst/args.h"
#include "subst/subst.h"
#include "syscmd/output.h"

static constexpr int NAMESIZE = 200;  // cookie name, 199 characters

static bool tagged(const char *line, const char *tag) {
    return !strncmp(line, tag, strlen(tag));
}

// The switch value of an "on"/"off" text: "off" anywhere clears it, then
// "on" anywhere sets it (so "none" or "off on" leave it on).
static void onoff(char *text, int *flag) {
    for (char *p = text; *p; ++p)
        if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p - 'A' + 'a');
    if (strstr(text, "off")) *flag = 0;
    if (strstr(text, "on")) *flag = 1;
}

int X_html(char *line, int compile, int ignore) {
    static constexpr const char *tag = "<@html>";
    if (!tagged(line, tag)) return -1;
    X_TRACE("X_html: buff= %s; compile= %d ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char buff[X_MAXLINE];
    X_expand_args(line + strlen(tag), buff, compile);
    X_DEBUG("%s // %s\n", line, buff);
    onoff(buff, &HTML);
    return 0;
}

int X_compile(char *line, int *compile, int ignore) {
    static constexpr const char *tag = "<@compile>";
    if (!tagged(line, tag)) return -1;
    X_TRACE("X_compile: buff= %s; compile= %d ignore: %d \n", line, *compile, ignore);
    if (ignore) return 0;
    char buff[X_MAXLINE];
    X_expand_args(line + strlen(tag), buff, *compile);
    X_DEBUG("%s // %s\n", line, buff);
    onoff(buff, compile);
    return 0;
}

// Sets the variable NAME to the request cookie NAME (percent-decoded), or
// to "" when the request has none. The cookie is found by a plain substring
// search for "NAME=", so it may match the tail of a longer cookie name.
int X_cookie(char *line, int compile, int ignore) {
    static constexpr const char *tag = "<@cookie>";
    if (!tagged(line, tag)) return -1;
    X_TRACE("X_cookie: {%s} compile: %d  ignore: %d \n", line, compile, ignore);
    if (ignore) return 0;
    char buff[X_MAXLINE];
    X_expand_args(line + strlen(tag), buff, compile);
    X_DEBUG("%s // %s \n", line, buff);

    static char arg[X_MAXLINE];
    X_arg_string(buff, arg);
    char name[NAMESIZE];
    snprintf(name, sizeof name, "%.*s", NAMESIZE - 1, arg);
    char search[NAMESIZE + 1];
    snprintf(search, sizeof search, "%s=", name);

    if (X_safe() && !strncmp(name, "X_", 2)) {
        X_log("a cookie may not set %.64s", name);  // X_ names are the site's
        return -1;
    }
    static char value[X_MAXLINE];
    value[0] = '\0';
    const char *cookies = getenv("HTTP_COOKIE");
    const char *found = cookies ? strstr(cookies, search) : nullptr;
    if (found) {
        found += strlen(search);
        size_t len = strcspn(found, ";");
        if (len >= sizeof value) len = sizeof value - 1;
        memcpy(value, found, len);
        value[len] = '\0';
        unescape_url(value);
    }
    int rc = X_put_value(name, value);
    if (rc == 0 && found) X_mark_request(name);
    return rc;
}
