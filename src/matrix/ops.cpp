// Range products and the quadratic form. Each inner product is one running sum in increasing
// index order, so results are reproducible whatever the caller's blocking.
#include "matrix/ops.h"

MATRIX MatMulABtRange(MATRIX A, int n, int lo, int hi, MATRIX B, int k, MATRIX C) {
    for (int i = 0; i < n; ++i) {
        const double *a = A[i];
        for (int j = 0; j < k; ++j) {
            const double *b = B[j];
            double s = 0.0;
            for (int t = lo; t <= hi; ++t) s += a[t] * b[t];
            C[i][j] = s;
        }
    }
    return C;
}

MATRIX MatMulAAtRange(MATRIX A, int n, int lo, int hi, MATRIX C) {
    for (int i = 0; i < n; ++i) {
        const double *a = A[i];
        for (int j = 0; j <= i; ++j) {
            const double *b = A[j];
            double s = 0.0;
            for (int t = lo; t <= hi; ++t) s += a[t] * b[t];
            C[i][j] = s;
            C[j][i] = s;
        }
    }
    return C;
}

double MatQuadFormCol(int c, MATRIX X, MATRIX P, int k) {
    double s = 0.0;
    for (int i = 0; i < k; ++i) {
        const double xi = X[i][c];
        double off = 0.0;
        for (int j = i + 1; j < k; ++j) off += P[i][j] * X[j][c];
        s += P[i][i] * xi * xi + 2.0 * off * xi;
    }
    return s;
}
