// Argument scanning, HTML entities and the built-ins of "exec".
#pragma once

#include <cstddef>

// ---- Argument scanners --------------------------------------------------
// Each copies one argument of buff into val, which must be at least as long
// as buff, and returns how many characters of buff to step over before the
// next call (0 when there was no argument).

// One argument: leading control characters and blanks are skipped; "'`~^
// quote up to the same character, [ and { up to ] and }; anything else runs
// up to the next blank.
int X_arg_string(const char *buff, char *val);
// One argument delimited by any character of sep, no quoting; a null or
// empty sep makes it X_arg_string.
int X_arg_string_sep(const char *buff, char *val, const char *sep);
// X_arg_string into a buffer of size characters: the argument is cut to
// size-1 characters, the result is the same as without the cut.
int X_arg_stringn(const char *buff, char *val, size_t size);
// The closing character of the quote that ch opens, a blank if none.
int X_stop_char(int ch);
// A blank-delimited word, no quoting; returns the index of the blank or NUL
// after it, 0 when there is none.
int X_take_string(const char *buff, char *val);
// strtol(s, NULL, 10), with a short way for plain decimal text of up to 18
// digits.
long X_number(const char *s);

// ---- HTML entities ------------------------------------------------------
// One row of the entity table: entity text and its UTF-8 character.
struct HTML_code {
    const char *code;
    const char *ch;
};
constexpr int HTML_ROWS = 53;  // the last row is the null end mark
extern const HTML_code HTML_tab[HTML_ROWS];

// The entity for the byte ch, or a one-character string holding ch (in a
// static buffer overwritten by the next call).
const char *HTML_string(int ch);

// ---- Built-in functions of "exec" --------------------------------------
struct X_EXEC {
    const char *name;
    int (*func)(const char *fname, const char *args);
};
constexpr int EXEC_ROWS = 4;  // the last row is the null end mark
extern const X_EXEC Exec[EXEC_ROWS];

// Runs the built-in name on args: 0, or what ERRMSG returns for an unknown
// name.
int X_exec_call(const char *name, const char *args);
// Built-ins; each returns -1 when fname is not its own name.
int strcut(const char *fname, const char *args);  // cut a value at a text
int chchar(const char *fname, const char *args);  // replace a character
int StrLen(const char *fname, const char *args);  // store a value's length
