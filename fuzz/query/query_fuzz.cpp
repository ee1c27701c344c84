// The GET decoders: QUERY_STRING and PATH_INFO into ent.
// Input: FLAGS \0 QUERY_STRING \0 PATH_INFO; bit 0 of FLAGS sets the query,
// bit 1 the path (an unset variable differs from an empty one).
#include <cstdlib>
#include <cstring>

#include "form/form.h"
#include "harness.h"

static constexpr const char *PAGE = "X_PAGE";

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    auto f = fuzz_fields(data, size, 3);
    int flags = f[0].empty() ? 3 : f[0][0];
    setenv("REQUEST_METHOD", "GET", 1);
    if (flags & 1) setenv("QUERY_STRING", f[1].c_str(), 1);
    else unsetenv("QUERY_STRING");
    if (flags & 2) setenv("PATH_INFO", f[2].c_str(), 1);
    else unsetenv("PATH_INFO");

    static entry list[X_MAXENT];
    memset(list, 0, sizeof list);
    if (GET_parser(list, PAGE) != 0) abort();
    // The page value cut from PATH_INFO; GET_path replaces it in the list.
    char *cut = list[0].name == PAGE ? list[0].val : nullptr;
    GET_path(list, PAGE);
    int n = 0;
    for (; n < X_MAXENT && (list[n].name || list[n].val); ++n) {
        if (!list[n].name) abort();
        if (list[n].name != PAGE) free(list[n].name);
    }
    if (n >= X_MAXENT) abort();  // the end mark always fits
    free(cut);
    return 0;
}
