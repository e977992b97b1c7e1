// Calls on small data (T = 100) of the routines the Python module wraps, each with the outputs
// the module asks for: the C++ side of bench/python_overhead.py, which times the same calls
// through Python. The difference is the binding's cost per call (argument checks, row pointers,
// numpy outputs); docs/performance.md has both.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "estimators/discrete.h"
#include "estimators/garch.h"
#include "estimators/markov.h"
#include "estimators/rls.h"
#include "matrix/matrix.h"

namespace {

constexpr int kObs = 100;

// Row pointers over a row-major block, as the module builds them over a numpy buffer.
std::vector<double *> rowsOf(std::vector<double> &v, int rows, int cols) {
    std::vector<double *> p(rows + 1, v.data());
    for (int i = 0; i < rows; ++i) p[i + 1] = v.data() + static_cast<size_t>(i) * cols;
    return p;
}

std::vector<double> normals(int n, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::normal_distribution<double> z(0.0, 1.0);
    std::vector<double> v(n);
    for (double &x : v) x = z(rng);
    return v;
}

void BM_GarchVariance100(benchmark::State &st) {
    std::vector<double> e = normals(kObs, 1), x(kObs, 0.05), h(kObs), u(kObs);
    const double coef[3] = {0.0, 0.95, 0.85};
    for (auto _ : st) {
        GarchVariance(e.data(), x.data(), kObs, coef, 1, 1, 0, 0.0, 0.0, 0.0, h.data(), u.data());
        benchmark::DoNotOptimize(h.data());
    }
}

// Probit with k = 3: log-likelihood, score, information, probabilities, observation
// log-likelihoods and outer product, as kavrel.probit returns them.
void BM_Probit100(benchmark::State &st) {
    const int k = 3;
    std::vector<double> X = normals(kObs * k, 2), y(kObs), beta{0.1, 0.5, -0.3};
    for (int t = 0; t < kObs; ++t) X[static_cast<size_t>(t) * k] = 1.0, y[t] = X[t * k + 1] > 0 ? 1.0 : 0.0;
    std::vector<double> score(k), info(k * k), prob(kObs * 2), llf(kObs), outer(k * k);
    auto Xr = rowsOf(X, kObs, k), ir = rowsOf(info, k, k), pr = rowsOf(prob, kObs, 2), orr = rowsOf(outer, k, k);
    const DiscreteOutputs out{score.data(), ir.data() + 1, pr.data() + 1, llf.data(), orr.data() + 1};
    for (auto _ : st) benchmark::DoNotOptimize(ProbitEval(beta.data(), k, y.data(), Xr.data() + 1, kObs, nullptr, out));
}

void BM_MsFilter100(benchmark::State &st) {
    const int m = 2;
    std::vector<double> dens = normals(kObs * m, 3), P{0.9, 0.2, 0.1, 0.8}, lik(kObs), filt(kObs * m);
    for (double &d : dens) d = d * d + 0.1;
    const double init[2] = {0.5, 0.5};
    auto dr = rowsOf(dens, kObs, m), Pr = rowsOf(P, m, m), fr = rowsOf(filt, kObs, m);
    for (auto _ : st) {
        MsFilter(dr.data() + 1, kObs, m, Pr.data() + 1, init, lik.data(), fr.data() + 1);
        benchmark::DoNotOptimize(lik.data());
    }
}

// Recursive least squares with k = 3 and all seven outputs.
void BM_Rls100(benchmark::State &st) {
    const int k = 3;
    std::vector<double> X = normals(kObs * k, 4), y = normals(kObs, 5);
    for (int t = 0; t < kObs; ++t) X[static_cast<size_t>(t) * k] = 1.0;
    std::vector<double> coef(k * kObs), pdiag(k * kObs), si(kObs), in(kObs), rss(kObs), res(kObs), sys(kObs);
    auto Xr = rowsOf(X, kObs, k), yr = rowsOf(y, kObs, 1), cr = rowsOf(coef, k, kObs), pr = rowsOf(pdiag, k, kObs);
    auto sr = rowsOf(si, 1, kObs), ir = rowsOf(in, 1, kObs), rr = rowsOf(rss, 1, kObs), er = rowsOf(res, 1, kObs);
    auto yy = rowsOf(sys, 1, kObs);
    for (auto _ : st)
        benchmark::DoNotOptimize(RlsRecursion(yr.data() + 1, Xr.data() + 1, 0, kObs - 1, -1, 1, k, cr.data() + 1,
                                              pr.data() + 1, sr.data() + 1, ir.data() + 1, rr.data() + 1, er.data() + 1,
                                              yy.data() + 1));
}

} // namespace

BENCHMARK(BM_GarchVariance100);
BENCHMARK(BM_Probit100);
BENCHMARK(BM_MsFilter100);
BENCHMARK(BM_Rls100);

BENCHMARK_MAIN();
