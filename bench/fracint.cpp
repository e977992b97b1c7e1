// ARFIMA autocovariances: FnFracSigma's routine for the Toeplitz matrix of a sample of T lags
// (what an exact likelihood needs at every evaluation), by AR order, against the brute-force
// alternative of summing the MA(infinity) weights (truncated at 100,000 terms, far from exact).
#include <benchmark/benchmark.h>

#include <vector>

#include "estimators/fracint.h"

namespace {

void BM_FracAutocov(benchmark::State &st) {
    const int n = static_cast<int>(st.range(0)), p = static_cast<int>(st.range(1));
    const double phi[3] = {0.5, -0.3, 0.2}, theta[1] = {0.4};
    std::vector<double> gamma(n);
    for (auto _ : st) {
        benchmark::DoNotOptimize(FracAutocovariances(phi, p, theta, 1, 0.3, n, gamma.data(), nullptr));
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * n);
}

void BM_MaInfinity(benchmark::State &st) {
    const int n = static_cast<int>(st.range(0)), K = 100000;
    std::vector<double> pi(K + n), psi(K + n), gamma(n);
    for (auto _ : st) {
        pi[0] = psi[0] = 1.0;
        for (int k = 1; k < K + n; ++k) {
            pi[k] = pi[k - 1] * (k - 1 + 0.3) / k;
            psi[k] = 0.5 * psi[k - 1] + pi[k] + 0.4 * pi[k - 1];
        }
        for (int s = 0; s < n; ++s) {
            double sum = 0.0;
            for (int k = 0; k < K; ++k) sum += psi[k] * psi[k + s];
            gamma[s] = sum;
        }
        benchmark::DoNotOptimize(gamma.data());
        benchmark::ClobberMemory();
    }
}

} // namespace

BENCHMARK(BM_FracAutocov)->Args({1000, 0})->Args({1000, 1})->Args({1000, 3})->Args({10000, 3});
BENCHMARK(BM_MaInfinity)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
