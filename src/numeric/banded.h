// Symmetric positive-definite pentadiagonal systems A x = b through A = L D L', L unit lower
// triangular with two subdiagonals (Golub and Van Loan 2013, Alg. 4.3.5 restricted to the band),
// and the central five bands of A^-1 from the same factor (Hutchinson and de Hoog 1985), which
// give the trace of a smoother matrix in O(n). The band is held as three arrays:
//     d[i] = A[i][i] (n),   e[i] = A[i+1][i] (n-1),   f[i] = A[i+2][i] (n-2).
#ifndef KAVREL_NUMERIC_BANDED_H
#define KAVREL_NUMERIC_BANDED_H

// Factors in place: d becomes D, e[i] = L[i+1][i], f[i] = L[i+2][i]. 1, or 0 as soon as a pivot
// is not strictly positive (NaN included): A is not positive definite in floating point.
int BandFactor5(double *d, double *e, double *f, int n);

// Overwrites b with A^-1 b, given the factor.
void BandSolve5(const double *d, const double *e, const double *f, int n, double *b);

// s0[i] = A^-1[i][i] (n), s1[i] = A^-1[i+1][i] (n-1), s2[i] = A^-1[i+2][i] (n-2), given the
// factor. O(n).
void BandInverse5(const double *d, const double *e, const double *f, int n, double *s0, double *s1, double *s2);

#endif
