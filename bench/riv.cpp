// FnRivEst (one endogenous and three exogenous regressors, three additional instruments: six
// instruments) through the reference host, with every output and with none, against a minimal
// hand-written recursion of the same arithmetic on the same data: the Givens factor of
// [Z x_endo y], the Sherman-Morrison steps of (Z'Z)^-1 and (X'P_Z X)^-1, the coefficients, the
// innovations and the residual sum of squares from the factor, and a full inversion from the
// factor (triangular inverse and Cholesky) at every 50th step. Both are linear in T; reported per
// observation.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

namespace {

constexpr int kEndo = 1, kRegs = 4, kExtra = 3;
constexpr int kM = kRegs - kEndo + kExtra, kP = kM + kEndo + 1;

// Variables in rows: y, the endogenous regressor, the constant and two exogenous regressors, three
// additional instruments; observations in columns.
std::vector<double> makeData(int T) {
    std::vector<double> d(static_cast<size_t>(1 + kRegs + kExtra) * T);
    uint64_t s = 12345;
    auto u = [&] {
        s = s * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(s >> 11) / 9007199254740992.0 - 0.5;
    };
    auto at = [&](int v, int t) -> double & { return d[static_cast<size_t>(v) * T + t]; };
    for (int t = 0; t < T; ++t) {
        at(2, t) = 1.0;
        for (int v = 3; v < 1 + kRegs + kExtra; ++v) at(v, t) = u();
        const double common = u();
        at(1, t) = 0.5 * at(3, t) + 0.4 * at(5, t) + 0.3 * at(6, t) + 0.2 * at(7, t) + common + 0.3 * u();
        at(0, t) = 1.0 + 0.7 * at(1, t) + 0.3 * at(3, t) - 0.2 * at(4, t) + 0.8 * common + u();
    }
    return d;
}

struct HandLoop {
    int T;
    const std::vector<double> &d;
    double R[kP][kP], W[kM][kM], Q[kRegs][kRegs], A[kM][kRegs], c[kM], b[kRegs];
    std::vector<double> out;

    HandLoop(const std::vector<double> &data, int T) : T(T), d(data), out(T) {}
    double at(int v, int t) const { return d[static_cast<size_t>(v) * T + t]; }

    void add(const double *z, const double *x, double y) {
        double row[kP];
        for (int i = 0; i < kM; ++i) row[i] = z[i];
        row[kM] = x[0];
        row[kP - 1] = y;
        for (int i = 0; i < kP; ++i) {
            if (row[i] == 0.0) continue;
            const double r = std::hypot(R[i][i], row[i]), cs = R[i][i] / r, sn = row[i] / r;
            R[i][i] = r;
            for (int j = i + 1; j < kP; ++j) {
                const double a = R[i][j];
                R[i][j] = cs * a + sn * row[j];
                row[j] = cs * row[j] - sn * a;
            }
        }
        for (int i = 0; i < kM; ++i) {
            for (int j = 0; j < kRegs; ++j) A[i][j] += z[i] * x[j];
            c[i] += z[i] * y;
        }
    }

    // W = R_zz^-1 R_zz^-T; Q = (C'C)^-1 by Cholesky, C the projected regressors' columns of R.
    void invert() {
        double Li[kM][kM] = {};
        for (int i = kM - 1; i >= 0; --i) {
            Li[i][i] = 1.0 / R[i][i];
            for (int j = i + 1; j < kM; ++j) {
                double s = 0.0;
                for (int l = i + 1; l <= j; ++l) s += R[i][l] * Li[l][j];
                Li[i][j] = -s / R[i][i];
            }
        }
        for (int i = 0; i < kM; ++i)
            for (int j = 0; j < kM; ++j) {
                double s = 0.0;
                for (int l = 0; l < kM; ++l) s += Li[i][l] * Li[j][l];
                W[i][j] = s;
            }
        const int col[kRegs] = {kM, 0, 1, 2};
        double M[kRegs][kRegs];
        for (int i = 0; i < kRegs; ++i)
            for (int j = 0; j < kRegs; ++j) {
                double s = 0.0;
                for (int l = 0; l < kM; ++l) s += R[l][col[i]] * R[l][col[j]];
                M[i][j] = s;
            }
        for (int i = 0; i < kRegs; ++i) {
            for (int j = 0; j <= i; ++j) {
                double s = M[i][j];
                for (int l = 0; l < j; ++l) s -= M[i][l] * M[j][l];
                M[i][j] = j < i ? s / M[j][j] : std::sqrt(s);
            }
        }
        double Minv[kRegs][kRegs] = {};
        for (int i = 0; i < kRegs; ++i) {
            Minv[i][i] = 1.0 / M[i][i];
            for (int j = 0; j < i; ++j) {
                double s = 0.0;
                for (int l = j; l < i; ++l) s += M[i][l] * Minv[l][j];
                Minv[i][j] = -s / M[i][i];
            }
        }
        for (int i = 0; i < kRegs; ++i)
            for (int j = 0; j < kRegs; ++j) {
                double s = 0.0;
                for (int l = 0; l < kRegs; ++l) s += Minv[l][i] * Minv[l][j];
                Q[i][j] = s;
            }
    }

    void coefficients() {
        double h[kM], s[kRegs] = {};
        for (int i = 0; i < kM; ++i) {
            h[i] = 0.0;
            for (int l = 0; l < kM; ++l) h[i] += W[i][l] * c[l];
        }
        for (int i = 0; i < kM; ++i)
            for (int j = 0; j < kRegs; ++j) s[j] += A[i][j] * h[i];
        for (int j = 0; j < kRegs; ++j) {
            b[j] = 0.0;
            for (int l = 0; l < kRegs; ++l) b[j] += Q[j][l] * s[l];
        }
    }

    double rss() const {
        double v[kP] = {-b[1], -b[2], -b[3], 0.0, 0.0, 0.0, -b[0], 1.0}, s = 0.0;
        for (int i = 0; i < kP; ++i) {
            double r = 0.0;
            for (int j = i; j < kP; ++j) r += R[i][j] * v[j];
            s += r * r;
        }
        return s;
    }

    void run() {
        std::memset(R, 0, sizeof R);
        std::memset(A, 0, sizeof A);
        std::memset(c, 0, sizeof c);
        double z[kM], x[kRegs];
        auto load = [&](int t) {
            for (int i = 0; i < kM; ++i) z[i] = at(2 + i, t);
            for (int j = 0; j < kRegs; ++j) x[j] = at(1 + j, t);
            return at(0, t);
        };
        for (int t = 0; t < kM; ++t) {
            const double y = load(t);
            add(z, x, y);
        }
        invert();
        coefficients();
        for (int t = kM; t < T; ++t) {
            const double y = load(t);
            double v = y, q[kRegs], g[kM], fq = 1.0, f = 1.0, e = x[0];
            for (int j = 0; j < kRegs; ++j) v -= b[j] * x[j];
            for (int i = 0; i < kRegs; ++i) {
                q[i] = 0.0;
                for (int j = 0; j < kRegs; ++j) q[i] += Q[i][j] * x[j];
                fq += x[i] * q[i];
            }
            for (int i = 0; i < kM; ++i) {
                g[i] = 0.0;
                for (int j = 0; j < kM; ++j) g[i] += W[i][j] * z[j];
                f += z[i] * g[i];
            }
            for (int i = 0; i < kM; ++i) e -= A[i][0] * g[i];
            add(z, x, y);
            if ((t - kM) % 50 == 0) {
                invert();
            } else {
                for (int i = 0; i < kM; ++i)
                    for (int j = i; j < kM; ++j) W[j][i] = W[i][j] -= (g[j] * g[i]) / f;
                for (int i = 0; i < kRegs; ++i)
                    for (int j = i; j < kRegs; ++j) Q[j][i] = Q[i][j] -= (q[j] * q[i]) / fq;
                double r[kRegs], dd = f;
                for (int i = 0; i < kRegs; ++i) r[i] = Q[i][0] * e;
                dd -= e * r[0];
                for (int i = 0; i < kRegs; ++i)
                    for (int j = i; j < kRegs; ++j) Q[j][i] = Q[i][j] += (r[j] * r[i]) / dd;
            }
            coefficients();
            out[t] = v / std::sqrt(fq) + 1e-300 * rss() + 1e-300 * b[0];
        }
    }
};

void BM_HandLoop(benchmark::State &state) {
    const int T = static_cast<int>(state.range(0));
    const std::vector<double> d = makeData(T);
    HandLoop h(d, T);
    for (auto _ : state) {
        h.run();
        benchmark::DoNotOptimize(h.out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// FnRivEst as a host program calls it; the outputs are made by the host in every call.
void rivEst(benchmark::State &state, bool outputs) {
    const int T = static_cast<int>(state.range(0));
    const std::vector<double> d = makeData(T);
    LumoValue args[13], targets[6], result;
    std::memset(args, 0, sizeof args);
    std::memset(targets, 0, sizeof targets);
    std::memset(&result, 0, sizeof result);
    LumoValSetMatrix(&args[0], 1 + kRegs + kExtra, T, d.data());
    const int ints[6] = {kEndo, kRegs, kExtra, 0, T - 1, -1};
    for (int i = 0; i < 6; ++i) LumoValSetInt(&args[1 + i], ints[i]);
    for (int i = 0; i < 6; ++i) {
        if (outputs)
            LumoValSetRef(&args[7 + i], &targets[i]);
        else
            LumoValSetInt(&args[7 + i], 0);
    }
    for (auto _ : state) {
        LumoHostInvoke(FnRivEst, &result, args, 13);
        if (LumoValGetInt(&result) != 1) state.SkipWithError("FnRivEst failed");
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    for (auto &v : args) LumoFreeByValue(&v);
    for (auto &v : targets) LumoFreeByValue(&v);
}

void BM_RivEstAllOutputs(benchmark::State &state) { rivEst(state, true); }
void BM_RivEstNoOutputs(benchmark::State &state) { rivEst(state, false); }

#define KV_SIZES ->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)
BENCHMARK(BM_HandLoop) KV_SIZES;
BENCHMARK(BM_RivEstNoOutputs) KV_SIZES;
BENCHMARK(BM_RivEstAllOutputs) KV_SIZES;

} // namespace

BENCHMARK_MAIN();
