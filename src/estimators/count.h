// Count-data log-likelihoods with a log link, mu_i = exp(x_i'beta): the Poisson and the negative
// binomial of Cameron and Trivedi's NB2 form (variance mu + alpha mu^2), the dispersion either
// estimated with the coefficients (its logarithm the last parameter) or fixed by the caller. Each
// is evaluated at a given parameter vector over an inclusive range of observations, with
// whichever of score, information, fitted values, per-observation log-likelihood and outer
// product of scores the caller asks for. Formulas and choices are in docs/count.md.
#ifndef KAVREL_ESTIMATORS_COUNT_H
#define KAVREL_ESTIMATORS_COUNT_H

#include "base/types.h"

enum CountModel {
    COUNT_POISSON = 0,
    COUNT_NB2 = 1,       // parameters: beta (k), then log alpha
    COUNT_NB2_FIXED = 2, // parameters: beta (k); alpha given
};

// Optional outputs; a null member is skipped with the work that only feeds it. Score,
// information and outer product are zeroed here first; fitted values and per-observation
// log-likelihoods are written only in rows first..last.
struct CountOutputs {
    double *score;  // p
    MATRIX info;    // p x p, observed information (minus the Hessian), symmetric
    MATRIX fitted;  // n x 2: mu, variance mu (1 + alpha mu)
    double *llfObs; // n; missing for invalid outcomes
    MATRIX outer;   // p x p, sum of s_i s_i'
};

// Parameter count: k, plus one for COUNT_NB2; -1 for an unknown model or k < 1.
int CountParamCount(int model, int k);

// The log-likelihood summed over the observations first..last of y (truncated toward zero; valid
// are finite values >= 0) and X (rows of k regressors), at theta (CountParamCount values); alpha
// is read only for COUNT_NB2_FIXED. Needs no scratch.
double CountEval(int model, const double *theta, int k, const double *y, MATRIX X, int first, int last, double alpha,
                 const CountOutputs &out);

#endif
