// The wildcard matcher. Input: PATTERN \0 TEXT. The pattern is compiled and
// matched on its own (so that a leak shows) and as a list through the cache.
// A list with a part that compiles to nothing (empty classes only) is
// reported as an error that ends the run, so only the direct match takes it.
#include <cstdlib>
#include <cstring>
#include <string>

#include "control/patt.h"
#include "harness.h"

// True when every non-empty part of the list, cut at "||" and "&&",
// compiles to a pattern.
static bool compiles(const std::string &list) {
    size_t at = 0;
    while (at <= list.size()) {
        size_t a = list.find("||", at), b = list.find("&&", at);
        size_t end = a < b ? a : b;
        if (end == std::string::npos) end = list.size();
        std::string part = list.substr(at, end - at);
        if (!part.empty()) {
            PATT_LIST *p = kor_LOADpatt(part.c_str());
            if (!p) return false;
            kor_FREEpatt(p);
        }
        at = end + 2;
    }
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    auto f = fuzz_fields(data, size, 2);
    const char *text = f[1].c_str();
    if (PATT_LIST *p = kor_LOADpatt(f[0].c_str())) {
        int r = kor_EXEpatt(p, text);
        if (r != 0 && r != -1) abort();
        kor_FREEpatt(p);
    }
    std::string list = f[0].c_str();
    if (!compiles(list)) return 0;
    std::string copy = list;
    X_CMPpatt(copy.data(), text);
    if (copy != list) abort();  // the list is restored after the cuts
    return 0;
}
