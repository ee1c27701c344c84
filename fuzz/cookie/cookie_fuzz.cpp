// The cookie header path: "<@cookie>" reading HTTP_COOKIE, and the
// Set-Cookie lines written for X_ServerCOOKIES and X_SessionCOOKIES.
// Input: HTTP_COOKIE \0 COOKIE-ARGS \0 SERVER-LIST \0 SESSION-LIST \0 VALUE;
// every name of both lists gets VALUE. Whatever the input, every line
// written is a Set-Cookie line: no value starts a header line of its own.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "form/form.h"
#include "harness.h"
#include "runtime/config.h"
#include "runtime/runtime.h"
#include "storage/store.h"
#include "syscmd/output.h"

static std::vector<std::string> f;

static void give(const std::string &list, const std::string &value) {
    size_t i = 0;
    while (i < list.size()) {
        size_t j = list.find(' ', i);
        if (j == std::string::npos) j = list.size();
        if (j > i) X_put_value(list.substr(i, j - i).c_str(), value.c_str());
        i = j + 1;
    }
}

static void cookies(void *) {
    setenv("HTTP_COOKIE", f[0].c_str(), 1);
    std::string cmd = "<@cookie> " + f[1];
    X_cookie(cmd.data(), 0, 0);
    X_put_value("X_ServerCOOKIES", f[2].c_str());
    X_put_value("X_SessionCOOKIES", f[3].c_str());
    give(f[2], f[4]);
    give(f[3], f[4]);
    char *out = nullptr;
    size_t len = 0;
    FILE *real = stdout;
    stdout = open_memstream(&out, &len);
    X_set_cookies();
    fclose(stdout);
    stdout = real;
    static constexpr char head[] = "Set-Cookie: ";
    for (size_t at = 0; at < len;) {
        if (strncmp(out + at, head, sizeof head - 1)) abort();
        const char *nl = static_cast<const char *>(memchr(out + at, '\n', len - at));
        if (!nl) abort();  // every line is ended
        if (memchr(out + at, '\r', nl - (out + at))) abort();
        at = nl - out + 1;
    }
    free(out);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static bool ready = false;
    if (!ready) {
        fuzz_scratch();
        X_start();
        ready = true;
    }
    f = fuzz_fields(data, size, 5);
    fuzz_in_child(cookies, nullptr);
    return 0;
}
