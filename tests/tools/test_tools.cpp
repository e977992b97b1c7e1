// The command-line host's estimations against independent computations: recursive least squares
// against least squares refitted at every observation on the shipped macro data, nonlinear least
// squares through the estimation bridge against the NIST StRD certified values, the GARCH
// benchmark, a VAR against its refits. The probit, logit, count and Markov-switching fits, which
// the Python module runs through the same host code, are checked there against R and statsmodels.
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
    EXPECT_NEAR(r.report.stats[1].second, rss, 1e-9 * rss); // RSS of the whole sample
    DbFree(db);
}

// Misra1a written in Algebra, from both NIST starting points: the certified values to 8
// significant digits (the optimiser's own test takes MGH09's flat valley).
TEST(Tools, NonlinearLeastSquaresReachesTheCertifiedValues) {
    const struct {
        const char *file, *model;
        std::vector<std::vector<double>> starts;
        std::vector<double> estimates;
        double tol;
    } problems[] = {
        {"nist_misra1a.csv",
         "fitted = &0 * (1 - exp(-&1 * x));",
         {{500.0, 1e-4}, {250.0, 5e-4}},
         {2.3894212918e+02, 5.5015643181e-04},
         1e-8},
    };
    for (const auto &p : problems) {
        std::string error;
        Database *db = LoadData(std::string(KAVREL_TEST_DATA) + "/" + p.file, &error);
        ASSERT_NE(db, nullptr) << error;
        for (const std::vector<double> &start : p.starts) {
            std::string model;
            for (size_t j = 0; j < start.size(); ++j)
                model += "&" + std::to_string(j) + " = " + std::to_string(start[j]) + ";\n";
            Report r;
            ASSERT_TRUE(EstimateNls(db, model + p.model, "y", "fitted", &r, &error)) << error;
            EXPECT_TRUE(r.converged) << p.file;
            for (size_t j = 0; j < start.size(); ++j)
                EXPECT_NEAR(r.coef[j], p.estimates[j], p.tol * std::fabs(p.estimates[j])) << p.file << " &" << j;
        }
        Report r;
        EXPECT_FALSE(EstimateNls(db, "&0 = 1; fitted = &0 * nothere;", "y", "fitted", &r, &error));
        EXPECT_EQ(error, "the model does not compile: Parse error: nothere Undeclared identifier on line 1");
        EXPECT_FALSE(EstimateNls(db, "&0 = 1; other = &0 * x;", "y", "fitted", &r, &error));
        EXPECT_EQ(error, "the model gives no variable fitted at its starting values");
        DbFree(db);
    }
}

// The GARCH(1,1) benchmark on the Deutschmark/Pound returns: the published estimates (6
// significant digits; omega truncated there, not rounded) and log-likelihood, and the Hessian
// standard errors to 5e-4 relative (the published ones come from analytic second derivatives).
TEST(Tools, GarchReproducesTheDemGbpBenchmark) {
    std::string error;
    Database *db = LoadData(KAVREL_TEST_DATA "/dem2gbp.csv", &error);
    ASSERT_NE(db, nullptr) << error;
    Columns data;
    ASSERT_TRUE(SelectColumns(db, {"dem2gbp"}, &data, &error)) << error;
    Report r;
    ASSERT_TRUE(EstimateGarch(data, GarchOptions{}, &r, &error)) << error;
    EXPECT_TRUE(r.converged);
    const double estimates[] = {-0.00619041, 0.0107613, 0.153134, 0.805974};
    const double errors[] = {0.00846212, 0.00285271, 0.0265228, 0.0335527};
    for (int j = 0; j < 4; ++j) {
        EXPECT_NEAR(r.coef[j], estimates[j], (j == 1 ? 1e-5 : 5e-6) * std::fabs(estimates[j])) << r.names[j];
        EXPECT_NEAR(r.se[j], errors[j], 5e-4 * errors[j]) << r.names[j];
    }
    EXPECT_NEAR(r.loglik, -1106.60788, 5e-6);
    DbFree(db);
}

// A VAR(2) of three macro series: each equation against its own least-squares refit, the
// forecasts against the estimated system iterated by hand, and the impact responses against the
// columns of the Cholesky factor of the residual covariance.
TEST(Tools, VarEqualsLeastSquaresPerEquationAndItsOwnIteration) {
    std::string error;
    Database *db = LoadData(KAVREL_TEST_DATA "/macrodata.csv", &error);
    ASSERT_NE(db, nullptr) << error;
    Columns data;
    ASSERT_TRUE(SelectColumns(db, {"infl", "tbilrate", "unemp"}, &data, &error)) << error;
    VarResults r;
    const int L = 2, H = 5, n = 3, k = n * L + 1, T = data.nobs();
    ASSERT_TRUE(EstimateVar(data, L, H, &r, &error)) << error;
    std::vector<std::vector<double>> X;
    for (int t = L; t < T; ++t) {
        std::vector<double> row;
        for (int l = 1; l <= L; ++l)
            for (int v = 0; v < n; ++v) row.push_back(data.data[v][t - l]);
        row.push_back(1.0);
        X.push_back(row);
    }
    for (int e = 0; e < n; ++e) {
        Vec b;
        double rss = 0.0;
        refit(X, Vec(data.data[e].begin() + L, data.data[e].end()), T - L, &b, &rss);
        for (int j = 0; j < k; ++j) EXPECT_NEAR(r.B[e * k + j], b[j], 1e-9 * std::fmax(std::fabs(b[j]), 1.0)) << e << j;
        EXPECT_NEAR(r.omega[e * n + e], rss / (T - L - k), 1e-9 * rss) << e;
    }
    std::vector<Vec> path(n);
    for (int v = 0; v < n; ++v) path[v] = data.data[v];
    for (int h = 0; h < H; ++h) {
        Vec next(n);
        for (int e = 0; e < n; ++e) {
            double f = r.B[e * k + k - 1];
            for (int l = 1; l <= L; ++l)
                for (int v = 0; v < n; ++v) f += r.B[e * k + (l - 1) * n + v] * path[v][T + h - l];
            next[e] = f;
        }
        for (int e = 0; e < n; ++e) {
            path[e].push_back(next[e]);
            EXPECT_NEAR(r.forecast[e * H + h], next[e], 1e-10 * std::fmax(std::fabs(next[e]), 1.0)) << e << h;
        }
    }
    const double l00 = std::sqrt(r.omega[0]), l10 = r.omega[n] / l00;
    EXPECT_NEAR(r.impulse[0][0], l00, 1e-12);
    EXPECT_NEAR(r.impulse[0][H], l10, 1e-12);
    EXPECT_NEAR(r.impulse[1][0], 0.0, 1e-12);
    EXPECT_NEAR(r.forecastSe[0], l00, 1e-10); // one step ahead: the innovation's standard deviation
    DbFree(db);
}

} // namespace
