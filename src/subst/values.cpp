// Value functions: what one $( ) reference stands for.
//
// X_transvalue reads the text of one reference (already expanded by the
// line translator) and writes its value through transvalue. The first row
// of the table below whose word matches decides: exact rows need the whole
// name, prefix rows only its beginning. A name no row claims is a variable.
#include "subst/values.h"

#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "diag/diag.h"
#include "storage/store.h"
#include "subst/subst.h"
#include "subst/values_rows.h"

namespace {

struct ValueRow {
    std::string_view word;  // the name or prefix
    bool exact;             // the whole name must equal word
    value_row_fn fn;        // handler, given the text after word
};

// Order matters: a name is resolved by the first row that matches.
constexpr ValueRow rows[] = {
    {"\\t", true, row_escape},
    {"\\n", true, row_escape},
    {"\\r", true, row_escape},
    {"sh:", false, row_sh},
    {"eval:", false, row_eval},
    {"call:", false, row_call},
    {"txt2url:", false, row_txt2url},
    {"url2txt:", false, row_url2txt},
    {"sql:", false, row_sql},
    {"trim:", false, row_trim},
    {"lower:", false, row_lower},
    {"upper:", false, row_upper},
    {"crypt:", false, row_crypt},
    {"dt2str:", false, row_dt2str},
    {"str2dt:", false, row_str2dt},
    {"len:", false, row_len},
    {"cut:", false, row_cut},
    {"str:", false, row_str},
    {"strpos:", false, row_strpos},
    {"chrpos:", false, row_chrpos},
    {"word:", false, row_word},
    {"mval:", false, row_mval},
    {"int:", false, row_int},
    {"printf:", false, row_printf},
    {"ftell:", false, row_ftell},
    {"expr:", false, row_expr},
    {"env:", false, row_env},
    {"html:", false, row_html},
    {"attr:", false, row_attr},
    {"shq:", false, row_shq},
    {"json:", false, row_json},
    {"session:", false, row_session},
    {"today", true, row_today},
    {"X_ROWS", false, row_rows},
    {"X_DT", false, row_dt},
    {"X_UDT", false, row_udt},
    {"X_DDT", false, row_ddt},
    {"X_RANDOM", false, row_random},
    {"X_SQLCODE", false, row_sqlcode},
    {"X_VERSION", false, row_version},
    {"X_INSERT_ID", false, row_insert_id},
    {"X_NVAL", false, row_nval},
    {"X_NFUN", false, row_nfun},
    {"X_ERRMSG", true, row_errmsg},
    {"DIR", true, row_dir},
    {"year:", false, row_year},
    {"month:", false, row_month},
    {"day:", false, row_day},
};


// Only rows whose word starts with the name's first character can match:
// for each character, the first such row and, for each row, the next one,
// in table order. Most variable names start where no row does.
constexpr int kRows = sizeof rows / sizeof rows[0];
constexpr uint8_t kNoRow = 0xff;
static_assert(kRows < kNoRow);

struct RowChains {
    std::array<uint8_t, 256> first{};
    std::array<uint8_t, kRows> next{};
};

constexpr RowChains row_chains()
{
    RowChains c;
    c.first.fill(kNoRow);
    c.next.fill(kNoRow);
    for (int i = kRows - 1; i >= 0; i--) {
        auto ch = static_cast<unsigned char>(rows[i].word[0]);
        c.next[i] = c.first[ch];
        c.first[ch] = static_cast<uint8_t>(i);
    }
    return c;
}

constexpr RowChains chains = row_chains();

const ValueRow *find_row(std::string_view name)
{
    if (name.empty())
        return nullptr;
    for (uint8_t i = chains.first[static_cast<unsigned char>(name[0])]; i != kNoRow;
         i = chains.next[i]) {
        const ValueRow &row = rows[i];
        if (row.exact ? name == row.word : name.starts_with(row.word))
            return &row;
    }
    return nullptr;
}

// Row 38: the variable of that name, or the empty string.
int variable(const char *name, char *out)
{
    const char *val = X_get_value(name);
    if (!val) {
        X_TRACE("X_transvalue: no value for: [%s]", name);
        val = "";
    }
    return value_emit(val, out);
}

}  // namespace

int value_none(char *out)
{
    if (out)
        *out = 0;
    return 0;
}

int value_emit(const char *val, char *out)
{
    return transvalue(val, out);
}

int value_long(long n, char *out)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%ld", n);
    return value_emit(buf, out);
}

void value_expand(const char *ref, char *buf)
{
    buf[0] = 0;
    X_transvalue(ref, buf);
}

int value_transform(const char *ref, char *out, void (*fn)(char *))
{
    char buf[X_MAXLINE];
    value_expand(ref, buf);
    fn(buf);
    return value_emit(buf, out);
}

int value_int(const char *s)
{
    long n = strtol(s, nullptr, 10);
    if (n > INT_MAX)
        return INT_MAX;
    if (n < INT_MIN)
        return INT_MIN;
    return static_cast<int>(n);
}

// Resolves one reference and writes its value into out, or to the output
// stream when out is null. Returns 0, or what ERRMSG returned for the
// reported errors of dt2str:, str2dt: and expr:.
int X_transvalue(const char *name, char *out)
{
    if (!name)
        name = "";
    if (int r; X_stack_moved(r, [&] { return X_transvalue(name, out); })) return r;
    X_TRACE("X_transvalue: [%s]", name);
    // References nest through value functions, eval: and call:, each level
    // with 64 KiB buffers on the stack: they end where the stack runs low.
    if (X_stack_low() != 0)
        return value_none(out);
    if (const ValueRow *row = find_row(name))
        return row->fn(name, name + row->word.size(), out);
    return variable(name, out);
}

bool X_value_plain(const char *name)
{
    return name && *name && !find_row(name);
}

// Writes the value of name to the output stream.
int X_printvalue(const char *name)
{
    return X_transvalue(name, nullptr);
}
