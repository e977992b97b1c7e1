// The command-line host's estimations against independent computations on the shipped macro
// data: recursive least squares against least squares refitted at every observation.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "special/distributions.h"

namespace {

// Least squares of y on the columns of X (T x k, first rows) by the normal equations in long
// double: coefficients and RSS.
void refit(const std::vector<std::vector<double>> &X, const Vec &y, int rows, Vec *b, double *rss) {
    const size_t k = X[0].size();
    std::vector<std::vector<long double>> A(k, std::vector<long double>(k + 1, 0.0L));
    for (int t = 0; t < rows; ++t)
        for (size_t i = 0; i < k; ++i) {
            for (size_t j = 0; j < k; ++j) A[i][j] += static_cast<long double>(X[t][i]) * X[t][j];
            A[i][k] += static_cast<long double>(X[t][i]) * y[t];
        }
    for (size_t i = 0; i < k; ++i)
        for (size_t r = 0; r < k; ++r)
            if (r != i) {
                const long double f = A[r][i] / A[i][i];
                for (size_t c = i; c <= k; ++c) A[r][c] -= f * A[i][c];
            }
    b->assign(k, 0.0);
    for (size_t i = 0; i < k; ++i) (*b)[i] = static_cast<double>(A[i][k] / A[i][i]);
    long double s = 0.0L;
    for (int t = 0; t < rows; ++t) {
        long double e = y[t];
        for (size_t i = 0; i < k; ++i) e -= static_cast<long double>(X[t][i]) * (*b)[i];
        s += e * e;
    }
    *rss = static_cast<double>(s);
}

TEST(Tools, RecursiveLeastSquaresEqualsRefitsAtEveryObservation) {
    std::string error;
    Database *db = LoadData(KAVREL_TEST_DATA "/macrodata.csv", &error);
    ASSERT_NE(db, nullptr) << error;
    Columns data;
    ASSERT_TRUE(SelectColumns(db, {"realcons", "realdpi", "tbilrate"}, &data, &error)) << error;
    RlsResults r;
    ASSERT_TRUE(EstimateRls(data, true, &r, &error)) << error;
    const int T = data.nobs(), k = 3;
    std::vector<std::vector<double>> X;
    for (int t = 0; t < T; ++t) X.push_back({1.0, data.data[1][t], data.data[2][t]});
    Vec b;
    double rss = 0.0, rssPrev = 0.0;
    for (int t = k; t < T; ++t) {
        refit(X, data.data[0], t + 1, &b, &rss);
        const double sigma = std::sqrt(rss / (t + 1 - k));
        EXPECT_NEAR(r.sigma[t], sigma, 1e-9 * sigma) << t;
        for (int j = 0; j < k; ++j) EXPECT_NEAR(r.coef[j][t], b[j], 1e-8 * std::fmax(std::fabs(b[j]), 1.0)) << t;
        if (t > k) {
            const double chow = (rss - rssPrev) / (rssPrev / (t - k)) / DistFQinv(0.01, 1.0, t - k);
            EXPECT_NEAR(r.chow1[t], chow, 1e-6 * std::fmax(chow, 1e-3)) << t;
        }
        rssPrev = rss;
    }
    EXPECT_EQ(r.report.coef[1], r.coef[1][T - 1]);
    EXPECT_NEAR(r.report.stats[1].second, rss, 1e-9 * rss); // RSS of the whole sample
    DbFree(db);
}

} // namespace
