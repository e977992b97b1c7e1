// Discrete-choice likelihoods: the binary probit and the multinomial logit (individual-specific
// regressors X with one coefficient vector per non-base category, category-specific attributes Z
// with generic coefficients, optional offsets), each evaluated at a given parameter vector with
// whichever of score, information, fitted probabilities, per-observation log-likelihood and
// outer product of scores the caller asks for; and the actual-versus-fitted table of any
// discrete-choice model. Formulas and the choices made where usage leaves them open are in
// docs/discrete.md.
#ifndef KAVREL_ESTIMATORS_DISCRETE_H
#define KAVREL_ESTIMATORS_DISCRETE_H

#include "base/types.h"

// Probabilities are clamped below at 2^-104 so that log-likelihoods stay finite.
const double kDiscreteProbFloor = 4.930380657631324e-32;

// Optional outputs; a null member is skipped together with all work that only feeds it. The
// accumulated ones (score, information, outer product) are zeroed here first.
struct DiscreteOutputs {
    double *score;  // k
    MATRIX info;    // k x k, expected information, symmetric
    MATRIX prob;    // n x 2 (probit: P0, P1) or n x m (logit)
    double *llfObs; // n; missing for invalid outcomes
    MATRIX outer;   // k x k, sum of s_i s_i'
};

// Binary probit at beta (k values) for outcomes y (n values, truncated toward zero; 0 and 1 are
// valid), regressors X (n x k) and weights w (n values, or null for unit weights). Returns the
// log-likelihood summed over valid outcomes. The outer product is skipped (left zero) when its
// scratch vector cannot be allocated.
double ProbitEval(const double *beta, int k, const double *y, MATRIX X, int n, const double *w,
                  const DiscreteOutputs &out);

// Multinomial logit problem. Category 0 is the base. y is n x ycols: with one column, category
// codes (truncated toward zero, valid in 0..m-1); with several, the grouped form, y[i][j] the
// count or weight of category j < m. Attribute a of category j is Z column a*m + j, for
// a < kz / m. Offsets, when given, supply the first ocols (<= m) categories; the rest are 0.
struct LogitProblem {
    int n, m;
    const double *beta; // LogitParamCount(m, kx, kz) values
    MATRIX y;
    int ycols;
    MATRIX X; // n x kx, or null with kx = 0
    int kx;
    MATRIX Z; // n x kz, or null with kz = 0
    int kz;
    const double *w; // n weights or null
    MATRIX offset;   // n x ocols or null
    int ocols;
};

// (m - 1) kx + kz / m; -1 when m < 1, a count is negative, or the count overflows.
long LogitParamCount(int m, int kx, int kz);

// Evaluates the logit; the log-likelihood goes to *llf. Returns 1, or 0 when the counts give no
// parameter count (LogitParamCount < 0) or its scratch cannot be allocated (nothing is then
// computed; *llf is untouched).
int LogitEval(const LogitProblem &pb, const DiscreteOutputs &out, double *llf);

// Derivatives of the logit probabilities with respect to the individual-specific regressors of a
// model with kx regressors X (rows first..last used), m categories and no attributes or offsets:
// D[j][l] (m x kx) = the average over observations first..last of
// dp_ij/dx_il = p_ij (beta_jl - sum_h p_ih beta_hl), beta_0 = 0 for the base category. Returns 1,
// or 0 with D untouched when its scratch cannot be allocated.
int LogitProbDerivEval(const double *beta, MATRIX X, int kx, int m, int first, int last, MATRIX D);

// Actual-versus-fitted table into table ((m+1) x (m+1)): rows actual category, columns the
// category of largest fitted probability, last row and column the totals of the cells truncated
// toward zero. actual is n x acols (acols 1: codes; otherwise acols >= m indicator or weight
// columns), fitted is n x m.
void ActFitTableEval(MATRIX actual, int acols, MATRIX fitted, int n, int m, MATRIX table);

#endif
