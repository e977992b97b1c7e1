// Probit with every output (score, information, probabilities, per-observation log-likelihood,
// outer product) over 1,000,000 observations and 10 regressors, against a minimal hand loop doing
// the same arithmetic on plain arrays; the export through the host; and the normal distribution
// function on its own, body and tails.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "estimators/discrete.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"
#include "matrix/matrix.h"
#include "special/distributions.h"

namespace {

constexpr int kObs = 1000000;
constexpr int kReg = 10;

struct Data {
    MATRIX X = nullptr, info = nullptr, prob = nullptr, outer = nullptr;
    std::vector<double> beta, y, w, score, llfObs;
    Data() : beta(kReg), y(kObs), w(kObs, 1.0), score(kReg), llfObs(kObs) {
        std::mt19937_64 rng(1);
        std::normal_distribution<double> z(0.0, 1.0);
        X = MatAlloc(kObs, kReg), info = MatAlloc(kReg, kReg), prob = MatAlloc(kObs, 2), outer = MatAlloc(kReg, kReg);
        for (int j = 0; j < kReg; ++j) beta[j] = 0.3 * z(rng);
        for (int i = 0; i < kObs; ++i) {
            double eta = 0.0;
            for (int j = 0; j < kReg; ++j) eta += beta[j] * (X[i][j] = z(rng));
            y[i] = eta + z(rng) > 0.0 ? 1.0 : 0.0;
        }
    }
};

Data &data() {
    static Data d;
    return d;
}

void BM_ProbitLibrary(benchmark::State &st) {
    Data &d = data();
    DiscreteOutputs out{d.score.data(), d.info, d.prob, d.llfObs.data(), d.outer};
    for (auto _ : st) {
        double llf = ProbitEval(d.beta.data(), kReg, d.y.data(), d.X, kObs, d.w.data(), out);
        benchmark::DoNotOptimize(llf);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

// FnBinProbitRz through the reference host with all five outputs passed by reference: the host
// makes the outputs in every call, as a host program calling it in an optimiser's loop sees it.
void BM_ProbitExport(benchmark::State &st) {
    Data &d = data();
    LumoValue args[9], targets[5], result;
    std::memset(args, 0, sizeof args);
    std::memset(targets, 0, sizeof targets);
    std::memset(&result, 0, sizeof result);
    LumoValSetMatrix(&args[0], kReg, 1, d.beta.data());
    LumoValSetMatrix(&args[1], kObs, 1, d.y.data());
    LumoValSetMatrix(&args[2], kObs, kReg, d.X[0]);
    LumoValSetMatrix(&args[3], 1, kObs, d.w.data());
    for (int o = 0; o < 5; ++o) LumoValSetRef(&args[4 + o], &targets[o]);
    for (auto _ : st) {
        LumoHostInvoke(FnBinProbitRz, &result, args, 9);
        benchmark::DoNotOptimize(result.v.dval);
        benchmark::ClobberMemory();
    }
    for (auto &v : args) LumoFreeByValue(&v);
    for (auto &v : targets) LumoFreeByValue(&v);
    st.SetItemsProcessed(st.iterations() * kObs);
}

// The same formulas with no optional-output tests, compensation or missing-value handling.
void BM_ProbitReference(benchmark::State &st) {
    Data &d = data();
    double *score = d.score.data(), *li = d.llfObs.data();
    const double *b = d.beta.data();
    double s[kReg];
    for (auto _ : st) {
        for (int j = 0; j < kReg; ++j) {
            score[j] = 0.0;
            for (int l = 0; l < kReg; ++l) d.info[j][l] = d.outer[j][l] = 0.0;
        }
        double llf = 0.0;
        for (int i = 0; i < kObs; ++i) {
            const double *x = d.X[i];
            double eta = 0.0;
            for (int j = 0; j < kReg; ++j) eta += b[j] * x[j];
            double p1 = DistNormalP(eta), p0 = 1.0 - p1;
            if (p0 < kDiscreteProbFloor) p0 = kDiscreteProbFloor;
            double phi = std::exp(-0.5 * eta * eta) * 0.3989422804014327;
            d.prob[i][0] = p0, d.prob[i][1] = p1;
            double l = d.w[i] * std::log(d.y[i] == 1.0 ? p1 : p0);
            llf += l, li[i] = l;
            double c = (d.y[i] - p1) * phi * d.w[i] / (p0 * p1), ci = phi * phi * d.w[i] / (p0 * p1);
            for (int j = 0; j < kReg; ++j) s[j] = c * x[j], score[j] += s[j];
            for (int j = 0; j < kReg; ++j)
                for (int l2 = 0; l2 <= j; ++l2) d.info[j][l2] += ci * x[j] * x[l2];
            for (int j = 0; j < kReg; ++j)
                for (int l2 = 0; l2 < kReg; ++l2) d.outer[j][l2] += s[j] * s[l2];
        }
        benchmark::DoNotOptimize(llf);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

// Phi over a body (|x| < 3) or a tail (5 < -x < 38) range.
void BM_NormalP(benchmark::State &st) {
    std::vector<double> xs(4096);
    std::mt19937_64 rng(2);
    std::uniform_real_distribution<double> u(st.range(0) ? -38.0 : -3.0, st.range(0) ? -5.0 : 3.0);
    for (double &x : xs) x = u(rng);
    for (auto _ : st) {
        double s = 0.0;
        for (double x : xs) s += DistNormalP(x);
        benchmark::DoNotOptimize(s);
    }
    st.SetItemsProcessed(st.iterations() * static_cast<long>(xs.size()));
}

BENCHMARK(BM_ProbitLibrary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProbitReference)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProbitExport)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NormalP)->Arg(0)->Arg(1);

} // namespace

BENCHMARK_MAIN();
