// Autocorrelations against direct long double sums on both the direct and the transform route;
// partial autocorrelations against the last coefficient of each Yule-Walker system solved densely;
// the averages against their recursions written out; the sorts against std::stable_sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "common/reference.h"
#include "dense.h"
#include "fault_runs.h"
#include "numeric/acf.h"
#include "numeric/ewma.h"
#include "numeric/sort.h"

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

// An AR(2) path around a level: autocorrelations that decay slowly and oscillate.
std::vector<double> arSeries(int T, uint64_t seed) {
    Lcg rng{seed};
    std::vector<double> x(T);
    double a = 0, b = 0;
    for (int t = 0; t < T; ++t) {
        const double v = 1.2 * a - 0.5 * b + rng.next();
        b = a;
        a = v;
        x[t] = 50.0 + v;
    }
    return x;
}

LVec directAcf(const std::vector<double> &x, int maxlag) {
    const int T = static_cast<int>(x.size());
    long double mean = 0;
    for (double v : x) mean += v;
    mean /= T;
    LVec c(maxlag + 1, 0.0L);
    for (int k = 0; k <= maxlag; ++k)
        for (int t = 0; t + k < T; ++t) c[k] += (x[t] - mean) * (x[t + k] - mean);
    for (int k = maxlag; k >= 0; --k) c[k] /= c[0];
    return c;
}

// phi_kk: the last element of the solution of the k x k Toeplitz system R phi = (r_1..r_k).
long double yuleWalkerLast(const LVec &r, int k) {
    LMat a(k, LVec(k));
    LVec rhs(k);
    for (int i = 0; i < k; ++i) {
        for (int j = 0; j < k; ++j) a[i][j] = r[std::abs(i - j)];
        rhs[i] = r[i + 1];
    }
    return SolveDense(a, rhs)[k - 1];
}

TEST(Acf, MatchesDirectSumsOnBothRoutes) {
    // maxlag 10 is summed directly; T - 1 lags of the longer series go through transforms.
    const struct {
        int T, maxlag;
    } cases[] = {{1, 0}, {2, 1}, {40, 10}, {40, 39}, {300, 299}, {1000, 999}, {1009, 500}, {3000, 50}};
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << c.T << " maxlag=" << c.maxlag);
        std::vector<double> x = arSeries(c.T, 5);
        if (c.T == 1) x[0] = 3.0;
        std::vector<double> r(c.maxlag + 1);
        ASSERT_EQ(SeriesAcf(x.data(), c.T, c.maxlag, r.data()), 1);
        EXPECT_EQ(r[0], 1.0);
        if (c.T == 1) continue;
        const LVec ref = directAcf(x, c.maxlag);
        for (int k = 1; k <= c.maxlag; ++k) EXPECT_NEAR(r[k], static_cast<double>(ref[k]), 1e-13) << "k=" << k;
    }
}

TEST(Pacf, MatchesYuleWalkerSolves) {
    for (int T : {5, 60, 400}) {
        SCOPED_TRACE(T);
        const std::vector<double> x = arSeries(T, 9);
        const int maxlag = std::min(T - 1, 40);
        std::vector<double> pacf(maxlag + 1);
        ASSERT_EQ(SeriesPacf(x.data(), T, maxlag, pacf.data()), 1);
        EXPECT_EQ(pacf[0], 1.0);
        const LVec r = directAcf(x, maxlag);
        for (int k = 1; k <= maxlag; ++k) {
            EXPECT_NEAR(pacf[k], static_cast<double>(yuleWalkerLast(r, k)), 1e-11) << "k=" << k;
            EXPECT_LE(std::fabs(pacf[k]), 1.0) << "k=" << k;
        }
    }
    // All T - 1 lags through the transform route: still inside [-1, 1] or missing, never beyond.
    const std::vector<double> x = arSeries(1500, 2);
    std::vector<double> pacf(1500);
    ASSERT_EQ(SeriesPacf(x.data(), 1500, 1499, pacf.data()), 1);
    for (int k = 0; k < 1500; ++k) EXPECT_FALSE(std::fabs(pacf[k]) > 1.0) << "k=" << k;
    // phi_11 = r_1.
    std::vector<double> r(2);
    ASSERT_EQ(SeriesAcf(x.data(), 1500, 1, r.data()), 1);
    EXPECT_DOUBLE_EQ(pacf[1], r[1]);
}

TEST(Acf, ConstantSeriesBadArgumentsAndFailedScratch) {
    const double flat[4] = {0.1, 0.1, 0.1, 0.1};
    double r[4] = {9, 9, 9, 9}, p[4] = {9, 9, 9, 9};
    ASSERT_EQ(SeriesAcf(flat, 4, 3, r), 1);
    ASSERT_EQ(SeriesPacf(flat, 4, 3, p), 1);
    EXPECT_EQ(r[0], 1.0);
    EXPECT_EQ(p[0], 1.0);
    for (int k = 1; k < 4; ++k) {
        EXPECT_TRUE(std::isnan(r[k])) << k;
        EXPECT_TRUE(std::isnan(p[k])) << k;
    }
    const double x[3] = {1, 2, 4};
    using Fn = int (*)(const double *, int, int, double *);
    for (Fn fn : {Fn(SeriesAcf), Fn(SeriesPacf)}) {
        EXPECT_EQ(fn(x, 3, 3, r), 0);  // maxlag beyond n - 1
        EXPECT_EQ(fn(x, 3, -1, r), 0); // negative maxlag
        EXPECT_EQ(fn(x, 0, 0, r), 0);
        EXPECT_EQ(fn(nullptr, 3, 1, r), 0);
        EXPECT_EQ(fn(x, 3, 1, nullptr), 0);
    }
    const std::vector<double> y = arSeries(400, 1);
    std::vector<double> out(400);
    for (Fn fn : {Fn(SeriesAcf), Fn(SeriesPacf)}) {
        for (int maxlag : {5, 399}) { // direct sums and the transform route
            const auto call = [&] {
                out[0] = -7.0;
                const int status = fn(y.data(), 400, maxlag, out.data());
                if (status == 0) {
                    EXPECT_EQ(out[0], -7.0);
                }
                return status;
            };
            EXPECT_EQ(StatusesUnderAllocationFailure(call), (std::vector<int>{0, 1})) << maxlag;
        }
    }
}

TEST(Ewma, RecursionsAndParameterRanges) {
    const std::vector<double> x = arSeries(50, 4), y = arSeries(50, 8);
    std::vector<double> out(50);
    const double holt[][2] = {{0.3, 0.0}, {0.3, 0.2}, {1.0, 0.5}, {0.05, 1.0}};
    for (const auto &p : holt) {
        ASSERT_EQ(SeriesEwma(x.data(), 50, p[0], p[1], out.data()), 1);
        long double l = x[0], b = 0;
        for (int t = 0; t < 50; ++t) {
            if (t > 0) {
                const long double prev = l;
                l = p[0] * x[t] + (1 - p[0]) * (l + b);
                b = p[1] * (l - prev) + (1 - p[1]) * b;
            }
            EXPECT_NEAR(out[t], static_cast<double>(l), 1e-12) << "alpha=" << p[0] << " beta=" << p[1] << " t=" << t;
        }
    }
    // beta = 0: the plain average m_t = alpha x_t + (1 - alpha) m_{t-1}; alpha = 1: the data.
    ASSERT_EQ(SeriesEwma(x.data(), 50, 0.25, 0.0, out.data()), 1);
    EXPECT_DOUBLE_EQ(out[2], 0.25 * x[2] + 0.75 * (0.25 * x[1] + 0.75 * x[0]));
    ASSERT_EQ(SeriesEwma(x.data(), 50, 1.0, 0.3, out.data()), 1);
    EXPECT_EQ(out, x);
    for (double lambda : {0.0, 0.94, 0.5}) {
        ASSERT_EQ(SeriesEwmc0(x.data(), y.data(), 50, lambda, out.data()), 1);
        long double c = x[0] * y[0];
        for (int t = 0; t < 50; ++t) {
            if (t > 0) c = lambda * c + (1 - lambda) * x[t] * y[t];
            EXPECT_NEAR(out[t], static_cast<double>(c), 1e-12 * 2500) << "lambda=" << lambda << " t=" << t;
        }
    }
    // Out of range: status 0 and the output untouched.
    std::fill(out.begin(), out.end(), -1.0);
    const double badHolt[][2] = {{0.0, 0.1}, {1.5, 0.1}, {-0.2, 0.1}, {0.5, -0.1}, {0.5, 1.1}, {NaN, 0.1}, {0.5, NaN}};
    for (const auto &p : badHolt) EXPECT_EQ(SeriesEwma(x.data(), 50, p[0], p[1], out.data()), 0) << p[0] << "," << p[1];
    for (double lambda : {1.0, -0.1, 2.0, NaN})
        EXPECT_EQ(SeriesEwmc0(x.data(), y.data(), 50, lambda, out.data()), 0) << lambda;
    EXPECT_EQ(SeriesEwma(x.data(), 0, 0.5, 0.0, out.data()), 0);
    EXPECT_EQ(SeriesEwmc0(x.data(), nullptr, 50, 0.5, out.data()), 0);
    EXPECT_EQ(out[0], -1.0);
}

// std::stable_sort with the same order: numbers ascending, NaN after every number.
bool referenceBefore(double a, double b) { return std::isnan(b) ? !std::isnan(a) : a < b; }

TEST(Sort, StableWithMissingValuesLastAgainstStdStableSort) {
    Lcg rng{21};
    for (int n : {0, 1, 2, 15, 16, 17, 33, 100, 1000, 4099}) {
        SCOPED_TRACE(n);
        // Few distinct values, signed zeros and NaNs carrying their position in the payload.
        std::vector<double> key(n);
        for (int i = 0; i < n; ++i) {
            const double u = rng.next();
            key[i] = u < -0.8 ? NaN : u < -0.6 ? (i % 2 ? 0.0 : -0.0) : std::floor(u * 6);
        }
        std::vector<int> index(n, -1);
        ASSERT_EQ(SortIndexByKey(key.data(), n, index.data()), 1);
        std::vector<int> ref(n);
        std::iota(ref.begin(), ref.end(), 0);
        std::stable_sort(ref.begin(), ref.end(), [&](int a, int b) { return referenceBefore(key[a], key[b]); });
        EXPECT_EQ(index, ref);
        // Sorting the values: the keys in the order of the index, bit for bit (-0 and +0 included).
        std::vector<double> sorted = key;
        ASSERT_EQ(SortAscending(sorted.data(), n), 1);
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ(std::signbit(sorted[i]), std::signbit(key[ref[i]])) << i;
            if (std::isnan(key[ref[i]])) {
                EXPECT_TRUE(std::isnan(sorted[i])) << i;
            } else {
                EXPECT_EQ(sorted[i], key[ref[i]]) << i;
            }
        }
    }
}

TEST(Sort, BadArgumentsAndFailedScratch) {
    double x[3] = {3, NaN, 1};
    int index[3] = {-1, -1, -1};
    EXPECT_EQ(SortAscending(x, -1), 0);
    EXPECT_EQ(SortAscending(nullptr, 3), 0);
    EXPECT_EQ(SortIndexByKey(x, 3, nullptr), 0);
    EXPECT_EQ(SortIndexByKey(nullptr, 0, nullptr), 1);
    const auto values = [&] {
        const int status = SortAscending(x, 3);
        if (status == 0) {
            EXPECT_EQ(x[0], 3.0);
        }
        return status;
    };
    EXPECT_EQ(StatusesUnderAllocationFailure(values), (std::vector<int>{0, 1}));
    EXPECT_EQ(x[0], 1.0);
    EXPECT_TRUE(std::isnan(x[2]));
    const double key[3] = {3, NaN, 1};
    const auto indices = [&] {
        const int status = SortIndexByKey(key, 3, index);
        if (status == 0) {
            EXPECT_EQ(index[0], -1);
        }
        return status;
    };
    EXPECT_EQ(StatusesUnderAllocationFailure(indices), (std::vector<int>{0, 1}));
    EXPECT_EQ(index[0], 2);
    EXPECT_EQ(index[2], 1);
}

} // namespace
