// The Hodrick-Prescott trend (Hodrick and Prescott 1997): tau minimising
//     sum_t (y_t - tau_t)^2 + lambda sum_{t=1}^{T-2} (tau_{t+1} - 2 tau_t + tau_{t-1})^2,
// the exact solution of (I + lambda K'K) tau = y with K the (T-2) x T second-difference matrix.
// The conventional lambda is 1600 for quarterly data (100 annual, 14400 monthly).
#ifndef KAVREL_NUMERIC_HPFILTER_H
#define KAVREL_NUMERIC_HPFILTER_H

// trend[0..n-1]; trend may be y. lambda = 0 or n < 3 (nothing to penalise) returns the data.
// 1, or 0 (trend untouched) for n < 1, a null array, a negative lambda or one so large that
// 16 lambda overflows (NaN and infinity included), or failed scratch. O(n): a pentadiagonal factor and solve.
int SmoothHp(const double *y, int n, double lambda, double *trend);

#endif
