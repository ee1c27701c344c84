// String value functions: escaping, case, lengths, substrings, positions,
// words and the values of multi-valued variables.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

#include "form/form.h"
#include "page/page.h"
#include "storage/store.h"
#include "subst/values.h"
#include "subst/values_rows.h"

namespace {

// Copies the text before the first colon of arg into name (X_MAXLINE) and
// returns the text after that colon, or null when arg has no colon.
const char *split(const char *arg, char *name)
{
    const char *colon = strchr(arg, ':');
    if (!colon)
        return nullptr;
    size_t n = static_cast<size_t>(colon - arg);
    if (n > X_MAXLINE - 1)
        n = X_MAXLINE - 1;
    memcpy(name, arg, n);
    name[n] = 0;
    return colon + 1;
}

// Cuts buf to at most n characters.
void cap(char *buf, size_t n)
{
    if (strlen(buf) > n)
        buf[n] = 0;
}

// Writes val escaped by fn, which needs room for grow times its length:
// any value whose escaped form fits a value buffer comes out whole, a
// longer one is cut to that buffer.
int emit_escaped(const char *val, size_t grow, char *out, void (*fn)(const char *, char *))
{
    std::vector<char> buf(grow * strlen(val) + 1);
    fn(val, buf.data());
    cap(buf.data(), X_MAXLINE - 1);
    return value_emit(buf.data(), out);
}

// The reference a position function looks at: start S, the variable's
// value and the text after the second colon. False when any part is
// missing or S lies outside the value.
struct Probe {
    int start;         // 1-based start position
    const char *val;   // the variable's value
    const char *text;  // what is searched for
};

bool probe(const char *arg, Probe *p)
{
    const char *rest = strchr(arg, ':');
    if (!rest)
        return false;
    char name[X_MAXLINE];
    const char *text = split(rest + 1, name);
    if (!text)
        return false;
    p->start = value_int(arg);
    p->text = text;
    p->val = X_get_value(name);
    if (!p->val || !*p->val || !*text || p->start <= 0)
        return false;
    return static_cast<size_t>(p->start) <= strlen(p->val);
}

}  // namespace

// sh:REF, the value escaped for a shell command line (a character may
// gain a backslash).
int row_sh(const char *, const char *arg, char *out)
{
    char buf[X_MAXLINE];
    value_expand(arg, buf);
    return emit_escaped(buf, 2, out, [](const char *val, char *esc) {
        memcpy(esc, val, strlen(val) + 1);
        escape_shell_cmd(esc);
    });
}

// txt2url:REF, the value URL-encoded ("%XX" triples a character).
int row_txt2url(const char *, const char *arg, char *out)
{
    char buf[X_MAXLINE];
    value_expand(arg, buf);
    return emit_escaped(buf, 3, out, escape_url);
}

// url2txt:REF, the value URL-decoded.
int row_url2txt(const char *, const char *arg, char *out)
{
    return value_transform(arg, out, unescape_url);
}

// sql:REF, the value as a quoted SQL string literal: in quotes, each quote
// doubled. A value too long for a value buffer is cut before a character,
// never between the two quotes of a pair, so the literal always closes and
// the value stays data.
int row_sql(const char *, const char *arg, char *out)
{
    char buf[X_MAXLINE];
    value_expand(arg, buf);
    std::vector<char> lit(X_MAXLINE);
    size_t n = 0;
    lit[n++] = '\'';
    for (const char *p = buf; *p; p++) {
        size_t need = *p == '\'' ? 2 : 1;
        if (n + need + 2 > lit.size())  // room for the closing quote and terminator
            break;
        lit[n++] = *p;
        if (*p == '\'')
            lit[n++] = '\'';
    }
    lit[n++] = '\'';
    lit[n] = 0;
    return value_emit(lit.data(), out);
}

// trim:REF, the value with its blanks squeezed.
int row_trim(const char *, const char *arg, char *out)
{
    return value_transform(arg, out, trim_buff);
}

// lower:REF and upper:REF, byte by byte through the locale's tables.
int row_lower(const char *, const char *arg, char *out)
{
    return value_transform(arg, out, [](char *s) {
        for (; *s; ++s)
            *s = static_cast<char>(tolower(static_cast<unsigned char>(*s)));
    });
}

int row_upper(const char *, const char *arg, char *out)
{
    return value_transform(arg, out, [](char *s) {
        for (; *s; ++s)
            *s = static_cast<char>(toupper(static_cast<unsigned char>(*s)));
    });
}

// crypt:VAR, the scrambled hexadecimal form of the variable's value; two
// digits per character, so at most half a buffer of it is taken.
int row_crypt(const char *, const char *arg, char *out)
{
    const char *val = X_get_value(arg);
    if (!val || !*val)
        return value_none(out);
    char in[X_MAXLINE];
    char buf[X_MAXLINE];
    snprintf(in, (X_MAXLINE - 1) / 2 + 1, "%s", val);
    X_crypt(in, buf);
    return value_emit(buf, out);
}

// len:VAR, the length of the variable's value, 0 when it has none.
int row_len(const char *, const char *arg, char *out)
{
    const char *val = X_get_value(arg);
    char buf[16];
    snprintf(buf, sizeof buf, "%d", val ? static_cast<int>(strlen(val)) : 0);
    return value_emit(buf, out);
}

// cut:N:REF, at most N characters of REF's value.
int row_cut(const char *, const char *arg, char *out)
{
    const char *ref = strchr(arg, ':');
    if (!ref)
        return value_none(out);
    X_len = value_int(arg);
    int rc = X_transvalue(ref + 1, out);
    X_len = -1;
    return rc;
}

// str:S:E:REF, characters S to E (1-based, inclusive) of REF's value.
int row_str(const char *, const char *arg, char *out)
{
    const char *second = strchr(arg, ':');
    const char *ref = second ? strchr(second + 1, ':') : nullptr;
    if (!ref)
        return value_none(out);
    int start = value_int(arg);
    int end = value_int(second + 1);
    char buf[X_MAXLINE];
    value_expand(ref + 1, buf);
    int len = static_cast<int>(strlen(buf));
    if (end < 1 || end < start || start <= 0 || len < start)
        return value_none(out);
    if (end < len)
        buf[end] = 0;
    return value_emit(buf + start - 1, out);
}

// The 1-based position FIND gives in VAR's value from S on, -1 for none.
static int position(const char *arg, char *out, const char *(*find)(const char *, const char *))
{
    Probe p;
    if (!probe(arg, &p))
        return value_emit("-1", out);
    const char *hit = find(p.val + p.start - 1, p.text);
    return value_long(hit ? hit - p.val + 1 : -1, out);
}

// strpos:S:VAR:TEXT, where TEXT first occurs in VAR's value from S on.
int row_strpos(const char *, const char *arg, char *out)
{
    return position(arg, out, [](const char *s, const char *t) -> const char * { return strstr(s, t); });
}

// chrpos:S:VAR:CHARS, the first character of VAR's value from S on that
// is one of CHARS.
int row_chrpos(const char *, const char *arg, char *out)
{
    return position(arg, out, [](const char *s, const char *t) -> const char * { return strpbrk(s, t); });
}

// word:VAR:N, the N-th word of VAR's value. The stored value is squeezed
// first; then every blank or tab starts a new word, so a blank next to a
// tab leaves an empty word between them.
int row_word(const char *, const char *arg, char *out)
{
    char name[X_MAXLINE];
    const char *num = split(arg, name);
    if (!num)
        return value_none(out);
    char *val = X_get_value(name);
    if (!val)
        return value_none(out);
    trim_buff(val);
    int n = value_int(num);
    if (n == -1)
        return value_none(out);

    char buf[X_MAXLINE];
    int len = 0;
    int count = 1;
    for (const char *p = val; *p && count <= n; ++p) {
        if (*p == ' ' || *p == '\t')
            ++count;
        else if (count == n && len < X_MAXLINE - 1)
            buf[len++] = *p;
    }
    buf[len] = 0;
    return value_emit(buf, out);
}

// mval:VAR:N, the N-th value of VAR.
int row_mval(const char *, const char *arg, char *out)
{
    char name[X_MAXLINE];
    const char *num = split(arg, name);
    if (!num)
        return value_none(out);
    int n = value_int(num);
    const char *val = n == -1 ? nullptr : X_get_Mvalue(name, static_cast<unsigned>(n));
    if (!val)
        return value_none(out);
    return value_emit(val, out);
}
