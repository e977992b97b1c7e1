// Seasonal statistics over observations in rows: removal of seasonal means and the R^2 of a model
// measured against the seasonal means of first differences (the seasonal benchmark R_s^2 of
// Harvey 1989: R_s^2 = 1 - RSS / SSDSM, SSDSM the sum of squares of the first differences about
// their seasonal means). Row t belongs to season t mod s.
#ifndef KAVREL_ESTIMATORS_SEASONAL_H
#define KAVREL_ESTIMATORS_SEASONAL_H

#include "base/types.h"

// Subtracts from every element of each of the ncols columns of X (nobs rows) the mean of its
// column over the rows of its season. Seasons without rows (s > nobs) change nothing.
void SeasonalDemean(MATRIX X, int nobs, int ncols, int s);

// 1 - rss / D, where D is the sum over seasons p of sum_t (d_t - mean_p)^2 over the first
// differences d_t = y[t+1] - y[t], t = p, p+s, ... < nobs-1. means (s doubles, may be null)
// receive mean_p. Returns -1.0, writing nothing, when nobs <= 2s.
double SeasonalRsq(const double *y, int nobs, int s, double rss, double *means);

#endif
