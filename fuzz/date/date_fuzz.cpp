// Date pictures both ways. Input: PICTURE \0 TEXT \0 SECONDS: the seconds
// are formatted by the picture (into a full and a small buffer), and the
// text is parsed by it.
#include <cstdlib>
#include <cstring>
#include <string>

#include "harness.h"
#include "subst/date.h"
#include "x.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    auto f = fuzz_fields(data, size, 3);
    long secs = strtol(f[2].c_str(), nullptr, 10);
    static char out[X_MAXLINE];
    X_dt2str(secs, f[0].c_str(), out);
    if (strlen(out) >= sizeof out) abort();
    char small[8];
    X_dt2str_size(secs, f[0].c_str(), small, sizeof small);
    if (strlen(small) >= sizeof small) abort();
    long t = 0;
    X_str2dt(f[1].c_str(), f[0].c_str(), &t);
    datime dt{};
    char year[X_MAXLINE];
    snprintf(year, sizeof year, "%s", f[1].c_str());
    TOyear(&dt, f[0].c_str(), year, 0);
    TOyear(&dt, f[0].c_str(), year, 1);
    return 0;
}
