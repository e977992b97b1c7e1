// Long-run score covariance against the direct double sum over observations and lags, the lag
// truncation at its integer boundaries, and the Kronecker selection against the full product
// formed in the test; bad indices, empty selections, bad input and allocation failures.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "common/fault.h"
#include "estimators/longrun.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"
#include "estimators/host_call.h"

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

Vec resultValues(const LumoValue *v, int *rows, int *cols) {
    LumoValGetMatrix(v, rows, cols);
    return HostValues(v);
}


// V[a][b] = sum_t s_t[a] s_t[b] + sum_{l=1..L} (1 - l/(L+1)) sum_{t>=l} (s_t[a] s_{t-l}[b] + s_{t-l}[a] s_t[b]).
std::vector<long double> directLongRun(const Vec &X, const Vec &U, int T, int k, int m, int L) {
    const int km = k * m;
    auto s = [&](int t, int a) { return static_cast<long double>(X[t * k + a / m]) * U[t * m + a % m]; };
    std::vector<long double> V(km * km, 0);
    for (int a = 0; a < km; ++a)
        for (int b = 0; b < km; ++b) {
            long double v = 0;
            for (int t = 0; t < T; ++t) v += s(t, a) * s(t, b);
            for (int l = 1; l <= L; ++l)
                for (int t = l; t < T; ++t) v += (1 - static_cast<long double>(l) / (L + 1)) * (s(t, a) * s(t - l, b) + s(t - l, a) * s(t, b));
            V[a * km + b] = v;
        }
    return V;
}

TEST(LongRun, LagTruncationAtItsIntegerBoundaries) {
    // 4 (T/100)^(2/9) crosses 2 between T = 4 and 5, 3 between 27 and 28, 4 at T = 100.
    const int table[][2] = {{0, 0}, {1, 1}, {4, 1}, {5, 2}, {27, 2}, {28, 3}, {99, 3}, {100, 4}, {1000, 6}, {10000, 11}};
    for (const auto &row : table) EXPECT_EQ(LongRunLag(row[0]), row[1]) << "T=" << row[0];
}

TEST(LongRun, MatchesDirectDoubleSum) {
    std::mt19937_64 rng(17);
    std::normal_distribution<double> z;
    struct Case { int T, k, m, hac, L; } cases[] = {
        {100, 2, 2, 1, 4}, {99, 3, 1, 1, 3}, {99, 2, 3, 0, 0}, {3, 1, 2, 1, 1}, {1, 2, 1, 1, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << c.T << " k=" << c.k << " m=" << c.m << " hac=" << c.hac);
        Vec X(c.T * c.k), U((c.T + 2) * c.m); // U may have more rows than X
        for (double &x : X) x = z(rng);
        for (double &u : U) u = z(rng);
        for (int t = 1; t < c.T; ++t) U[t * c.m] += 0.6 * U[(t - 1) * c.m]; // autocorrelated scores
        HostCall<4> h;
        h.mat(0, c.T, c.k, X);
        h.mat(1, c.T + 2, c.m, U);
        LumoValSetInt(&h.args[2], c.hac);
        ASSERT_EQ(LumoHostInvoke(FnGLScovariance, &h.result, h.args, 3), 1);
        int r, k;
        Vec V = resultValues(&h.result, &r, &k);
        ASSERT_EQ(r, c.k * c.m);
        ASSERT_EQ(k, c.k * c.m);
        auto want = directLongRun(X, U, c.T, c.k, c.m, c.L);
        for (size_t i = 0; i < V.size(); ++i) EXPECT_NEAR(V[i], static_cast<double>(want[i]), 1e-12 * c.T) << i;
    }
}

TEST(LongRun, EdgeCasesAndFailures) {
    // NaN in a residual spreads to the rows and columns of its equation only.
    HostCall<4> h;
    h.mat(0, 4, 2, {1, 2, 3, 4, 5, 6, 7, 8});
    h.mat(1, 4, 2, {1, 1, NaN, 1, 1, 1, 1, 1});
    LumoValSetInt(&h.args[2], 0);
    ASSERT_EQ(LumoHostInvoke(FnGLScovariance, &h.result, h.args, 3), 1);
    int r, c;
    Vec V = resultValues(&h.result, &r, &c);
    for (int a = 0; a < 4; ++a)
        for (int b = 0; b < 4; ++b) EXPECT_EQ(std::isnan(V[a * 4 + b]), a % 2 == 0 || b % 2 == 0) << a << b;

    // Too few rows in U: untouched. No observations: a zero k m x k m matrix.
    h.mat(1, 3, 2, Vec(6, 1.0));
    LumoValSetInt(&h.result, 99);
    ASSERT_EQ(LumoHostInvoke(FnGLScovariance, &h.result, h.args, 3), 1);
    EXPECT_EQ(LumoValGetInt(&h.result), 99);
    h.mat(0, 0, 2, {});
    ASSERT_EQ(LumoHostInvoke(FnGLScovariance, &h.result, h.args, 3), 1);
    EXPECT_EQ(resultValues(&h.result, &r, &c), Vec(16, 0.0));

    // Scratch failure: a zero result; host failure: an empty result.
    h.mat(0, 4, 2, {1, 2, 3, 4, 5, 6, 7, 8});
    h.mat(1, 4, 2, Vec(8, 1.0));
    LumoValSetInt(&h.args[2], 1);
    EXPECT_EQ(ForEachLibraryAllocationFailure([&](long n) {
                  ASSERT_EQ(LumoHostInvoke(FnGLScovariance, &h.result, h.args, 3), 1);
                  if (n <= 2) {
                      EXPECT_EQ(resultValues(&h.result, &r, &c), Vec(16, 0.0));
                  }
              }),
              2);
    EXPECT_EQ(ForEachHostAllocationFailure([&](long n) {
                  ASSERT_EQ(LumoHostInvoke(FnGLScovariance, &h.result, h.args, 3), 1);
                  EXPECT_EQ(LumoValGetType(&h.result), n <= 2 ? LUMO_EMPTY : LUMO_MATRIX);
              }),
              2);
}

TEST(Kronecker, SelectionMatchesFullProduct) {
    const int rA = 3, cA = 2, rB = 2, cB = 4;
    const Vec A = {1, 2, 3, 4, 5, 6}, B = {0.5, -1, 2, 3, 7, 0.25, -4, 9};
    auto full = [&](int r, int c) { return A[(r / rB) * cA + c / cB] * B[(r % rB) * cB + c % cB]; };
    Vec all(cA * cB);
    for (int j = 0; j < cA * cB; ++j) all[j] = j;
    struct Case {
        const char *what;
        Vec R, C;
        int rows, cols;
        Vec rowOf, colOf; // the product's row and column behind each result element; -1: missing
    } cases[] = {
        {"chosen rows and columns", {5, 0, 3}, {7, 2}, 3, 2, {5, 0, 3}, {7, 2}},
        {"empty R: all rows", {}, {1, 6}, 6, 2, {0, 1, 2, 3, 4, 5}, {1, 6}},
        {"empty R, all columns: the full product", {}, all, 6, 8, {0, 1, 2, 3, 4, 5}, all},
        {"2.9 is row 2, -0.5 row 0", {2.9, -0.5}, {3.99}, 2, 1, {2, 0}, {3}},
        {"outside the product or not a number", {-1, 6, NaN, 1e300, 1}, {8, -INFINITY, 0}, 5, 3,
         {-1, -1, -1, -1, 1}, {-1, -1, 0}},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        HostCall<4> h;
        h.mat(0, rA, cA, A);
        h.mat(1, rB, cB, B);
        h.mat(2, 1, static_cast<int>(k.R.size()), k.R);
        h.mat(3, static_cast<int>(k.C.size()), 1, k.C);
        ASSERT_EQ(LumoHostInvoke(FnKroneckerSel, &h.result, h.args, 4), 1);
        int r, c;
        Vec got = resultValues(&h.result, &r, &c);
        ASSERT_EQ(r, k.rows);
        ASSERT_EQ(c, k.cols);
        for (int i = 0; i < r; ++i)
            for (int j = 0; j < c; ++j) {
                const int pr = static_cast<int>(k.rowOf[i]), pc = static_cast<int>(k.colOf[j]);
                if (pr < 0 || pc < 0) EXPECT_TRUE(std::isnan(got[i * c + j])) << i << "," << j;
                else EXPECT_EQ(got[i * c + j], full(pr, pc)) << i << "," << j;
            }
    }
}

TEST(Kronecker, EmptyColumnsAndZeroSizedFactors) {
    struct Case {
        const char *what;
        int rA, cA, rB, cB, nR, nC;
        int rows, cols; // expected result shape
        bool allMissing;
    } cases[] = {
        {"empty C: cA cB rows and no columns, whatever R holds", 3, 2, 2, 4, 2, 0, 8, 0, false},
        {"empty R and C", 3, 2, 2, 4, 0, 0, 8, 0, false},
        {"B without rows: every requested element missing", 3, 2, 0, 4, 2, 2, 2, 2, true},
        {"B 0 x 0, empty R: no rows", 3, 2, 0, 0, 0, 2, 0, 2, false},
        {"A without columns", 3, 0, 2, 4, 1, 3, 1, 3, true},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        HostCall<4> h;
        h.mat(0, k.rA, k.cA, Vec(k.rA * k.cA, 1.5));
        h.mat(1, k.rB, k.cB, Vec(k.rB * k.cB, 2.0));
        h.mat(2, k.nR, 1, Vec(k.nR, 0.0));
        h.mat(3, 1, k.nC, Vec(k.nC, 1.0));
        ASSERT_EQ(LumoHostInvoke(FnKroneckerSel, &h.result, h.args, 4), 1);
        int r, c;
        Vec got = resultValues(&h.result, &r, &c);
        EXPECT_EQ(r, k.rows);
        EXPECT_EQ(c, k.cols);
        for (double v : got) EXPECT_TRUE(k.allMissing && std::isnan(v));
    }
    // No library allocation; a host failure leaves the result empty.
    HostCall<4> h;
    h.mat(0, 2, 2, {1, 2, 3, 4});
    h.mat(1, 1, 1, {2});
    h.mat(2, 1, 1, {1});
    h.mat(3, 1, 1, {1});
    EXPECT_EQ(ForEachLibraryAllocationFailure([&](long) { LumoHostInvoke(FnKroneckerSel, &h.result, h.args, 4); }), 0);
    EXPECT_EQ(ForEachHostAllocationFailure([&](long n) {
                  ASSERT_EQ(LumoHostInvoke(FnKroneckerSel, &h.result, h.args, 4), 1);
                  EXPECT_EQ(LumoValGetType(&h.result), n <= 2 ? LUMO_EMPTY : LUMO_MATRIX);
              }),
              2);
}

} // namespace
