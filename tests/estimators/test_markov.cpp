// Markov-switching filter and smoothers against brute-force enumeration of every regime path on
// tiny samples, the identities of the accumulated transition terms on longer ones, closed forms
// for the guards and clamps, bad input and allocation failures.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "common/fault.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"
#include "estimators/host_call.h"

namespace {

using LVec = std::vector<long double>;
const double NaN = std::numeric_limits<double>::quiet_NaN();


// Random densities (T x M), a column-stochastic P (M x M) and initial probabilities (1 x M).
struct Model {
    int T, M;
    Vec dens, P, init;
};

Model randomModel(std::mt19937_64 &rng, int T, int M, bool symmetric) {
    std::uniform_real_distribution<double> u(0.05, 1.0);
    Model m{T, M, Vec(T * M), Vec(M * M), Vec(M)};
    for (double &d : m.dens) d = u(rng);
    for (int i = 0; i < M; ++i) {
        double s = 0;
        for (int j = 0; j < M; ++j) s += (m.P[j * M + i] = u(rng) + (i == j ? 2 : 0));
        // A symmetric doubly stochastic alternative: the identity mixed with the uniform matrix.
        for (int j = 0; j < M; ++j) m.P[j * M + i] = symmetric ? (i == j ? 0.7 : 0.0) + 0.3 / M : m.P[j * M + i] / s;
    }
    double s = 0;
    for (double &p : m.init) s += (p = u(rng));
    for (double &p : m.init) p /= s;
    return m;
}

// Enumerates all M^T regime paths: joint weight init[s0] d0[s0] prod_t P[s_t][s_{t-1}] d_t[s_t].
// Gives the likelihood contributions, filtered and smoothed probabilities, and the sum over t of
// the smoothed joint probabilities Pr[S_t = i, S_{t+1} = j] at [j][i].
struct Enumerated {
    LVec lik, filt, smooth, joint;
};

Enumerated enumerate(const Model &m) {
    const int T = m.T, M = m.M;
    Enumerated r{LVec(T), LVec(T * M), LVec(T * M), LVec(M * M)};
    std::vector<int> s(T);
    LVec prefix(T, 0); // p(y_0..y_t)
    for (long code = 0, n = std::lround(std::pow(M, T)); code < n; ++code) {
        long c = code;
        for (int t = 0; t < T; ++t) s[t] = c % M, c /= M;
        long double w = 1;
        for (int t = 0; t < T; ++t) {
            w *= (t == 0 ? m.init[s[0]] : m.P[s[t] * M + s[t - 1]]) * m.dens[t * M + s[t]];
            // Paths share prefixes: count each prefix's weight once, on the path whose later
            // regimes are all 0, and its filtered mass at t the same way.
            bool first = true;
            for (int k = t + 1; k < T; ++k) first = first && s[k] == 0;
            if (first) prefix[t] += w, r.filt[t * M + s[t]] += w;
        }
        for (int t = 0; t < T; ++t) r.smooth[t * M + s[t]] += w;
        for (int t = 0; t + 1 < T; ++t) r.joint[s[t + 1] * M + s[t]] += w;
    }
    const long double total = prefix[T - 1];
    for (int t = 0; t < T; ++t) {
        r.lik[t] = prefix[t] / (t ? prefix[t - 1] : 1.0L);
        for (int j = 0; j < M; ++j) r.filt[t * M + j] /= prefix[t], r.smooth[t * M + j] /= total;
    }
    for (auto &v : r.joint) v /= total;
    return r;
}

void expectNear(const Vec &got, const LVec &want, double tol) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], static_cast<double>(want[i]), tol) << i;
}

// Runs the filter (filtered output requested) and then one smoother on its output.
void runFilter(const Model &m, Vec &lik, Vec &filt) {
    HostCall<5> c;
    c.mat(0, m.T, m.M, m.dens);
    c.mat(1, m.M, m.M, m.P);
    c.mat(2, 1, m.M, m.init);
    c.ref(3);
    c.ref(4);
    ASSERT_EQ(LumoHostInvoke(FnFilterMS, &c.result, c.args, 5), 1);
    EXPECT_EQ(LumoValGetInt(&c.result), 1);
    lik = c.out(3);
    filt = c.out(4);
}

void runSmoother(LumoExport fn, const Vec &filt, int T, int M, const Vec &P, Vec &smooth, Vec &trans) {
    HostCall<4> c;
    c.mat(0, T, M, filt);
    c.mat(1, M, M, P);
    c.ref(2);
    c.ref(3);
    ASSERT_EQ(LumoHostInvoke(fn, &c.result, c.args, 4), 1);
    EXPECT_EQ(LumoValGetInt(&c.result), 1);
    smooth = c.out(2);
    trans = c.out(3);
}

TEST(MarkovSwitching, FilterAndSmoothersMatchPathEnumeration) {
    std::mt19937_64 rng(11);
    struct Case { int T, M; bool symmetric; } cases[] = {{1, 2, false}, {5, 2, false}, {4, 3, false},
                                                          {5, 3, true}, {3, 4, false}, {6, 2, true}};
    for (const auto &k : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << k.T << " M=" << k.M << " symmetric=" << k.symmetric);
        const Model m = randomModel(rng, k.T, k.M, k.symmetric);
        const Enumerated want = enumerate(m);
        Vec lik, filt, smooth, trans;
        runFilter(m, lik, filt);
        expectNear(lik, want.lik, 1e-14);
        expectNear(filt, want.filt, 1e-14);

        runSmoother(FnSmoothMS, filt, k.T, k.M, m.P, smooth, trans);
        expectNear(smooth, want.smooth, 1e-14);
        expectNear(trans, want.joint, 1e-14); // all zero when T = 1

        // The ratio form leaves the multiplication by P to the caller.
        runSmoother(FnSmoothMS2, filt, k.T, k.M, m.P, smooth, trans);
        expectNear(smooth, want.smooth, 1e-14);
        for (int i = 0; i < k.M * k.M; ++i) EXPECT_NEAR(trans[i] * m.P[i], static_cast<double>(want.joint[i]), 1e-14);

        // The transposed backward step agrees only for a symmetric P.
        runSmoother(FnSmoothMS2sym, filt, k.T, k.M, m.P, smooth, trans);
        if (k.symmetric) expectNear(smooth, want.smooth, 1e-14);
    }
}

TEST(MarkovSwitching, TransitionTermsSumToSmoothedProbabilities) {
    // sum_j out[j][i] = sum_{t<T-1} Pr[S_t = i | Y_T] and sum_i out[j][i] = sum_{t>0} Pr[S_t = j | Y_T].
    std::mt19937_64 rng(5);
    for (int M : {2, 3, 4}) {
        const Model m = randomModel(rng, 400, M, false);
        Vec lik, filt, smooth, trans;
        runFilter(m, lik, filt);
        runSmoother(FnSmoothMS, filt, m.T, M, m.P, smooth, trans);
        for (int r = 0; r < M; ++r) {
            long double byFrom = 0, byTo = 0, earlier = 0, later = 0;
            for (int j = 0; j < M; ++j) byFrom += trans[j * M + r], byTo += trans[r * M + j];
            for (int t = 0; t + 1 < m.T; ++t) earlier += smooth[t * M + r], later += smooth[(t + 1) * M + r];
            EXPECT_NEAR(static_cast<double>(byFrom), static_cast<double>(earlier), 1e-11) << M;
            EXPECT_NEAR(static_cast<double>(byTo), static_cast<double>(later), 1e-11) << M;
        }
    }
}

TEST(MarkovSwitching, SmootherGuardsAndClamps) {
    const double big = 1e100;
    struct Case {
        const char *what;
        LumoExport fn;
        Vec filt, P; // 2 x 2 each; P column-stochastic
        Vec smooth0, trans;
    } cases[] = {
        // pred_1 = 0: the reciprocal becomes 1e100 and the smoothed row stays finite.
        {"underflowing prediction", FnSmoothMS, {1, 0, 0.3, 0.7}, {1, 0.5, 0, 0.5}, {0.3, 0}, {0.3, 0, 0, 0}},
        {"underflowing prediction, ratio form", FnSmoothMS2, {1, 0, 0.3, 0.7}, {1, 0.5, 0, 0.5}, {0.3, 0},
         {0.3, 0, 0.7 * big, 0}},
        // Inconsistent input (last row sums to 2): 1.2 is capped at 1.
        {"cap at one", FnSmoothMS2, {0.6, 0.4, 1, 1}, {0.5, 0.5, 0.5, 0.5}, {1, 0.8}, {1.2, 0.8, 1.2, 0.8}},
        // 1e-200 * 0.5e100 = 0.5e-100 is flushed to exactly zero.
        {"flush to zero", FnSmoothMS2sym, {1, 1e-200, 0.5, 0.5}, {1, 0, 0, 1}, {0.5, 0},
         {0.5, 5e-201, 0.5 * big, 0.5e-100}},
        // An asymmetric P: the two ratio forms differ only in the backward step.
        {"ratio form, asymmetric P", FnSmoothMS2, {0.6, 0.4, 0.5, 0.5}, {0.8, 0.3, 0.2, 0.7}, {0.55, 0.45},
         {0.5, 1.0 / 3, 0.75, 0.5}},
        {"transposed step, asymmetric P", FnSmoothMS2sym, {0.6, 0.4, 0.5, 0.5}, {0.8, 0.3, 0.2, 0.7},
         {0.625, 5.0 / 12}, {0.5, 1.0 / 3, 0.75, 0.5}},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        Vec smooth, trans;
        runSmoother(k.fn, k.filt, 2, 2, k.P, smooth, trans);
        for (int i = 0; i < 2; ++i) EXPECT_DOUBLE_EQ(smooth[i], k.smooth0[i]);
        for (int i = 0; i < 2; ++i) EXPECT_EQ(smooth[2 + i], k.filt[2 + i]);
        for (int i = 0; i < 4; ++i) EXPECT_DOUBLE_EQ(trans[i], k.trans[i]);
    }
}

TEST(MarkovSwitching, FilterPropagatesZeroAndNegativeDensities) {
    // A negative density counts as zero; a zero contribution gives NaN filtered probabilities and
    // NaN from then on; the filtered output is optional and the result does not depend on it.
    const Model m{3, 2, {0.5, -2, 0, -1, 0.4, 0.3}, {0.9, 0.2, 0.1, 0.8}, {0.5, 0.5}};
    Vec lik, filt;
    runFilter(m, lik, filt);
    EXPECT_EQ(lik[0], 0.25);
    EXPECT_EQ(filt[0], 1.0);
    EXPECT_EQ(filt[1], 0.0);
    EXPECT_EQ(lik[1], 0.0);
    EXPECT_TRUE(std::isnan(filt[2]) && std::isnan(filt[3]) && std::isnan(lik[2]));

    HostCall<5> c;
    c.mat(0, 3, 2, m.dens);
    c.mat(1, 2, 2, m.P);
    c.mat(2, 1, 2, m.init);
    c.ref(3);
    LumoValSetInt(&c.args[4], 0);
    ASSERT_EQ(LumoHostInvoke(FnFilterMS, &c.result, c.args, 5), 1);
    EXPECT_EQ(LumoValGetType(&c.args[4]), LUMO_INT);
    EXPECT_EQ(c.out(3)[0], 0.25);
}

TEST(MarkovSwitching, BadInputAndAllocationFailures) {
    const Vec dens = {0.5, 0.2, 0.3, 0.4, 0.1, 0.6}, P = {0.9, 0.2, 0.1, 0.8}, init = {0.5, 0.5};
    // kind 0 valid; 1-2 size checks (untouched); 3-5 host checks (abandoned).
    const char *what[] = {"valid", "no observations", "reference without target", "P 3 x 3", "init 2 x 1",
                          "mandatory output not a reference"};
    for (bool filter : {true, false})
        for (int kind = 0; kind < 6; ++kind) {
            SCOPED_TRACE(::testing::Message() << (filter ? "filter " : "smoother ") << what[kind]);
            if (!filter && kind == 4) continue;
            HostCall<5> c;
            const int out = filter ? 3 : 2;
            c.mat(0, 3, 2, dens);
            c.mat(1, 2, 2, P);
            if (filter) c.mat(2, 1, 2, init);
            c.ref(out);
            c.ref(out + 1);
            LumoValSetInt(&c.result, 99);
            if (kind == 1) c.mat(0, 0, 2, {});
            if (kind == 2) LumoValSetRef(&c.args[out], nullptr);
            if (kind == 3) c.mat(1, 3, 3, Vec(9, 0.1));
            if (kind == 4) c.mat(2, 2, 1, init);
            if (kind == 5) LumoValSetInt(&c.args[out], 1);
            EXPECT_EQ(LumoHostInvoke(filter ? FnFilterMS : FnSmoothMS, &c.result, c.args, filter ? 5 : 4), kind < 3);
            EXPECT_EQ(LumoValGetInt(&c.result), kind == 0 ? 1 : 99);
            EXPECT_EQ(c.out(out + 1).size(), kind == 0 ? (filter ? 6u : 4u) : 0u);
            if (kind != 0) continue;

            // Host failures: no result; scratch failure: result 0, outputs missing.
            long hostFailures = ForEachHostAllocationFailure([&](long n) {
                LumoValSetInt(&c.result, 99);
                ASSERT_EQ(LumoHostInvoke(filter ? FnFilterMS : FnSmoothMS2, &c.result, c.args, filter ? 5 : 4), 1);
                EXPECT_EQ(LumoValGetInt(&c.result), n <= 4 ? 99 : 1);
            });
            EXPECT_EQ(hostFailures, 4);
            long libFailures = ForEachLibraryAllocationFailure([&](long n) {
                LumoValSetInt(&c.result, 99);
                ASSERT_EQ(LumoHostInvoke(filter ? FnFilterMS : FnSmoothMS2sym, &c.result, c.args, filter ? 5 : 4), 1);
                EXPECT_EQ(LumoValGetInt(&c.result), n == 1 ? 0 : 1);
                for (double v : c.out(out)) EXPECT_TRUE(n > 1 || std::isnan(v));
            });
            EXPECT_EQ(libFailures, 1);
        }
}

} // namespace
