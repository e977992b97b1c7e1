// GARCH(1,1) and EGARCH(1,1) variance recursions over 1,000,000 observations against minimal
// hand-written loops doing the same arithmetic for the same orders (what the library's general
// p, q loops must stay close to), plus the exports with their host-allocated outputs.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "estimators/garch.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

namespace {

constexpr int kObs = 1000000;

struct Data {
    std::vector<double> e, x, h, u;
    Data() : e(kObs), x(kObs, 0.05), h(kObs), u(kObs) {
        std::mt19937_64 rng(1);
        std::normal_distribution<double> z(0.0, 1.0);
        for (double &v : e) v = z(rng);
    }
};

Data &data() {
    static Data d;
    return d;
}

// GARCH(1,1): coef = {unused, phi_1 = alpha + beta, beta}; arg 0: 0 plain, 1 threshold and
// standard-deviation in-mean.
const double kCoef[3] = {0.0, 0.95, 0.85};

void BM_GarchLibrary(benchmark::State &st) {
    Data &d = data();
    const bool gjr = st.range(0) != 0;
    for (auto _ : st) {
        GarchVariance(d.e.data(), d.x.data(), kObs, kCoef, 1, 1, gjr ? GARCH_INMEAN_SD : GARCH_INMEAN_NONE,
                      gjr ? 0.05 : 0.0, 0.0, gjr ? 0.08 : 0.0, d.h.data(), d.u.data());
        benchmark::DoNotOptimize(d.h.data());
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

void BM_GarchReference(benchmark::State &st) {
    Data &d = data();
    const bool gjr = st.range(0) != 0;
    const double alpha = kCoef[1] - kCoef[2], beta = kCoef[2], kappa = 0.0, gamma = 0.08, delta = 0.05;
    const double *e = d.e.data(), *x = d.x.data();
    double *h = d.h.data(), *u = d.u.data();
    for (auto _ : st) {
        double s2 = 0;
        for (int t = 0; t < kObs; ++t) s2 += e[t] * e[t];
        s2 /= kObs;
        h[0] = x[0] + alpha * s2 + beta * s2;
        u[0] = gjr ? e[0] - delta * std::sqrt(h[0]) : e[0];
        if (gjr) {
            for (int t = 1; t < kObs; ++t) {
                double d1 = u[t - 1] - kappa;
                double v = x[t] + alpha * (d1 * d1) + beta * h[t - 1];
                v += u[t - 1] < kappa ? gamma * (d1 * d1) : 0.0;
                h[t] = v;
                u[t] = e[t] - delta * std::sqrt(v);
            }
        } else {
            for (int t = 1; t < kObs; ++t) {
                double d1 = u[t - 1] - kappa;
                h[t] = x[t] + alpha * (d1 * d1) + beta * h[t - 1];
                u[t] = e[t];
            }
        }
        benchmark::DoNotOptimize(h);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

const double kA[1] = {0.2}, kB[1] = {0.9};

void BM_EgarchLibrary(benchmark::State &st) {
    Data &d = data();
    const int kind = static_cast<int>(st.range(0));
    for (auto _ : st) {
        EgarchVariance(d.e.data(), d.x.data(), kObs, -0.1, 0.2, 0.7978845608, kA, 1, kB, 1, kind, 0.05, d.h.data(),
                       d.u.data());
        benchmark::DoNotOptimize(d.h.data());
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

// The same arithmetic as a hand loop with its own news array, allocated outside the timing.
void BM_EgarchReference(benchmark::State &st) {
    Data &d = data();
    const int kind = static_cast<int>(st.range(0));
    const double theta = -0.1, phi = 0.2, nu = 0.7978845608, a = kA[0], b = kB[0], delta = 0.05;
    std::vector<double> news(kObs);
    const double *e = d.e.data(), *x = d.x.data();
    double *lh = d.h.data(), *u = d.u.data(), *g = news.data();
    for (auto _ : st) {
        double s2 = 0;
        for (int t = 0; t < kObs; ++t) s2 += e[t] * e[t];
        double prev = std::log(s2 / kObs);
        for (int t = 0; t < kObs; ++t) {
            double s = x[t] + (t > 0 ? a * g[t - 1] : 0.0) + b * prev;
            double l = s > 709.0 ? 709.0 : s;
            lh[t] = t > 0 ? l : s;
            prev = lh[t];
            double ut = kind == 2 ? e[t] - delta * std::exp(0.5 * l) : e[t];
            double z = std::exp(-0.5 * l) * ut;
            u[t] = ut;
            g[t] = phi * (std::fabs(z) - nu) + theta * z;
        }
        benchmark::DoNotOptimize(lh);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

// Through the host, as the optimiser calls it: includes sizing the two T x 1 outputs.
void BM_FnGarchVar(benchmark::State &st) {
    Data &d = data();
    LumoValue args[11], targets[2], result;
    std::memset(args, 0, sizeof args);
    std::memset(targets, 0, sizeof targets);
    std::memset(&result, 0, sizeof result);
    LumoValSetMatrix(&args[0], kObs, 1, d.e.data());
    LumoValSetMatrix(&args[1], kObs, 1, d.x.data());
    LumoValSetMatrix(&args[2], 1, 3, kCoef);
    LumoValSetInt(&args[3], 1);
    LumoValSetInt(&args[4], 1);
    LumoValSetInt(&args[5], 0);
    LumoValSetDouble(&args[6], 0.0);
    LumoValSetDouble(&args[7], 0.0);
    LumoValSetDouble(&args[8], 0.0);
    LumoValSetRef(&args[9], &targets[0]);
    LumoValSetRef(&args[10], &targets[1]);
    for (auto _ : st) LumoHostInvoke(FnGarchVar, &result, args, 11);
    st.SetItemsProcessed(st.iterations() * kObs);
    for (auto &a : args) LumoFreeByValue(&a);
    for (auto &t : targets) LumoFreeByValue(&t);
}

} // namespace

BENCHMARK(BM_GarchLibrary)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GarchReference)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EgarchLibrary)->Arg(0)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EgarchReference)->Arg(0)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FnGarchVar)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
