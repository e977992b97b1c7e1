// Autocorrelations against direct long double sums on both routes; partial autocorrelations
// against the last coefficient of each Yule-Walker system solved densely; the averages against
// their recursions; the sorts against std::stable_sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

#include "numeric/acf.h"
#include "numeric/ewma.h"
#include "numeric/sort.h"
#include "numeric_test.h"

namespace {

// An AR(2) path at a level far from zero: autocorrelations that oscillate and decay slowly.
std::vector<double> arSeries(int T, uint64_t seed) {
    Lcg rng{seed};
    std::vector<double> x(T);
    for (int t = 0; t < T; ++t) x[t] = rng.next() + (t > 1 ? 1.2 * (x[t - 1] - 50) - 0.5 * (x[t - 2] - 50) : 0) + 50;
    return x;
}

LVec directAcf(const std::vector<double> &x, int maxlag) {
    const int T = static_cast<int>(x.size());
    long double mean = 0;
    for (double v : x) mean += static_cast<long double>(v) / T;
    LVec c(maxlag + 1, 0.0L);
    for (int k = 0; k <= maxlag; ++k)
        for (int t = 0; t + k < T; ++t) c[k] += (x[t] - mean) * (x[t + k] - mean);
    for (int k = maxlag; k >= 0; --k) c[k] /= c[0];
    return c;
}

TEST(Acf, MatchesDirectSumsOnBothRoutes) {
    // maxlag 10 and short series are summed directly; T - 1 lags of T >= 300 go through transforms.
    const int cases[][2] = {{2, 1}, {40, 10}, {40, 39}, {300, 299}, {1000, 999}, {1009, 500}, {3000, 50}};
    for (const auto &c : cases) {
        const std::vector<double> x = arSeries(c[0], 5);
        std::vector<double> r(c[1] + 1);
        ASSERT_EQ(SeriesAcf(x.data(), c[0], c[1], r.data()), 1);
        const LVec ref = directAcf(x, c[1]);
        for (int k = 0; k <= c[1]; ++k) EXPECT_NEAR(r[k], static_cast<double>(ref[k]), 1e-13) << c[0] << " k=" << k;
    }
}

TEST(Pacf, MatchesYuleWalkerSolves) {
    for (int T : {5, 60, 400}) {
        const std::vector<double> x = arSeries(T, 9);
        const int maxlag = std::min(T - 1, 40);
        std::vector<double> pacf(maxlag + 1);
        ASSERT_EQ(SeriesPacf(x.data(), T, maxlag, pacf.data()), 1);
        EXPECT_EQ(pacf[0], 1.0);
        const LVec r = directAcf(x, maxlag);
        for (int k = 1; k <= maxlag; ++k) {
            LMat R(k, LVec(k));
            for (int i = 0; i < k; ++i)
                for (int j = 0; j < k; ++j) R[i][j] = r[std::abs(i - j)];
            const LVec phi = MultiplyDense(InverseDense(R), LVec(r.begin() + 1, r.begin() + k + 1));
            EXPECT_NEAR(pacf[k], static_cast<double>(phi[k - 1]), 1e-11) << "T=" << T << " k=" << k;
        }
    }
}

TEST(Acf, ConstantSeriesHasOnlyLagZero) {
    const double flat[4] = {0.1, 0.1, 0.1, 0.1};
    double r[4], p[4];
    ASSERT_EQ(SeriesAcf(flat, 4, 3, r), 1);
    ASSERT_EQ(SeriesPacf(flat, 4, 3, p), 1);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(std::isnan(r[k]), k > 0) << k;
    for (int k = 0; k < 4; ++k) EXPECT_EQ(std::isnan(p[k]), k > 0) << k;
    EXPECT_EQ(r[0], 1.0);
}

TEST(Ewma, MatchesRecursions) {
    const std::vector<double> x = arSeries(50, 4), y = arSeries(50, 8);
    std::vector<double> out(50);
    for (auto [alpha, beta] : {std::pair{0.3, 0.0}, {0.3, 0.2}, {0.05, 1.0}}) {
        ASSERT_EQ(SeriesEwma(x.data(), 50, alpha, beta, out.data()), 1);
        long double l = x[0], b = 0, prev = 0;
        for (int t = 0; t < 50; ++t) {
            if (t > 0) prev = l, l = alpha * x[t] + (1 - alpha) * (l + b), b = beta * (l - prev) + (1 - beta) * b;
            EXPECT_NEAR(out[t], static_cast<double>(l), 1e-12) << alpha << "," << beta << " t=" << t;
        }
    }
    for (double lambda : {0.0, 0.94}) {
        ASSERT_EQ(SeriesEwmc0(x.data(), y.data(), 50, lambda, out.data()), 1);
        long double c = x[0] * y[0];
        for (int t = 0; t < 50; ++t) {
            if (t > 0) c = lambda * c + (1 - lambda) * x[t] * y[t];
            EXPECT_NEAR(out[t], static_cast<double>(c), 1e-12 * 2500) << "lambda=" << lambda << " t=" << t;
        }
    }
}

TEST(Sort, StableWithMissingValuesLastAgainstStdStableSort) {
    Lcg rng{21};
    for (int n : {0, 1, 15, 16, 17, 33, 1000, 4099}) {
        // Few distinct values, signed zeros and NaNs: stability decides most of the order.
        std::vector<double> key(n);
        for (int i = 0; i < n; ++i) {
            const double u = rng.next();
            key[i] = u < -0.8 ? NAN : u < -0.6 ? (i % 2 ? 0.0 : -0.0) : std::floor(u * 6);
        }
        std::vector<int> index(n), ref(n);
        ASSERT_EQ(SortIndexByKey(key.data(), n, index.data()), 1);
        std::iota(ref.begin(), ref.end(), 0);
        std::stable_sort(ref.begin(), ref.end(),
                         [&](int a, int b) { return std::isnan(key[b]) ? !std::isnan(key[a]) : key[a] < key[b]; });
        EXPECT_EQ(index, ref) << n;
        // The values sorted: the keys in the order of the index, bit for bit.
        std::vector<double> sorted = key;
        ASSERT_EQ(SortAscending(sorted.data(), n), 1);
        for (int i = 0; i < n; ++i) EXPECT_EQ(std::memcmp(&sorted[i], &key[ref[i]], sizeof(double)), 0) << i;
    }
}

} // namespace
