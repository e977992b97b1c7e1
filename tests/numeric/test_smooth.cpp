// The Hodrick-Prescott trend and the smoothing spline against their penalised least-squares
// systems formed densely and solved in long double; the kernel smoother against each window's
// weighted regression solved on its own; the automatic choices against GCV computed the same
// brute-force way.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "common/reference.h"
#include "dense.h"
#include "fault_runs.h"
#include "numeric/hpfilter.h"
#include "numeric/smooth.h"

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

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

// (T-2) x T second differences.
LMat secondDifferences(int T) {
    LMat K(T - 2, LVec(T, 0.0L));
    for (int r = 0; r < T - 2; ++r) K[r][r] = 1, K[r][r + 1] = -2, K[r][r + 2] = 1;
    return K;
}

TEST(HodrickPrescott, MatchesDenseSolve) {
    for (int T : {3, 4, 5, 12, 80, 200}) {
        // tolerance: at lambda = 1e6 the long double reference itself carries cond x eps ~ 16e6 x 1e-19
        // of the data's size (up to 180)
        for (auto [lambda, tol] :
             {std::pair{0.5, 2e-12}, {100.0, 2e-12}, {1600.0, 2e-12}, {14400.0, 2e-12}, {1e6, 1e-9}}) {
            SCOPED_TRACE(::testing::Message() << "T=" << T << " lambda=" << lambda);
            const std::vector<double> y = cycleSeries(T, T);
            std::vector<double> trend(T);
            ASSERT_EQ(SmoothHp(y.data(), T, lambda, trend.data()), 1);
            const LMat K = secondDifferences(T);
            LMat A(T, LVec(T, 0.0L));
            for (int i = 0; i < T; ++i) {
                A[i][i] = 1;
                for (int j = 0; j < T; ++j)
                    for (int r = 0; r < T - 2; ++r) A[i][j] += lambda * K[r][i] * K[r][j];
            }
            EXPECT_LT(maxAbsDiff(trend, SolveDense(A, LVec(y.begin(), y.end()))), tol);
        }
    }
}

TEST(HodrickPrescott, ClosedFormsEdgesAndFailures) {
    // A straight line has no second differences: it is its own trend for every lambda.
    std::vector<double> line(500), trend(500);
    for (int t = 0; t < 500; ++t) line[t] = 2.5 - 0.75 * t;
    for (double lambda : {1.0, 1600.0, 1e8}) {
        ASSERT_EQ(SmoothHp(line.data(), 500, lambda, trend.data()), 1);
        EXPECT_EQ(trend, line) << lambda;
    }
    // lambda = 0 and T < 3 return the data; the trend may overwrite the data.
    std::vector<double> y = cycleSeries(6, 1), out(6, 0.0);
    ASSERT_EQ(SmoothHp(y.data(), 6, 0.0, out.data()), 1);
    EXPECT_EQ(out, y);
    ASSERT_EQ(SmoothHp(y.data(), 2, 1600.0, out.data()), 1);
    EXPECT_EQ(out[1], y[1]);
    std::vector<double> inPlace = y;
    ASSERT_EQ(SmoothHp(inPlace.data(), 6, 10.0, inPlace.data()), 1);
    ASSERT_EQ(SmoothHp(y.data(), 6, 10.0, out.data()), 1);
    EXPECT_EQ(inPlace, out);
    for (double lambda : {-1.0, NaN, HUGE_VAL}) EXPECT_EQ(SmoothHp(y.data(), 6, lambda, out.data()), 0) << lambda;
    EXPECT_EQ(SmoothHp(y.data(), 0, 1.0, out.data()), 0);
    EXPECT_EQ(SmoothHp(nullptr, 6, 1.0, out.data()), 0);
    const auto call = [&] {
        out[0] = -1.0;
        const int status = SmoothHp(y.data(), 6, 1600.0, out.data());
        if (status == 0) {
            EXPECT_EQ(out[0], -1.0);
        }
        return status;
    };
    EXPECT_EQ(StatusesUnderAllocationFailure(call), (std::vector<int>{0, 1}));
}

// The spline's smoother matrix S = (I + lambda Q R^-1 Q')^-1 at unit spacing (Green and Silverman
// 1994, eq. 2.18), formed densely.
LMat splineSmoother(int T, long double lambda) {
    const int m = T - 2;
    LMat R(m, LVec(m, 0.0L));
    for (int i = 0; i < m; ++i) {
        R[i][i] = 2.0L / 3;
        if (i + 1 < m) R[i][i + 1] = R[i + 1][i] = 1.0L / 6;
    }
    const LMat Rinv = InverseDense(R), K = secondDifferences(T); // Q = K'
    LMat A(T, LVec(T, 0.0L));
    for (int i = 0; i < T; ++i) {
        A[i][i] = 1;
        for (int j = 0; j < T; ++j)
            for (int a = 0; a < m; ++a)
                for (int b = 0; b < m; ++b) A[i][j] += lambda * K[a][i] * Rinv[a][b] * K[b][j];
    }
    return InverseDense(A);
}

struct DenseFit {
    LVec g;
    long double df, gcv;
};

DenseFit applySmoother(const LMat &S, const std::vector<double> &y) {
    const size_t T = y.size();
    DenseFit f{LVec(T, 0.0L), 0, 0};
    long double rss = 0;
    for (size_t i = 0; i < T; ++i) {
        for (size_t j = 0; j < T; ++j) f.g[i] += S[i][j] * y[j];
        f.df += S[i][i];
        rss += (y[i] - f.g[i]) * (y[i] - f.g[i]);
    }
    f.gcv = T * rss / ((T - f.df) * (T - f.df));
    return f;
}

TEST(SmoothingSpline, MatchesDenseSystemForGivenLambda) {
    for (int T : {3, 4, 7, 25, 60}) {
        for (double lambda : {0.01, 1.0, 100.0, 1e4}) {
            SCOPED_TRACE(::testing::Message() << "T=" << T << " lambda=" << lambda);
            const std::vector<double> y = cycleSeries(T, 3 * T);
            std::vector<double> g(T);
            SmoothChoice choice{};
            ASSERT_EQ(SmoothSpline(y.data(), T, -lambda, g.data(), &choice), 1);
            const DenseFit ref = applySmoother(splineSmoother(T, lambda), y);
            EXPECT_LT(maxAbsDiff(g, ref.g), 1e-10);
            EXPECT_EQ(choice.param, lambda);
            EXPECT_NEAR(choice.df, static_cast<double>(ref.df), 1e-9);
            EXPECT_NEAR(choice.gcv, static_cast<double>(ref.gcv), 1e-9 * static_cast<double>(ref.gcv));
        }
    }
}

TEST(SmoothingSpline, DegreesOfFreedomAndAutomaticChoice) {
    const int T = 60;
    const std::vector<double> y = cycleSeries(T, 11);
    std::vector<double> g(T);
    SmoothChoice choice{};
    for (double df : {3.0, 5.0, 12.0, 40.0, 59.0}) {
        ASSERT_EQ(SmoothSpline(y.data(), T, df, g.data(), &choice), 1);
        EXPECT_NEAR(choice.df, df, 1e-6) << df;
        EXPECT_LT(maxAbsDiff(g, applySmoother(splineSmoother(T, choice.param), y).g), 1e-9) << df;
    }
    // GCV's choice: a local minimum of the criterion computed densely, reported as computed.
    ASSERT_EQ(SmoothSpline(y.data(), T, 0.0, g.data(), &choice), 1);
    const DenseFit at = applySmoother(splineSmoother(T, choice.param), y);
    EXPECT_NEAR(choice.gcv, static_cast<double>(at.gcv), 1e-9 * static_cast<double>(at.gcv));
    EXPECT_LT(maxAbsDiff(g, at.g), 1e-9);
    for (double factor : {0.9, 1.1}) {
        const DenseFit beside = applySmoother(splineSmoother(T, choice.param * factor), y);
        EXPECT_GE(beside.gcv, at.gcv) << factor;
    }
    // df >= T: the data; df <= 2: the least-squares line; T < 3: the data.
    ASSERT_EQ(SmoothSpline(y.data(), T, 60.0, g.data(), &choice), 1);
    EXPECT_EQ(g, y);
    ASSERT_EQ(SmoothSpline(y.data(), T, 2.0, g.data(), &choice), 1);
    long double sy = 0, sty = 0, stt = 0;
    for (int t = 0; t < T; ++t) sy += y[t];
    for (int t = 0; t < T; ++t) sty += (t - 29.5L) * (y[t] - sy / T), stt += (t - 29.5L) * (t - 29.5L);
    for (int t : {0, 30, 59}) EXPECT_NEAR(g[t], static_cast<double>(sy / T + sty / stt * (t - 29.5L)), 1e-11) << t;
    EXPECT_EQ(choice.df, 2.0);
    ASSERT_EQ(SmoothSpline(y.data(), 2, 0.0, g.data(), &choice), 1);
    EXPECT_EQ(g[1], y[1]);
}

TEST(SmoothingSpline, BadArgumentsAndFailedScratch) {
    std::vector<double> y = cycleSeries(20, 2), g(20);
    EXPECT_EQ(SmoothSpline(y.data(), 0, 0.0, g.data()), 0);
    EXPECT_EQ(SmoothSpline(nullptr, 20, 0.0, g.data()), 0);
    EXPECT_EQ(SmoothSpline(y.data(), 20, NaN, g.data()), 0);
    EXPECT_EQ(SmoothSpline(y.data(), 20, -HUGE_VAL, g.data()), 0);
    for (double alpha : {0.0, 6.0, -10.0}) {
        const auto call = [&] {
            g[0] = -1.0;
            const int status = SmoothSpline(y.data(), 20, alpha, g.data());
            if (status == 0) {
                EXPECT_EQ(g[0], -1.0);
            }
            return status;
        };
        EXPECT_EQ(StatusesUnderAllocationFailure(call), (std::vector<int>{0, 1})) << alpha;
    }
}

// The kernel smoother's matrix row by row: each window's weighted least-squares line, solved from
// its 2 x 2 normal equations for every unit vector (long double, uncentred).
LMat kernelSmoother(int T, long double b) {
    LMat L(T, LVec(T, 0.0L));
    for (int t = 0; t < T; ++t) {
        long double s0 = 0, s1 = 0, s2 = 0;
        for (int s = 0; s < T; ++s) {
            const long double d = s - t, w = std::fabs(d) < b ? 1 - d * d / (b * b) : 0;
            s0 += w, s1 += w * d, s2 += w * d * d;
        }
        for (int s = 0; s < T; ++s) {
            const long double d = s - t, w = std::fabs(d) < b ? 1 - d * d / (b * b) : 0;
            L[t][s] = s0 * s2 - s1 * s1 > 0 ? w * (s2 - s1 * d) / (s0 * s2 - s1 * s1) : (s == t);
        }
    }
    return L;
}

TEST(KernelSmoother, MatchesWindowRegressions) {
    for (int T : {1, 2, 3, 10, 57}) {
        // bandwidths h (alpha > 0, b = h + 1) and half-widths b (alpha < 0)
        for (double alpha : {1.0, 2.0, 5.0, 30.0, 100.0, -0.5, -2.5, -7.3}) {
            SCOPED_TRACE(::testing::Message() << "T=" << T << " alpha=" << alpha);
            const std::vector<double> y = cycleSeries(T, T + 1);
            std::vector<double> g(T);
            SmoothChoice choice{};
            ASSERT_EQ(SmoothKernel(y.data(), T, alpha, g.data(), &choice), 1);
            const long double b = alpha > 0 ? alpha + 1 : -alpha;
            const DenseFit ref = applySmoother(kernelSmoother(T, b), y);
            EXPECT_LT(maxAbsDiff(g, ref.g), 1e-11);
            EXPECT_EQ(choice.param, static_cast<double>(b));
            EXPECT_NEAR(choice.df, static_cast<double>(ref.df), 1e-12);
        }
    }
}

// One fitted value from its window's weighted regression, in long double.
long double kernelValue(const std::vector<double> &y, int t, long double b) {
    long double s0 = 0, s1 = 0, s2 = 0, t0 = 0, t1 = 0;
    for (int s = 0; s < static_cast<int>(y.size()); ++s) {
        const long double d = s - t;
        if (std::fabs(d) >= b) continue;
        const long double w = 1 - d * d / (b * b);
        s0 += w, s1 += w * d, s2 += w * d * d, t0 += w * y[s], t1 += w * d * y[s];
    }
    return (s2 * t0 - s1 * t1) / (s0 * s2 - s1 * s1);
}

TEST(KernelSmoother, LongSeriesThroughTheSlidingSums) {
    // Windows far wider than the refresh interval of the interior sums, ends of width b, and (b = 12000)
    // no interior at all; the ends' conversion of moments costs up to a few hundred eps of the range.
    const int T = 20000;
    const std::vector<double> y = cycleSeries(T, 77);
    const double scale = *std::max_element(y.begin(), y.end()); // 8e5: the trend's t^2 term
    for (double b : {3001.0, 50.5, 12000.0}) {
        std::vector<double> g(T);
        ASSERT_EQ(SmoothKernel(y.data(), T, -b, g.data()), 1);
        for (int t = 0; t < T; t += (t < 10 || t > T - 10 ? 1 : 97))
            EXPECT_NEAR(g[t], static_cast<double>(kernelValue(y, t, b)), 5e-14 * scale) << "b=" << b << " t=" << t;
    }
}

TEST(KernelSmoother, AutomaticBandwidthIsALocalGcvMinimum) {
    for (int T : {5, 40, 150}) {
        SCOPED_TRACE(T);
        const std::vector<double> y = cycleSeries(T, 5);
        std::vector<double> g(T);
        SmoothChoice choice{};
        ASSERT_EQ(SmoothKernel(y.data(), T, 0.0, g.data(), &choice), 1);
        const int h = static_cast<int>(choice.param) - 1;
        EXPECT_GE(h, 1);
        EXPECT_LE(h, (T - 1) / 2);
        const DenseFit at = applySmoother(kernelSmoother(T, h + 1), y);
        EXPECT_NEAR(choice.gcv, static_cast<double>(at.gcv), 1e-9 * static_cast<double>(at.gcv));
        EXPECT_LT(maxAbsDiff(g, at.g), 1e-11);
        for (int other : {h - 1, h + 1}) {
            if (other < 1 || other > (T - 1) / 2) continue;
            EXPECT_GE(applySmoother(kernelSmoother(T, other + 1), y).gcv, at.gcv) << other;
        }
    }
}

TEST(KernelSmoother, BadArguments) {
    std::vector<double> y = cycleSeries(10, 2), g(10, -1.0);
    EXPECT_EQ(SmoothKernel(y.data(), 10, 2.0, y.data()), 0); // out may not be y
    EXPECT_EQ(SmoothKernel(y.data(), 0, 2.0, g.data()), 0);
    EXPECT_EQ(SmoothKernel(nullptr, 10, 2.0, g.data()), 0);
    EXPECT_EQ(SmoothKernel(y.data(), 10, NaN, g.data()), 0);
    EXPECT_EQ(g[0], -1.0);
}

} // namespace
