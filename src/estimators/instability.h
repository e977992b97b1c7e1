// Parameter constancy of a linear regression from cumulated scores (Nyblom 1989; Hansen 1992,
// "Testing for parameter instability in linear models", Journal of Policy Modeling 14): the
// scores f_t = (x_t e_t, e_t^2 - sigma^2), their partial sums S_t = sum_{s<=t} f_s and
// V = sum_t f_t f_t' give an individual statistic per coefficient and for the variance,
// L_i = sum_t S_it^2 / (T V_ii), and the joint one L_c = (1/T) sum_t S_t' V^-1 S_t.
#ifndef KAVREL_ESTIMATORS_INSTABILITY_H
#define KAVREL_ESTIMATORS_INSTABILITY_H

#include "base/types.h"

// X (T x k, T, k >= 1) and the residuals e (T values); sigma2 the error variance, e'e/T when it
// is not finite and positive. The k + 1 individual statistics go to indiv (null: not wanted).
// Returns L_c; the missing value when V is not positive definite (an individual statistic is
// missing where its V_ii is 0); -1.0 when the scratch cannot be allocated (indiv untouched).
double InstabilityEval(MATRIX X, const double *e, int T, int k, double sigma2, double *indiv);

#endif
