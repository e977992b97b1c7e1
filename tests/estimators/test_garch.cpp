// GARCH and EGARCH exports against a long-double transcription of the recursions that treats
// every observation alike (a lag before the sample takes its pre-sample value), closed forms for
// the threshold, in-mean and cap rules, bad input, and allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
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

const double NaN = std::numeric_limits<double>::quiet_NaN();
const double Inf = std::numeric_limits<double>::infinity();

// Argument records and reference targets of one host call; frees everything.

// 0 e, 1 x, 2 coef, 3 p, 4 q, 5 kind, 6 delta, 7 kappa, 8 gamma, 9-10 outputs.
void setGarch(HostCall<11> &c, const Vec &e, const Vec &x, const Vec &coef, int p, int q, int kind, double delta,
              double kappa, double gamma) {
    c.col(0, e);
    c.col(1, x);
    c.mat(2, 1, static_cast<int>(coef.size()), coef);
    LumoValSetInt(&c.args[3], p);
    LumoValSetInt(&c.args[4], q);
    LumoValSetInt(&c.args[5], kind);
    LumoValSetDouble(&c.args[6], delta);
    LumoValSetDouble(&c.args[7], kappa);
    LumoValSetDouble(&c.args[8], gamma);
    c.ref(9);
    c.ref(10);
}

// 0 e, 1 x, 2 theta, 3 phi, 4 nu, 5 a, 6 b, 7 kind, 8 delta, 9-10 outputs.
void setEgarch(HostCall<11> &c, const Vec &e, const Vec &x, double theta, double phi, double nu, const Vec &a,
               const Vec &b, int kind, double delta) {
    c.col(0, e);
    c.col(1, x);
    LumoValSetDouble(&c.args[2], theta);
    LumoValSetDouble(&c.args[3], phi);
    LumoValSetDouble(&c.args[4], nu);
    c.mat(5, 1, static_cast<int>(a.size()), a);
    c.mat(6, 1, static_cast<int>(b.size()), b);
    LumoValSetInt(&c.args[7], kind);
    LumoValSetDouble(&c.args[8], delta);
    c.ref(9);
    c.ref(10);
}

long double inMean(int kind, long double v) {
    return kind == 1 ? v : kind == 2 ? std::sqrt(v) : kind == 3 ? std::log(v) : 0.0L;
}

long double meanSquare(const Vec &e) {
    long double s = 0;
    for (double v : e) s += static_cast<long double>(v) * v;
    return s / e.size();
}

// h_t = x_t + sum alpha_i (u_{t-i} - kappa)^2 + sum beta_j h_{t-j} + threshold, pre-sample lags
// (squared residual and variance alike) equal to mean(e^2).
void garchReference(const Vec &e, const Vec &x, const Vec &coef, int p, int q, int kind, double delta,
                    double kappa, double gamma, std::vector<long double> &h, std::vector<long double> &u) {
    const int T = static_cast<int>(e.size()), mx = std::max(p, q);
    const long double s2 = meanSquare(e);
    h.assign(T, 0);
    u.assign(T, 0);
    for (int t = 0; t < T; ++t) {
        long double v = x[t];
        for (int i = 1; i <= q; ++i) {
            long double alpha = i <= p ? static_cast<long double>(coef[i]) - coef[mx + i] : coef[i];
            v += alpha * (t >= i ? (u[t - i] - kappa) * (u[t - i] - kappa) : s2);
        }
        for (int j = 1; j <= p; ++j) v += coef[mx + j] * (t >= j ? h[t - j] : s2);
        if (gamma != 0 && t >= 1 && u[t - 1] < kappa) v += gamma * (u[t - 1] - kappa) * (u[t - 1] - kappa);
        h[t] = v;
        u[t] = kind >= 1 && kind <= 3 ? e[t] - delta * inMean(kind, v) : e[t];
    }
}

// Log variance stored as computed for t < max(p,q), capped at 709 afterwards; u, z and the news
// term always use the capped value.
void egarchReference(const Vec &e, const Vec &x, double theta, double phi, double nu, const Vec &a,
                     const Vec &b, int kind, double delta, std::vector<long double> &lh,
                     std::vector<long double> &u) {
    const int T = static_cast<int>(e.size()), q = static_cast<int>(a.size()), p = static_cast<int>(b.size());
    const long double lbar = std::log(meanSquare(e));
    std::vector<long double> g(T);
    lh.assign(T, 0);
    u.assign(T, 0);
    for (int t = 0; t < T; ++t) {
        long double s = x[t];
        for (int i = 1; i <= q; ++i)
            if (t >= i) s += a[i - 1] * g[t - i];
        for (int j = 1; j <= p; ++j) s += b[j - 1] * (t >= j ? lh[t - j] : lbar);
        const long double l = std::min(709.0L, s);
        lh[t] = t < std::max(p, q) ? s : l;
        u[t] = kind == 1 ? e[t] - delta * std::exp(l)
             : kind == 2 ? e[t] - delta * std::exp(l / 2)
             : kind == 3 ? e[t] - delta * l : e[t];
        const long double z = std::exp(-l / 2) * u[t];
        g[t] = phi * (std::fabs(z) - nu) + theta * z;
    }
}

void expectClose(const Vec &got, const std::vector<long double> &want, double tol) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t t = 0; t < got.size(); ++t)
        EXPECT_NEAR(got[t], static_cast<double>(want[t]), tol * std::max(1.0L, std::fabs(want[t]))) << "t=" << t;
}

Vec normals(std::mt19937_64 &rng, int n, double scale) {
    std::normal_distribution<double> z(0.0, scale);
    Vec v(n);
    for (double &d : v) d = z(rng);
    return v;
}

TEST(Garch, MatchesTranscriptionForAllOrdersAndInMeanKinds) {
    std::mt19937_64 rng(20240611);
    for (int T : {2, 300})
        for (int p = 0; p <= 3; ++p)
            for (int q = 0; q <= 3; ++q)
                for (int kind = 0; kind <= 3; ++kind)
                    for (double gamma : {0.0, 0.15}) {
                        SCOPED_TRACE(::testing::Message() << "T=" << T << " p=" << p << " q=" << q
                                                          << " kind=" << kind << " gamma=" << gamma);
                        const int mx = std::max(p, q);
                        Vec e = normals(rng, T, 1.3), x(T), coef(1 + mx + p, 0.0);
                        for (int t = 0; t < T; ++t) x[t] = 0.2 + 0.1 * std::sin(0.3 * t);
                        for (int j = 1; j <= p; ++j) coef[mx + j] = 0.5 / p;
                        for (int i = 1; i <= mx; ++i) coef[i] = (i <= q ? 0.08 : 0.0) + (i <= p ? coef[mx + i] : 0.0);
                        HostCall<11> c;
                        setGarch(c, e, x, coef, p, q, kind, 0.05, 0.1, gamma);
                        ASSERT_EQ(LumoHostInvoke(FnGarchVar, &c.result, c.args, 11), 1);
                        EXPECT_EQ(LumoValGetInt(&c.result), 1);
                        std::vector<long double> h, u;
                        garchReference(e, x, coef, p, q, kind, 0.05, 0.1, gamma, h, u);
                        expectClose(c.out(9), h, 1e-13);
                        expectClose(c.out(10), u, 1e-13);
                    }
}

TEST(Garch, ThresholdInMeanAndPresampleRules) {
    const double s2 = (0.25 + 0.16 + 0.36 + 0.01) / 4; // mean of e^2 for e below
    struct Case {
        const char *what;
        Vec e, x, coef;
        int p, q, kind;
        double delta, kappa, gamma;
        Vec h, u; // expected; empty u means u == e
    } cases[] = {
        {"equality adds no threshold", {0.5, 0.4, 0.6, 0.1}, {1, 2, 3, 4}, {0}, 0, 0, 0, 0, 0.5, 2,
         {1, 2, 3 + 2 * 0.1 * 0.1, 4}, {}},
        {"gamma 0 never adds, even for an infinite residual", {-Inf, 0.4, 0.6, 0.1}, {1, 2, 3, 4}, {0}, 0, 0, 0, 0,
         0.5, 0, {1, 2, 3, 4}, {}},
        {"NaN gamma counts as non-zero", {0.4, 0.6, 0.4, 0.6}, {1, 2, 3, 4}, {0}, 0, 0, 0, 0, 0.5, NaN,
         {1, NaN, 3, NaN}, {}},
        {"unavailable squared lag is mean(e^2), not shifted", {0.5, 0.4, 0.6, 0.1}, {1, 2, 3, 4}, {9, 0.2}, 0, 1,
         0, 0, 0.3, 0, {1 + 0.2 * s2, 2 + 0.2 * 0.2 * 0.2, 3 + 0.2 * 0.1 * 0.1, 4 + 0.2 * 0.3 * 0.3}, {}},
        {"negative and zero h kept; sqrt gives NaN", {1, 1, 1}, {-1, 0, 2}, {0}, 0, 0, 2, 1, 0, 0, {-1, 0, 2},
         {NaN, 1, 1 - std::sqrt(2.0)}},
        {"log of zero h gives infinity", {1, 1, 1}, {-1, 0, 2}, {0}, 0, 0, 3, 1, 0, 0, {-1, 0, 2},
         {NaN, Inf, 1 - std::log(2.0)}},
        {"unknown kind ignores a NaN delta", {1, 2, 3}, {1, 1, 1}, {0}, 0, 0, 7, NaN, 0, 0, {1, 1, 1}, {}},
        {"NaN in e reaches every h through mean(e^2)", {0.1, NaN, 0.3}, {1, 1, 1}, {0, 0.9, 0.5}, 1, 1, 0, 0, 0, 0,
         {NaN, NaN, NaN}, {}},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        HostCall<11> c;
        setGarch(c, k.e, k.x, k.coef, k.p, k.q, k.kind, k.delta, k.kappa, k.gamma);
        ASSERT_EQ(LumoHostInvoke(FnGarchVar, &c.result, c.args, 11), 1);
        Vec h = c.out(9), u = c.out(10);
        const Vec &wantU = k.u.empty() ? k.e : k.u;
        for (size_t t = 0; t < k.e.size(); ++t) {
            if (std::isnan(k.h[t])) EXPECT_TRUE(std::isnan(h[t])) << t;
            else EXPECT_NEAR(h[t], k.h[t], 1e-15) << t;
            if (std::isnan(wantU[t])) EXPECT_TRUE(std::isnan(u[t])) << t;
            else EXPECT_EQ(u[t], wantU[t]) << t;
        }
    }
}

TEST(Egarch, MatchesTranscriptionForAllOrdersAndInMeanKinds) {
    std::mt19937_64 rng(7);
    for (int T : {2, 300})
        for (int p = 0; p <= 3; ++p)
            for (int q = 0; q <= 3; ++q)
                for (int kind = 0; kind <= 3; ++kind) {
                    SCOPED_TRACE(::testing::Message() << "T=" << T << " p=" << p << " q=" << q << " kind=" << kind);
                    Vec e = normals(rng, T, 0.8), x = normals(rng, T, 0.1), a(q), b(p);
                    for (int i = 0; i < q; ++i) a[i] = 0.2 / (i + 1);
                    for (int j = 0; j < p; ++j) b[j] = 0.6 / p;
                    HostCall<11> c;
                    setEgarch(c, e, x, -0.1, 0.25, std::sqrt(2 / M_PI), a, b, kind, 0.2);
                    ASSERT_EQ(LumoHostInvoke(FnEgarchVar, &c.result, c.args, 11), 1);
                    EXPECT_EQ(LumoValGetInt(&c.result), 1);
                    std::vector<long double> lh, u;
                    egarchReference(e, x, -0.1, 0.25, std::sqrt(2 / M_PI), a, b, kind, 0.2, lh, u);
                    expectClose(c.out(9), lh, 1e-13);
                    expectClose(c.out(10), u, 1e-13);
                }
}

TEST(Egarch, CapAt709OnlyInTheMainPhase) {
    // p = 1: observation 0 is start-up (stored as computed), 1 and 2 are main phase (capped);
    // a NaN log variance stays NaN rather than becoming the cap.
    Vec e = {1, 1, 1}, x = {800, 750, NaN};
    HostCall<11> c;
    setEgarch(c, e, x, 0, 0, 0, {}, {0.5}, 1, 1e-300);
    ASSERT_EQ(LumoHostInvoke(FnEgarchVar, &c.result, c.args, 11), 1);
    Vec lh = c.out(9), u = c.out(10);
    EXPECT_EQ(lh[0], 800 + 0.5 * std::log(1.0)); // log(mean e^2) = 0
    EXPECT_EQ(lh[1], 709);
    EXPECT_TRUE(std::isnan(lh[2]));
    EXPECT_EQ(u[0], 1 - 1e-300 * std::exp(709.0)); // u uses the capped value in both phases
    EXPECT_EQ(u[1], 1 - 1e-300 * std::exp(709.0));
}

TEST(GarchExports, BadInputLeavesEverythingUntouched) {
    const Vec e = {0.1, -0.3, 0.2, 0.4}, x(4, 0.1);
    // kind: 0 valid; 1-6 size and range checks (return untouched); 7-10 host type or shape checks.
    struct Case { const char *what; bool egarch; int kind; } cases[] = {
        {"valid garch", false, 0}, {"two-column e", false, 1}, {"negative p", false, 2}, {"negative q", false, 3},
        {"coef too short", false, 4}, {"reference without target", false, 5}, {"empty e", false, 6},
        {"p given as double", false, 7}, {"x of other length", false, 8}, {"output not a reference", false, 9},
        {"valid egarch", true, 0}, {"a with columns but no rows", true, 1}, {"e with two columns", true, 6},
        {"theta given as int", true, 7}, {"x of other length", true, 8}, {"output not a reference", true, 9},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        HostCall<11> c;
        if (k.egarch) setEgarch(c, e, x, 0.1, 0.2, 0.7, {0.1}, {0.5}, 0, 0);
        else setGarch(c, e, x, {0, 0.9, 0.8}, 1, 1, 0, 0, 0, 0.1);
        LumoValSetInt(&c.result, 99);
        ASSERT_TRUE(LumoValSetMatrix(&c.targets[9], 1, 1, Vec{42}.data()));
        switch (k.kind) {
        case 1: k.egarch ? c.mat(5, 0, 2, {}) : c.mat(0, 4, 2, Vec(8, 0.1)); break;
        case 2: LumoValSetInt(&c.args[3], -1); break;
        case 3: LumoValSetInt(&c.args[4], -1); break;
        case 4: c.mat(2, 1, 3, {0, 0.9, 0.8}); LumoValSetInt(&c.args[3], 2); break;
        case 5: LumoValSetRef(&c.args[10], nullptr); break;
        case 6: k.egarch ? c.mat(0, 4, 2, Vec(8, 0.1)) : (c.mat(0, 0, 1, {}), c.mat(1, 0, 1, {})); break;
        case 7: k.egarch ? LumoValSetInt(&c.args[2], 1) : LumoValSetDouble(&c.args[3], 1); break;
        case 8: c.col(1, {0.1, 0.1}); break;
        case 9: c.col(10, e); break;
        }
        const int ran = LumoHostInvoke(k.egarch ? FnEgarchVar : FnGarchVar, &c.result, c.args, 11);
        EXPECT_EQ(ran, k.kind < 7);
        EXPECT_EQ(LumoValGetInt(&c.result), k.kind == 0 ? 1 : 99);
        Vec old = c.out(9);
        EXPECT_EQ(old.size(), k.kind == 0 ? 4u : 1u);
        if (k.kind != 0) {
            EXPECT_EQ(old[0], 42);
        }
    }
}

TEST(GarchExports, AllocationFailures) {
    const Vec e = {0.1, -0.3, 0.2, 0.4, -0.1}, x(5, 0.1);
    for (bool egarch : {false, true}) {
        SCOPED_TRACE(egarch ? "egarch" : "garch");
        HostCall<11> c;
        if (egarch) setEgarch(c, e, x, 0.1, 0.2, 0.7, {0.1}, {0.5}, 2, 0.1);
        else setGarch(c, e, x, {0, 0.9, 0.8}, 1, 1, 2, 0.1, 0, 0.1);
        // Host allocations (two per output): the result is 0 and the caller's variables keep
        // their old contents; the run after the last failure succeeds.
        ASSERT_TRUE(LumoValSetMatrix(&c.targets[9], 1, 1, Vec{42}.data()));
        long failed = ForEachHostAllocationFailure([&](long) {
            ASSERT_EQ(LumoHostInvoke(egarch ? FnEgarchVar : FnGarchVar, &c.result, c.args, 11), 1);
            const bool ok = LumoValGetInt(&c.result) == 1;
            EXPECT_EQ(c.out(9).size(), ok ? 5u : 1u);
            if (!ok) {
                EXPECT_EQ(c.out(9)[0], 42);
            }
            EXPECT_EQ(c.out(10).size(), ok ? 5u : 0u);
        });
        EXPECT_EQ(failed, 4);
        // The one library allocation (the scratch array): GARCH reports 0 with missing outputs,
        // EGARCH zeroes its outputs and still reports 1.
        long runs = ForEachLibraryAllocationFailure([&](long n) {
            ASSERT_EQ(LumoHostInvoke(egarch ? FnEgarchVar : FnGarchVar, &c.result, c.args, 11), 1);
            if (n > 1) return;
            EXPECT_EQ(LumoValGetInt(&c.result), egarch ? 1 : 0);
            for (int i : {9, 10})
                for (double v : c.out(i)) EXPECT_TRUE(egarch ? v == 0.0 : std::isnan(v));
        });
        EXPECT_EQ(runs, 1);
    }
}

} // namespace
