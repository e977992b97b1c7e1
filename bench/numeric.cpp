// The numeric kernels at the sizes a whole-sample function meets in a long daily or intraday
// series. The transform and the periodogram are measured at powers of two to 2^22 and at the
// primes just below them (which go through Bluestein's convolution on a 5-smooth length about
// twice as long), so the time per n log2 n shows both paths staying O(n log n) once the data are
// far larger than the cache. The banded smoothers are measured at 10^6
// observations, where O(n) means a few milliseconds per solve; the trend filter also at 10^5 and
// 2.5 10^5, beside the shortest direct solve of its system.
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
#include "series.h"

namespace {

// Nanoseconds per n log2 n: a rate counter inverted is seconds per unit, so the unit is counted in
// billionths.
void setNLogN(benchmark::State &state, int n) {
    const double units = static_cast<double>(state.iterations()) * n * std::log2(static_cast<double>(n)) * 1e-9;
    state.counters["ns_per_nlog2n"] =
        benchmark::Counter(units, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Fft(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    std::vector<double> re = BenchSeries(n), im(n, 0.0);
    for (auto _ : state) {
        FftComplex(re.data(), im.data(), n, 0);
        benchmark::DoNotOptimize(re.data());
    }
    setNLogN(state, n);
}
// 2^16, 2^18, 2^20, 2^22 and the largest primes below the first three.
BENCHMARK(BM_Fft)->Arg(65536)->Arg(65521)->Arg(262144)->Arg(262139)->Arg(1048576)->Arg(1048573)->Arg(4194304)->Unit(
    benchmark::kMillisecond);

void BM_Periodogram(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> x = BenchSeries(n);
    std::vector<double> value(n), freq(n);
    for (auto _ : state) {
        SeriesPeriodogram(x.data(), n, value.data(), freq.data());
        benchmark::DoNotOptimize(value.data());
    }
    setNLogN(state, n);
}
// 2^16, 2^18, 2^20, 2^22: the time per n log2 n stays flat; the primes below the first three and
// 999983 take the convolution path.
BENCHMARK(BM_Periodogram)
    ->Arg(65536)
    ->Arg(65521)
    ->Arg(262144)
    ->Arg(262139)
    ->Arg(1048576)
    ->Arg(1048573)
    ->Arg(999983)
    ->Arg(4194304)
    ->Unit(benchmark::kMillisecond);

void BM_AcfAllLags(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> x = BenchSeries(n);
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
    const std::vector<double> x = BenchSeries(n);
    std::vector<double> p(n);
    for (auto _ : state) {
        SeriesPacf(x.data(), n, n - 1, p.data());
        benchmark::DoNotOptimize(p.data());
    }
}
BENCHMARK(BM_PacfAllLags)->Arg(30000)->Unit(benchmark::kMillisecond);

// Nanoseconds per observation, as setNLogN counts n log2 n.
void setPerObservation(benchmark::State &state, int n) {
    const double units = static_cast<double>(state.iterations()) * n * 1e-9;
    state.counters["ns_per_obs"] = benchmark::Counter(units, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_HodrickPrescott(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> y = BenchSeries(n);
    std::vector<double> trend(n);
    for (auto _ : state) {
        SmoothHp(y.data(), n, 1600.0, trend.data());
        benchmark::DoNotOptimize(trend.data());
    }
    setPerObservation(state, n);
}
// 2.5 10^5 between the two decades shows the growth is linear.
BENCHMARK(BM_HodrickPrescott)->Arg(100000)->Arg(250000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// The same trend as the shortest code gives it: (I + lambda K'K) tau = y, order n, factored as
// L D L' and solved, with the band's constants written in and no checks. Its bands are
//     diagonal  1 + lambda (1, 5, 6, ..., 6, 5, 1),   first  -lambda (2, 4, ..., 4, 2),   second  lambda.
// The factor's scratch is allocated once, outside the timing.
void minimalHp(const double *y, int n, double lambda, double *d, double *l1, double *l2, double *tau) {
    for (int i = 0; i < n; ++i) {
        const double a0 = 1.0 + lambda * (i == 0 || i == n - 1 ? 1.0 : i == 1 || i == n - 2 ? 5.0 : 6.0);
        const double a1 = -lambda * (i == 1 || i == n - 1 ? 2.0 : 4.0); // A[i][i-1]
        double m2 = 0.0, m1 = 0.0, di = a0;
        if (i >= 2) {
            m2 = lambda / d[i - 2];
            m1 = (a1 - m2 * d[i - 2] * l1[i - 1]) / d[i - 1];
            di -= m1 * m1 * d[i - 1] + m2 * m2 * d[i - 2];
        } else if (i == 1) {
            m1 = a1 / d[0];
            di -= m1 * m1 * d[0];
        }
        d[i] = di;
        l1[i] = m1;
        l2[i] = m2;
    }
    tau[0] = y[0];
    tau[1] = y[1] - l1[1] * tau[0];
    for (int i = 2; i < n; ++i) tau[i] = y[i] - l1[i] * tau[i - 1] - l2[i] * tau[i - 2];
    tau[n - 1] /= d[n - 1];
    tau[n - 2] = tau[n - 2] / d[n - 2] - l1[n - 1] * tau[n - 1];
    for (int i = n - 3; i >= 0; --i) tau[i] = tau[i] / d[i] - l1[i + 1] * tau[i + 1] - l2[i + 2] * tau[i + 2];
}

void BM_MinimalBandedHp(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> y = BenchSeries(n);
    std::vector<double> d(n), l1(n), l2(n), tau(n), trend(n);
    // Both must give the same trend (to the rounding of the direct system, whose condition is about
    // 16 lambda) for their times to be compared.
    minimalHp(y.data(), n, 1600.0, d.data(), l1.data(), l2.data(), tau.data());
    SmoothHp(y.data(), n, 1600.0, trend.data());
    for (int t = 0; t < n; ++t)
        if (!(std::fabs(tau[t] - trend[t]) < 1e-6)) {
            state.SkipWithError("the minimal solve's trend differs from the library's");
            return;
        }
    for (auto _ : state) {
        minimalHp(y.data(), n, 1600.0, d.data(), l1.data(), l2.data(), tau.data());
        benchmark::DoNotOptimize(tau.data());
    }
    setPerObservation(state, n);
}
BENCHMARK(BM_MinimalBandedHp)->Arg(100000)->Arg(250000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// alpha = -1600: one fit with its trace; alpha = 0: the GCV search (about 70 fits).
void BM_SmoothingSpline(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const double alpha = static_cast<double>(state.range(1));
    const std::vector<double> y = BenchSeries(n);
    std::vector<double> g(n);
    for (auto _ : state) {
        SmoothSpline(y.data(), n, alpha, g.data());
        benchmark::DoNotOptimize(g.data());
    }
}
BENCHMARK(BM_SmoothingSpline)->Args({1000000, -1600})->Args({1000000, 0})->Unit(benchmark::kMillisecond);

void BM_KernelSmoother(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> y = BenchSeries(n);
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
    const std::vector<double> key = BenchSeries(n);
    std::vector<int> index(n);
    for (auto _ : state) {
        SortIndexByKey(key.data(), n, index.data());
        benchmark::DoNotOptimize(index.data());
    }
}
BENCHMARK(BM_SortIndex)->Arg(1000000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
