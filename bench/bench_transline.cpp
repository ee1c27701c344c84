// Line translation and whole page runs: the per-request hot path.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unistd.h>

#include "page/page.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/store.h"
#include "subst/subst.h"

namespace {

void setup() {
    static bool done;
    if (done) return;
    done = true;
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.vtree = {nullptr, X_avlcmp};
    x_BUFFERS.ftree = {nullptr, X_avlcmp};
    x_BUFFERS.ctree = {nullptr, X_avlcmp};
    X_put_value("X_ROOT", "/");
    X_put_value("name", "world");
    X_put_value("price", "12.50");
    X_fp = fopen("/dev/null", "w");
    MY_fflush = 0;  // measure translation, not write system calls
}

void BM_TranslateIntoBuffer(benchmark::State &state) {
    setup();
    static char out[X_MAXLINE];
    const char *line = "<tr><td>Hello $(name)</td><td class=\"price\">$(price) EUR</td></tr>\n";
    for (auto _ : state) {
        X_transline(line, out, 1);
        benchmark::DoNotOptimize(out[0]);
    }
}
BENCHMARK(BM_TranslateIntoBuffer);

void BM_TranslateToStream(benchmark::State &state) {
    setup();
    const char *line = "<tr><td>Hello $(name)</td><td class=\"price\">$(price) EUR</td></tr>\n";
    for (auto _ : state) X_transline(line, nullptr, 1);
}
BENCHMARK(BM_TranslateToStream);

// A page of 1,000 text lines with references, run from the page cache.
void BM_PageOfThousandLines(benchmark::State &state) {
    setup();
    char path[] = "/tmp/tolm-bench-XXXXXX";
    int fd = mkstemp(path);
    std::string page;
    for (int i = 0; i < 1000; i++)
        page += "<li>line " + std::to_string(i) + ": $(name) costs $(price)</li>\n";
    if (write(fd, page.data(), page.size()) != static_cast<ssize_t>(page.size())) state.SkipWithError("write");
    close(fd);
    for (auto _ : state) X_printfile(path, 1);
    unlink(path);
}
BENCHMARK(BM_PageOfThousandLines);

}  // namespace

BENCHMARK_MAIN();
