// The URL-encoded POST decoder. Input: CONTENT_LENGTH \0 BODY.
#include <cstdlib>
#include <cstring>

#include "form/form.h"
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    auto f = fuzz_fields(data, size, 2);
    setenv("REQUEST_METHOD", "POST", 1);
    setenv("CONTENT_TYPE", "application/x-www-form-urlencoded", 1);
    setenv("CONTENT_LENGTH", f[0].c_str(), 1);
    fuzz_stdin(f[1]);

    static entry list[X_MAXENT];
    memset(list, 0, sizeof list);
    // A refused count reads nothing and leaves an empty list.
    if (POST_parser(list) != 0 && (!POST_errmsg || list[0].name)) abort();
    int n = 0;
    for (; n < X_MAXENT && (list[n].name || list[n].val); ++n) {
        if (!list[n].name || strlen(list[n].name) > X_MAXPOST) abort();
        free(list[n].name);
    }
    if (n >= X_MAXENT) abort();
    return 0;
}
