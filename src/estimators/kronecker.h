// Chosen elements of a Kronecker product A (x) B without forming it: element (r, c) of the
// product is A[r div rB][c div cB] * B[r mod rB][c mod cB] (Magnus and Neudecker 1999, ch. 2).
#ifndef KAVREL_ESTIMATORS_KRONECKER_H
#define KAVREL_ESTIMATORS_KRONECKER_H

#include "base/types.h"

// out[i][j] = (A (x) B)[R_i][C_j] for i < nrow, j < ncol, with the indices held as doubles and
// truncated toward zero. When rowIdx is null, R_i = i. An index whose truncation falls outside the
// product (NaN included) gives the missing value for that element; so does every element when A
// or B has no rows or no columns.
void KroneckerSelect(MATRIX A, int rA, int cA, MATRIX B, int rB, int cB, const double *rowIdx, int nrow,
                     const double *colIdx, int ncol, MATRIX out);

#endif
