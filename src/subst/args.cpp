// Argument scanners of the command handlers, the byte-to-entity lookup of
// HTML output, and the built-in string functions of "exec".
#include "subst/args.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "storage/store.h"
#include "x.h"

// ---- Argument scanners --------------------------------------------------

int X_stop_char(int ch)
{
    switch (ch) {
    case '"': case '\'': case '`': case '~': case '^':
        return ch;
    case '[':
        return ']';
    case '{':
        return '}';
    default:
        return ' ';
    }
}

// Bounded destination: keeps at most size-1 characters and the NUL.
struct Sink {
    char *val;
    size_t size;
    size_t len;
};

static void keep(Sink *s, char c)
{
    if (s->len + 1 < s->size)
        s->val[s->len++] = c;
}

static int finish(Sink *s, int result)
{
    if (s->size > 0)
        s->val[s->len] = '\0';
    return result;
}

int X_arg_stringn(const char *buff, char *val, size_t size)
{
    Sink out{val, size, 0};
    int i = 0;
    if (!buff || buff[0] == '\0')
        return finish(&out, 0);
    // Only a leading run of blanks and control characters is skipped.
    if ((unsigned char)buff[0] <= ' ') {
        while (buff[i] != '\0' && (unsigned char)buff[i] <= ' ')
            i++;
        if (buff[i] == '\0')
            return finish(&out, 0);
    }
    int stop = X_stop_char(buff[i]);
    if (stop != ' ')
        i++;  // the argument starts after the opening quote
    while (buff[i] != '\0' && buff[i] != stop)
        keep(&out, buff[i++]);
    // A closing quote is consumed; the blank after a word is not.
    if (stop != ' ' && buff[i] == stop)
        i++;
    return finish(&out, i);
}

int X_arg_string(const char *buff, char *val)
{
    return X_arg_stringn(buff, val, SIZE_MAX);
}

int X_arg_string_sep(const char *buff, char *val, const char *sep)
{
    if (!sep || !*sep)
        return X_arg_string(buff, val);
    auto in_sep = [sep](char c) { return c != '\0' && strchr(sep, c) != nullptr; };
    int i = 0, n = 0;
    while (in_sep(buff[i]))
        i++;
    if (buff[i] == '\0') {
        val[0] = '\0';
        return 0;
    }
    while (buff[i] != '\0' && !in_sep(buff[i]))
        val[n++] = buff[i++];
    val[n] = '\0';
    return i;
}

long X_number(const char *s)
{
    const char *p = s + (*s == '-');
    long n = 0;
    int digits = 0;
    for (; *p >= '0' && *p <= '9' && digits < 18; p++, digits++)
        n = n * 10 + (*p - '0');
    if (digits == 0 || (*p >= '0' && *p <= '9'))
        return strtol(s, nullptr, 10);
    return *s == '-' ? -n : n;
}

int X_take_string(const char *buff, char *val)
{
    int i = 0, n = 0;
    while (buff[i] == ' ')
        i++;
    if (buff[i] == '\0') {
        val[0] = '\0';
        return 0;
    }
    while (buff[i] != '\0' && buff[i] != ' ')
        val[n++] = buff[i++];
    val[n] = '\0';
    return i;
}

// ---- HTML entities ------------------------------------------------------

const HTML_code HTML_tab[HTML_ROWS] = {
    {"&aacute;", "á"}, {"&eacute;", "é"}, {"&iacute;", "í"}, {"&oacute;", "ó"},
    {"&uacute;", "ú"}, {"&yacute;", "ý"}, {"&Oacute;", "Ó"}, {"&Aacute;", "Á"},
    {"&Iacute;", "Í"}, {"&Eacute;", "É"}, {"&Uacute;", "Ú"}, {"&Yacute;", "Ý"},
    {"&agrave;", "à"}, {"&egrave;", "è"}, {"&igrave;", "ì"}, {"&ograve;", "ò"},
    {"&ugrave;", "ù"}, {"&Agrave;", "À"}, {"&Egrave;", "È"}, {"&Igrave;", "Ì"},
    {"&Ograve;", "Ò"}, {"&Ugrave;", "Ù"}, {"&auml;", "ä"},   {"&euml;", "ë"},
    {"&iuml;", "ï"},   {"&ouml;", "ö"},   {"&uuml;", "ü"},   {"&Auml;", "Ä"},
    {"&Euml;", "Ë"},   {"&Iuml;", "Ï"},   {"&Ouml;", "Ö"},   {"&Uuml;", "Ü"},
    {"&acirc;", "â"},  {"&ecirc;", "ê"},  {"&icirc;", "î"},  {"&ocirc;", "ô"},
    {"&ucirc;", "û"},  {"&Acirc;", "Â"},  {"&Ecirc;", "Ê"},  {"&Icirc;", "Î"},
    {"&Ocirc;", "Ô"},  {"&Ucirc;", "Û"},  {"&atilde;", "ã"}, {"&ntilde;", "ñ"},
    {"&otilde;", "õ"}, {"&Atilde;", "Ã"}, {"&Ntilde;", "Ñ"}, {"&Otilde;", "Õ"},
    {"&ccedil;", "ç"}, {"&Ccedil;", "Ç"}, {"&ordmas;", "ø"}, {"&questi;", "¿"},
    {nullptr, nullptr},
};

// Entity by byte, built on first use from the first byte of each row's
// character. The characters are two-byte UTF-8, so only the lead bytes
// 0xC3 and 0xC2 end up mapped, each to the last row that starts with it.
static const char *html_map[256];
static bool html_built;
static char html_one[2];  // result for a byte with no entity

const char *HTML_string(int ch)
{
    if (!html_built) {
        for (const HTML_code *row = HTML_tab; row->code; row++)
            html_map[(unsigned char)row->ch[0]] = row->code;
        html_built = true;
    }
    unsigned char c = (unsigned char)ch;
    if (html_map[c])
        return html_map[c];
    html_one[0] = char(c);
    html_one[1] = '\0';
    return html_one;
}

// ---- Built-in functions of "exec" --------------------------------------

const X_EXEC Exec[EXEC_ROWS] = {
    {"strcut", strcut},
    {"chchar", chchar},
    {"strlen", StrLen},
    {nullptr, nullptr},
};

int X_exec_call(const char *name, const char *args)
{
    X_TRACE("X_exec_call: name= %s args= %s \n", name, args);
    for (const X_EXEC *row = Exec; row->name; row++) {
        if (strcmp(row->name, name) == 0) {
            row->func(name, args);
            return 0;
        }
    }
    return ERRMSG("EXEC: Unknown function name: %s \n", name);
}

// The two arguments of a built-in, each cut to 99 characters.
static void two_args(const char *args, char first[100], char second[100])
{
    int i = X_arg_stringn(args, first, 100);
    X_arg_stringn(args + i, second, 100);
}

// Cuts variable name's value in place at the first occurrence of str.
int strcut(const char *fname, const char *args)
{
    if (strcmp(fname, "strcut") != 0)
        return -1;
    X_TRACE("cutstr: fname= %s args= %s \n", fname, args);
    char name[100], str[100];
    two_args(args, name, str);
    X_TRACE("cutstr: name= [%s] str= [%s] \n", name, str);
    if (char *value = X_get_value(name))
        if (char *at = strstr(value, str))
            *at = '\0';
    return 0;
}

// Replaces in place, in variable name's value, every map[0] by map[2];
// map must be three characters such as "a/b".
int chchar(const char *fname, const char *args)
{
    if (strcmp(fname, "chchar") != 0)
        return -1;
    X_TRACE("chchar: fname= %s args= %s \n", fname, args);
    char name[100], map[100];
    two_args(args, name, map);
    X_TRACE("cutstr: name= [%s] str= [%s] \n", name, map);
    char *value = X_get_value(name);
    if (!value)
        return 0;
    if (strlen(map) != 3)
        return -1;
    for (char *p = value; *p; p++)
        if (*p == map[0])
            *p = map[2];
    return 0;
}

// Sets variable LENname to the length of variable STRname's value.
int StrLen(const char *fname, const char *args)
{
    if (strcmp(fname, "strlen") != 0)
        return -1;
    X_TRACE("strlen: fname= %s args= %s \n", fname, args);
    char str_name[100], len_name[100];
    two_args(args, str_name, len_name);
    X_TRACE("strlen: STRname= [%s] LENname= [%s] \n", str_name, len_name);
    const char *value = X_get_value(str_name);
    if (!value)
        return 0;
    char len[24];
    snprintf(len, sizeof len, "%d", int(strlen(value)));
    X_put_value(len_name, len, 0, 0);
    return 0;
}
