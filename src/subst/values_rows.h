// Row handlers of the value-function table and the helpers they share.
// Private to the value functions (values*.cpp, crypt.cpp).
#pragma once

#include "x.h"

// One row handler: ref is the whole reference text (for messages), arg the
// text after the row's prefix, out the caller's buffer or null for the
// output stream. Returns what X_transvalue returns.
using value_row_fn = int (*)(const char *ref, const char *arg, char *out);

// ---- Shared helpers (values.cpp) ---------------------------------------
int value_none(char *out);                        // writes nothing
int value_emit(const char *val, char *out);       // writes val
int value_long(long n, char *out);                // writes "%ld"
void value_expand(const char *ref, char *buf);    // resolves ref into buf (X_MAXLINE)
// Resolves ref, changes the value in place with fn, and writes it.
int value_transform(const char *ref, char *out, void (*fn)(char *));
int value_int(const char *s);                     // leading decimal number, clamped

// ---- String rows (values_text.cpp) -------------------------------------
int row_sh(const char *ref, const char *arg, char *out);
int row_txt2url(const char *ref, const char *arg, char *out);
int row_url2txt(const char *ref, const char *arg, char *out);
int row_sql(const char *ref, const char *arg, char *out);
int row_trim(const char *ref, const char *arg, char *out);
int row_lower(const char *ref, const char *arg, char *out);
int row_upper(const char *ref, const char *arg, char *out);
int row_crypt(const char *ref, const char *arg, char *out);
int row_len(const char *ref, const char *arg, char *out);
int row_cut(const char *ref, const char *arg, char *out);
int row_str(const char *ref, const char *arg, char *out);
int row_strpos(const char *ref, const char *arg, char *out);
int row_chrpos(const char *ref, const char *arg, char *out);
int row_word(const char *ref, const char *arg, char *out);
int row_mval(const char *ref, const char *arg, char *out);

// ---- Number formats (values_format.cpp) --------------------------------
int row_int(const char *ref, const char *arg, char *out);
int row_printf(const char *ref, const char *arg, char *out);

// ---- Escaping for other languages (values_escape.cpp) -----------------
int row_html(const char *ref, const char *arg, char *out);
int row_attr(const char *ref, const char *arg, char *out);
int row_shq(const char *ref, const char *arg, char *out);
int row_json(const char *ref, const char *arg, char *out);

// ---- Dates and clocks (values_time.cpp) --------------------------------
int row_dt2str(const char *ref, const char *arg, char *out);
int row_str2dt(const char *ref, const char *arg, char *out);
int row_today(const char *ref, const char *arg, char *out);
int row_dt(const char *ref, const char *arg, char *out);
int row_udt(const char *ref, const char *arg, char *out);
int row_ddt(const char *ref, const char *arg, char *out);
int row_year(const char *ref, const char *arg, char *out);
int row_month(const char *ref, const char *arg, char *out);
int row_day(const char *ref, const char *arg, char *out);

// ---- Interpreter and system names (values_sys.cpp) ---------------------
int row_escape(const char *ref, const char *arg, char *out);
int row_eval(const char *ref, const char *arg, char *out);
int row_call(const char *ref, const char *arg, char *out);
int row_ftell(const char *ref, const char *arg, char *out);
int row_expr(const char *ref, const char *arg, char *out);
int row_env(const char *ref, const char *arg, char *out);
int row_rows(const char *ref, const char *arg, char *out);
int row_random(const char *ref, const char *arg, char *out);
int row_sqlcode(const char *ref, const char *arg, char *out);
int row_version(const char *ref, const char *arg, char *out);
int row_insert_id(const char *ref, const char *arg, char *out);
int row_nval(const char *ref, const char *arg, char *out);
int row_nfun(const char *ref, const char *arg, char *out);
int row_errmsg(const char *ref, const char *arg, char *out);
int row_dir(const char *ref, const char *arg, char *out);

// ---- Sessions (session/value.cpp) --------------------------------------
int row_session(const char *ref, const char *arg, char *out);
