// Markov-switching filter and smoothers against brute-force enumeration of every regime path on
// tiny samples, and closed forms for the guards and clamps of the smoothers and the filter.
#include <random>

#include "common/host_call.h"
#include "kavrel/kavrel.h"

namespace {

using LVec = std::vector<long double>;

// Densities (T x M), a column-stochastic P (M x M) and initial probabilities (1 x M).
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

// One filter run (both outputs) or smoother run; the outputs in order.
std::vector<Vec> run(LumoExport fn, const Model &m) {
    HostCall c;
    const int o = fn == FnFilterMS ? 3 : 2; // the first output
    c.mat(0, m.T, m.M, m.dens).mat(1, m.M, m.M, m.P);
    if (o == 3) c.row(2, m.init);
    EXPECT_EQ(c.ref(o, o + 1).invoke(fn), 1);
    EXPECT_EQ(c.status(), 1);
    return {c.out(o), c.out(o + 1)};
}

TEST(MarkovSwitching, FilterAndSmoothersMatchPathEnumeration) {
    std::mt19937_64 rng(11);
    struct Case {
        int T, M;
        bool symmetric;
    } cases[] = {{1, 2, false}, {4, 3, false}, {5, 3, true}, {3, 4, false}};
    for (const auto &k : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << k.T << " M=" << k.M << " symmetric=" << k.symmetric);
        const Model m = randomModel(rng, k.T, k.M, k.symmetric);
        const Enumerated want = enumerate(m);
        const std::vector<Vec> filter = run(FnFilterMS, m);
        ExpectClose(filter[0], want.lik, 1e-14, "likelihood");
        ExpectClose(filter[1], want.filt, 1e-14, "filtered");
        const Model filtered{k.T, k.M, filter[1], m.P, {}};
        const std::vector<Vec> joint = run(FnSmoothMS, filtered), ratio = run(FnSmoothMS2, filtered);
        ExpectClose(joint[0], want.smooth, 1e-14, "smoothed");
        ExpectClose(joint[1], want.joint, 1e-14, "transitions"); // all zero when T = 1
        // The ratio form leaves the multiplication by P to the caller.
        ExpectClose(ratio[0], want.smooth, 1e-14, "smoothed, ratio form");
        for (int i = 0; i < k.M * k.M; ++i)
            EXPECT_NEAR(ratio[1][i] * m.P[i], static_cast<double>(want.joint[i]), 1e-14);
        // The transposed backward step agrees only for a symmetric P.
        if (k.symmetric) ExpectClose(run(FnSmoothMS2sym, filtered)[0], want.smooth, 1e-14, "smoothed, transposed");
    }
}

TEST(MarkovSwitching, SmootherGuardsAndClamps) {
    // 2 x 2 filtered probabilities and column-stochastic P; the expected first smoothed row (the
    // last equals the filtered row) and transition terms.
    const struct {
        const char *what;
        LumoExport fn;
        Vec filt, P, smooth0, trans;
    } cases[] = {
        // clang-format off
        // pred_1 = 0: the reciprocal becomes 1e100 and the smoothed row stays finite.
        {"underflowing prediction", FnSmoothMS, {1, 0, 0.3, 0.7}, {1, 0.5, 0, 0.5}, {0.3, 0}, {0.3, 0, 0, 0}},
        {"underflowing prediction, ratio form", FnSmoothMS2, {1, 0, 0.3, 0.7}, {1, 0.5, 0, 0.5}, {0.3, 0},
         {0.3, 0, 0.7e100, 0}},
        // Inconsistent input (last row sums to 2): 1.2 is capped at 1.
        {"cap at one", FnSmoothMS2, {0.6, 0.4, 1, 1}, {0.5, 0.5, 0.5, 0.5}, {1, 0.8}, {1.2, 0.8, 1.2, 0.8}},
        // 1e-200 * 0.5e100 = 0.5e-100 is flushed to exactly zero.
        {"flush to zero", FnSmoothMS2sym, {1, 1e-200, 0.5, 0.5}, {1, 0, 0, 1}, {0.5, 0},
         {0.5, 5e-201, 0.5e100, 0.5e-100}},
        // An asymmetric P: the transposed backward step is not the ratio form's.
        {"transposed step, asymmetric P", FnSmoothMS2sym, {0.6, 0.4, 0.5, 0.5}, {0.8, 0.3, 0.2, 0.7}, {0.625, 5.0 / 12},
         {0.5, 1.0 / 3, 0.75, 0.5}},
        // clang-format on
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        const std::vector<Vec> got = run(k.fn, {2, 2, k.filt, k.P, {}});
        const Vec want[2] = {{k.smooth0[0], k.smooth0[1], k.filt[2], k.filt[3]}, k.trans};
        for (int o = 0; o < 2; ++o) // relative: 0.5e-100 is not 0
            for (size_t i = 0; i < want[o].size() && got[o].size() == want[o].size(); ++i)
                EXPECT_DOUBLE_EQ(got[o][i], want[o][i]) << o << " " << i;
        EXPECT_TRUE(got[0].size() == 4);
        EXPECT_TRUE(got[1].size() == 4);
    }
}

TEST(MarkovSwitching, FilterPropagatesZeroAndNegativeDensities) {
    // A negative density counts as zero; a zero contribution gives NaN filtered probabilities and
    // NaN from then on.
    const std::vector<Vec> got = run(FnFilterMS, {3, 2, {0.5, -2, 0, -1, 0.4, 0.3}, {0.9, 0.2, 0.1, 0.8}, {0.5, 0.5}});
    ExpectClose(got[0], Vec{0.25, 0, NAN}, 0, "likelihood");
    ExpectClose(got[1], Vec{1, 0, NAN, NAN, NAN, NAN}, 0, "filtered");
}

} // namespace
