// The condition evaluator of "<@if>": the whole input is one condition,
// with a few variables of each kind set beforehand.
#include <cstdlib>
#include <string>

#include "control/cond.h"
#include "harness.h"
#include "runtime/runtime.h"
#include "storage/store.h"

static std::string text;

static void scan(void *) {
    static char cond[X_MAXLINE], buff[X_MAXLINE];
    size_t n = text.size() < sizeof cond - 1 ? text.size() : sizeof cond - 1;
    text.copy(cond, n);
    cond[n] = 0;
    X_if_SCAN(cond, buff, 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static bool ready = false;
    if (!ready) {
        fuzz_scratch();
        X_start();
        X_put_value("i", "42");
        X_put_value("f", "3.25");
        X_put_value("s", "Hello world");
        X_put_value("d", "24/12/2023");
        X_put_value("e", "");
        X_add_value("m", "one");
        X_add_value("m", "two");
        fuzz_write("file.txt", "x\n");
        ready = true;
    }
    text.assign(reinterpret_cast<const char *>(data), size);
    fuzz_in_child(scan, nullptr);
    return 0;
}
