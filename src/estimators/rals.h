// Regression with autoregressive errors, y_t = x_t'b + u_t, u_t = rho_1 u_{t-1} + ... +
// rho_p u_{t-p} + e_t, estimated by conditional nonlinear least squares (restricted
// autoregressive least squares): the Gaussian log-likelihood of rho with b and the error variance
// concentrated out, its gradient and its second-derivative matrix; and forecasts of such a model.
// Formulas and choices: docs/rals.md.
#ifndef KAVREL_ESTIMATORS_RALS_H
#define KAVREL_ESTIMATORS_RALS_H

#include "base/types.h"

// y: at least last+1 values (plus what forecasting reads); X: rows of k regressors, observations
// in rows; rho: the p autoregressive coefficients, lag 1 first.
struct RalsModel {
    const double *y;
    MATRIX X;
    int k;
    const double *rho;
    int p;
};

// The concentrated conditional log-likelihood of rho over the innovations e_t, t = first..last
// (lags read from the rows before first: first >= p), with b (k values) the least-squares
// coefficients of the filtered data given rho. grad (p values) and hess (p x p) may be null, their
// work then skipped. Returns the log-likelihood, or NaN (b, grad and hess missing) when the
// counts are invalid, the filtered regressors hold a non-finite value or the scratch cannot be
// allocated.
double RalsObjective(const RalsModel &model, int first, int last, double *b, double *grad, MATRIX hess);

// Forecasts of y for rows last+1..last+h from coefficients b: fc (h values), and their standard
// errors se (h values, missing when the innovations leave no degrees of freedom). X must have
// rows up to last+h. Returns the innovations' standard error over first..last (first >= p), NaN
// when n <= k + p.
double RalsForecast(const RalsModel &model, const double *b, int first, int last, int h, double *fc, double *se);

#endif
