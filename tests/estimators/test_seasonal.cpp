// Seasonal mean removal and seasonal R^2 against long-double transcriptions of the definitions,
// the sample-length boundaries, bad input and allocation failures.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "common/fault.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"
#include "estimators/host_call.h"

namespace {



// X[t][j] minus the mean of column j over rows t' = t mod s, in long double.
Vec deseasonalized(const Vec &X, int T, int n, int s) {
    Vec out(X.size());
    for (int j = 0; j < n; ++j)
        for (int t = 0; t < T; ++t) {
            long double sum = 0;
            int count = 0;
            for (int u = t % s; u < T; u += s, ++count) sum += X[u * n + j];
            out[t * n + j] = static_cast<double>(X[t * n + j] - sum / count);
        }
    return out;
}

TEST(Seasonal, DeSeasonalizeMatchesDefinition) {
    std::mt19937_64 rng(3);
    std::normal_distribution<double> z;
    struct Case { int T, n, s; double level, tol; } cases[] = {
        {37, 3, 4, 0, 1e-15},  {24, 2, 12, 5, 1e-14},
        {3, 2, 5, 1, 0},       // T < s: every row is its own season and becomes exactly 0
        {400, 1, 4, 1e8, 3e-8}, // a large common level: the compensated mean keeps the adjusted values
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << k.T << " n=" << k.n << " s=" << k.s);
        Vec X(k.T * k.n);
        for (double &x : X) x = k.level + z(rng);
        HostCall<4> c;
        c.mat(0, k.T, k.n, X);
        LumoValSetInt(&c.args[1], k.s);
        ASSERT_EQ(LumoHostInvoke(FnDeSeasonalize, &c.result, c.args, 2), 1);
        Vec got = HostValues(&c.result), want = deseasonalized(X, k.T, k.n, k.s);
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], k.tol) << i;
        EXPECT_EQ(HostValues(&c.args[0]), X); // the input is not modified
    }
}

TEST(Seasonal, SeasonalRsqMatchesDefinitionAndSampleBounds) {
    std::mt19937_64 rng(9);
    std::normal_distribution<double> z;
    struct Case { int T, s; double rss; bool computes; } cases[] = {
        {8, 4, 1.0, false}, {9, 4, 1.0, true}, {100, 12, 3.5, true}, {5, 2, 0.2, true}, {4, 2, 0.2, false},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << k.T << " s=" << k.s);
        Vec y(k.T);
        for (int t = 0; t < k.T; ++t) y[t] = 0.1 * t + z(rng) + (t % k.s == 1 ? 2 : 0);
        HostCall<4> c;
        c.mat(0, k.T, 1, y);
        LumoValSetInt(&c.args[1], k.s);
        LumoValSetDouble(&c.args[2], k.rss);
        LumoValSetRef(&c.args[3], &c.targets[3]);
        ASSERT_EQ(LumoHostInvoke(FnSeasonalRsq, &c.result, c.args, 4), 1);
        Vec means = HostValues(&c.targets[3]);
        ASSERT_EQ(means.size(), static_cast<size_t>(k.s));
        if (!k.computes) {
            EXPECT_EQ(LumoValGetDouble(&c.result), -1.0);
            for (double m : means) EXPECT_TRUE(std::isnan(m));
            continue;
        }
        long double D = 0;
        for (int p = 0; p < k.s; ++p) {
            long double sum = 0;
            int count = 0;
            for (int t = p; t < k.T - 1; t += k.s, ++count) sum += static_cast<long double>(y[t + 1]) - y[t];
            const long double mean = sum / count;
            EXPECT_NEAR(means[p], static_cast<double>(mean), 1e-14) << p;
            for (int t = p; t < k.T - 1; t += k.s) D += (y[t + 1] - y[t] - mean) * (y[t + 1] - y[t] - mean);
        }
        EXPECT_NEAR(LumoValGetDouble(&c.result), static_cast<double>(1 - k.rss / D), 1e-14);
    }
}

TEST(Seasonal, DegenerateDataPropagate) {
    // y = t: every difference equals its seasonal mean, D = 0: 1 - RSS/0 is -inf, or NaN for RSS 0;
    // a NaN in y reaches its season's mean and D.
    struct Case { Vec y; double rss; int state; } cases[] = {
        {{0, 1, 2, 3, 4}, 1.0, -1}, {{0, 1, 2, 3, 4}, 0.0, 0}, {{0, 1, NAN, 3, 4}, 1.0, 0},
    };
    for (const auto &k : cases) {
        HostCall<4> c;
        c.mat(0, 5, 1, k.y);
        LumoValSetInt(&c.args[1], 2);
        LumoValSetDouble(&c.args[2], k.rss);
        LumoValSetRef(&c.args[3], &c.targets[3]);
        ASSERT_EQ(LumoHostInvoke(FnSeasonalRsq, &c.result, c.args, 4), 1);
        double r = LumoValGetDouble(&c.result);
        EXPECT_TRUE(k.state < 0 ? r == -INFINITY : std::isnan(r)) << r;
    }
}

TEST(Seasonal, BadInputAndAllocationFailures) {
    const Vec y = {1, 3, 2, 5, 4, 6, 5, 8};
    // DeSeasonalize: s < 2 or an empty X leave the result alone; a wrong type abandons the call.
    struct Case { const char *what; int rows, cols, s; bool rsq; int invoked; } cases[] = {
        {"s = 1", 8, 1, 1, false, 1},          {"no rows", 0, 1, 2, false, 1},
        {"no columns", 8, 0, 2, false, 1},     {"rsq: two columns", 4, 2, 2, true, 1},
        {"rsq: s = 1", 8, 1, 1, true, 1},      {"rsq: no rows", 0, 1, 2, true, 1},
        {"rsq: output not a reference", 8, 1, 2, true, 0},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        HostCall<4> c;
        c.mat(0, k.rows, k.cols, y);
        LumoValSetInt(&c.args[1], k.s);
        LumoValSetDouble(&c.args[2], 1.0);
        if (k.invoked) LumoValSetRef(&c.args[3], &c.targets[3]);
        LumoValSetInt(&c.result, 99);
        EXPECT_EQ(LumoHostInvoke(k.rsq ? FnSeasonalRsq : FnDeSeasonalize, &c.result, c.args, k.rsq ? 4 : 2),
                  k.invoked);
        EXPECT_EQ(LumoValGetInt(&c.result), 99);
        EXPECT_EQ(LumoValGetType(&c.targets[3]), LUMO_EMPTY);
    }

    // Neither export allocates scratch of its own; a host failure leaves DeSeasonalize without a
    // result and gives SeasonalRsq the missing value.
    HostCall<4> c;
    c.mat(0, 8, 1, y);
    LumoValSetInt(&c.args[1], 2);
    LumoValSetDouble(&c.args[2], 1.0);
    LumoValSetRef(&c.args[3], &c.targets[3]);
    for (bool rsq : {false, true}) {
        LumoExport fn = rsq ? FnSeasonalRsq : FnDeSeasonalize;
        EXPECT_EQ(ForEachLibraryAllocationFailure([&](long) { LumoHostInvoke(fn, &c.result, c.args, 4); }), 0);
        long failures = ForEachHostAllocationFailure([&](long n) {
            LumoValSetInt(&c.result, 99);
            ASSERT_EQ(LumoHostInvoke(fn, &c.result, c.args, 4), 1);
            const int type = LumoValGetType(&c.result);
            if (n <= 2) EXPECT_TRUE(rsq ? std::isnan(LumoValGetDouble(&c.result)) : type == LUMO_EMPTY);
            else EXPECT_EQ(type, rsq ? LUMO_DOUBLE : LUMO_MATRIX);
        });
        EXPECT_EQ(failures, 2);
    }
}

} // namespace
