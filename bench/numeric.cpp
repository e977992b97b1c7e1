// The numeric kernels at the sizes a whole-sample function meets in a long daily or intraday
// series. The transform is measured at powers of two and at the primes just below them (which go
// through Bluestein's convolution on a 5-smooth length about twice as long), so the time per
// n log2 n shows both paths staying O(n log n). The banded smoothers are measured at 10^6
// observations, where O(n) means a few milliseconds per solve.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "numeric/acf.h"
#include "numeric/fft.h"
#include "numeric/hpfilter.h"
#include "numeric/periodogram.h"
#include "numeric/smooth.h"
#include "numeric/sort.h"

namespace {

std::vector<double> series(int n) {
    std::vector<double> y(n);
    uint64_t s = 12345;
    for (int t = 0; t < n; ++t) {
        s = s * 6364136223846793005ULL + 1442695040888963407ULL;
        y[t] = 100.0 + std::sin(0.01 * t) + static_cast<double>(s >> 11) / 9007199254740992.0;
    }
    return y;
}

// Nanoseconds per n log2 n: a rate counter inverted is seconds per unit, so the unit is counted in
// billionths.
void setNLogN(benchmark::State &state, int n) {
    const double units = static_cast<double>(state.iterations()) * n * std::log2(static_cast<double>(n)) * 1e-9;
    state.counters["ns_per_nlog2n"] =
        benchmark::Counter(units, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Fft(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    std::vector<double> re = series(n), im(n, 0.0);
    for (auto _ : state) {
        FftComplex(re.data(), im.data(), n, 0);
        benchmark::DoNotOptimize(re.data());
    }
    setNLogN(state, n);
}
// 2^16, 2^18, 2^20 and the largest primes below them.
BENCHMARK(BM_Fft)->Arg(65536)->Arg(65521)->Arg(262144)->Arg(262139)->Arg(1048576)->Arg(1048573)->Unit(
    benchmark::kMillisecond);

void BM_Periodogram(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> x = series(n);
    std::vector<double> value(n), freq(n);
    for (auto _ : state) {
        SeriesPeriodogram(x.data(), n, value.data(), freq.data());
        benchmark::DoNotOptimize(value.data());
    }
    setNLogN(state, n);
}
BENCHMARK(BM_Periodogram)->Arg(1048576)->Arg(999983)->Unit(benchmark::kMillisecond);

void BM_AcfAllLags(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> x = series(n);
    std::vector<double> r(n);
    for (auto _ : state) {
        SeriesAcf(x.data(), n, n - 1, r.data());
        benchmark::DoNotOptimize(r.data());
    }
}
BENCHMARK(BM_AcfAllLags)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// Durbin-Levinson over all T - 1 lags: O(T^2).
void BM_PacfAllLags(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> x = series(n);
    std::vector<double> p(n);
    for (auto _ : state) {
        SeriesPacf(x.data(), n, n - 1, p.data());
        benchmark::DoNotOptimize(p.data());
    }
}
BENCHMARK(BM_PacfAllLags)->Arg(30000)->Unit(benchmark::kMillisecond);

void BM_HodrickPrescott(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> y = series(n);
    std::vector<double> trend(n);
    for (auto _ : state) {
        SmoothHp(y.data(), n, 1600.0, trend.data());
        benchmark::DoNotOptimize(trend.data());
    }
}
BENCHMARK(BM_HodrickPrescott)->Arg(1000000)->Unit(benchmark::kMillisecond);

// alpha = -1600: one fit with its trace; alpha = 0: the GCV search (about 70 fits).
void BM_SmoothingSpline(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const double alpha = static_cast<double>(state.range(1));
    const std::vector<double> y = series(n);
    std::vector<double> g(n);
    for (auto _ : state) {
        SmoothSpline(y.data(), n, alpha, g.data());
        benchmark::DoNotOptimize(g.data());
    }
}
BENCHMARK(BM_SmoothingSpline)->Args({1000000, -1600})->Args({1000000, 0})->Unit(benchmark::kMillisecond);

void BM_KernelSmoother(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> y = series(n);
    std::vector<double> g(n);
    for (auto _ : state) {
        SmoothKernel(y.data(), n, static_cast<double>(state.range(1)), g.data());
        benchmark::DoNotOptimize(g.data());
    }
}
BENCHMARK(BM_KernelSmoother)
    ->Args({1000000, 10})
    ->Args({1000000, 1000})
    ->Args({1000000, 0})
    ->Unit(benchmark::kMillisecond);

void BM_SortIndex(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> key = series(n);
    std::vector<int> index(n);
    for (auto _ : state) {
        SortIndexByKey(key.data(), n, index.data());
        benchmark::DoNotOptimize(index.data());
    }
}
BENCHMARK(BM_SortIndex)->Arg(1000000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
