// Cholesky factorisation by rows (the Cholesky-Banachiewicz order: each element is one inner
// product of two contiguous row prefixes), triangular inversion by forward substitution and the
// product L^-T L^-1 in place (Golub & Van Loan, 4th ed., Alg. 4.2.1 and Sec. 3.1).
#include "matrix/cholesky.h"

#include <cmath>

#include "matrix/matrix.h"

int MatCholesky(MATRIX A, int n) {
    for (int i = 0; i < n; ++i) {
        double *ri = A[i];
        for (int j = 0; j < i; ++j) {
            const double *rj = A[j];
            double s = ri[j];
            for (int l = 0; l < j; ++l) s -= ri[l] * rj[l];
            ri[j] = s / rj[j];
        }
        double d = ri[i];
        for (int l = 0; l < i; ++l) d -= ri[l] * ri[l];
        if (!(d > 0.0)) return 0;
        ri[i] = std::sqrt(d);
        for (int j = i + 1; j < n; ++j) ri[j] = 0.0;
    }
    return 1;
}

int MatInvertSpd(MATRIX A, int n) {
    if (!MatCholesky(A, n)) return 0;
    // L^-1 in place, row by row: row i needs only the rows above it, already inverted, and its
    // own elements to the right of the one being written.
    for (int i = 0; i < n; ++i) {
        double *ri = A[i];
        const double d = 1.0 / ri[i];
        for (int j = 0; j < i; ++j) {
            double s = 0.0;
            for (int l = j; l < i; ++l) s += ri[l] * A[l][j];
            ri[j] = -s * d;
        }
        ri[i] = d;
    }
    // (L^-T L^-1)[i][j] = sum over l >= i of M[l][i] M[l][j] for j <= i (M = L^-1). Row i of the
    // result needs only rows l >= i of M, so rows are overwritten in increasing order; within the
    // row the diagonal M[i][i] is used by every element and written last.
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j <= i; ++j) {
            double s = 0.0;
            for (int l = i; l < n; ++l) s += A[l][i] * A[l][j];
            if (j < i)
                A[j][i] = s; // the upper triangle is free storage until mirrored
            else
                A[i][i] = s;
        }
        for (int j = 0; j < i; ++j) A[i][j] = A[j][i];
    }
    return 1;
}

int MatLogDet(MATRIX W, int n, double *logdet, MATRIX work) {
    MatOwner own;
    if (n < 1) {
        if (logdet) *logdet = 0.0;
        return 0;
    }
    if (!work) {
        if (!own.alloc(n, n)) return 2;
        work = own.get();
    }
    if (work != W)
        for (int i = 0; i < n; ++i)
            for (int j = 0; j <= i; ++j) work[i][j] = W[i][j];
    if (!MatCholesky(work, n)) return 1;
    double s = 0.0;
    for (int i = 0; i < n; ++i) s += std::log(work[i][i]);
    if (logdet) *logdet = 2.0 * s;
    return 0;
}
