// Wildcard matching on long texts: plain, backtracking-heavy and "!" patterns.
#include <benchmark/benchmark.h>

#include <string>

#include "control/patt.h"

static void match_text(benchmark::State &state, const char *pattern, char fill, const char *tail)
{
    std::string text(static_cast<size_t>(state.range(0)), fill);
    text += tail;
    PATT_LIST *patt = kor_LOADpatt(pattern);
    for (auto _ : state)
        benchmark::DoNotOptimize(kor_EXEpatt(patt, text.c_str()));
    kor_FREEpatt(patt);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}

// A contains-test that succeeds at the end of the text.
static void BM_contains(benchmark::State &state)
{
    match_text(state, "*needle*", 'x', "needle");
}
BENCHMARK(BM_contains)->Range(64, 100000);

// Many stars that can each take any run of "a": the classic blow-up case.
static void BM_many_stars(benchmark::State &state)
{
    match_text(state, "*a*a*a*a*a*b", 'a', "");
}
BENCHMARK(BM_many_stars)->Range(64, 100000);

// A chain of negations over a class.
static void BM_not_chain(benchmark::State &state)
{
    match_text(state, "!!!!!!!!*[0-9]*", 'q', "7");
}
BENCHMARK(BM_not_chain)->Range(64, 100000);

// Through the cache and a pattern list, as conditions use it.
static void BM_pattern_list(benchmark::State &state)
{
    std::string text(static_cast<size_t>(state.range(0)), 'z');
    char patt[] = "a*||*b||z*&&*z&&*zz*";
    for (auto _ : state)
        benchmark::DoNotOptimize(X_CMPpatt(patt, text.c_str()));
}
BENCHMARK(BM_pattern_list)->Range(64, 100000);

BENCHMARK_MAIN();
