// Wildcard patterns: "*", "?", "!", classes "[...]" and "[^...]", escapes.
//
// A pattern text compiles into a chain of elements; a class is one element
// whose further members hang from PATT_OR. Matching is anchored at both ends
// and byte by byte. X_CMPexec keeps compiled patterns in a 128-row cache;
// X_CMPpatt combines patterns with "||" and "&&".
//
// Matching runs backwards over the pattern, one row per "*" or "!" element:
// row j tells, for every text position, whether the pattern from that
// element on matches the rest of the text. A row needs only the next one, so
// the work is bounded by the text length times the pattern length, memory by
// two rows, and nothing recurses.
#include "control/patt.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "x.h"

// ---- Compiling ---------------------------------------------------------

static PATT_LIST *node_new(int op, char ch0, char ch1)
{
    auto *e = static_cast<PATT_LIST *>(calloc(1, sizeof(PATT_LIST)));
    if (e) {
        e->PATT_OP = op;
        e->ch0 = ch0;
        e->ch1 = ch1;
    }
    return e;
}

static void free_members(PATT_LIST *m)
{
    while (m) {
        PATT_LIST *next = m->PATT_OR;
        free(m);
        m = next;
    }
}

// Compiles the class whose text starts at p (just after "["). Sets *first
// to its first member, or null for a class without members; *nomem on an
// allocation failure. Returns the text after the class.
static const char *load_class(const char *p, PATT_LIST **first, bool *nomem)
{
    *first = nullptr;
    bool neg = *p == '^';
    if (neg)
        ++p;
    PATT_LIST **tail = first;
    while (*p && *p != ']') {
        PATT_LIST *m;
        if (p[1] == '-') {  // a range; its high end may even be "]"
            m = node_new(neg ? PATT_NOTRANGE : PATT_RANGE, p[0], p[2]);
            p += p[2] ? 3 : 2;
        } else {
            m = node_new(neg ? PATT_NOTCHAR : PATT_CHAR, p[0], p[0]);
            ++p;
        }
        if (!m) {
            free_members(*first);
            *first = nullptr;
            *nomem = true;
            return p;
        }
        *tail = m;
        tail = &m->PATT_OR;
    }
    if (*p == ']')
        ++p;
    return p;
}

// Bytes that "\" turns into literals.
static bool escapable(char c)
{
    return c != '\0' && strchr("*![]^-\\", c) != nullptr;
}

// Compiles a pattern text; null for an empty text, a pattern without
// elements, or when memory runs out.
PATT_LIST *kor_LOADpatt(const char *patt)
{
    X_TRACE("kor_LOADpatt: buf= [%s]\n", patt ? patt : "");
    if (!patt)
        return nullptr;
    PATT_LIST *head = nullptr;
    PATT_LIST **tail = &head;
    const char *p = patt;
    while (*p) {
        PATT_LIST *e = nullptr;
        bool nomem = false;
        switch (*p) {
        case '*':
            e = node_new(PATT_STAR, *p++, 0);
            break;
        case '?':
            e = node_new(PATT_ONE, *p++, 0);
            break;
        case '!':
            e = node_new(PATT_NOT, *p++, 0);
            break;
        case '[':
            p = load_class(p + 1, &e, &nomem);
            if (!e && !nomem)
                continue;  // an empty class adds nothing
            break;
        case '\\':
            if (escapable(p[1]))
                ++p;
            e = node_new(PATT_CHAR, *p, *p);
            ++p;
            break;
        default:
            e = node_new(PATT_CHAR, *p, *p);
            ++p;
            break;
        }
        if (!e) {
            kor_FREEpatt(head);
            return nullptr;
        }
        *tail = e;
        tail = &e->PATT_NEXT;
    }
    return head;
}

void kor_FREEpatt(PATT_LIST *patt)
{
    while (patt) {
        PATT_LIST *next = patt->PATT_NEXT;
        free_members(patt->PATT_OR);
        free(patt);
        patt = next;
    }
}

// ---- One byte ----------------------------------------------------------

int vp_SYMcmp(const char *a, const char *b, int n)
{
    for (int i = 0; i < n; ++i) {
        auto x = static_cast<unsigned char>(a[i]);
        auto y = static_cast<unsigned char>(b[i]);
        if (x != y)
            return x - y;
        if (x == 0)
            break;
    }
    return 0;
}

static bool in_range(const PATT_LIST *e, char c)
{
    return vp_SYMcmp(&e->ch0, &c, 1) <= 0 && vp_SYMcmp(&c, &e->ch1, 1) <= 0;
}

// 0 when the byte ch satisfies the element, walking its class members: a
// positive class needs one member to match, a negated one needs no member
// to exclude the byte.
int kor_ORpatt(PATT_LIST *elem, int ch)
{
    const char c = static_cast<char>(ch);
    for (PATT_LIST *e = elem; e; e = e->PATT_OR) {
        switch (e->PATT_OP) {
        case PATT_ONE:
            return c != '\0' ? 0 : -1;
        case PATT_CHAR:
            if (e->ch0 == c)
                return 0;
            if (!e->PATT_OR)
                return -1;
            break;
        case PATT_RANGE:
            if (in_range(e, c))
                return 0;
            if (!e->PATT_OR)
                return -1;
            break;
        case PATT_NOTCHAR:
            if (e->ch0 == c)
                return -1;
            if (!e->PATT_OR)
                return 0;
            break;
        case PATT_NOTRANGE:
            if (in_range(e, c))
                return -1;
            if (!e->PATT_OR)
                return 0;
            break;
        default:
            return -1;
        }
    }
    return -1;
}

// ---- Matching a text ---------------------------------------------------

// A run of byte elements and the "*" or "!" element that precedes it.
struct Seg {
    PATT_LIST *lit;  // first byte element of the run, null when empty
    long len;        // number of byte elements
    int op;          // PATT_STAR or PATT_NOT before the run; -1 for the first
};

static bool is_jump(const PATT_LIST *e)
{
    return e->PATT_OP == PATT_STAR || e->PATT_OP == PATT_NOT;
}

// Splits the pattern into runs; segs has room for one more than the number
// of "*" and "!" elements.
static void split(PATT_LIST *patt, Seg *segs)
{
    int j = 0;
    segs[0] = Seg{nullptr, 0, -1};
    for (PATT_LIST *e = patt; e; e = e->PATT_NEXT) {
        if (is_jump(e)) {
            segs[++j] = Seg{nullptr, 0, e->PATT_OP};
        } else {
            if (!segs[j].lit)
                segs[j].lit = e;
            ++segs[j].len;
        }
    }
}

// Whether the run s matches the text bytes from q on.
static bool run_at(const Seg &s, const char *text, long q, long n)
{
    if (q + s.len > n)
        return false;
    PATT_LIST *e = s.lit;
    for (long i = 0; i < s.len; ++i, e = e->PATT_NEXT)
        if (kor_ORpatt(e, static_cast<unsigned char>(text[q + i])) != 0)
            return false;
    return true;
}

// Fills row[lo..n] for the jump element before run j: whether the pattern
// from that element on matches text from each position. next holds the row
// of the following jump element; k is the index of the last run.
static void fill_row(const Seg *segs, int j, int k, const char *text, long lo, long n,
                     const unsigned char *next, unsigned char *row)
{
    const Seg &s = segs[j];
    const bool star = s.op == PATT_STAR;
    if (j == k && s.len == 0) {  // nothing follows: "*" takes all, "!" only the end
        for (long p = lo; p <= n; ++p)
            row[p] = star || p >= n;
        return;
    }
    for (long p = n; p >= lo; --p) {
        long q = p + s.len;
        bool follows = j == k ? q == n : q <= n && next[q];
        if (follows && run_at(s, text, p, n)) {
            // the rest matches here, so from every earlier position too
            memset(row + lo, star, static_cast<size_t>(p - lo + 1));
            return;
        }
        row[p] = !star;
    }
}

// Answers the whole match for a pattern with k jump elements.
static bool match(const Seg *segs, int k, const char *text, long n, unsigned char *rows)
{
    if (k == 0)
        return segs[0].len == n && run_at(segs[0], text, 0, n);
    unsigned char *row = rows;
    unsigned char *next = rows + n + 1;
    long lo = 0;
    for (int j = 0; j < k; ++j)
        lo += segs[j].len;
    for (int j = k; j >= 1; --j) {
        fill_row(segs, j, k, text, lo, n, next, row);
        unsigned char *t = row;
        row = next;
        next = t;
        lo -= segs[j - 1].len;
    }
    // next now holds the row of the first jump element
    const Seg &s0 = segs[0];
    return s0.len <= n && next[s0.len] && run_at(s0, text, 0, n);
}

// 0 when the whole text matches the compiled pattern, -1 when not. A null
// pattern matches every text.
int kor_EXEpatt(PATT_LIST *patt, const char *text)
{
    X_TRACE("kor_EXEpatt: pattern= %ld  buf= [%s]\n",
            patt ? static_cast<long>(reinterpret_cast<uintptr_t>(patt)) : -1L, text ? text : "");
    if (!patt)
        return 0;
    if (!text)
        text = "";
    const long n = static_cast<long>(strlen(text));

    int k = 0;
    for (PATT_LIST *e = patt; e; e = e->PATT_NEXT)
        k += is_jump(e);

    constexpr int SEGS = 16;
    constexpr long ROWS = 1024;
    Seg seg_buf[SEGS];
    unsigned char row_buf[2 * ROWS];
    Seg *segs = k < SEGS ? seg_buf : static_cast<Seg *>(malloc((k + 1) * sizeof(Seg)));
    unsigned char *rows = nullptr;
    if (k > 0)
        rows = n < ROWS ? row_buf : static_cast<unsigned char *>(malloc(2 * (n + 1)));
    int res = -1;
    if (segs && (k == 0 || rows)) {
        split(patt, segs);
        res = match(segs, k, text, n, rows) ? 0 : -1;
    }
    if (segs != seg_buf)
        free(segs);
    if (rows != row_buf)
        free(rows);
    return res;
}

// ---- The cache and pattern lists ---------------------------------------

// One cache row: a pattern text and its compiled form.
struct pattCACHE {
    char *patt;           // allocated copy of the text; null for an empty row
    PATT_LIST *korPATT;   // compiled pattern; null matches everything
};

static pattCACHE cache[X_PATT_CACHE];
static int curr = -1;  // the row filled last

const char *X_CMPcache(int row)
{
    return row >= 0 && row < X_PATT_CACHE ? cache[row].patt : nullptr;
}

// Matches text against one pattern, compiled once and kept in the cache.
// When all rows are in use the oldest filled row is replaced. -1 for an
// empty pattern text.
int X_CMPexec(const char *patt, const char *text)
{
    X_TRACE("X_CMPexec( %s, %s )", patt ? patt : "", text ? text : "");
    if (!patt || !*patt)
        return -1;
    int row = 0;
    for (; row < X_PATT_CACHE && cache[row].patt; ++row)
        if (strcmp(cache[row].patt, patt) == 0)
            return kor_EXEpatt(cache[row].korPATT, text);
    if (row < X_PATT_CACHE) {
        curr = row;
    } else {
        curr = (curr + 1) % X_PATT_CACHE;
        free(cache[curr].patt);
        kor_FREEpatt(cache[curr].korPATT);
        cache[curr] = pattCACHE{nullptr, nullptr};
    }
    pattCACHE &c = cache[curr];
    c.patt = strdup(patt);
    c.korPATT = c.patt ? kor_LOADpatt(patt) : nullptr;
    if (!c.patt || !c.korPATT) {
        ERRMSG("### No memory...");
        return kor_EXEpatt(nullptr, text);
    }
    return kor_EXEpatt(c.korPATT, text);
}

// Matches text against a pattern list: alternatives split at "||" are tried
// left to right; in the part after the last "||", terms split at "&&" must
// all match. patt is cut in place while a part is matched, then restored.
int X_CMPpatt(char *patt, const char *text)
{
    X_TRACE("X_CMPpatt( %s, %s )", patt ? patt : "", text ? text : "");
    if (!patt)
        return -1;
    char *p = patt;
    for (;;) {
        if (!*p)
            return -1;
        if (char *cut = strstr(p, "||")) {
            *cut = '\0';
            int r = X_CMPexec(p, text);
            *cut = '|';
            if (r == 0)
                return 0;
            p = cut + 2;
        } else if (char *cut2 = strstr(p, "&&")) {
            *cut2 = '\0';
            int r = X_CMPexec(p, text);
            *cut2 = '&';
            if (r != 0)
                return -1;
            p = cut2 + 2;
        } else {
            return X_CMPexec(p, text);
        }
    }
}
