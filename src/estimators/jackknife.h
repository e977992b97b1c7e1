// The jackknife covariance of least-squares coefficients (MacKinnon and White 1985, "Some
// heteroskedasticity-consistent covariance matrix estimators with improved finite sample
// properties", Journal of Econometrics 29): ((T-1)/T) sum_t (b_(t) - b_bar)(b_(t) - b_bar)',
// b_(t) the estimate without observation t and b_bar their mean, computed without refitting.
#ifndef KAVREL_ESTIMATORS_JACKKNIFE_H
#define KAVREL_ESTIMATORS_JACKKNIFE_H

#include "base/types.h"

// X (T x k), the least-squares residuals e (T values) and A = (X'X)^-1 (k x k) into V (k x k).
// Returns 1; 0 (V partly written) when an observation's leverage is not below 1 - 1e-10 (or is
// NaN: its deletion leaves the fit undetermined) or the scratch cannot be allocated.
int JackknifeCovariance(MATRIX X, const double *e, MATRIX A, int T, int k, MATRIX V);

#endif
