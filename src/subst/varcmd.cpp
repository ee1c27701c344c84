// Variable commands: set, vset, add, vadd, clear and replace.
//
// Each handler answers -1 when the line is not its command, 0 without doing
// anything inside a skipped block, and otherwise expands its argument text,
// reads its arguments with X_arg_string and hands them to the store.
#include "subst/varcmd.h"

#include <cstring>
#include <string_view>

#include "diag/diag.h"
#include "storage/store.h"
#include "subst/args.h"
#include "subst/subst.h"

namespace {

constexpr size_t replace_name_max = 127;  // longest NAME of replace

// The expanded argument text of one command and the arguments read from it.
struct Args {
    char text[X_MAXLINE];   // argument text after expansion
    char name[X_MAXLINE];   // first argument
    char value[X_MAXLINE];  // second argument
    int pos;                // where the next argument starts in text
};

bool is_cmd(const char *cmd, std::string_view keyword)
{
    return strncmp(cmd, keyword.data(), keyword.size()) == 0;
}

// Expands what follows the keyword into a->text and logs the expansion.
void expand(const char *cmd, std::string_view keyword, int compile, Args *a)
{
    X_expand_args(cmd + keyword.size(), a->text, compile);
    X_DEBUG("%s // %s \n", cmd, a->text);
    a->pos = 0;
}

// Reads the next argument into val; 0 when there is none.
int next_arg(Args *a, char *val)
{
    int n = X_arg_string(a->text + a->pos, val);
    a->pos += n;
    return n;
}

// NAME and VALUE of set and add.
void name_value(const char *cmd, std::string_view keyword, int compile, Args *a)
{
    expand(cmd, keyword, compile, a);
    next_arg(a, a->name);
    next_arg(a, a->value);
}

// The value of the variable named by a->value, "" when it has none.
const char *source_value(const Args *a)
{
    const char *val = X_get_value(a->value);
    return val ? val : "";
}

// Writes old with every FROM replaced by TO into res (X_MAXLINE), left to
// right, without rescanning; stops when TO would no longer fit.
void replace_all(const char *old, std::string_view from, std::string_view to, char *res)
{
    size_t len = 0;
    const char *p = old;
    while (*p && len + to.size() < X_MAXLINE) {
        if (strncmp(p, from.data(), from.size()) == 0) {
            memcpy(res + len, to.data(), to.size());
            len += to.size();
            p += from.size();
        } else if (len < X_MAXLINE - 1) {
            res[len++] = *p++;
        } else {
            break;
        }
    }
    res[len] = 0;
}

}  // namespace

// <@set> NAME VALUE
int X_set(char *cmd, int compile, int ignore)
{
    constexpr std::string_view kw = "<@set>";
    if (!is_cmd(cmd, kw))
        return -1;
    X_TRACE("X_set: {%s} compile: %d  ignore: %d \n", cmd, compile, ignore);
    if (ignore)
        return 0;
    Args a;
    name_value(cmd, kw, compile, &a);
    return X_put_value(a.name, a.value);
}

// <@vset> NAME SOURCE: NAME gets the value of the variable SOURCE.
int X_vset(char *cmd, int compile, int ignore)
{
    constexpr std::string_view kw = "<@vset>";
    if (!is_cmd(cmd, kw))
        return -1;
    X_TRACE("X_vset: {%s} compile: %d  ignore: %d \n", cmd, compile, ignore);
    if (ignore)
        return 0;
    Args a;
    name_value(cmd, kw, compile, &a);
    return X_put_value(a.name, source_value(&a));
}

// <@add> NAME VALUE: VALUE joins NAME's list of values.
int X_add(char *cmd, int compile, int ignore)
{
    constexpr std::string_view kw = "<@add>";
    if (!is_cmd(cmd, kw))
        return -1;
    X_TRACE("X_add: {%s} compile: %d  ignore: %d \n", cmd, compile, ignore);
    if (ignore)
        return 0;
    Args a;
    name_value(cmd, kw, compile, &a);
    return X_add_value(a.name, a.value);
}

// <@vadd> NAME SOURCE: the value of SOURCE joins NAME's list of values.
int X_vadd(char *cmd, int compile, int ignore)
{
    constexpr std::string_view kw = "<@vadd>";
    if (!is_cmd(cmd, kw))
        return -1;
    X_TRACE("X_vadd: {%s} compile: %d  ignore: %d \n", cmd, compile, ignore);
    if (ignore)
        return 0;
    Args a;
    name_value(cmd, kw, compile, &a);
    return X_add_value(a.name, source_value(&a));
}

// <@clear> PATTERN: removes the ordinary variables whose names match.
int X_clear(char *cmd, int compile, int ignore)
{
    constexpr std::string_view kw = "<@clear>";
    if (!is_cmd(cmd, kw))
        return -1;
    X_TRACE("X_clear: {%s} compile: %d  ignore: %d \n", cmd, compile, ignore);
    if (ignore)
        return 0;
    Args a;
    expand(cmd, kw, compile, &a);
    next_arg(&a, a.name);
    X_clear_value(a.name);
    return 0;
}

// <@replace> NAME FROM TO: every FROM in NAME's value becomes TO. A missing
// TO or an empty FROM is reported; the command then goes on, but an empty
// FROM leaves the value as it is.
int X_replace(char *cmd, int compile, int ignore)
{
    constexpr std::string_view kw = "<@replace>";
    if (!is_cmd(cmd, kw))
        return -1;
    X_TRACE("X_replace: {%s} compile: %d ignore: %d \n", cmd, compile, ignore);
    if (ignore)
        return 0;
    Args a;
    char to[X_MAXLINE];
    expand(cmd, kw, compile, &a);
    next_arg(&a, a.name);
    if (strlen(a.name) > replace_name_max)
        a.name[replace_name_max] = 0;
    next_arg(&a, a.value);
    int has_to = next_arg(&a, to);
    if (!has_to)
        to[0] = 0;
    if (!has_to || !a.value[0])
        ERRMSG("Bad syntax in REPLACE: %s ...", a.text);

    const char *old = X_get_value(a.name);
    if (!old) {
        X_TRACE("X_replace: NAME: [%s] not exist or NULL value", a.name);
        return 0;
    }
    X_TRACE("X_replace: NAME: [%s] VAL: [%s] replace: [%s] by: [%s]", a.name, old, a.value, to);
    // An empty FROM would match at every position: the value stays.
    if (!a.value[0])
        return 0;
    // The argument text is no longer needed: the new value is built there.
    replace_all(old, a.value, to, a.text);
    int rc = X_put_value(a.name, a.text);
    X_TRACE("X_replace: NAME: [%s] NEWVAL: [%s]", a.name, a.text);
    return rc;
}
