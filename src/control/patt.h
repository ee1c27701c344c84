// Wildcard patterns: compiling, matching, the pattern cache and lists.
#pragma once

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
