// Wald tests of common-factor restrictions in an autoregressive distributed-lag model
//     a(L) y_t = sum_j b_j(L) x_jt + ...,   a(L) = 1 - a_1 L - ... - a_m L^m,
//     b_j(L) = b_j0 + b_j1 L + ... + b_jm_j L^m_j,
// (Sargan 1980; Hendry and Mizon 1978): that a factor rho(L) of order r of the autoregressive
// polynomial divides every b_j(L), so that the model is a static one in the x with autoregressive
// errors rho(L). Formulas and references in docs/comfac.md.
#ifndef KAVREL_ESTIMATORS_COMFAC_H
#define KAVREL_ESTIMATORS_COMFAC_H

#include "base/types.h"

// Autoregressive orders above this are refused: the test searches the factors of a(L).
constexpr int ComfacMaxLag = 16;
// Relative pivot threshold of the Cholesky factor of J V J' when the caller gives none.
constexpr double ComfacDefaultTolerance = 1e-10;

struct ComfacModel {
    const double *coef = nullptr; // the k estimated coefficients
    int k = 0;
    MATRIX cov = nullptr;            // their k x k covariance
    int ar = 0;                      // m, the autoregressive order (at most ComfacMaxLag)
    const double *xLags = nullptr;   // m_j for each of the nx regressors (whole numbers)
    int nx = 0;                      //
    const double *arIndex = nullptr; // m positions in coef of a_1..a_m (truncated toward zero)
    const double *xIndex = nullptr;  // sum (m_j + 1) positions of b_10..b_1m_1, b_20.., ...
    double tol = ComfacDefaultTolerance;
    int maxOrder = 0; // R: orders 1..R are tested
};

// stat: R statistics (order r in stat[r-1]); dfp: 2R values, the degrees of freedom r nx of each
// order, then the chi-squared p-values. Orders above m are missing. Returns 1 when every order
// 1..min(R, m) was tested; 0 when for some order every candidate factor gave a singular J V J'
// (that order missing); 3 when some order has no real factor (the roots of that order would
// split a complex pair; that order missing) and none was singular; 2 when there is nothing to test (m = 0 or nx = 0;
// everything missing); -1 when nothing could be computed (a non-finite coefficient or covariance, roots not found, no
// scratch; everything missing). Positions must lie in 0..k-1 (the export checks them).
int ComfacWald(const ComfacModel &m, double *stat, double *dfp);

#endif
