// The multipart decoder. Input: the whole body; its first line is the
// boundary. Uploads go to a scratch TMP_DIR that is emptied after each run.
// Every upload must land in TMP_DIR itself, whatever the client's file name.
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "form/form.h"
#include "harness.h"

static std::string tmp;

static void decode(void *) {
    static entry list[X_MAXENT];
    E_POST_parser(list);
    for (int i = 0; i < X_MAXENT && list[i].name; ++i) {
        const char *v = list[i].val;
        // A file value names a plain file directly inside TMP_DIR.
        if (v && !strncmp(v, tmp.c_str(), tmp.size()) && v[tmp.size()] == '/' &&
            strchr(v + tmp.size() + 1, '/'))
            abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (tmp.empty()) {
        tmp = std::string(fuzz_scratch()) + "/up";
        mkdir(tmp.c_str(), 0700);
        setenv("TMP_DIR", tmp.c_str(), 1);
        setenv("REQUEST_METHOD", "POST", 1);
        setenv("CONTENT_TYPE", "multipart/form-data", 1);
    }
    fuzz_stdin(std::string(reinterpret_cast<const char *>(data), size));
    fuzz_in_child(decode, nullptr);
    fuzz_empty(tmp.c_str());
    return 0;
}
