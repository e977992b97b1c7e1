// Seasonal mean removal and seasonal R^2 against long-double transcriptions of the definitions,
// the sample-length boundaries and degenerate data.
#include <random>

#include "common/host_call.h"
#include "kavrel/kavrel.h"

namespace {

TEST(Seasonal, DeSeasonalizeMatchesDefinition) {
    std::mt19937_64 rng(3);
    std::normal_distribution<double> z;
    struct Case {
        int T, n, s;
        double level, tol;
    } cases[] = {
        // clang-format off
        {37, 3, 4, 0, 1e-15},
        {3, 2, 5, 1, 0},
        // T < s: every row is its own season and becomes exactly 0
        {400, 1, 4, 1e8, 3e-8},
        // a large common level: the compensated mean keeps the adjusted values
        // clang-format on
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << k.T << " n=" << k.n << " s=" << k.s);
        Vec X(k.T * k.n);
        for (double &x : X) x = k.level + z(rng);
        HostCall c;
        ASSERT_EQ(c.mat(0, k.T, k.n, X).num(1, k.s).invoke(FnDeSeasonalize), 1);
        Vec want(X.size()); // X[t][j] minus the mean of column j over rows t' = t mod s
        for (size_t i = 0; i < X.size(); ++i) {
            long double sum = 0, count = 0;
            for (size_t u = i % (k.s * k.n); u < X.size(); u += k.s * k.n, ++count) sum += X[u];
            want[i] = static_cast<double>(X[i] - sum / count);
        }
        ExpectClose(c.values(), want, k.tol);
        EXPECT_EQ(HostValues(&c.args[0]), X); // the input is not modified
    }
}

TEST(Seasonal, SeasonalRsqMatchesDefinitionAndSampleBounds) {
    std::mt19937_64 rng(9);
    std::normal_distribution<double> z;
    struct Case {
        int T, s;
        double rss;
        bool computes;
    } cases[] = {
        {8, 4, 1.0, false},
        {9, 4, 1.0, true},
        {100, 12, 3.5, true},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << k.T << " s=" << k.s);
        Vec y(k.T);
        for (int t = 0; t < k.T; ++t) y[t] = 0.1 * t + z(rng) + (t % k.s == 1 ? 2 : 0);
        HostCall c;
        ASSERT_EQ(c.col(0, y).num(1, k.s).dbl(2, k.rss).ref(3).invoke(FnSeasonalRsq), 1);
        // Seasonal means of the first differences y[t+1] - y[t] by t mod s, D the sum of squared
        // deviations from them; T <= 2s gives -1 and missing means.
        Vec means(k.s, NAN);
        long double D = 0;
        for (int p = 0; p < k.s && k.computes; ++p) {
            long double sum = 0, count = 0;
            for (int t = p; t < k.T - 1; t += k.s, ++count) sum += static_cast<long double>(y[t + 1]) - y[t];
            means[p] = static_cast<double>(sum / count);
            for (int t = p; t < k.T - 1; t += k.s) D += std::pow(y[t + 1] - y[t] - sum / count, 2);
        }
        ExpectClose(c.out(3), means, 1e-14, "means");
        EXPECT_NEAR(c.value(), k.computes ? static_cast<double>(1 - k.rss / D) : -1.0, 1e-14);
    }
    // y = t: every difference equals its seasonal mean, D = 0 and 1 - RSS/0 is -inf; a NaN in y
    // reaches its season's mean and D.
    HostCall line, gap;
    ASSERT_EQ(line.col(0, {0, 1, 2, 3, 4}).num(1, 2).dbl(2, 1.0).ref(3).invoke(FnSeasonalRsq), 1);
    EXPECT_EQ(line.value(), -INFINITY);
    ASSERT_EQ(gap.col(0, {0, 1, NAN, 3, 4}).num(1, 2).dbl(2, 1.0).ref(3).invoke(FnSeasonalRsq), 1);
    EXPECT_TRUE(std::isnan(gap.value()));
}

} // namespace
