// Symmetric positive-definite matrices: the Cholesky factor, the inverse and the log-determinant.
// All three read only the lower triangle of their input (row i, columns 0..i) and declare a matrix
// not positive definite as soon as a pivot is not strictly positive (a NaN pivot included).
#ifndef KAVREL_MATRIX_CHOLESKY_H
#define KAVREL_MATRIX_CHOLESKY_H

#include "base/types.h"

// A = L L' in place: the lower triangle becomes L, the strict upper triangle 0. 1 on success,
// 0 when A is not positive definite (A is then partly overwritten). n < 1 succeeds trivially.
int MatCholesky(MATRIX A, int n);

// A^-1 in place (full symmetric result) from A = L L': A^-1 = L^-T L^-1. 1 on success, 0 when A is
// not positive definite (A is then partly overwritten).
int MatInvertSpd(MATRIX A, int n);

// log det W = 2 sum log L[i][i]. Returns 0 on success with *logdet set; 1 when W is not positive
// definite; 2 when scratch cannot be allocated. work (n x n) receives the factor: pass W itself
// to factor in place, another matrix to keep W, or null to let the routine allocate its own.
int MatLogDet(MATRIX W, int n, double *logdet, MATRIX work);

#endif
