// FnRlsEst (one equation, ten regressors) through the reference host, with every output and with
// none, against a minimal hand-written recursion: the rank-one steps and a full Householder refit
// of all observations so far at every 50th step, on the same data. The hand loop's refits make its
// cost grow with the square of the sample length (a refit at t costs O(t k^2), T / 50 of them);
// FnRlsEst refits on the updated triangular factor, O(k^2) each, so its time per observation is
// flat in T: it is measured up to T = 1,000,000, reported per observation.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

namespace {

constexpr int kRegressors = 10;

struct Data {
    int T, k;
    std::vector<double> y, x; // T rows: 1 and k columns
};

Data makeData(int T, int k) {
    Data d{T, k, std::vector<double>(T), std::vector<double>(static_cast<size_t>(T) * k)};
    uint64_t s = 12345;
    auto u = [&] {
        s = s * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(s >> 11) / 9007199254740992.0 - 0.5;
    };
    for (int t = 0; t < T; ++t) {
        double yt = u();
        for (int j = 0; j < k; ++j) {
            const double v = j == 0 ? 1.0 : u();
            d.x[static_cast<size_t>(t) * k + j] = v;
            yt += 0.1 * (j + 1) * v;
        }
        d.y[t] = yt;
    }
    return d;
}

// The minimal reference: transposed copy, unpivoted Householder triangularisation over columns
// 0..c with plain loops, inverse of the triangle, P = L^-T L^-1; rank-one steps in between.
struct HandLoop {
    int T, k;
    std::vector<double> xw, a, linv, P, g, b, xy, out;

    HandLoop(const Data &d)
        : T(d.T), k(d.k), xw(static_cast<size_t>(d.k) * d.T), a(xw.size()), linv(d.k * d.k), P(d.k * d.k), g(d.k),
          b(d.k), xy(d.k), out(d.T) {
        for (int t = 0; t < T; ++t)
            for (int j = 0; j < k; ++j) xw[static_cast<size_t>(j) * T + t] = d.x[static_cast<size_t>(t) * k + j];
    }

    void refit(int count) {
        std::memcpy(a.data(), xw.data(), sizeof(double) * a.size());
        std::vector<double> diag(k);
        for (int i = 0; i < k; ++i) {
            double *x = &a[static_cast<size_t>(i) * T + i];
            const int len = count - i;
            double xx = 0.0;
            for (int t = 0; t < len; ++t) xx += x[t] * x[t];
            const double nrm = std::sqrt(xx), alpha = x[0] >= 0.0 ? -nrm : nrm, v0 = x[0] - alpha;
            const double tau = 1.0 / (alpha * v0);
            x[0] = v0;
            diag[i] = alpha;
            for (int j = i + 1; j < k; ++j) {
                double *r = &a[static_cast<size_t>(j) * T + i];
                double s = 0.0;
                for (int t = 0; t < len; ++t) s += x[t] * r[t];
                s *= tau;
                for (int t = 0; t < len; ++t) r[t] += s * x[t];
            }
        }
        for (int i = 0; i < k; ++i) {
            for (int j = 0; j < i; ++j) {
                double s = 0.0;
                for (int l = j; l < i; ++l) s += a[static_cast<size_t>(i) * T + l] * linv[l * k + j];
                linv[i * k + j] = -s / diag[i];
            }
            linv[i * k + i] = 1.0 / diag[i];
        }
        for (int i = 0; i < k; ++i)
            for (int j = 0; j <= i; ++j) {
                double s = 0.0;
                for (int l = i; l < k; ++l) s += linv[l * k + i] * linv[l * k + j];
                P[i * k + j] = P[j * k + i] = s;
            }
    }

    void run(const Data &d) {
        for (int j = 0; j < k; ++j) {
            xy[j] = 0.0;
            for (int t = 0; t < k; ++t) xy[j] += xw[static_cast<size_t>(j) * T + t] * d.y[t];
        }
        refit(k);
        for (int j = 0; j < k; ++j) {
            b[j] = 0.0;
            for (int i = 0; i < k; ++i) b[j] += P[j * k + i] * xy[i];
        }
        double rss = 0.0;
        double x[kRegressors];
        for (int c = k; c < T; ++c) {
            for (int j = 0; j < k; ++j) x[j] = xw[static_cast<size_t>(j) * T + c];
            double f;
            if ((c - k) % 50 == 0) {
                refit(c + 1);
                f = 1.0;
                for (int i = 0; i < k; ++i)
                    for (int j = 0; j < k; ++j) f += x[i] * P[i * k + j] * x[j];
            } else {
                for (int i = 0; i < k; ++i) {
                    g[i] = 0.0;
                    for (int j = 0; j < k; ++j) g[i] += P[i * k + j] * x[j];
                }
                f = 1.0;
                for (int j = 0; j < k; ++j) f += x[j] * g[j];
                for (int i = 0; i < k; ++i)
                    for (int j = 0; j < k; ++j) P[i * k + j] -= (g[j] * g[i]) / f;
            }
            const double y = d.y[c];
            double s = 0.0;
            for (int j = 0; j < k; ++j) {
                s += b[j] * x[j];
                xy[j] += x[j] * y;
            }
            for (int j = 0; j < k; ++j) {
                b[j] = 0.0;
                for (int i = 0; i < k; ++i) b[j] += P[j * k + i] * xy[i];
            }
            const double w = (y - s) / std::sqrt(f);
            rss += w * w;
            out[c] = w + 1e-300 * rss;
        }
    }
};

void BM_HandLoop(benchmark::State &state) {
    const Data d = makeData(static_cast<int>(state.range(0)), kRegressors);
    HandLoop h(d);
    for (auto _ : state) {
        h.run(d);
        benchmark::DoNotOptimize(h.out.data());
        benchmark::ClobberMemory();
    }
    state.SetComplexityN(state.range(0));
}

// FnRlsEst as a host program calls it; the outputs are made by the host in every call.
void rlsEst(benchmark::State &state, bool outputs) {
    const Data d = makeData(static_cast<int>(state.range(0)), kRegressors);
    LumoValue args[12], targets[7], result;
    std::memset(args, 0, sizeof args);
    std::memset(targets, 0, sizeof targets);
    std::memset(&result, 0, sizeof result);
    LumoValSetMatrix(&args[0], d.T, 1, d.y.data());
    LumoValSetMatrix(&args[1], d.T, d.k, d.x.data());
    LumoValSetInt(&args[2], 0);
    LumoValSetInt(&args[3], d.T - 1);
    LumoValSetInt(&args[4], -1);
    for (int i = 0; i < 7; ++i) {
        if (outputs)
            LumoValSetRef(&args[5 + i], &targets[i]);
        else
            LumoValSetInt(&args[5 + i], 0);
    }
    for (auto _ : state) {
        LumoHostInvoke(FnRlsEst, &result, args, 12);
        if (LumoValGetInt(&result) != 1) state.SkipWithError("FnRlsEst failed");
        benchmark::ClobberMemory();
    }
    state.SetComplexityN(state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
    for (auto &v : args) LumoFreeByValue(&v);
    for (auto &v : targets) LumoFreeByValue(&v);
}

void BM_RlsEstAllOutputs(benchmark::State &state) { rlsEst(state, true); }
void BM_RlsEstNoOutputs(benchmark::State &state) { rlsEst(state, false); }

#define KV_SIZES ->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond)
BENCHMARK(BM_HandLoop) KV_SIZES->Complexity(benchmark::oNSquared);
BENCHMARK(BM_RlsEstNoOutputs) KV_SIZES->Arg(100000)->Arg(1000000)->Complexity(benchmark::oN);
BENCHMARK(BM_RlsEstAllOutputs) KV_SIZES->Arg(100000)->Arg(1000000)->Complexity(benchmark::oN);

} // namespace

BENCHMARK_MAIN();
