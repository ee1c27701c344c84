// A whole page run: the input is the page text, run as the top-level page
// of a scratch site with a request's values in place. Commands that leave
// the process (shell, fork, popen, sleep, shared memory, signals, alarm,
// chdir, unlink) are switched off; the run itself happens in a child so
// that an error or "<@quit>" ends only the child; a page that loops
// without end is stopped after half a second of processor time.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "harness.h"
#include "page/dispatch.h"
#include "page/page.h"
#include "runtime/runtime.h"
#include "storage/store.h"

static std::string tmp, site, page;

static void run(void *) {
    X_printfile(page.c_str(), 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (site.empty()) {
        tmp = std::string(fuzz_scratch()) + "/tmp";
        site = std::string(fuzz_scratch()) + "/site";
        page = site + "/page.html";
        mkdir(site.c_str(), 0700);
        mkdir(tmp.c_str(), 0700);
        setenv("TMP_DIR", tmp.c_str(), 1);
        if (chdir(site.c_str()) != 0) abort();
        if (!freopen("/dev/null", "r", stdin)) abort();
        X_sandbox = 1;
        X_start();
        X_put_value("X_ROOT", site.c_str(), 1);
        X_put_value("X_PAGE", page.c_str());
        X_put_value("name", "Ann & Bob");
        X_add_value("list", "1");
        X_add_value("list", "2");
        X_PAGE = X_get_value("X_PAGE");
    }
    fuzz_empty(site.c_str());
    fuzz_write(site + "/inc.html", "included $(name)\n");
    fuzz_write(page, std::string(reinterpret_cast<const char *>(data), size));
    fuzz_in_child(run, nullptr, 500);
    // Files the page wrote go with the next input.
    fuzz_empty(tmp.c_str());
    return 0;
}
