// Date conversion driven by picture formats such as "DD/MM/YYYY HH:MI:SS".
#pragma once

#include <cstdint>

// Broken-down local date and time of one conversion.
struct datime {
    uint16_t year;    // full year, e.g. 2024
    uint8_t month;    // 1 to 12
    uint8_t day;      // 1 to 31
    uint8_t hour;     // 0 to 23
    uint8_t minute;   // 0 to 59
    uint8_t second;   // 0 to 59
};

// Formats the local time of dt by format into out, which holds X_MAXLINE
// characters. Returns 0, or -1 when the format holds a character that is no
// item and no separator.
int X_dt2str(long dt, const char *format, char *out);
// The same into a buffer of size characters; the output is always
// terminated and cut to fit.
int X_dt2str_size(long dt, const char *format, char *out, int size);

// Parses str by format, starting from today at 00:00:00, and stores the local
// time in seconds since the epoch in *timer. Returns 0; whether format and
// text were valid is told by X_date_ok.
int X_str2dt(const char *str, const char *format, long *timer);

// 0 when the last conversion was valid, -1 when its format or text was not.
int X_date_ok();

// Copies the field flags of the last conversion (1 when the format used the
// field) into the caller's six variables. Returns 0.
int X_date_info(short *year, short *month, short *day, short *hours, short *minutes,
                short *seconds);

// The year items "YYYY", "YYY", "YY", "Y" (also in "y", "A", "a"). With
// mode 1 writes dt's year digits into text (at least 8 characters) and
// returns how many; otherwise reads up to the item's length of digits from
// text into dt's year and returns how many were read. Returns 0 when format
// holds no year item, and in reading when no digit was found.
int TOyear(datime *dt, const char *format, char *text, int mode);
