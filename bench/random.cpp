// Nanoseconds per draw: each family's uniform through the operation table, and each variate on
// the default family (lag-256 multiply-with-carry, 52-bit).
#include <benchmark/benchmark.h>

#include "random/random.h"

namespace {

const char *const kFamilies[] = {"LCG31", "MWC60", "LFSR113", "MWC_32", "MWC_52"};

void BM_Uniform(benchmark::State &st) {
    RanState s{};
    RanSetGenerator(&s, kFamilies[st.range(0)]);
    RanSeed(&s, 1);
    for (auto _ : st) benchmark::DoNotOptimize(RanUniform(&s));
    st.SetLabel(kFamilies[st.range(0)]);
}
BENCHMARK(BM_Uniform)->DenseRange(0, 4);

template <class Draw> void runVariate(benchmark::State &st, Draw draw) {
    RanState s{};
    RanSetGenerator(&s, nullptr);
    RanSeed(&s, 1);
    for (auto _ : st) benchmark::DoNotOptimize(draw(&s));
}

void BM_Normal(benchmark::State &st) { runVariate(st, RanNormal); }
BENCHMARK(BM_Normal);

// df = 1 runs the small-shape boost, 5 and 50 the plain gamma.
void BM_ChiSquared(benchmark::State &st) {
    const double df = double(st.range(0));
    runVariate(st, [df](RanState *s) { return RanChiSquared(s, df); });
}
BENCHMARK(BM_ChiSquared)->Arg(1)->Arg(5)->Arg(50);

void BM_StudentT(benchmark::State &st) {
    const double df = double(st.range(0));
    runVariate(st, [df](RanState *s) { return RanStudentT(s, df); });
}
BENCHMARK(BM_StudentT)->Arg(1)->Arg(5);

void BM_F(benchmark::State &st) {
    runVariate(st, [](RanState *s) { return RanF(s, 3.0, 12.0); });
}
BENCHMARK(BM_F);

} // namespace

BENCHMARK_MAIN();
