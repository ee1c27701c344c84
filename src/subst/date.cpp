// Date conversion in local time by picture formats: "DD/MM/YYYY HH:MI:SS"
// and the like, in both directions.
#include "subst/date.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "x.h"

// ---- Flags of the last conversion --------------------------------------
static int Year, Month, Day, Hours, Minutes, Seconds;  // 1: field used
static int Ok;    // 0, or -1 when the format or the text was invalid
static int Skip;  // length of the format item just handled

static void reset_flags()
{
    Year = Month = Day = Hours = Minutes = Seconds = 0;
    Ok = 0;
    Skip = 0;
}

// A two-letter field item: its spellings, its datime member, the accepted
// range when reading and the value used outside it.
struct FieldItem {
    const char *names;  // two characters per spelling
    uint8_t datime::*field;
    int *flag;
    int low, high, bad;
};

// Matched in this order, before the year items.
static constexpr FieldItem field_items[] = {
    {"SSss", &datime::second, &Seconds, 0, 59, 0},
    {"MImi", &datime::minute, &Minutes, 0, 59, 0},
    {"HHhh", &datime::hour, &Hours, 0, 23, 0},
    {"DDddJJjj", &datime::day, &Day, 1, 31, 1},
    {"MMmm", &datime::month, &Month, 1, 12, 1},
};

static bool separator(char c)
{
    return c != '\0' && strchr("\t !#%+-./:", c) != nullptr;
}

static bool digit(char c)
{
    return c >= '0' && c <= '9';
}

// The field item that format starts with, or null.
static const FieldItem *field_item(const char *f)
{
    for (const FieldItem &it : field_items)
        for (const char *n = it.names; *n; n += 2)
            if (f[0] == n[0] && f[1] == n[1])
                return &it;
    return nullptr;
}

// Length (1 to 4) of the year item format starts with, 0 if none.
static int year_length(const char *f)
{
    char c = f[0];
    if (c != 'Y' && c != 'y' && c != 'A' && c != 'a')
        return 0;
    int n = 1;
    while (n < 4 && f[n] == c)
        n++;
    return n;
}

// One year item at format: with out set writes dt's year digits there,
// otherwise reads digits from in into dt's year. Sets Skip to the item's
// length and returns the digits written or read (0: no item, no digit).
static int year_item(datime *dt, const char *format, const char *in, char *out)
{
    Skip = year_length(format);
    if (Skip == 0)
        return 0;
    char year[8];
    int len = snprintf(year, sizeof year, "%04d", int(dt->year));
    // "YYYY" is the whole year; shorter items its last digits.
    int start = Skip == 4 || len < Skip ? 0 : len - Skip;
    if (out) {
        memcpy(out, year + start, size_t(len - start) + 1);
        Year = 1;
        return len - start;
    }
    // The digits read replace those of the default year; the year is the
    // text up to the last digit read ("YY" with "5" in 2026 is 205).
    int n = 0;
    while (n < Skip && start + n < len && digit(in[n])) {
        year[start + n] = in[n];
        n++;
    }
    if (n == 0) {
        Ok = -1;
        return 0;
    }
    year[start + n] = '\0';
    int value = 0;
    for (const char *p = year; *p; p++)
        value = value * 10 + (*p - '0');
    dt->year = uint16_t(value);
    Year = 1;
    return n;
}

int TOyear(datime *dt, const char *format, char *text, int mode)
{
    return mode == 1 ? year_item(dt, format, nullptr, text) : year_item(dt, format, text, nullptr);
}

// ---- Formatting ---------------------------------------------------------

// Bounded output: keeps writing only while there is room for the NUL.
struct Out {
    char *buf;
    int size;
    int len;
};

static void put(Out *o, const char *s, int n)
{
    for (int i = 0; i < n && o->len < o->size - 1; i++)
        o->buf[o->len++] = s[i];
}

// Local broken-down time of dt; a time the C library cannot break down
// gives all fields 0 and marks the conversion invalid.
static datime local_datime(long dt)
{
    time_t t = time_t(dt);
    struct tm tm {};
    if (!localtime_r(&t, &tm)) {
        Ok = -1;
        return datime{};
    }
    return datime{uint16_t(unsigned(tm.tm_year) + 1900u), uint8_t(tm.tm_mon + 1),
                  uint8_t(tm.tm_mday), uint8_t(tm.tm_hour), uint8_t(tm.tm_min),
                  uint8_t(tm.tm_sec)};
}

int X_dt2str_size(long dt, const char *format, char *out, int size)
{
    reset_flags();
    datime d = local_datime(dt);
    Out o{out, out ? size : 0, 0};
    const char *f = format ? format : "";
    while (*f) {
        if (separator(*f)) {
            put(&o, f++, 1);
        } else if (const FieldItem *it = field_item(f)) {
            char digits[8];
            snprintf(digits, sizeof digits, "%02d", int(d.*it->field));
            put(&o, digits, 2);
            *it->flag = 1;
            f += 2;
        } else if (char year[8]; int n = year_item(&d, f, nullptr, year)) {
            put(&o, year, n);
            f += Skip;
        } else {
            put(&o, f++, 1);
            Ok = -1;
        }
    }
    if (out && size > 0)
        out[o.len] = '\0';
    return Ok;
}

int X_dt2str(long dt, const char *format, char *out)
{
    return X_dt2str_size(dt, format, out, X_MAXLINE);
}

// ---- Parsing ------------------------------------------------------------

// Reads one or two digits of a field item into d; returns how many were
// read, 0 when the text holds no digit there.
static int read_field(const FieldItem *it, const char *s, datime *d)
{
    int n = 0, v = 0;
    while (n < 2 && digit(s[n]))
        v = v * 10 + (s[n++] - '0');
    if (n == 0)
        return 0;
    if (v < it->low || v > it->high) {
        Ok = -1;
        v = it->bad;
    }
    d->*it->field = uint8_t(v);
    *it->flag = 1;
    return n;
}

int X_str2dt(const char *str, const char *format, long *timer)
{
    time_t now = time(nullptr);
    struct tm today {};
    localtime_r(&now, &today);
    reset_flags();
    datime d{uint16_t(today.tm_year + 1900), uint8_t(today.tm_mon + 1),
             uint8_t(today.tm_mday), 0, 0, 0};

    const char *f = format ? format : "";
    const char *s = str ? str : "";
    while (*f) {
        const FieldItem *it = separator(*f) ? nullptr : field_item(f);
        int n = 0;
        if (separator(*f)) {
            f++;
            s += *s != '\0';
        } else if (it && (n = read_field(it, s, &d)) > 0) {
            f += 2;
            s += n;
        } else if ((n = year_item(&d, f, s, nullptr)) > 0) {
            f += Skip;
            s += n;
        } else {
            // No item, or an item with no digit under it: step over one
            // character of each, never past the end of the text.
            Ok = -1;
            f++;
            s += *s != '\0';
        }
    }

    // Built with daylight saving marked as not in force; when that moves
    // the hour, the hour is meant in summer time.
    struct tm tm {};
    tm.tm_year = int(d.year) - 1900;
    tm.tm_mon = d.month - 1;
    tm.tm_mday = d.day;
    tm.tm_hour = d.hour;
    tm.tm_min = d.minute;
    tm.tm_sec = d.second;
    tm.tm_isdst = 0;
    time_t t = mktime(&tm);
    if (tm.tm_hour != d.hour)
        t -= 3600;
    if (timer)
        *timer = long(t);
    return 0;
}

int X_date_ok()
{
    return Ok;
}

int X_date_info(short *year, short *month, short *day, short *hours, short *minutes,
                short *seconds)
{
    *year = short(Year);
    *month = short(Month);
    *day = short(Day);
    *hours = short(Hours);
    *minutes = short(Minutes);
    *seconds = short(Seconds);
    return 0;
}
