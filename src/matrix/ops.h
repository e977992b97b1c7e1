// Elementary products over observation ranges. Observations are the second index (columns of a
// transposed working copy); ranges are inclusive absolute pairs lo..hi and empty when hi < lo.
#ifndef KAVREL_MATRIX_OPS_H
#define KAVREL_MATRIX_OPS_H

#include "base/types.h"

// C (n x k) = sum over t in lo..hi of A[i][t] * B[j][t].
MATRIX MatMulABtRange(MATRIX A, int n, int lo, int hi, MATRIX B, int k, MATRIX C);
// C (n x n) = sum over t in lo..hi of A[i][t] * A[j][t]; lower triangle computed, then mirrored.
MATRIX MatMulAAtRange(MATRIX A, int n, int lo, int hi, MATRIX C);
// x'Px for x = column c of X (k rows), from the diagonal and upper triangle of P.
double MatQuadFormCol(int c, MATRIX X, MATRIX P, int k);

#endif
