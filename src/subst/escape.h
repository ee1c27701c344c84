// Escaping of a value for the language it is put into: HTML text and
// quoted attributes, unquoted attributes, shell words, JSON strings.
#pragma once

enum X_ESCAPE {
    X_ESC_HTML,   // & < > " ' as entities; other bytes, UTF-8 included, as they are
    X_ESC_ATTR,   // every ASCII byte but letters and digits as &#xHH;
    X_ESC_SHELL,  // one single-quoted word: ' becomes '\'' (any byte is safe)
    X_ESC_JSON,   // a quoted JSON string: " \ and controls escaped, < > & too
    X_ESC_PRE,    // & < > only: text inside an element such as <pre>
};

// Writes IN escaped as KIND into OUT (SIZE bytes, at least 8) and returns
// the length written. A result that does not fit is cut before the first
// character that does not fit whole, and a quoted kind is still closed, so
// the output is always well-formed.
int X_escape(int kind, const char *in, char *out, int size);
