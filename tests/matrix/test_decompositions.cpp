// Pivoted Householder least squares, Cholesky, SPD inversion and log-determinant against long
// double normal equations and elimination (tests/common/reference.h).
#include <gtest/gtest.h>

#include <algorithm>

#include "common/fault.h"
#include "common/reference.h"
#include "matrix/cholesky.h"
#include "matrix/matrix.h"
#include "matrix/qr.h"

namespace {

enum Design { RANDOM, SCALED, DUPLICATE, ZERO_VAR, ALL_ZERO, DUP_AND_SCALED, NAN_VALUE };

// k variable rows, count observation columns; n dependent rows.
void fill(MATRIX x, MATRIX y, int k, int count, int n, Design design) {
    Lcg g{17};
    for (int t = 0; t < count; ++t) {
        for (int j = 0; j < k; ++j) x[j][t] = j == 0 ? 1.0 + 0.3 * g.next() : g.next();
        for (int e = 0; e < n; ++e) y[e][t] = 0.5 * e + x[0][t] - 2.0 * x[k - 1][t] + 0.1 * g.next();
        if (design == SCALED) x[2][t] *= 1e-7;
        if (design == DUPLICATE || design == DUP_AND_SCALED) x[2][t] = x[0][t];
        if (design == DUP_AND_SCALED || design == ZERO_VAR) x[1][t] *= design == ZERO_VAR ? 0.0 : 1e-8;
        for (int j = 0; j < k && design == ALL_ZERO; ++j) x[j][t] = 0.0;
    }
    if (design == NAN_VALUE) x[1][count / 2] = NAN;
}

TEST(LeastSquares, AgainstNormalEquationsAndStatusCodes) {
    // keep: the variables the basic solution retains; tol: relative, on B and P.
    const struct {
        const char *name;
        Design design;
        int k, count, n, status;
        std::vector<int> keep;
        double tol;
    } rows[] = {
        // clang-format off
        {"random", RANDOM, 4, 40, 2, 1, {0, 1, 2, 3}, 1e-13},
        {"long sample", RANDOM, 3, 5000, 1, 1, {0, 1, 2}, 1e-12},
        {"badly scaled", SCALED, 3, 30, 2, 2, {0, 1, 2}, 1e-9},
        {"duplicate regressor", DUPLICATE, 3, 30, 2, -1, {0, 1}, 1e-12},
        {"zero regressor", ZERO_VAR, 3, 30, 1, -2, {0, 2}, 1e-13},
        {"all zero", ALL_ZERO, 3, 30, 1, -1, {}, 0.0},
        {"duplicate and badly scaled", DUP_AND_SCALED, 3, 30, 1, -2, {0, 1}, 1e-6},
        {"fewer observations than variables", RANDOM, 3, 2, 1, 1, {0, 1}, 1e-12},
        {"non-finite value", NAN_VALUE, 3, 30, 1, 0, {}, 0.0},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        MatOwner X(r.k, r.count), Y(r.n, r.count), B(r.n, r.k), P(r.k, r.k);
        fill(X, Y, r.k, r.count, r.n, r.design);
        MatLsqWork w;
        ASSERT_TRUE(MatLsqWorkAlloc(&w, r.k, r.n, r.count));
        ASSERT_EQ(MatLsqFit(X, r.k, r.count, Y, r.n, B, P, &w), r.status);
        if (r.status == 0) {
            EXPECT_TRUE(std::isnan(B.get()[0][0]));
            EXPECT_TRUE(std::isnan(P.get()[2][2]));
            continue;
        }
        std::vector<int> kept(w.perm, w.perm + w.rank);
        std::sort(kept.begin(), kept.end());
        EXPECT_EQ(kept, r.keep);
        LMat xx(r.k, LVec(r.k, 0.0L)), xy(r.n, LVec(r.k, 0.0L));
        for (int t = 0; t < r.count; ++t)
            for (int i = 0; i < r.k; ++i) {
                for (int j = 0; j < r.k; ++j) xx[i][j] += static_cast<long double>(X.get()[i][t]) * X.get()[j][t];
                for (int e = 0; e < r.n; ++e) xy[e][i] += static_cast<long double>(X.get()[i][t]) * Y.get()[e][t];
            }
        const LMat ref = inverseOn(xx, r.keep);
        for (int i = 0; i < r.k; ++i) {
            for (int j = 0; j < r.k; ++j)
                EXPECT_NEAR(P.get()[i][j], ref[i][j], r.tol * (ref[i][i] + ref[j][j]) + 1e-300) << i << "," << j;
            for (int e = 0; e < r.n; ++e) {
                long double b = 0.0L;
                for (int j = 0; j < r.k; ++j) b += ref[i][j] * xy[e][j];
                EXPECT_NEAR(B.get()[e][i], b, r.tol * (1.0 + std::fabs(b))) << "B " << e << "," << i;
            }
        }
    }
}

TEST(LeastSquares, RefusedArgumentsRankToleranceAndAllocationFailure) {
    MatOwner X(4, 30), Y(2, 30), B(2, 4), P(4, 4);
    fill(X, Y, 4, 30, 2, RANDOM);
    { // k, count, n against a workspace of 3 variables, 1 equation, 20 observations: status 0
        MatLsqWork w;
        ASSERT_TRUE(MatLsqWorkAlloc(&w, 3, 1, 20));
        for (const auto &c : {std::vector<int>{0, 20, 1}, {3, 0, 1}, {3, 20, -1}, {3, 21, 1}, {4, 20, 1}, {3, 20, 2}})
            EXPECT_EQ(MatLsqFit(X, c[0], c[1], Y, c[2], B, P, &w), 0) << c[0] << " " << c[1] << " " << c[2];
    }
    fill(X, Y, 3, 30, 1, SCALED); // squared-norm ratio about 1e-14
    const struct {
        double tol;
        int accepted, status;
    } rows[] = {
        // clang-format off
        {MatDefaultRankTolerance, 1, 2},
        {0.0, 1, 1},
        {NAN, 0, 1},
        {1e-3, 1, -2},
        // clang-format on
    };
    for (const auto &r : rows) {
        const double before = MatGetRankTolerance();
        EXPECT_EQ(MatSetRankTolerance(r.tol), r.accepted);
        EXPECT_EQ(MatGetRankTolerance(), r.accepted ? r.tol : before);
        EXPECT_EQ(MatLeastSquares(X, 3, 30, nullptr, 0, nullptr, P), r.status) << r.tol;
    }
    MatSetRankTolerance(MatDefaultRankTolerance);
    fill(X, Y, 3, 30, 1, RANDOM);
    // The workspace is one allocation: when it fails, B and P are missing.
    EXPECT_EQ(ForEachLibraryAllocationFailure([&](long n) {
                  EXPECT_EQ(MatLeastSquares(X, 3, 30, Y, 1, B, P), n <= 1 ? 0 : 1) << n;
                  EXPECT_EQ(std::isnan(B.get()[0][2]), n <= 1) << n;
                  EXPECT_EQ(std::isnan(P.get()[2][2]), n <= 1) << n;
              }),
              1);
}

TEST(Cholesky, InverseLogDetAndFailures) {
    const struct {
        const char *name;
        int n;
        std::vector<double> a;
        bool pd;
    } rows[] = {
        // clang-format off
        {"2x2", 2, {4, 2, 2, 3}, true},
        {"3x3", 3, {10, 3, 1, 3, 8, 2, 1, 2, 2}, true},
        {"indefinite", 2, {1, 2, 2, 1}, false},
        {"singular", 2, {1, 1, 1, 1}, false},
        {"missing value", 2, {1, 0, 0, NAN}, false},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const int n = r.n;
        MatOwner A(n, n), F(n, n);
        LMat ref(n, LVec(n));
        for (int i = 0; i < n * n; ++i) A.get()[i / n][i % n] = ref[i / n][i % n] = r.a[i];
        double ld = 0.0;
        EXPECT_EQ(MatLogDet(A, n, &ld, F), r.pd ? 0 : 1);
        MatCopy(F, A, n, n);
        EXPECT_EQ(MatInvertSpd(F, n), r.pd ? 1 : 0);
        if (!r.pd) continue;
        EXPECT_NEAR(ld, static_cast<double>(logDetRef(ref)), 1e-14 * (1.0 + std::fabs(ld)));
        std::vector<int> all = {0, 1, 2};
        all.resize(n);
        const LMat inv = inverseOn(ref, all);
        for (int a = 0; a < n; ++a)
            for (int b = 0; b < n; ++b) EXPECT_NEAR(F.get()[a][b], inv[a][b], 1e-14 * inv[a][a]) << a << "," << b;
    }
    MatOwner A(2, 2);
    MatZero(A, 2, 2);
    A.get()[0][0] = A.get()[1][1] = 2.0;
    double ld = 5.0;
    KvAllocFailAt(1); // the routine's own scratch
    EXPECT_EQ(MatLogDet(A, 2, &ld, nullptr), 2);
    KvAllocFailAt(0);
    EXPECT_EQ(MatLogDet(A, 0, &ld, nullptr), 0);
    EXPECT_EQ(ld, 0.0);
}

} // namespace
