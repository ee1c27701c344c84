// Header commands (see headers.h). Each checks its words, then hands one
// header line to the output layer. In shell mode there is no HTTP header
// and they do nothing; once the body has started each is an error.
#include "syscmd/headers.h"

#include <strings.h>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diag/diag.h"
#include "form/form.h"
#include "page/output.h"
#include "subst/subst.h"
#include "syscmd/argcut.h"

namespace {

// The words of one command after its tag.
struct Words {
    char text[X_MAXLINE];  // the expanded arguments
    X_argcut cut{text, 0};
    // The next argument into W (X_MAXLINE); false when there is none.
    bool next(char *w) { return X_next_arg(&cut, w, X_MAXLINE) > 0; }
    // Everything after the arguments taken so far, without outer blanks.
    std::string rest() {
        const char *p = text + cut.pos;
        while (*p == ' ' || *p == '\t') ++p;
        std::string r(p);
        while (!r.empty() && strchr(" \t\r\n", r.back())) r.pop_back();
        return r;
    }
};

// A header or cookie name: letters, digits and !#$%&'*+-.^_`|~.
bool token(const char *s) {
    if (!*s) return false;
    for (; *s; ++s)
        if (!isalnum(static_cast<unsigned char>(*s)) && !strchr("!#$%&'*+-.^_`|~", *s))
            return false;
    return true;
}

// A header value: no control character but the tab.
bool clean(const char *s) {
    for (; *s; ++s)
        if ((static_cast<unsigned char>(*s) < 32 && *s != '\t') || *s == 127) return false;
    return true;
}

// Whether a header may be set now; reports the command that came too late.
// RESULT gets what the handler returns.
bool writable(const char *cmd, int *result) {
    *result = 0;
    if (!X_head_cgi()) return false;  // shell mode: no header to set
    if (X_head_state() != X_HEAD_CLOSED) return true;
    *result = ERRMSG("<@%s>: the body of the response has already started \n", cmd);
    return false;
}

// Expands the arguments of LINE after TAG into W; false when LINE is not
// that command. *result is set for a command that is to do nothing.
bool begin(char *line, const char *tag, int compile, int ignore, Words *w, int *result) {
    *result = -1;
    if (!X_has_tag(line, tag)) return false;
    *result = 0;
    if (ignore) return false;
    X_expand_args(line + strlen(tag), w->text, compile);
    X_DEBUG("%s // %s \n", line, w->text);
    return true;
}

const char *reason(int code) {
    switch (code) {
    case 200: return "OK";
    case 201: return "Created";
    case 204: return "No Content";
    case 301: return "Moved Permanently";
    case 302: return "Found";
    case 303: return "See Other";
    case 304: return "Not Modified";
    case 307: return "Temporary Redirect";
    case 308: return "Permanent Redirect";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 410: return "Gone";
    case 500: return "Internal Server Error";
    case 503: return "Service Unavailable";
    default: return "";
    }
}

// A three-digit status code within LO..HI, or -1.
int status_code(const char *s, int lo, int hi) {
    if (strlen(s) != 3 || !isdigit(static_cast<unsigned char>(s[0])) ||
        !isdigit(static_cast<unsigned char>(s[1])) || !isdigit(static_cast<unsigned char>(s[2])))
        return -1;
    int code = atoi(s);
    return code >= lo && code <= hi ? code : -1;
}

int set_status(int code, const std::string &why) {
    std::string text = std::to_string(code);
    const char *r = why.empty() ? reason(code) : why.c_str();
    if (*r) text += std::string(" ") + r;
    return X_head_set("Status", text.c_str());
}

// Appends the cookie attribute ATTR (checked) to LINE; false when bad.
bool attribute(const char *attr, std::string *line) {
    static const char *const flags[] = {"Secure", "HttpOnly"};
    for (const char *f : flags)
        if (!strcasecmp(attr, f)) {
            *line += std::string("; ") + f;
            return true;
        }
    const char *eq = strchr(attr, '=');
    if (!eq || !clean(eq + 1) || strchr(eq + 1, ';')) return false;
    std::string name(attr, eq - attr), value(eq + 1);
    static const char *const named[] = {"Path", "Domain", "Max-Age", "Expires", "SameSite"};
    for (const char *n : named) {
        if (strcasecmp(name.c_str(), n)) continue;
        if (!strcmp(n, "Max-Age") && value.find_first_not_of("-0123456789") != std::string::npos)
            return false;
        if (!strcmp(n, "SameSite") && strcasecmp(value.c_str(), "Strict") &&
            strcasecmp(value.c_str(), "Lax") && strcasecmp(value.c_str(), "None"))
            return false;
        if (value.empty()) return false;
        *line += std::string("; ") + n + "=" + value;
        return true;
    }
    return false;
}

// NAME=VALUE (VALUE URL-encoded) and the attributes left in W.
int cookie(const char *cmd, const char *name, const char *value, Words *w, const char *tail) {
    int r;
    if (!token(name)) return ERRMSG("<@%s>: invalid cookie name: %s \n", cmd, name);
    std::string enc(3 * strlen(value) + 1, '\0');
    escape_url(value, enc.data());
    std::string line = std::string(name) + "=" + enc.c_str();
    char attr[X_MAXLINE];
    while (w->next(attr))
        if (!attribute(attr, &line)) return ERRMSG("<@%s>: invalid cookie attribute: %s \n", cmd, attr);
    line += tail;
    if (!writable(cmd, &r)) return r;
    return X_head_set("Set-Cookie", line.c_str()) == 0 ? 0 : -1;
}

}  // namespace

int X_setheader(char *line, int compile, int ignore) {
    Words w;
    int r;
    if (!begin(line, "<@setheader>", compile, ignore, &w, &r)) return r;
    X_TRACE("X_setheader: {%s} \n", w.text);
    char name[X_MAXLINE];
    w.next(name);
    size_t n = strlen(name);
    if (n && name[n - 1] == ':') name[n - 1] = '\0';  // "Name:" is fine too
    std::string value = w.rest();
    if (!token(name)) return ERRMSG("<@setheader>: invalid header name: %s \n", name);
    if (!clean(value.c_str())) return ERRMSG("<@setheader>: invalid value for %s \n", name);
    if (!writable("setheader", &r)) return r;
    if (!strcasecmp(name, "Status")) {
        int code = status_code(value.substr(0, 3).c_str(), 100, 599);
        if (code < 0) return ERRMSG("<@setheader>: invalid status: %s \n", value.c_str());
    }
    X_head_set(name, value.c_str());
    return 0;
}

int X_status(char *line, int compile, int ignore) {
    Words w;
    int r;
    if (!begin(line, "<@status>", compile, ignore, &w, &r)) return r;
    X_TRACE("X_status: {%s} \n", w.text);
    char word[X_MAXLINE];
    w.next(word);
    int code = status_code(word, 100, 599);
    std::string why = w.rest();
    if (code < 0 || !clean(why.c_str())) return ERRMSG("<@status>: invalid status: %s \n", word);
    if (!writable("status", &r)) return r;
    set_status(code, why);
    return 0;
}

int X_redirect(char *line, int compile, int ignore) {
    Words w;
    int r;
    if (!begin(line, "<@redirect>", compile, ignore, &w, &r)) return r;
    X_TRACE("X_redirect: {%s} \n", w.text);
    char url[X_MAXLINE], word[X_MAXLINE];
    w.next(url);
    int code = w.next(word) ? status_code(word, 300, 399) : 302;
    if (!*url || !clean(url) || strchr(url, ' ')) return ERRMSG("<@redirect>: invalid URL: %s \n", url);
    if (code < 0) return ERRMSG("<@redirect>: invalid status: %s \n", word);
    if (!writable("redirect", &r)) return r;
    set_status(code, "");
    X_head_set("Location", url);
    return 0;
}

int X_setcookie(char *line, int compile, int ignore) {
    Words w;
    int r;
    if (!begin(line, "<@setcookie>", compile, ignore, &w, &r)) return r;
    X_TRACE("X_setcookie: {%s} \n", w.text);
    char name[X_MAXLINE], value[X_MAXLINE];
    w.next(name);
    w.next(value);
    return cookie("setcookie", name, value, &w, "");
}

int X_clearcookie(char *line, int compile, int ignore) {
    Words w;
    int r;
    if (!begin(line, "<@clearcookie>", compile, ignore, &w, &r)) return r;
    X_TRACE("X_clearcookie: {%s} \n", w.text);
    char name[X_MAXLINE];
    w.next(name);
    return cookie("clearcookie", name, "", &w, "; Max-Age=0; Expires=Thu, 01 Jan 1970 00:00:00 GMT");
}
