// Common-factor Wald tests of every order up to m for ADL(m; m, m) models: the search over the
// real factors of the AR polynomial grows with the number of its root groups.
#include <benchmark/benchmark.h>

#include <vector>

#include "estimators/comfac.h"
#include "matrix/matrix.h"

namespace {

void BM_Comfac(benchmark::State &st) {
    const int m = static_cast<int>(st.range(0)), nx = 2, k = m + nx * (m + 1);
    std::vector<double> coef(k), lags(nx, m), arIndex(m), xIndex(nx * (m + 1)), stat(m), dfp(2 * m);
    for (int i = 0; i < m; ++i) coef[i] = (i == 0 ? 0.5 : 0.1 / (i + 1)), arIndex[i] = i;
    for (int i = m; i < k; ++i) coef[i] = 0.3 - 0.01 * i, xIndex[i - m] = i;
    MatOwner cov(k, k);
    for (int i = 0; i < k; ++i)
        for (int j = 0; j < k; ++j) cov.get()[i][j] = (i == j ? 1.0 : 0.1) / k;
    ComfacModel model;
    model.coef = coef.data(), model.k = k, model.cov = cov, model.ar = m, model.xLags = lags.data(), model.nx = nx;
    model.arIndex = arIndex.data(), model.xIndex = xIndex.data(), model.maxOrder = m;
    for (auto _ : st) benchmark::DoNotOptimize(ComfacWald(model, stat.data(), dfp.data()));
}

} // namespace

BENCHMARK(BM_Comfac)->Arg(1)->Arg(4)->Arg(8)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
