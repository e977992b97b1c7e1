// Sample autocorrelations and partial autocorrelations of a series x_0..x_{T-1}.
//     r_k = c_k / c_0,   c_k = sum_{t=0}^{T-1-k} (x_t - xbar)(x_{t+k} - xbar),
// the biased estimator (Box and Jenkins 1976, eq. 2.1.12; the divisor T cancels), whose sequence
// is positive semi-definite, so every partial autocorrelation lies in [-1, 1]. r_0 = 1.
// Partial autocorrelations phi_kk by the Durbin-Levinson recursion (Durbin 1960) on r_1..r_m;
// phi_00 = 1 by convention, beside r_0.
// A constant series (all values equal) has no autocorrelation: lag 0 is 1 and every other lag is
// the missing value, with status 1.
#ifndef KAVREL_NUMERIC_ACF_H
#define KAVREL_NUMERIC_ACF_H

// r[0..maxlag] for 0 <= maxlag <= n-1. Lags are summed directly in O(n maxlag) or, when many lags
// are asked for, by zero-padded transforms in O(n log n). 1, or 0 for bad arguments or failed
// scratch (r untouched).
int SeriesAcf(const double *x, int n, int maxlag, double *r);

// pacf[0..maxlag] for 0 <= maxlag <= n-1, O(n log n + maxlag^2). Should the prediction-error
// variance of the recursion vanish in floating point (a series exactly predictable from its past
// at some order, where a partial autocorrelation of modulus above 1 would come out), the partial
// autocorrelations from that order on are missing. 1, or 0 for bad
// arguments or failed scratch (pacf untouched).
int SeriesPacf(const double *x, int n, int maxlag, double *pacf);

#endif
