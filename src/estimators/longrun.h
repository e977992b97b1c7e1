// Long-run covariance of regression scores s_t = x_t (x) u_t (regressor index major, equation
// index minor): V = sum_t s_t s_t' + sum_{l=1..L} w_l sum_t (s_t s_{t-l}' + s_{t-l} s_t'), with
// Bartlett weights w_l = 1 - l/(L+1) (Newey and West 1987) and L = 0 for the
// heteroscedasticity-consistent middle factor (White 1980). V is neither divided by T nor
// sandwiched: the caller completes the covariance.
#ifndef KAVREL_ESTIMATORS_LONGRUN_H
#define KAVREL_ESTIMATORS_LONGRUN_H

#include "base/types.h"

// The data-determined lag truncation truncate(4 (T/100)^(2/9)).
int LongRunLag(int nobs);

// V (k m x k m) from X (nobs x k) and U (at least nobs rows, m columns) with lag truncation L.
// V is zeroed first. Returns 1, or 0 with V left zero when the L+1 score slots could not be
// allocated.
int LongRunScoreCovariance(MATRIX X, int nobs, int k, MATRIX U, int m, int lag, MATRIX V);

#endif
