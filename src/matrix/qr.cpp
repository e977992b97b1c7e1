// Householder least squares with row pivoting (Golub & Van Loan, 4th ed., Alg. 5.4.1, applied to
// the transposed design so that every reflection runs along a contiguous row of observations).
// The work of a fit is k reflections, each one pass of inner products and one pass of updates
// over the remaining rows; both are unrolled over independent accumulators so that the compiler
// keeps the vector units busy without reassociating anything on its own.
#include "matrix/qr.h"

#include <cmath>
#include <cstring>
#include <utility>

#include "base/alloc.h"
#include "base/carve.h"
#include "base/sums.h"
#include "matrix/matrix.h"

const double MatDefaultRankTolerance = 2.220446049250313e-13;

namespace {

double g_rankTolerance = MatDefaultRankTolerance;

// Below this squared norm a downdated row norm has lost its digits to cancellation and is
// recomputed from the row (an absolute bound: 100 units of roundoff of a unit norm).
constexpr double kNormRecompute = 2.220446049250313e-14;

void axpy(double *y, double alpha, const double *x, int len) {
    for (int t = 0; t < len; ++t) y[t] += alpha * x[t];
}

// Element j (j <= i) of row i of L after `steps` reflections: below the diagonal it is stored in
// the row itself, on the diagonal of a reflected row it is kept apart.
double lower(const MatLsqWork *w, int steps, int i, int j) { return (j == i && i < steps) ? w->diag[i] : w->a[i][j]; }

void setFailed(MATRIX B, int n, MATRIX P, int k) {
    if (B && n > 0 && k > 0) MatSetMissing(B, n, k);
    if (P && k > 0) MatSetMissing(P, k, k);
}

// Copies the variable rows (and the dependent rows when wanted) into the workspace with their
// squared norms and the identity pivot order; false when a variable holds a non-finite value.
bool loadRows(MATRIX X, int k, int count, MATRIX Y, int n, bool wantB, MatLsqWork *w) {
    const size_t rowBytes = sizeof(double) * static_cast<size_t>(count);
    for (int j = 0; j < k; ++j) {
        std::memcpy(w->a[j], X[j], rowBytes);
        w->norm[j] = KvSumSquares(w->a[j], count);
        w->perm[j] = j;
        if (!std::isfinite(w->norm[j])) return false;
    }
    if (wantB)
        for (int e = 0; e < n; ++e) std::memcpy(w->y[e], Y[e], rowBytes);
    return true;
}

// Moves the remaining row of largest squared norm (the first of equal ones) to pivot position
// i; false when every remaining row is zero.
bool choosePivot(MatLsqWork *w, int i, int k) {
    int p = i;
    for (int j = i + 1; j < k; ++j)
        if (w->norm[j] > w->norm[p]) p = j;
    if (w->norm[p] == 0.0) return false;
    if (p != i) {
        std::swap(w->a[i], w->a[p]);
        std::swap(w->norm[i], w->norm[p]);
        std::swap(w->perm[i], w->perm[p]);
    }
    return true;
}

// Reflection i: built from pivot row i itself (not from its downdated norm), applied to the
// later variable rows and to the dependent rows; then the later rows' norms are downdated.
void reflect(MatLsqWork *w, int i, int k, int count, int n, bool wantB) {
    double *x = w->a[i] + i;
    const int len = count - i;
    const double xx = KvSumSquares(x, len);
    if (xx == 0.0) {
        w->diag[i] = 0.0;
    } else {
        // alpha = -sign(x0) ||x|| keeps v0 = x0 - alpha free of cancellation; with
        // v = x - alpha e1, H = I + v v' / (alpha v0) maps x to alpha e1.
        const double xnorm = std::sqrt(xx);
        const double alpha = x[0] >= 0.0 ? -xnorm : xnorm;
        const double v0 = x[0] - alpha;
        const double tau = 1.0 / (alpha * v0);
        x[0] = v0;
        w->diag[i] = alpha;
        for (int j = i + 1; j < k; ++j) {
            double *r = w->a[j] + i;
            axpy(r, tau * KvDot(x, r, len), x, len);
        }
        if (wantB)
            for (int e = 0; e < n; ++e) {
                double *r = w->y[e] + i;
                axpy(r, tau * KvDot(x, r, len), x, len);
            }
    }
    for (int j = i + 1; j < k; ++j) {
        const double aji = w->a[j][i];
        w->norm[j] -= aji * aji;
        if (w->norm[j] < kNormRecompute) w->norm[j] = KvSumSquares(w->a[j] + i + 1, len - 1);
    }
}

// The rank test on the m rows of L after `steps` reflections: sets w->rank and returns the
// status of MatLsqFit.
int decideRank(MatLsqWork *w, int m, int steps) {
    double lo = 0.0, hi = 0.0;
    for (int i = 0; i < m; ++i) {
        double s = 0.0;
        for (int j = 0; j <= i; ++j) {
            const double l = lower(w, steps, i, j);
            s += l * l;
        }
        if (i == 0 || s < lo) lo = s;
        if (i == 0 || s > hi) hi = s;
    }
    const double tol = g_rankTolerance;
    int rank = 0;
    if (hi > 0.0) {
        const double threshold = std::sqrt(hi) * tol;
        while (rank < steps && rank < m && std::fabs(w->diag[rank]) > threshold) ++rank;
    }
    w->rank = rank;
    if (hi == 0.0) return -1;
    const bool scaled = lo / hi > tol;
    if (rank == m) return scaled ? 1 : 2;
    return scaled ? -1 : -2;
}

// The basic solution over the first r pivots: for each equation c L11 = (Q y)(0..r-1) by
// back-substitution (L11' is upper triangular), scattered through the pivot order.
void solveCoefficients(const MatLsqWork *w, int r, int k, int n, MATRIX B) {
    for (int e = 0; e < n; ++e) {
        const double *qy = w->y[e];
        for (int j = r - 1; j >= 0; --j) {
            double s = qy[j];
            for (int i = j + 1; i < r; ++i) s -= w->coef[i] * w->a[i][j];
            w->coef[j] = s / w->diag[j];
        }
        double *b = B[e];
        for (int j = 0; j < k; ++j) b[j] = 0.0;
        for (int j = 0; j < r; ++j) b[w->perm[j]] = w->coef[j];
    }
}

// P = (X X')^-1 over the first r pivots: L11^-1 by forward substitution, then
// P11 = L11^-T L11^-1 (lower triangle, mirrored), scattered back through the pivot order.
void inverseMoment(const MatLsqWork *w, int r, int k, MATRIX P) {
    MATRIX li = w->linv;
    for (int i = 0; i < r; ++i) {
        const double d = 1.0 / w->diag[i];
        for (int j = 0; j < i; ++j) {
            double s = 0.0;
            for (int l = j; l < i; ++l) s += w->a[i][l] * li[l][j];
            li[i][j] = -s * d;
        }
        li[i][i] = d;
    }
    MatZero(P, k, k);
    for (int i = 0; i < r; ++i)
        for (int j = 0; j <= i; ++j) {
            double s = 0.0;
            for (int l = i; l < r; ++l) s += li[l][i] * li[l][j];
            P[w->perm[i]][w->perm[j]] = s;
            P[w->perm[j]][w->perm[i]] = s;
        }
}

} // namespace

int MatSetRankTolerance(double tol) {

    if (!(tol >= 0.0)) return 0;
    g_rankTolerance = tol;
    return 1;
}

double MatGetRankTolerance() { return g_rankTolerance; }

int MatLsqWorkLayout(KvCarve &carve, MatLsqWork *w, int kcap, int ncap, int cap) {
    if (kcap < 1 || cap < 1 || ncap < 0) return 0;
    w->a = carve.matrix(kcap, cap);
    w->y = ncap > 0 ? carve.matrix(ncap, cap) : nullptr;
    w->linv = carve.matrix(kcap, kcap);
    w->norm = carve.take<double>(static_cast<size_t>(kcap));
    w->diag = carve.take<double>(static_cast<size_t>(kcap));
    w->coef = carve.take<double>(static_cast<size_t>(kcap));
    w->perm = carve.take<int>(static_cast<size_t>(kcap));
    w->block = nullptr;
    w->kcap = kcap;
    w->ncap = ncap;
    w->cap = cap;
    w->steps = w->rank = 0;
    return 1;
}

int MatLsqWorkAlloc(MatLsqWork *w, int kcap, int ncap, int cap) {
    MatLsqWorkFree(w);
    if (kcap < 1 || cap < 1 || ncap < 0) return 0;
    void *block = KvCarveBlock([&](KvCarve &c) { MatLsqWorkLayout(c, w, kcap, ncap, cap); });
    if (!block) {
        MatLsqWorkFree(w);
        return 0;
    }
    w->block = block;
    return 1;
}

void MatLsqWorkFree(MatLsqWork *w) {
    if (!w) return;
    KvFree(w->block);
    w->block = nullptr;
    w->a = w->y = w->linv = nullptr;
    w->norm = w->diag = w->coef = nullptr;
    w->perm = nullptr;
    w->kcap = w->ncap = w->cap = 0;
    w->steps = w->rank = 0;
}

MatLsqWork::~MatLsqWork() { MatLsqWorkFree(this); }

int MatLsqFit(MATRIX X, int k, int count, MATRIX Y, int n, MATRIX B, MATRIX P, MatLsqWork *w) {
    const bool wantB = B != nullptr && n > 0;
    if (!w || !X || k < 1 || count < 1 || n < 0 || k > w->kcap || count > w->cap || (wantB && (!Y || n > w->ncap)) ||
        !loadRows(X, k, count, Y, n, wantB, w)) {
        setFailed(B, n, P, k);
        return 0;
    }
    const int m = k < count ? k : count;
    int steps = 0;
    while (steps < m && choosePivot(w, steps, k)) {
        reflect(w, steps, k, count, n, wantB);
        ++steps;
    }
    w->steps = steps;
    const int status = decideRank(w, m, steps);
    if (wantB) solveCoefficients(w, w->rank, k, n, B);
    if (P) inverseMoment(w, w->rank, k, P);
    return status;
}

int MatLeastSquares(MATRIX X, int k, int count, MATRIX Y, int n, MATRIX B, MATRIX P) {
    MatLsqWork w;
    if (k < 1 || count < 1 || n < 0 || !MatLsqWorkAlloc(&w, k, B ? n : 0, count)) {
        setFailed(B, n, P, k);
        return 0;
    }
    return MatLsqFit(X, k, count, Y, n, B, P, &w);
}
