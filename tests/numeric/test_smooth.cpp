// The Hodrick-Prescott trend and the smoothing spline against their penalised least-squares
// systems formed densely in long double; the kernel smoother against each window's weighted
// regression; the automatic choices against GCV computed the same brute-force way.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "numeric/hpfilter.h"
#include "numeric/smooth.h"
#include "numeric_test.h"

namespace {

// A cycle on a curved trend, with noise, at a level far from zero.
std::vector<double> cycleSeries(int T, uint64_t seed) {
    Lcg rng{seed};
    std::vector<double> y(T);
    for (int t = 0; t < T; ++t) y[t] = 100.0 + 0.002 * t * t + 3.0 * std::sin(0.2 * t) + rng.next();
    return y;
}

double maxAbsDiff(const std::vector<double> &a, const LVec &b) {
    long double m = 0;
    for (size_t i = 0; i < a.size(); ++i) m = std::max(m, std::fabs(a[i] - b[i]));
    return static_cast<double>(m);
}

// I + lambda K' A K for the (T-2) x T second differences K.
LMat penalised(int T, long double lambda, const LMat &A) {
    LMat P(T, LVec(T, 0.0L));
    for (int i = 0; i < T; ++i) {
        P[i][i] = 1;
        for (int a = std::max(0, i - 2); a <= std::min(T - 3, i); ++a)
            for (int b = 0; b < T - 2; ++b)
                for (int j = b; j <= b + 2; ++j)
                    P[i][j] += lambda * (a == i - 1 ? -2 : 1) * A[a][b] * (j == b + 1 ? -2 : 1);
    }
    return P;
}

struct DenseFit {
    LVec g;
    long double df, gcv;
};

DenseFit applySmoother(const LMat &S, const std::vector<double> &y) {
    const size_t T = y.size();
    DenseFit f{MultiplyDense(S, LVec(y.begin(), y.end())), 0, 0};
    long double rss = 0;
    for (size_t i = 0; i < T; ++i) f.df += S[i][i], rss += (y[i] - f.g[i]) * (y[i] - f.g[i]);
    f.gcv = T * rss / ((T - f.df) * (T - f.df));
    return f;
}

TEST(HodrickPrescott, MatchesDenseSolve) {
    // At lambda = 1e6 the long double reference itself carries cond x eps ~ 16e6 x 1e-19 of the data.
    for (int T : {3, 4, 5, 12, 80, 200}) {
        for (auto [lambda, tol] : {std::pair{0.5, 2e-12}, {1600.0, 2e-12}, {14400.0, 2e-12}, {1e6, 1e-9}}) {
            const std::vector<double> y = cycleSeries(T, T);
            std::vector<double> trend(T);
            ASSERT_EQ(SmoothHp(y.data(), T, lambda, trend.data()), 1);
            LMat I(T - 2, LVec(T - 2, 0.0L));
            for (int i = 0; i < T - 2; ++i) I[i][i] = 1;
            const LVec ref = MultiplyDense(InverseDense(penalised(T, lambda, I)), LVec(y.begin(), y.end()));
            EXPECT_LT(maxAbsDiff(trend, ref), tol) << "T=" << T << " lambda=" << lambda;
        }
    }
}

// The spline's smoother matrix (I + lambda Q R^-1 Q')^-1 at unit spacing, Q = K' (Green and
// Silverman 1994, eq. 2.18).
LMat splineSmoother(int T, long double lambda) {
    LMat R(T - 2, LVec(T - 2, 0.0L));
    for (int i = 0; i < T - 2; ++i) {
        R[i][i] = 2.0L / 3;
        if (i + 3 < T) R[i][i + 1] = R[i + 1][i] = 1.0L / 6;
    }
    return InverseDense(penalised(T, lambda, InverseDense(R)));
}

TEST(SmoothingSpline, MatchesDenseSystem) {
    for (int T : {3, 4, 7, 25, 60}) {
        for (double lambda : {0.01, 1.0, 100.0, 1e4}) {
            const std::vector<double> y = cycleSeries(T, 3 * T);
            std::vector<double> g(T);
            SmoothChoice choice{};
            ASSERT_EQ(SmoothSpline(y.data(), T, -lambda, g.data(), &choice), 1);
            const DenseFit ref = applySmoother(splineSmoother(T, lambda), y);
            EXPECT_LT(maxAbsDiff(g, ref.g), 1e-10) << "T=" << T << " lambda=" << lambda;
            EXPECT_NEAR(choice.df, static_cast<double>(ref.df), 1e-9) << "T=" << T << " lambda=" << lambda;
            EXPECT_NEAR(choice.gcv, static_cast<double>(ref.gcv), 1e-9 * static_cast<double>(ref.gcv)) << T;
        }
    }
}

TEST(SmoothingSpline, DegreesOfFreedomAndGcvChoice) {
    const int T = 60;
    const std::vector<double> y = cycleSeries(T, 11);
    std::vector<double> g(T);
    SmoothChoice choice{};
    for (double df : {3.0, 12.0, 59.0}) {
        ASSERT_EQ(SmoothSpline(y.data(), T, df, g.data(), &choice), 1);
        EXPECT_NEAR(static_cast<double>(applySmoother(splineSmoother(T, choice.param), y).df), df, 1e-6) << df;
    }
    // GCV's choice: a local minimum of the criterion computed densely.
    ASSERT_EQ(SmoothSpline(y.data(), T, 0.0, g.data(), &choice), 1);
    const DenseFit at = applySmoother(splineSmoother(T, choice.param), y);
    EXPECT_LT(maxAbsDiff(g, at.g), 1e-9);
    for (double factor : {0.9, 1.1}) EXPECT_GE(applySmoother(splineSmoother(T, choice.param * factor), y).gcv, at.gcv);
    // df = 2: the least-squares line through (0, y_0), ..., (T-1, y_{T-1}): residuals orthogonal
    // to 1 and t, and no curvature.
    ASSERT_EQ(SmoothSpline(y.data(), T, 2.0, g.data()), 1);
    long double e1 = 0, et = 0;
    for (int t = 0; t < T; ++t) e1 += y[t] - g[t], et += (y[t] - g[t]) * t;
    EXPECT_NEAR(static_cast<double>(e1), 0.0, 1e-10);
    EXPECT_NEAR(static_cast<double>(et), 0.0, 1e-8);
    EXPECT_NEAR(g[0] - 2 * g[29] + g[58], 0.0, 1e-10);
}

// Row t of the kernel smoother: the weights of y in the intercept of the weighted line through
// the window, from the 2 x 2 normal equations (long double, uncentred).
LVec kernelRow(int T, int t, long double b) {
    LVec w(T, 0.0L), row(T, 0.0L);
    long double s0 = 0, s1 = 0, s2 = 0;
    for (int s = 0; s < T; ++s) {
        const long double d = s - t;
        w[s] = std::fabs(d) < b ? 1 - d * d / (b * b) : 0;
        s0 += w[s], s1 += w[s] * d, s2 += w[s] * d * d;
    }
    for (int s = 0; s < T; ++s) row[s] = s0 * s2 > s1 * s1 ? w[s] * (s2 - s1 * (s - t)) / (s0 * s2 - s1 * s1) : s == t;
    return row;
}

LMat kernelSmoother(int T, long double b) {
    LMat L(T);
    for (int t = 0; t < T; ++t) L[t] = kernelRow(T, t, b);
    return L;
}

TEST(KernelSmoother, MatchesWindowRegressions) {
    for (int T : {1, 2, 3, 10, 57}) {
        // bandwidths h (alpha > 0, b = h + 1) and half-widths b (alpha < 0)
        for (double alpha : {1.0, 2.0, 5.0, 30.0, 100.0, -0.5, -2.5, -7.3}) {
            const std::vector<double> y = cycleSeries(T, T + 1);
            std::vector<double> g(T);
            SmoothChoice choice{};
            ASSERT_EQ(SmoothKernel(y.data(), T, alpha, g.data(), &choice), 1);
            const DenseFit ref = applySmoother(kernelSmoother(T, alpha > 0 ? alpha + 1 : -alpha), y);
            EXPECT_LT(maxAbsDiff(g, ref.g), 1e-11) << "T=" << T << " alpha=" << alpha;
            EXPECT_NEAR(choice.df, static_cast<double>(ref.df), 1e-12) << "T=" << T << " alpha=" << alpha;
        }
    }
    // Windows far wider than the interior sums' refresh interval, ends of width b, and (b = 12000) no
    // interior at all; the ends' conversion of moments costs up to a few hundred eps of the range.
    const int T = 20000;
    const std::vector<double> y = cycleSeries(T, 77);
    const double scale = *std::max_element(y.begin(), y.end()); // 8e5: the trend's t^2 term
    for (double b : {3001.0, 50.5, 12000.0}) {
        std::vector<double> g(T);
        ASSERT_EQ(SmoothKernel(y.data(), T, -b, g.data()), 1);
        for (int t = 0; t < T; t += (t < 10 || t > T - 10 ? 1 : 97)) {
            const LVec row = kernelRow(T, t, b);
            long double ref = 0;
            for (int s = 0; s < T; ++s) ref += row[s] * y[s];
            EXPECT_NEAR(g[t], static_cast<double>(ref), 5e-14 * scale) << "b=" << b << " t=" << t;
        }
    }
}

TEST(KernelSmoother, AutomaticBandwidthIsALocalGcvMinimum) {
    for (int T : {5, 40, 150}) {
        const std::vector<double> y = cycleSeries(T, 5);
        std::vector<double> g(T);
        SmoothChoice choice{};
        ASSERT_EQ(SmoothKernel(y.data(), T, 0.0, g.data(), &choice), 1);
        const int h = static_cast<int>(choice.param) - 1;
        const DenseFit at = applySmoother(kernelSmoother(T, h + 1), y);
        EXPECT_NEAR(choice.gcv, static_cast<double>(at.gcv), 1e-9 * static_cast<double>(at.gcv)) << T;
        for (int other : {std::max(h - 1, 1), std::min(h + 1, (T - 1) / 2)})
            EXPECT_GE(applySmoother(kernelSmoother(T, other + 1), y).gcv, at.gcv) << T << " h=" << other;
    }
}

} // namespace
