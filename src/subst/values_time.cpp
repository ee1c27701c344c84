// Dates and clocks of references: dt2str:, str2dt:, today, X_DT, X_UDT,
// X_DDT, year:, month:, day:, and the helpers GetDDT and date_YEAR/MONTH/DAY.
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "diag/diag.h"
#include "subst/date.h"
#include "subst/values.h"
#include "subst/values_rows.h"

namespace {

constexpr size_t date_max = 99;  // longest date name or format

// Splits "REF:FORMAT" of dt2str: (to_str set) and str2dt:. On success val
// holds the expanded REF, fmt the format, and the result is true; otherwise
// the error has been reported and *rc is what ERRMSG returned.
bool date_parts(bool to_str, const char *ref, const char *arg, char *val, char *fmt, int *rc)
{
    const char *colon = strchr(arg, ':');
    if (!colon) {
        *rc = to_str ? ERRMSG("Bad format for dt2str: %s \n", ref)
                     : ERRMSG("Bad format for str2dt: %s \n", ref);
        return false;
    }
    size_t n = static_cast<size_t>(colon - arg);
    if (n > date_max || strlen(colon + 1) > date_max) {
        *rc = to_str ? ERRMSG("Too long name(s) for dt2str: %s \n", ref)
                     : ERRMSG("Too long name(s) for str2dt: %s \n", ref);
        return false;
    }
    char name[date_max + 1];
    memcpy(name, arg, n);
    name[n] = 0;
    snprintf(fmt, date_max + 1, "%s", colon + 1);
    value_expand(name, val);
    return true;
}

// Cuts a "YYYY-MM-DD..." text to the n characters at pos.
int date_slice(char *str, int pos, int n)
{
    if (strlen(str) <= 9)
        return -1;
    memmove(str, str + pos, n);
    str[n] = 0;
    return 0;
}

}  // namespace

// dt2str:REF:FORMAT, REF's value (seconds since the epoch) as local time
// written by the picture FORMAT.
int row_dt2str(const char *ref, const char *arg, char *out)
{
    char val[X_MAXLINE];
    char fmt[date_max + 1];
    int rc = 0;
    if (!date_parts(true, ref, arg, val, fmt, &rc)) {
        value_none(out);
        return rc;
    }
    char buf[X_MAXLINE];
    buf[0] = 0;
    X_dt2str(strtol(val, nullptr, 10), fmt, buf);
    X_TRACE("### dt2str ==> %s \n", buf);
    return value_emit(buf, out);
}

// str2dt:REF:FORMAT, REF's value read by the picture FORMAT, as seconds
// since the epoch.
int row_str2dt(const char *ref, const char *arg, char *out)
{
    char val[X_MAXLINE];
    char fmt[date_max + 1];
    int rc = 0;
    if (!date_parts(false, ref, arg, val, fmt, &rc)) {
        value_none(out);
        return rc;
    }
    long dt = 0;
    X_str2dt(val, fmt, &dt);
    return value_long(dt, out);
}

// today, the local date as YYYY-MM-DD.
int row_today(const char *, const char *, char *out)
{
    time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    char buf[32];
    snprintf(buf, sizeof buf, "%04d-%02d-%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
    return value_emit(buf, out);
}

// X_DT, the time in seconds since the epoch.
int row_dt(const char *, const char *, char *out)
{
    return value_long(static_cast<long>(time(nullptr)), out);
}

// X_UDT, the time with its microseconds.
int row_udt(const char *, const char *, char *out)
{
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    char buf[48];
    snprintf(buf, sizeof buf, "%ld.%06d", static_cast<long>(tv.tv_sec),
             static_cast<int>(tv.tv_usec));
    return value_emit(buf, out);
}

// X_DDT, microseconds since the previous X_DDT.
int row_ddt(const char *, const char *, char *out)
{
    return value_long(GetDDT(), out);
}

// year:REF, month:REF, day:REF: a part of REF's "YYYY-MM-DD" value.
int row_year(const char *, const char *arg, char *out)
{
    return value_transform(arg, out, [](char *s) { date_YEAR(s); });
}

int row_month(const char *, const char *arg, char *out)
{
    return value_transform(arg, out, [](char *s) { date_MONTH(s); });
}

int row_day(const char *, const char *arg, char *out)
{
    return value_transform(arg, out, [](char *s) { date_DAY(s); });
}

// Microseconds elapsed since the previous call; 0 on the first one.
long GetDDT()
{
    static bool started = false;
    static struct timeval prev;
    struct timeval now;
    gettimeofday(&now, nullptr);
    if (!started) {
        started = true;
        prev = now;
        return 0;
    }
    long ddt = (now.tv_sec - prev.tv_sec) * 1000000L + (now.tv_usec - prev.tv_usec);
    prev = now;
    return ddt;
}

// Cut a "YYYY-MM-DD..." text in place to its year, month or day. A text of
// 9 characters or fewer stays as it is and the result is -1.
int date_YEAR(char *str)
{
    X_TRACE("date_YEAR: %s", str);
    return date_slice(str, 0, 4);
}

int date_MONTH(char *str)
{
    X_TRACE("date_MONTH: %s", str);
    return date_slice(str, 5, 2);
}

int date_DAY(char *str)
{
    X_TRACE("date_DAY: %s", str);
    return date_slice(str, 8, 2);
}
