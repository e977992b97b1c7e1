// Least squares by Householder triangularisation with row pivoting, and the process-wide rank
// tolerance that every least-squares fit of the library shares.
//
// Data come as k variable rows by count observation columns (X, the transposed design) and n
// dependent rows (Y). The variable rows are reduced by Householder reflections acting on the
// observation index (Golub & Van Loan, Matrix Computations, 4th ed., Alg. 5.1.1 and 5.4.1 with
// the roles of rows and columns exchanged): Pi X = L Q with L (k x count) lower trapezoidal and Q
// orthogonal, so that X X' = Pi' L L' Pi. The fit returns the coefficients B (n x k) and
// P = (X X')^-1 (k x k) by triangular solves with the leading block of L.
#ifndef KAVREL_MATRIX_QR_H
#define KAVREL_MATRIX_QR_H

#include "base/types.h"

// Default rank tolerance: 1000 units of roundoff, 2.220446049250313e-13.
extern const double MatDefaultRankTolerance;
// The tolerance of every least-squares fit. Any non-negative value (including +inf) is accepted
// and 1 returned; a negative or NaN value is refused (0 returned, tolerance unchanged).
int MatSetRankTolerance(double tol);
double MatGetRankTolerance();

class KvCarve;

// Workspace of a fit, made once and reused so that repeated fits (the recursive estimators'
// refits) allocate nothing. Capacity: up to kcap variables, ncap dependent rows, cap observations.
// Its pieces lie in one block: its own (MatLsqWorkAlloc) or part of a caller's (MatLsqWorkLayout).
struct MatLsqWork {
    int kcap = 0, ncap = 0, cap = 0;
    MATRIX a = nullptr;     // kcap x cap: the variable rows, reduced in place; rows swap with the pivots
    MATRIX y = nullptr;     // ncap x cap: the dependent rows, reflected alongside (null when ncap = 0)
    MATRIX linv = nullptr;  // kcap x kcap: the inverse of the leading block of L
    double *norm = nullptr; // kcap: squared norms of the unreduced parts of the variable rows
    double *diag = nullptr; // kcap: diagonal of L
    double *coef = nullptr; // kcap: coefficients of one equation in pivoted order
    int *perm = nullptr;    // kcap: perm[i] = original index of the variable in pivot position i
    void *block = nullptr;  // the one allocation, when the workspace owns it
    // Filled by each fit, for callers and tests that want the detail:
    int steps = 0; // reflections made (the triangularisation stops early at an all-zero remainder)
    int rank = 0;  // leading diagonal elements above the rank threshold

    MatLsqWork() = default;
    ~MatLsqWork();
    MatLsqWork(const MatLsqWork &) = delete;
    MatLsqWork &operator=(const MatLsqWork &) = delete;
};

// 1 on success (one allocation); on failure nothing is held. MatLsqWorkFree (also run by the
// destructor) releases it and accepts a never-made workspace.
int MatLsqWorkAlloc(MatLsqWork *w, int kcap, int ncap, int cap);
void MatLsqWorkFree(MatLsqWork *w);
// Describes the workspace's pieces to a carve (base/carve.h), so that a caller can place them in
// its own one block; such a workspace owns nothing. 0 for capacities that cannot be a workspace.
int MatLsqWorkLayout(KvCarve &carve, MatLsqWork *w, int kcap, int ncap, int cap);

// Fits Y (n rows) on X (k rows) over observation columns 0..count-1 with the workspace w.
// B (n x k) and P (k x k) may each be null (their work is skipped; with B null or n = 0 the
// dependent rows are not touched). Inputs are not modified.
//
// Status: 0 when the workspace is too small, k < 1, count < 1, n < 0 or X holds a non-finite
// value (B and P are then set to the missing value). Otherwise, with m = min(k, count), the
// squared norms of the m rows of L (row i holding elements 0..i), their minimum and maximum,
// tol the rank tolerance, and rank the number of leading |L[i][i]| > sqrt(maximum) * tol:
//    1  rank = m and minimum / maximum > tol
//    2  rank = m and minimum / maximum <= tol
//   -1  rank < m and minimum / maximum > tol, or maximum = 0
//   -2  rank < m and minimum / maximum <= tol
// B and P hold the basic solution: the first rank pivoted variables are fitted, the others get
// coefficient 0 and zero rows and columns in P (P is the inverse moment matrix of the retained
// variables, embedded). With rank = k this is the ordinary least-squares solution.
int MatLsqFit(MATRIX X, int k, int count, MATRIX Y, int n, MATRIX B, MATRIX P, MatLsqWork *w);

// The same with a workspace of its own; status 0 also when that cannot be allocated.
int MatLeastSquares(MATRIX X, int k, int count, MATRIX Y, int n, MATRIX B, MATRIX P);

#endif
