// The argument scanners. Input: TEXT \0 SEPARATORS. Each scanner walks the
// whole text argument by argument; every step moves forward and stays in
// the text, and the bounded scanner agrees with the plain one.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"
#include "subst/args.h"

// Walks text with scan; aborts when a step leaves the text.
template <typename Scan>
static void walk(const std::string &text, Scan scan) {
    std::vector<char> val(text.size() + 1);
    size_t pos = 0;
    for (int n; pos < text.size() && (n = scan(text.c_str() + pos, val.data())) > 0;) {
        if (strlen(val.data()) > text.size() - pos) abort();
        pos += n;
    }
    if (pos > text.size()) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    auto f = fuzz_fields(data, size, 2);
    const std::string &text = f[0];
    const char *sep = f[1].c_str();
    walk(text, [](const char *b, char *v) { return X_arg_string(b, v); });
    walk(text, [sep](const char *b, char *v) { return X_arg_string_sep(b, v, sep); });
    walk(text, [](const char *b, char *v) { return X_take_string(b, v); });
    // The bounded form steps as far as the plain one and keeps a prefix.
    std::vector<char> full(text.size() + 1);
    char cut[5];
    int a = X_arg_string(text.c_str(), full.data());
    int b = X_arg_stringn(text.c_str(), cut, sizeof cut);
    if (a != b || strncmp(full.data(), cut, strlen(cut))) abort();
    return 0;
}
