// Expression evaluation: long operator chains, deep nesting, floating mode.
#include <benchmark/benchmark.h>

#include <string>

#include "subst/expr.h"

static void run(benchmark::State &state, const std::string &text)
{
    long i;
    double f;
    for (auto _ : state)
        benchmark::DoNotOptimize(EXPR_parser(text.c_str(), &i, &f));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}

// "1+2*3-4/5%6|7&8" repeated: every precedence level in turn.
static void BM_mixed_chain(benchmark::State &state)
{
    std::string text = "1";
    for (int64_t n = 0; n < state.range(0); n++)
        text += "+2*3-4/5%6|7&8";
    run(state, text);
}
BENCHMARK(BM_mixed_chain)->Range(8, 8192);

// Parentheses nested as deep as the stack allows.
static void BM_nested(benchmark::State &state)
{
    size_t depth = static_cast<size_t>(state.range(0));
    run(state, std::string(depth, '(') + "1" + std::string(depth, ')'));
}
BENCHMARK(BM_nested)->Range(8, EXPR_MAXDEPTH - 4);

// Floating mode with fractions to convert.
static void BM_floating(benchmark::State &state)
{
    std::string text = "0.5";
    for (int64_t n = 0; n < state.range(0); n++)
        text += "*1.000001+0.25";
    run(state, text);
}
BENCHMARK(BM_floating)->Range(8, 8192);

BENCHMARK_MAIN();
