// Placeholder until the module lands.
#include <unistd.h>
#include "subst/date.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int X_dt2str(long dt, const char *format, char *out) { return 0; }
int X_str2dt(const char *str, const char *format, long *timer) { return 0; }
int X_date_info(short *year, short *month, short *day, short *hours, short *minutes, short *seconds) { return 0; }
