// Date conversion driven by picture formats such as "DD/MM/YYYY HH:MI:SS".
#pragma once

int X_dt2str(long dt, const char *format, char *out);
int X_str2dt(const char *str, const char *format, long *timer);
int X_date_info(short *year, short *month, short *day, short *hours, short *minutes,
                short *seconds);
