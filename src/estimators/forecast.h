// Forecasts and impulse responses of an estimated linear dynamic system
//   y_t = B x_t + u_t,   E u_t u_t' = Omega,
// where x_t holds exogenous regressors and lags of the endogenous variables y. One simulation
// engine serves both: the working rows hold every variable over the observations, and a lagged
// regressor is not a row of its own but a view into its variable's row shifted back by the lag,
// so a value written at t is seen by every later observation without lag bookkeeping.
// Standard errors follow Lutkepohl (2005), sections 2.2.2 and 3.5: the MA form of the companion
// system for the error part and a delta-method term for the estimated coefficients.
// docs/forecast.md describes the engine, the pre-sample rule and the variance formulas.
#ifndef KAVREL_ESTIMATORS_FORECAST_H
#define KAVREL_ESTIMATORS_FORECAST_H

#include "base/types.h"

// Identity variables computed from the endogenous ones by a caller (the language's workspace in
// the library). step writes count values into ident for the endogenous values at workspace column
// and returns 1, or 0 when the identities could not be computed there. count 0 or a null step:
// no identities.
struct ForecastIdentities {
    int count;
    void *ctx;
    int (*step)(void *ctx, int column, const double *endog, int nEndog, double *ident);
};

// Regressor descriptor: three parallel arrays of nEndog + nReg entries (variable number, status
// code, lag; doubles truncated toward zero). Entries whose status is code1 or code2 belong to the
// modelled variables: lag 0 names a modelled variable, a positive lag one of its lags. Every other
// entry is an exogenous regressor.
struct ForecastDescriptor {
    const double *variable, *status, *lag;
    int code1, code2;
};

// Lags above this are refused: the working rows keep that many pre-sample observations.
enum { FORECAST_MAX_LAG = 100000 };

// Column map of the regressors, nEndog + nReg entries each. Entries 0..nEndog-1 are the modelled
// variables themselves (varIndex 0..nEndog-1). Entry nEndog + j describes regressor j (row j of the
// regressor data, column j of B): the lagged modelled variables first (status code1, then code2,
// each in descriptor order) with varIndex the variable's row and lag >= 1; then the exogenous
// regressors in descriptor order, varIndex nEndog, nEndog + 1, ... and lag 0.
struct RegressorMap {
    int *varIndex;
    int *lag;
};

// Fills map (caller's arrays) from the descriptor in the four passes; list is scratch for nEndog
// variable numbers. Returns 1, or 0 when an entry is left unmapped: a lag of a variable that is
// not among the modelled ones, an unreadable number, a lag above FORECAST_MAX_LAG, or entries that
// do not describe exactly nReg regressors.
int RegressorMapBuild(const ForecastDescriptor &d, int nEndog, int nReg, int *list, RegressorMap map);

// The estimated system and its data. Observations are columns.
struct ForecastModel {
    MATRIX endog; // nEndog x endogCols actual values
    int nEndog, endogCols;
    MATRIX reg; // nReg x regCols regressor data; lagged modelled rows are used only before observation 0
    int nReg, regCols;
    ForecastDescriptor desc;
    MATRIX coef; // nEndog x nReg
    // Error covariance, omegaDim square (null: none). Forecasts: nEndog; impulses: the modelled
    // equations.
    MATRIX omega;
    int omegaDim;
    // Parameter uncertainty, used by the standard errors when coefCov is not null. Coefficients
    // are stacked equation by equation: beta[i * nReg + j] = B[i][j]. Without restriction, coefCov is
    // the (nEndog nReg) square covariance of beta. With restriction, beta = R gamma + r for m free
    // parameters: restriction holds R row by row ((nEndog nReg) x m) and coefCov (m x m) is the
    // covariance of gamma.
    MATRIX coefCov;
    const double *restriction;
    int restrictCols;
};

// Forecasts of observations t1..t2 (0 <= t1 <= t2 < INT_MAX; t2 < regCols when nReg > 0) into out,
// (nEndog + ids.count) x (t2 - t1 + 1): endogenous rows, then identities. horizon <= 0: dynamic
// forecasts from t1; horizon h > 0: h-step forecasts, the value at e using actual data up to e - h
// only (the first h from t1). se, when not null, receives the forecast standard errors in the same
// shape (requires omega, nEndog square). Identity values of observation t are computed at
// workspace column identColumn + (t - t1). Returns 1, or 0 on failure (unmapped descriptor, h
// beyond the forecast count, no covariance for requested standard errors, allocation failure);
// out and se are then not to be used.
int ForecastRun(const ForecastModel &m, int t1, int t2, int horizon, const ForecastIdentities &ids,
                long long identColumn, MATRIX out, MATRIX se);

// Impulse kinds: what is written into the modelled equations at t1.
enum {
    IMPULSE_UNIT = 0,     // 1 in equation k
    IMPULSE_SD = 1,       // sqrt(Omega[k][k]) in equation k
    IMPULSE_CHOLESKY = 2, // column k of the Cholesky factor of Omega
    IMPULSE_VECTOR = 3    // the caller's vector
};

// Responses of all nEndog variables to one impulse at t1, all data zero, over t1..t2, into out
// (nEndog x (t2 - t1 + 1)); columns of observations at or beyond endogCols are not written. The
// first nModelled equations carry the shock (omegaDim must then be nModelled for kinds 1 and 2);
// the others, the identity block, only propagate it. vector holds nModelled values (kind 3).
// Returns 1, or 0 on failure (unmapped descriptor, shock out of range, bad kind, no covariance,
// Cholesky failure, no vector, allocation failure).
int ImpulseRun(const ForecastModel &m, int nModelled, int t1, int t2, int shock, int kind, const double *vector,
               MATRIX out);

#endif
