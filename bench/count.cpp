// Count-data likelihoods with every output (score, information, fitted values, per-observation
// log-likelihood, outer product) over 1,000,000 observations and 10 regressors, Poisson and NB2
// with log alpha estimated: the library routine, the export through the host, and a minimal
// hand loop with the same formulas on plain arrays (no range, validity, compensation or
// optional-output tests).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "estimators/count.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"
#include "matrix/matrix.h"
#include "special/distributions.h"

namespace {

constexpr int kObs = 1000000;
constexpr int kReg = 10;
constexpr int kPar = kReg + 1;
constexpr double kAlpha = 0.5;

struct Data {
    MATRIX X = nullptr, info = nullptr, fitted = nullptr, outer = nullptr;
    std::vector<double> theta, y, score, llfObs;
    Data() : theta(kPar), y(kObs), score(kPar), llfObs(kObs) {
        std::mt19937_64 rng(1);
        std::normal_distribution<double> z(0.0, 1.0);
        X = MatAlloc(kObs, kReg), info = MatAlloc(kPar, kPar), fitted = MatAlloc(kObs, 2);
        outer = MatAlloc(kPar, kPar);
        for (int j = 0; j < kReg; ++j) theta[j] = 0.15 * z(rng);
        theta[kReg] = std::log(kAlpha);
        std::gamma_distribution<double> mix(1.0 / kAlpha, kAlpha);
        for (int i = 0; i < kObs; ++i) {
            double eta = 0.0;
            for (int j = 0; j < kReg; ++j) eta += theta[j] * (X[i][j] = z(rng));
            std::poisson_distribution<int> count(std::exp(eta) * mix(rng));
            y[i] = count(rng);
        }
    }
};

Data &data() {
    static Data d;
    return d;
}

void BM_CountLibrary(benchmark::State &st) {
    Data &d = data();
    const int model = static_cast<int>(st.range(0));
    CountOutputs out{d.score.data(), d.info, d.fitted, d.llfObs.data(), d.outer};
    for (auto _ : st) {
        double llf = CountEval(model, d.theta.data(), kReg, d.y.data(), d.X, 0, kObs - 1, 0.0, out);
        benchmark::DoNotOptimize(llf);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

// FnCountRz through the reference host with all five outputs passed by reference: the host makes
// them in every call, as in a host optimiser's loop.
void BM_CountExport(benchmark::State &st) {
    Data &d = data();
    const int model = static_cast<int>(st.range(0));
    LumoValue args[12], targets[5], result;
    std::memset(args, 0, sizeof args);
    std::memset(targets, 0, sizeof targets);
    std::memset(&result, 0, sizeof result);
    LumoValSetMatrix(&args[0], model == COUNT_NB2 ? kPar : kReg, 1, d.theta.data());
    LumoValSetMatrix(&args[1], kObs, 1, d.y.data());
    LumoValSetMatrix(&args[2], kObs, kReg, d.X[0]);
    LumoValSetInt(&args[3], model);
    LumoValSetInt(&args[4], 0);
    LumoValSetInt(&args[5], kObs - 1);
    LumoValSetDouble(&args[6], 0.0);
    for (int o = 0; o < 5; ++o) LumoValSetRef(&args[7 + o], &targets[o]);
    for (auto _ : st) {
        LumoHostInvoke(FnCountRz, &result, args, 12);
        benchmark::DoNotOptimize(result.v.dval);
        benchmark::ClobberMemory();
    }
    for (auto &v : args) LumoFreeByValue(&v);
    for (auto &v : targets) LumoFreeByValue(&v);
    st.SetItemsProcessed(st.iterations() * kObs);
}

// The same formulas in a plain loop (counts here are all below 100: the exact sums).
void BM_CountReference(benchmark::State &st) {
    Data &d = data();
    const bool nb = st.range(0) == COUNT_NB2;
    const int p = nb ? kPar : kReg;
    const double *b = d.theta.data(), a = nb ? std::exp(b[kReg]) : 0.0;
    double *score = d.score.data(), *li = d.llfObs.data();
    for (auto _ : st) {
        for (int j = 0; j < p; ++j) {
            score[j] = 0.0;
            for (int l = 0; l < p; ++l) d.info[j][l] = d.outer[j][l] = 0.0;
        }
        double llf = 0.0;
        for (int i = 0; i < kObs; ++i) {
            const double *x = d.X[i], y = d.y[i];
            double eta = 0.0;
            for (int j = 0; j < kReg; ++j) eta += b[j] * x[j];
            const double mu = std::exp(eta);
            d.fitted[i][0] = mu, d.fitted[i][1] = mu * (1.0 + a * mu);
            double l, g, w, gt = 0.0, wbt = 0.0, wtt = 0.0;
            if (!nb) {
                l = y * eta - mu - LogGamma(y + 1.0), g = y - mu, w = mu;
            } else {
                double s0 = 0.0, s1 = 0.0, s2 = 0.0;
                for (int j = 1; j < static_cast<int>(y); ++j) {
                    const double t = a * j, q = t / (1.0 + t);
                    s0 += std::log1p(t), s1 += q, s2 += q * q;
                }
                const double u = a * mu, l1u = std::log1p(u), r = 1.0 / (1.0 + u), ay1 = a * y + 1.0;
                l = s0 - LogGamma(y + 1.0) + y * eta - (y + 1.0 / a) * l1u;
                g = (y - mu) * r, w = mu * ay1 * r * r;
                gt = s1 + l1u / a - ay1 * mu * r;
                wbt = (y - mu) * u * r * r;
                wtt = -gt + s2 + 2.0 * l1u / a - 2.0 * mu * r - ay1 * u * mu * r * r;
            }
            llf += l, li[i] = l;
            for (int j = 0; j < kReg; ++j) {
                score[j] += g * x[j];
                for (int l2 = 0; l2 <= j; ++l2) {
                    d.info[j][l2] += w * x[j] * x[l2];
                    d.outer[j][l2] += g * g * x[j] * x[l2];
                }
            }
            if (nb) {
                score[kReg] += gt;
                for (int j = 0; j < kReg; ++j) d.info[kReg][j] += wbt * x[j], d.outer[kReg][j] += g * gt * x[j];
                d.info[kReg][kReg] += wtt, d.outer[kReg][kReg] += gt * gt;
            }
        }
        benchmark::DoNotOptimize(llf);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

BENCHMARK(BM_CountLibrary)->Arg(COUNT_POISSON)->Arg(COUNT_NB2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CountReference)->Arg(COUNT_POISSON)->Arg(COUNT_NB2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CountExport)->Arg(COUNT_POISSON)->Arg(COUNT_NB2)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
