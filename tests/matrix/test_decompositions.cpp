// Pivoted Householder least squares, Cholesky, SPD inversion and log-determinant against long
// double computations made independently here (normal equations by Gauss-Jordan elimination).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "common/fault.h"
#include "matrix/alloc.h"
#include "matrix/cholesky.h"
#include "matrix/matrix.h"
#include "matrix/qr.h"

namespace {

using LMat = std::vector<std::vector<long double>>;

// Deterministic uniform(-1, 1) draws.
struct Lcg {
    uint64_t s;
    double next() {
        s = s * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(s >> 11) / 9007199254740992.0 * 2.0 - 1.0;
    }
};

// Inverse by Gauss-Jordan with partial pivoting in long double; empty when singular.
LMat inverse(LMat a) {
    const size_t n = a.size();
    LMat inv(n, std::vector<long double>(n, 0.0L));
    for (size_t i = 0; i < n; ++i) inv[i][i] = 1.0L;
    for (size_t c = 0; c < n; ++c) {
        size_t p = c;
        for (size_t r = c + 1; r < n; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[p][c])) p = r;
        if (a[p][c] == 0.0L) return {};
        std::swap(a[p], a[c]);
        std::swap(inv[p], inv[c]);
        const long double d = a[c][c];
        for (size_t j = 0; j < n; ++j) {
            a[c][j] /= d;
            inv[c][j] /= d;
        }
        for (size_t r = 0; r < n; ++r)
            if (r != c && a[r][c] != 0.0L) {
                const long double m = a[r][c];
                for (size_t j = 0; j < n; ++j) {
                    a[r][j] -= m * a[c][j];
                    inv[r][j] -= m * inv[c][j];
                }
            }
    }
    return inv;
}

// Data held as the routines take it: variable rows by observation columns.
struct Data {
    int k, count, n;
    MatOwner x, y;
    Data(int k_, int count_, int n_) : k(k_), count(count_), n(n_), x(k_, count_), y(n_ > 0 ? n_ : 1, count_) {}
};

// Normal equations over the variables in `keep`: P (k x k, zero outside keep) and B (n x k).
void normalEquations(const Data &d, const std::vector<int> &keep, LMat *P, LMat *B) {
    const size_t r = keep.size();
    LMat xx(r, std::vector<long double>(r, 0.0L));
    for (size_t i = 0; i < r; ++i)
        for (size_t j = 0; j < r; ++j)
            for (int t = 0; t < d.count; ++t)
                xx[i][j] += static_cast<long double>(d.x.get()[keep[i]][t]) * d.x.get()[keep[j]][t];
    LMat xi = r ? inverse(xx) : LMat();
    ASSERT_EQ(xi.size(), r);
    P->assign(d.k, std::vector<long double>(d.k, 0.0L));
    for (size_t i = 0; i < r; ++i)
        for (size_t j = 0; j < r; ++j) (*P)[keep[i]][keep[j]] = xi[i][j];
    B->assign(d.n, std::vector<long double>(d.k, 0.0L));
    for (int e = 0; e < d.n; ++e)
        for (size_t i = 0; i < r; ++i)
            for (size_t j = 0; j < r; ++j) {
                long double xy = 0.0L;
                for (int t = 0; t < d.count; ++t) xy += static_cast<long double>(d.x.get()[keep[j]][t]) * d.y.get()[e][t];
                (*B)[e][keep[i]] += xi[i][j] * xy;
            }
}

enum Design { RANDOM, SCALED, DUPLICATE, ZERO_VAR, ALL_ZERO, DUP_AND_SCALED, NAN_VALUE };

void fill(Data *d, Design design, uint64_t seed) {
    Lcg g{seed};
    for (int j = 0; j < d->k; ++j)
        for (int t = 0; t < d->count; ++t) d->x.get()[j][t] = j == 0 ? 1.0 + 0.3 * g.next() : g.next();
    for (int e = 0; e < d->n; ++e)
        for (int t = 0; t < d->count; ++t) d->y.get()[e][t] = 0.5 * e + d->x.get()[0][t] - 2.0 * d->x.get()[d->k - 1][t] + 0.1 * g.next();
    MATRIX x = d->x.get();
    for (int t = 0; t < d->count; ++t) {
        switch (design) {
        case SCALED: x[2][t] *= 1e-7; break;
        case DUPLICATE: x[2][t] = x[0][t]; break;
        case ZERO_VAR: x[1][t] = 0.0; break;
        case ALL_ZERO:
            for (int j = 0; j < d->k; ++j) x[j][t] = 0.0;
            break;
        case DUP_AND_SCALED:
            x[2][t] = x[0][t];
            x[1][t] *= 1e-8;
            break;
        default: break;
        }
    }
    if (design == NAN_VALUE) x[1][d->count / 2] = std::nan("");
}

TEST(LeastSquares, AgainstNormalEquationsAndStatusCodes) {
    struct Row {
        const char *name;
        Design design;
        int k, count, n;
        int status, rank;
        std::vector<int> keep; // variables of the basic solution
        double tol;            // relative, on B and P
    } rows[] = {
        {"random", RANDOM, 4, 40, 2, 1, 4, {0, 1, 2, 3}, 1e-13},
        {"single regressor", RANDOM, 1, 7, 1, 1, 1, {0}, 1e-14},
        {"exactly identified", RANDOM, 5, 5, 1, 1, 5, {0, 1, 2, 3, 4}, 1e-11},
        {"long sample", RANDOM, 3, 5000, 1, 1, 3, {0, 1, 2}, 1e-12},
        {"badly scaled", SCALED, 3, 30, 2, 2, 3, {0, 1, 2}, 1e-9},
        {"duplicate regressor", DUPLICATE, 3, 30, 2, -1, 2, {0, 1}, 1e-12},
        {"zero regressor", ZERO_VAR, 3, 30, 1, -2, 2, {0, 2}, 1e-13},
        {"all zero", ALL_ZERO, 3, 30, 1, -1, 0, {}, 0.0},
        {"duplicate and badly scaled", DUP_AND_SCALED, 3, 30, 1, -2, 2, {0, 1}, 1e-6},
        {"fewer observations than variables", RANDOM, 3, 2, 1, 1, 2, {0, 1}, 1e-12},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        Data d(r.k, r.count, r.n);
        fill(&d, r.design, 17);
        MatOwner B(r.n, r.k), P(r.k, r.k);
        MatLsqWork w;
        ASSERT_TRUE(MatLsqWorkAlloc(&w, r.k, r.n, r.count));
        EXPECT_EQ(MatLsqFit(d.x, r.k, r.count, d.y, r.n, B, P, &w), r.status);
        EXPECT_EQ(w.rank, r.rank);
        // The retained variables are the first `rank` pivots.
        std::vector<int> kept(w.perm, w.perm + w.rank);
        std::sort(kept.begin(), kept.end());
        EXPECT_EQ(kept, r.keep);
        LMat refP, refB;
        normalEquations(d, r.keep, &refP, &refB);
        for (int i = 0; i < r.k; ++i) {
            for (int j = 0; j < r.k; ++j) {
                const double ref = static_cast<double>(refP[i][j]);
                EXPECT_NEAR(P.get()[i][j], ref, r.tol * std::fabs(refP[i][i] + refP[j][j]) + 1e-300) << i << "," << j;
            }
            for (int e = 0; e < r.n; ++e) {
                const double ref = static_cast<double>(refB[e][i]);
                EXPECT_NEAR(B.get()[e][i], ref, r.tol * (1.0 + std::fabs(ref))) << "B " << e << "," << i;
            }
        }
        if (r.count < r.k) {
            // Fewer observations than variables: the retained ones fit the data exactly.
            for (int t = 0; t < r.count; ++t) {
                double fit = 0.0;
                for (int j = 0; j < r.k; ++j) fit += B.get()[0][j] * d.x.get()[j][t];
                EXPECT_NEAR(fit, d.y.get()[0][t], 1e-12);
            }
        }
    }
}

TEST(LeastSquares, FailuresGiveStatusZeroAndMissingResults) {
    struct Row { const char *name; int k, count, n; bool nan; int capK, capN, capCount; } rows[] = {
        {"non-finite regressor", 3, 20, 1, true, 3, 1, 20},
        {"no variables", 0, 20, 1, false, 3, 1, 20},
        {"no observations", 3, 0, 1, false, 3, 1, 20},
        {"negative equation count", 3, 20, -1, false, 3, 1, 20},
        {"sample beyond workspace", 3, 20, 1, false, 3, 1, 19},
        {"variables beyond workspace", 3, 20, 1, false, 2, 1, 20},
        {"equations beyond workspace", 3, 20, 2, false, 3, 1, 20},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        Data d(3, 20, 2);
        fill(&d, r.nan ? NAN_VALUE : RANDOM, 5);
        MatOwner B(2, 3), P(3, 3);
        MatZero(B, 2, 3);
        MatZero(P, 3, 3);
        MatLsqWork w;
        ASSERT_TRUE(MatLsqWorkAlloc(&w, r.capK, r.capN, r.capCount));
        EXPECT_EQ(MatLsqFit(d.x, r.k, r.count, d.y, r.n, B, P, &w), 0);
        if (r.k > 0) {
            EXPECT_TRUE(std::isnan(P.get()[r.k - 1][r.k - 1]));
        }
        if (r.k > 0 && r.n > 0) {
            EXPECT_TRUE(std::isnan(B.get()[r.n - 1][r.k - 1]));
        }
    }
}

TEST(LeastSquares, PivotOrder) {
    // Rows (variables) over three observations. Equal norms: the first such row wins. A
    // downdated norm below 2.220446049250313e-14 is recomputed from the row; above that bound the
    // downdated value is used even though it has lost digits.
    const double a7 = 1e-7, a6 = 1e-6;
    const double d7 = (1.0 + a7 * a7) - 1.0; // what downdating leaves: 9.992e-15, not 1e-14
    const double d6 = (1.0 + a6 * a6) - 1.0;
    ASSERT_LT(d7, 2.220446049250313e-14);
    ASSERT_NE(d6, a6 * a6);
    const double z7 = std::sqrt(0.5 * (d7 + a7 * a7)); // between the downdated and the true norm
    const double z6 = std::sqrt(0.5 * (d6 + a6 * a6));
    const bool d6Larger = d6 > a6 * a6;
    struct Row { const char *name; double x[3][3]; std::vector<int> perm; } rows[] = {
        {"orthogonal with a tie", {{1, 0, 0}, {0, 3, 0}, {0, 0, 3}}, {1, 2, 0}},
        {"recomputed below the bound", {{2, 0, 0}, {1, a7, 0}, {0, 0, z7}}, {0, 1, 2}},
        {"downdated above the bound", {{2, 0, 0}, {1, a6, 0}, {0, 0, z6}}, d6Larger ? std::vector<int>{0, 1, 2}
                                                                                        : std::vector<int>{0, 2, 1}},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        MatOwner X(3, 3), P(3, 3);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) X.get()[i][j] = r.x[i][j];
        MatLsqWork w;
        ASSERT_TRUE(MatLsqWorkAlloc(&w, 3, 0, 3));
        MatLsqFit(X, 3, 3, nullptr, 0, nullptr, P, &w);
        EXPECT_EQ(std::vector<int>(w.perm, w.perm + 3), r.perm);
        EXPECT_EQ(w.steps, 3);
    }
}

TEST(LeastSquares, RankToleranceIsProcessWide) {
    Data d(3, 30, 1);
    fill(&d, SCALED, 3); // squared-norm ratio about 1e-14
    MatOwner P(3, 3);
    struct Row { double tol; bool accepted; int status; } rows[] = {
        {MatDefaultRankTolerance, true, 2}, {1e-16, true, 1}, {0.0, true, 1}, {-1e-10, false, 1},
        {std::nan(""), false, 1},           {1e-12, true, 2}, {1e-3, true, -2},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.tol);
        const double before = MatGetRankTolerance();
        EXPECT_EQ(MatSetRankTolerance(r.tol), r.accepted ? 1 : 0);
        EXPECT_EQ(MatGetRankTolerance(), r.accepted ? r.tol : before);
        EXPECT_EQ(MatLeastSquares(d.x, 3, 30, nullptr, 0, nullptr, P), r.status);
    }
    MatSetRankTolerance(MatDefaultRankTolerance);
}

TEST(LeastSquares, AllocationFailure) {
    Data d(3, 25, 2);
    fill(&d, RANDOM, 9);
    MatOwner B(2, 3), P(3, 3);
    long runs = ForEachLibraryAllocationFailure([&](long n) {
        const int status = MatLeastSquares(d.x, 3, 25, d.y, 2, B, P);
        const bool hookFired = KvAllocCount() >= n;
        EXPECT_EQ(status, hookFired ? 0 : 1) << n;
        if (hookFired) {
            EXPECT_TRUE(std::isnan(B.get()[1][2]));
            EXPECT_TRUE(std::isnan(P.get()[2][2]));
        }
    });
    EXPECT_GE(runs, 5);
    EXPECT_EQ(MatLeastSquares(d.x, 3, 25, d.y, 2, B, P), 1);
}

// Symmetric test matrices from their lower triangles, with long double references.
TEST(Cholesky, InverseLogDetAndFailures) {
    struct Row {
        const char *name;
        int n;
        std::vector<double> a; // row-major full
        bool pd;
        double tol;
    } rows[] = {
        {"1x1", 1, {4.0}, true, 1e-15},
        {"2x2", 2, {4, 2, 2, 3}, true, 1e-15},
        {"3x3 moderately conditioned", 3, {10, 3, 1, 3, 8, 2, 1, 2, 2}, true, 1e-12},
        {"indefinite", 2, {1, 2, 2, 1}, false, 0},
        {"singular", 2, {1, 1, 1, 1}, false, 0},
        {"negative diagonal", 1, {-1}, false, 0},
        {"missing value", 2, {1, 0, 0, std::nan("")}, false, 0},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const int n = r.n;
        MatOwner A(n, n), F(n, n);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) A.get()[i][j] = r.a[i * n + j];
        LMat ref(n, std::vector<long double>(n));
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) ref[i][j] = r.a[i * n + j];

        double ld = 0.0;
        EXPECT_EQ(MatLogDet(A, n, &ld, F), r.pd ? 0 : 1);
        EXPECT_EQ(MatLogDet(A, n, &ld, nullptr), r.pd ? 0 : 1);
        MatCopy(F, A, n, n);
        EXPECT_EQ(MatInvertSpd(F, n), r.pd ? 1 : 0);
        if (!r.pd) continue;
        // log det from the long double elimination: det = product of the pivots.
        LMat u = ref;
        long double det = 1.0L;
        for (int c = 0; c < n; ++c) {
            det *= u[c][c];
            for (int i = c + 1; i < n; ++i) {
                const long double m = u[i][c] / u[c][c];
                for (int j = c; j < n; ++j) u[i][j] -= m * u[c][j];
            }
        }
        EXPECT_NEAR(ld, static_cast<double>(std::log(det)), r.tol * (1.0 + std::fabs(ld)));
        LMat inv = inverse(ref);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                EXPECT_NEAR(F.get()[i][j], static_cast<double>(inv[i][j]), r.tol * std::fabs(inv[i][i]));
                EXPECT_EQ(F.get()[i][j], F.get()[j][i]);
            }
        // The factor: L L' reproduces A, upper triangle zero.
        MatCopy(F, A, n, n);
        ASSERT_EQ(MatCholesky(F, n), 1);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                double s = 0.0;
                for (int l = 0; l < n; ++l) s += F.get()[i][l] * F.get()[j][l];
                EXPECT_NEAR(s, A.get()[i][j], 1e-14 * std::fabs(A.get()[i][i] + A.get()[j][j]));
                if (j > i) {
                    EXPECT_EQ(F.get()[i][j], 0.0);
                }
            }
    }
    double ld = 5.0;
    EXPECT_EQ(MatLogDet(nullptr, 0, &ld, nullptr), 0);
    EXPECT_EQ(ld, 0.0);
    // Own scratch that cannot be made.
    MatOwner A(2, 2);
    A.get()[0][0] = A.get()[1][1] = 2.0;
    A.get()[0][1] = A.get()[1][0] = 0.0;
    KvAllocFailAt(1);
    EXPECT_EQ(MatLogDet(A, 2, &ld, nullptr), 2);
    KvAllocFailAt(0);
    EXPECT_EQ(MatLogDet(A, 2, &ld, nullptr), 0);
    EXPECT_NEAR(ld, 2.0 * std::log(2.0), 1e-15);
}

} // namespace
