// Wildcard patterns: compiling, matching, the pattern cache and lists.
#pragma once

// Element kinds (PATT_OP).
constexpr int PATT_STAR = 0;       // "*": any run of bytes
constexpr int PATT_ONE = 1;        // "?": any one byte
constexpr int PATT_CHAR = 2;       // a literal byte or class member
constexpr int PATT_NOTCHAR = 3;    // a member of a negated class
constexpr int PATT_RANGE = 4;      // a range member of a class
constexpr int PATT_NOTRANGE = 5;   // a range member of a negated class
constexpr int PATT_NOT = 6;        // "!": the rest matches nowhere from here on

// One element of a compiled pattern.
struct PATT_LIST {
    PATT_LIST *PATT_NEXT;  // next element of the sequence
    PATT_LIST *PATT_OR;    // next member of the same class
    char ch0;              // literal byte or low end of a range
    char ch1;              // high end of a range
    int PATT_OP;           // element kind, 0..6
};

PATT_LIST *kor_LOADpatt(const char *patt);
int kor_EXEpatt(PATT_LIST *patt, const char *text);
int kor_ORpatt(PATT_LIST *elem, int ch);
void kor_FREEpatt(PATT_LIST *patt);
int vp_SYMcmp(const char *a, const char *b, int n);
int X_CMPexec(const char *patt, const char *text);
int X_CMPpatt(char *patt, const char *text);

constexpr int X_PATT_CACHE = 128;  // rows of the compiled-pattern cache
// The pattern text held by a cache row, or null for an empty row or a row
// out of range. For diagnostics and tests.
const char *X_CMPcache(int row);
