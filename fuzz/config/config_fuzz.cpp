// x.env and x.config lines and the request's page names: X_env, then
// X_values with X_PAGE and X_ERROR fields. "@ROOT@" in the configuration
// stands for a scratch site that holds pages, with a sibling directory and
// a file outside it. Input: X.CONFIG \0 X.ENV \0 HTTP_HOST \0 X_PAGE \0 X_ERROR.
// A page or error page the run accepts for a site lies inside its root.
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "form/form.h"
#include "harness.h"
#include "runtime/config.h"
#include "runtime/runtime.h"
#include "storage/store.h"

static std::string home;
static std::vector<std::string> f;

static std::string with_root(std::string text) {
    const std::string key = "@ROOT@", root = home + "/site";
    for (size_t at; (at = text.find(key)) != std::string::npos;) text.replace(at, key.size(), root);
    return text;
}

// True when the file path names lies inside dir.
static bool inside(const char *path, const char *dir) {
    char p[PATH_MAX], d[PATH_MAX];
    if (!realpath(path, p) || !realpath(dir, d)) return false;
    size_t n = strlen(d);
    return !strcmp(d, "/") || (!strncmp(p, d, n) && p[n] == '/');
}

static void values(void *) {
    fuzz_write(home + "/x.config", with_root(f[0]));
    fuzz_write(home + "/x.env", f[1]);
    setenv("HTTP_HOST", f[2].c_str(), 1);
    X_start();
    static char page[] = "X_PAGE", error[] = "X_ERROR";
    int i = 0;
    if (!f[3].empty()) ent[i++] = entry{page, f[3].data()};
    if (!f[4].empty()) ent[i++] = entry{error, f[4].data()};
    ent[i] = entry{nullptr, nullptr};
    X_values("Tolm", 0);
    X_set_cookies();
    const char *root = X_get_value("X_ROOT");
    if (!root || !strcmp(root, "/")) return;
    if (X_PAGE && !f[3].empty() && !inside(X_PAGE, root)) abort();
    if (X_ERROR && !f[4].empty() && !inside(X_ERROR, root)) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (home.empty()) {
        home = fuzz_scratch();
        setenv("REQUEST_METHOD", "GET", 1);
        mkdir((home + "/site").c_str(), 0700);
        mkdir((home + "/site/sub").c_str(), 0700);
        mkdir((home + "/site2").c_str(), 0700);
        fuzz_write(home + "/site/x.page", "page\n");
        fuzz_write(home + "/site/x.error", "error\n");
        fuzz_write(home + "/site/sub/p.html", "sub\n");
        fuzz_write(home + "/site2/p.html", "sibling\n");
        fuzz_write(home + "/outside.html", "outside\n");
    }
    f = fuzz_fields(data, size, 5);
    fuzz_in_child(values, nullptr);
    return 0;
}
