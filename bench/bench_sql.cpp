// Database blocks: an "sql" block walking 10,000 rows of 5 columns from an
// in-memory SQLite database, every column copied into a page variable and
// the row written out. Reports rows and column values a second.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "db/db.h"
#include "page/dispatch.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/store.h"

namespace {

constexpr int kRows = 10000;
constexpr int kCols = 5;

const char *const kSetup =
    "<@sqlexec> create table t (id integer primary key, name text, price real, note text, at text)\n"
    "<@sqlexec> with recursive n(i) as (select 1 union all select i + 1 from n where i < 10000) "
    "insert into t select i, 'item ' || i, i * 0.25, 'a short note', '2024-03-05' from n\n";

const char *const kPage =
    "<@sql> select id, name, price, note, at from t\n"
    "<tr><td>$(id)</td><td>$(name)</td><td>$(price)</td><td>$(note)</td><td>$(at)</td></tr>\n"
    "<@end>\n";

X_FILE *page_of(const char *text)
{
    auto *page = new X_FILE{};
    page->text = strdup(text);
    page->size = static_cast<long>(strlen(text));
    return page;
}

X_FILE *setup()
{
    static X_FILE *page;
    if (page) return page;
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.vtree = {nullptr, X_avlcmp};
    x_BUFFERS.ftree = {nullptr, X_avlcmp};
    x_BUFFERS.ctree = {nullptr, X_avlcmp};
    X_fp = fopen("/dev/null", "w");
    MY_fflush = 0;
    X_put_value("X_BASE", "sqlite::memory:");
    X_notfound(page_of(kSetup), 1, 0);
    page = page_of(kPage);
    return page;
}

void BM_SqliteBlock10kRows5Cols(benchmark::State &state)
{
    X_FILE *page = setup();
    for (auto _ : state) {
        page->offset = 0;
        X_notfound(page, 1, 0);
    }
    if (X_rowcount != kRows || strcmp(X_get_value("id"), "10000") != 0)
        state.SkipWithError("the block did not walk every row");
    state.SetItemsProcessed(state.iterations() * kRows);
    state.counters["values/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * kRows * kCols, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SqliteBlock10kRows5Cols)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
