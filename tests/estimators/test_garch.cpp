// GARCH and EGARCH exports against a long-double transcription of the recursions that treats
// every observation alike (a lag before the sample takes its pre-sample value), on random data and
// on the edge rules' own data, and the closed form of the EGARCH cap.
#include <numeric>
#include <random>

#include "common/host_call.h"
#include "kavrel/kavrel.h"

namespace {

using LVec = std::vector<long double>;
const double NaN = std::numeric_limits<double>::quiet_NaN();

void garchCall(HostCall &c, const Vec &e, const Vec &x, const Vec &coef, int p, int q, int kind, double delta,
               double kappa, double gamma) {
    c.col(0, e).col(1, x).row(2, coef).num(3, p).num(4, q).num(5, kind).dbl(6, delta).dbl(7, kappa).dbl(8, gamma);
    ASSERT_EQ(c.ref(9, 10).invoke(FnGarchVar), 1);
}

void egarchCall(HostCall &c, const Vec &e, const Vec &x, double theta, double phi, double nu, const Vec &a,
                const Vec &b, int kind, double delta) {
    c.col(0, e).col(1, x).dbl(2, theta).dbl(3, phi).dbl(4, nu).row(5, a).row(6, b).num(7, kind).dbl(8, delta);
    ASSERT_EQ(c.ref(9, 10).invoke(FnEgarchVar), 1);
}

long double meanSquare(const Vec &e) { return std::inner_product(e.begin(), e.end(), e.begin(), 0.0L) / e.size(); }

// u_t = e_t - delta g(h_t), g = h, sqrt h, log h for kinds 1-3.
long double inMean(const Vec &e, int t, int kind, double delta, long double h) {
    return kind == 1   ? e[t] - delta * h
           : kind == 2 ? e[t] - delta * std::sqrt(h)
           : kind == 3 ? e[t] - delta * std::log(h)
                       : e[t];
}

// h_t = x_t + sum alpha_i (u_{t-i} - kappa)^2 + sum beta_j h_{t-j} + threshold, pre-sample lags
// (squared residual and variance alike) equal to mean(e^2).
void garchReference(const Vec &e, const Vec &x, const Vec &coef, int p, int q, int kind, double delta, double kappa,
                    double gamma, LVec &h, LVec &u) {
    const int T = static_cast<int>(e.size()), mx = std::max(p, q);
    const long double s2 = meanSquare(e);
    h.assign(T, 0), u.assign(T, 0);
    for (int t = 0; t < T; ++t) {
        long double v = x[t];
        for (int i = 1; i <= q; ++i) {
            long double alpha = i <= p ? static_cast<long double>(coef[i]) - coef[mx + i] : coef[i];
            v += alpha * (t >= i ? (u[t - i] - kappa) * (u[t - i] - kappa) : s2);
        }
        for (int j = 1; j <= p; ++j) v += coef[mx + j] * (t >= j ? h[t - j] : s2);
        if (gamma != 0 && t >= 1 && u[t - 1] < kappa) v += gamma * (u[t - 1] - kappa) * (u[t - 1] - kappa);
        h[t] = v;
        u[t] = inMean(e, t, kind, delta, v);
    }
}

// Log variance stored as computed for t < max(p,q), capped at 709 afterwards; u, z and the news
// term always use the capped value.
void egarchReference(const Vec &e, const Vec &x, double theta, double phi, double nu, const Vec &a, const Vec &b,
                     int kind, double delta, LVec &lh, LVec &u) {
    const int T = static_cast<int>(e.size()), q = static_cast<int>(a.size()), p = static_cast<int>(b.size());
    const long double lbar = std::log(meanSquare(e));
    LVec g(T);
    lh.assign(T, 0), u.assign(T, 0);
    for (int t = 0; t < T; ++t) {
        long double s = x[t];
        for (int i = 1; i <= q; ++i)
            if (t >= i) s += a[i - 1] * g[t - i];
        for (int j = 1; j <= p; ++j) s += b[j - 1] * (t >= j ? lh[t - j] : lbar);
        const long double l = std::min(709.0L, s);
        lh[t] = t < std::max(p, q) ? s : l;
        u[t] = kind == 3 ? e[t] - delta * l : inMean(e, t, kind, delta, std::exp(l));
        const long double z = std::exp(-l / 2) * u[t];
        g[t] = phi * (std::fabs(z) - nu) + theta * z;
    }
}

TEST(GarchEgarch, MatchTranscription) {
    // Random data (e empty) over the order pairs, in-mean kinds and threshold that reach distinct
    // paths, T = 2 shorter than the lags; short data of its own for each edge rule of GARCH.
    const struct {
        const char *what;
        bool egarch;
        int T, p, q, kind;
        double delta, kappa, gamma;
        Vec e, x, coef;
    } rows[] = {
        // clang-format off
        {"GARCH(2,3), threshold, kind 1", false, 300, 2, 3, 1, 0.05, 0.1, 0.15, {}, {}, {}},
        {"GARCH(3,2), short sample, kind 2", false, 2, 3, 2, 2, 0.05, 0.1, 0, {}, {}, {}},
        {"ARCH(2), kind 3", false, 300, 0, 2, 3, 0.05, 0.1, 0, {}, {}, {}},
        {"EGARCH(2,3), kind 3", true, 300, 2, 3, 3, 0.2, 0, 0, {}, {}, {}},
        {"EGARCH(3,2), short sample, kind 1", true, 2, 3, 2, 1, 0.2, 0, 0, {}, {}, {}},
        {"EGARCH(1,0), kind 2", true, 300, 1, 0, 2, 0.2, 0, 0, {}, {}, {}},
        {"equality adds no threshold", false, 4, 0, 0, 0, 0, 0.5, 2, {0.5, 0.4, 0.6, 0.1}, {1, 2, 3, 4}, {0}},
        {"NaN gamma counts as non-zero", false, 4, 0, 0, 0, 0, 0.5, NaN, {0.4, 0.6, 0.4, 0.6}, {1, 2, 3, 4}, {0}},
        {"unavailable squared lag is mean(e^2), not shifted", false, 4, 0, 1, 0, 0, 0.3, 0, {0.5, 0.4, 0.6, 0.1},
         {1, 2, 3, 4}, {9, 0.2}},
        {"negative and zero h kept; sqrt gives NaN", false, 3, 0, 0, 2, 1, 0, 0, {1, 1, 1}, {-1, 0, 2}, {0}},
        {"log of zero h gives infinity", false, 3, 0, 0, 3, 1, 0, 0, {1, 1, 1}, {-1, 0, 2}, {0}},
        {"unknown kind ignores a NaN delta", false, 3, 0, 0, 7, NaN, 0, 0, {1, 2, 3}, {1, 1, 1}, {0}},
        // clang-format on
    };
    std::mt19937_64 rng(20240611);
    std::normal_distribution<double> z;
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const int T = r.T, p = r.p, q = r.q;
        Vec e = r.e, x = r.x, a(q), b(p), coef = r.coef;
        if (e.empty()) {
            e.resize(T), x.resize(T), coef.assign(1 + std::max(p, q) + p, 0.0);
            for (int t = 0; t < T; ++t) e[t] = 1.3 * z(rng), x[t] = 0.2 + 0.1 * std::sin(0.3 * t);
            for (int i = 0; i < q; ++i) a[i] = 0.2 / (i + 1), coef[1 + i] = 0.08;
            for (int j = 0; j < p; ++j) b[j] = 0.6 / p, coef[1 + j] += (coef[coef.size() - p + j] = 0.5 / p);
        }
        HostCall c;
        LVec h, u;
        if (r.egarch) egarchCall(c, e, x, -0.1, 0.25, std::sqrt(2 / M_PI), a, b, r.kind, r.delta);
        if (r.egarch) egarchReference(e, x, -0.1, 0.25, std::sqrt(2 / M_PI), a, b, r.kind, r.delta, h, u);
        if (!r.egarch) garchCall(c, e, x, coef, p, q, r.kind, r.delta, r.kappa, r.gamma);
        if (!r.egarch) garchReference(e, x, coef, p, q, r.kind, r.delta, r.kappa, r.gamma, h, u);
        EXPECT_EQ(c.status(), 1);
        ExpectClose(c.out(9), h, 1e-13, "variance");
        ExpectClose(c.out(10), u, 1e-13, "u");
    }
}

TEST(Egarch, CapAt709OnlyInTheMainPhase) {
    // p = 1: observation 0 is start-up (stored as computed: 800 + 0.5 log mean(e^2) = 800),
    // 1 and 2 are main phase (capped); a NaN log variance stays NaN rather than becoming the
    // cap; u always uses the capped value.
    HostCall c;
    egarchCall(c, {1, 1, 1}, {800, 750, NaN}, 0, 0, 0, {}, {0.5}, 1, 1e-300);
    ExpectClose(c.out(9), Vec{800, 709, NaN}, 0, "log h");
    const double u = 1 - 1e-300 * std::exp(709.0);
    EXPECT_TRUE(c.out(10)[0] == u);
    EXPECT_TRUE(c.out(10)[1] == u);
}

} // namespace
