// The periodogram beside the same periodogram computed on FFTW (built only where libfftw3 is
// installed; it is a yardstick, never a dependency of the library). Both remove the mean, transform
// the real series and square the moduli; FFTW's plan is made once outside the timing, with
// FFTW_ESTIMATE and with FFTW_MEASURE, so its time is the transform alone at its best. The two
// results are compared once before timing, so the pair only runs when both compute the same thing.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "numeric/periodogram.h"
#include "series.h"

namespace {

struct FftwPeriodogram {
    int n;
    double *in;
    fftw_complex *out;
    fftw_plan plan;
    FftwPeriodogram(int n_, unsigned flags) : n(n_) {
        in = fftw_alloc_real(n);
        out = fftw_alloc_complex(n / 2 + 1);
        plan = fftw_plan_dft_r2c_1d(n, in, out, flags);
    }
    ~FftwPeriodogram() {
        fftw_destroy_plan(plan);
        fftw_free(in);
        fftw_free(out);
    }
    void run(const double *x, double *value) {
        double mean = 0.0;
        for (int t = 0; t < n; ++t) mean += x[t];
        mean /= n;
        for (int t = 0; t < n; ++t) in[t] = x[t] - mean;
        fftw_execute(plan);
        const double scale = 1.0 / (6.283185307179586 * n);
        value[0] = 0.0;
        for (int j = 1; j <= n / 2; ++j)
            value[j] = value[n - j] = (out[j][0] * out[j][0] + out[j][1] * out[j][1]) * scale;
    }
};

// Largest relative difference from the library's periodogram, over the entries above 1e-6 of the
// largest (the smallest ones are rounding noise of either transform).
bool agrees(const std::vector<double> &x, FftwPeriodogram &f) {
    const int n = static_cast<int>(x.size());
    std::vector<double> a(n), b(n);
    if (!SeriesPeriodogram(x.data(), n, a.data(), nullptr)) return false;
    f.run(x.data(), b.data());
    double top = 0.0;
    for (double v : a) top = std::fmax(top, v);
    for (int j = 0; j < n; ++j)
        if (a[j] > 1e-6 * top && std::fabs(a[j] - b[j]) > 1e-9 * a[j]) return false;
    return true;
}

void BM_LibraryPeriodogram(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> x = BenchSeries(n);
    std::vector<double> value(n);
    for (auto _ : state) {
        SeriesPeriodogram(x.data(), n, value.data(), nullptr);
        benchmark::DoNotOptimize(value.data());
    }
}

void BM_FftwPeriodogram(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<double> x = BenchSeries(n);
    std::vector<double> value(n);
    FftwPeriodogram f(n, state.range(1) ? FFTW_MEASURE : FFTW_ESTIMATE);
    if (!agrees(x, f)) {
        state.SkipWithError("FFTW's periodogram differs from the library's");
        return;
    }
    for (auto _ : state) {
        f.run(x.data(), value.data());
        benchmark::DoNotOptimize(value.data());
    }
    state.SetLabel(state.range(1) ? "FFTW_MEASURE" : "FFTW_ESTIMATE");
}

// 10^6 (5-smooth), 2^20 and the prime 999,983.
BENCHMARK(BM_LibraryPeriodogram)->Arg(1000000)->Arg(1048576)->Arg(999983)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FftwPeriodogram)
    ->Args({1000000, 0})
    ->Args({1000000, 1})
    ->Args({1048576, 0})
    ->Args({1048576, 1})
    ->Args({999983, 0})
    ->Args({999983, 1})
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
