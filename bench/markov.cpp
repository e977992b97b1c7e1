// Markov-switching filter and smoother with M = 2 and 4 regimes over 1,000,000 observations,
// against minimal hand loops over flat row-major arrays doing the same arithmetic.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "estimators/markov.h"
#include "matrix/matrix.h"

namespace {

constexpr int kObs = 1000000;

struct Data {
    int M;
    MatOwner dens, P, filt, smooth, trans;
    std::vector<double> init, lik;
    explicit Data(int m)
        : M(m), dens(kObs, m), P(m, m), filt(kObs, m), smooth(kObs, m), trans(m, m), init(m, 1.0 / m), lik(kObs) {
        std::mt19937_64 rng(2);
        std::uniform_real_distribution<double> u(0.1, 1.0);
        for (int t = 0; t < kObs; ++t)
            for (int j = 0; j < m; ++j) dens.get()[t][j] = u(rng);
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < m; ++j) P.get()[j][i] = i == j ? 0.9 : 0.1 / (m - 1);
        MsFilter(dens, kObs, m, P, init.data(), lik.data(), filt);
    }
};

Data &data(int m) {
    static Data two(2), four(4);
    return m == 2 ? two : four;
}

void BM_FilterLibrary(benchmark::State &st) {
    Data &d = data(static_cast<int>(st.range(0)));
    for (auto _ : st) {
        MsFilter(d.dens, kObs, d.M, d.P, d.init.data(), d.lik.data(), d.filt);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

void BM_FilterReference(benchmark::State &st) {
    Data &d = data(static_cast<int>(st.range(0)));
    const int M = d.M;
    const double *dens = d.dens.get()[0], *P = d.P.get()[0];
    double *filt = d.filt.get()[0], *lik = d.lik.data();
    std::vector<double> pred(M), post(M);
    for (auto _ : st) {
        for (int j = 0; j < M; ++j) pred[j] = d.init[j];
        for (int t = 0; t < kObs; ++t) {
            double f = 0;
            for (int j = 0; j < M; ++j) {
                double a = dens[t * M + j] * pred[j];
                if (a < 0) a = 0;
                post[j] = a;
                f += a;
            }
            lik[t] = f;
            for (int j = 0; j < M; ++j) post[j] = post[j] / f;
            for (int j = 0; j < M; ++j) filt[t * M + j] = post[j];
            for (int j = 0; j < M; ++j) {
                double s = 0;
                for (int i = 0; i < M; ++i) s += P[j * M + i] * post[i];
                pred[j] = s;
            }
        }
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

void BM_SmoothLibrary(benchmark::State &st) {
    Data &d = data(static_cast<int>(st.range(0)));
    for (auto _ : st) {
        MsSmooth(d.filt, kObs, d.M, d.P, MS_SMOOTH_JOINT, d.smooth, d.trans);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

void BM_SmoothReference(benchmark::State &st) {
    Data &d = data(static_cast<int>(st.range(0)));
    const int M = d.M;
    const double *filt = d.filt.get()[0], *P = d.P.get()[0];
    double *smooth = d.smooth.get()[0], *trans = d.trans.get()[0];
    std::vector<double> pred(M), r(M), s(M);
    for (auto _ : st) {
        for (int k = 0; k < M * M; ++k) trans[k] = 0;
        for (int j = 0; j < M; ++j) smooth[(kObs - 1) * M + j] = s[j] = filt[(kObs - 1) * M + j];
        for (int t = kObs - 2; t >= 0; --t) {
            const double *f = filt + t * M;
            for (int j = 0; j < M; ++j) {
                double v = 0;
                for (int i = 0; i < M; ++i) v += P[j * M + i] * f[i];
                pred[j] = v;
            }
            for (int j = 0; j < M; ++j) r[j] = s[j] * (pred[j] <= 1e-100 ? 1e100 : 1.0 / pred[j]);
            for (int j = 0; j < M; ++j)
                for (int i = 0; i < M; ++i) trans[j * M + i] += r[j] * f[i] * P[j * M + i];
            for (int i = 0; i < M; ++i) {
                double b = 0;
                for (int j = 0; j < M; ++j) b += r[j] * P[j * M + i];
                double v = f[i] * b;
                s[i] = v <= 1e-100 ? 0.0 : v > 1.0 ? 1.0 : v;
            }
            for (int i = 0; i < M; ++i) smooth[t * M + i] = s[i];
        }
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kObs);
}

} // namespace

BENCHMARK(BM_FilterLibrary)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterReference)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SmoothLibrary)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SmoothReference)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
