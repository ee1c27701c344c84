// Loops: iterations a second of a word loop whose body has ten lines
// (text with references, a counter, an if/else that alternates a class).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "page/dispatch.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/store.h"

namespace {

constexpr int kWords = 1000;  // iterations per run of the loop

const char *const kPage =
    "<@while> words items\n"
    "<tr class=\"$(cls)\">\n"
    "<td>$(items)</td>\n"
    "<td>$(price) EUR</td>\n"
    "</tr>\n"
    "<@n>++\n"
    "<@if> cmp $(cls) == odd\n"
    "<@set> cls even\n"
    "<@else>\n"
    "<@set> cls odd\n"
    "<@end>\n"
    "<@end>\n";

X_FILE *setup() {
    static X_FILE page;
    if (page.text) return &page;
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.vtree = {nullptr, X_avlcmp};
    x_BUFFERS.ftree = {nullptr, X_avlcmp};
    x_BUFFERS.ctree = {nullptr, X_avlcmp};
    std::string items;
    for (int i = 0; i < kWords; i++) items += "item" + std::to_string(i) + " ";
    X_put_value("items", items.c_str());
    X_put_value("price", "12.50");
    X_put_value("cls", "odd");
    X_fp = fopen("/dev/null", "w");
    page.text = strdup(kPage);
    page.size = static_cast<long>(strlen(kPage));
    return &page;
}

// Runs the loop once per benchmark iteration; reports loop iterations.
void run_loop(benchmark::State &state, int flush) {
    X_FILE *page = setup();
    MY_fflush = flush;
    for (auto _ : state) {
        X_put_value("n", "0");
        page->offset = 0;
        X_notfound(page, 1, 0);
    }
    if (strcmp(X_get_value("n"), "1000") != 0) state.SkipWithError("the loop did not run every word");
    state.SetItemsProcessed(state.iterations() * kWords);
}

// Output unflushed, as inside file blocks and with flushing switched off.
void BM_LoopTenLineBody(benchmark::State &state) {
    run_loop(state, 0);
}
BENCHMARK(BM_LoopTenLineBody)->Unit(benchmark::kMillisecond);

// The default policy: every output line is flushed.
void BM_LoopTenLineBodyFlushed(benchmark::State &state) {
    run_loop(state, -1);
}
BENCHMARK(BM_LoopTenLineBodyFlushed)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
