// Recursive least squares for n equations with the same k regressors: coefficients, one-step
// innovations, standardised innovations, residuals, residual sums of squares, the diagonal of the
// inverse moment matrix and a system log-likelihood statistic for every observation from the
// first overidentified one to the last.
#ifndef KAVREL_ESTIMATORS_RLS_H
#define KAVREL_ESTIMATORS_RLS_H

#include "base/types.h"

// Full refits are made at this interval of steps (and on demand) to stop rounding drift.
constexpr int RlsRefitInterval = 50;

// Y: at least last+1 rows of n columns; X: at least last+1 rows of k columns (observations in
// rows, as the host holds them). first..last is the inclusive sample; a full re-estimation is
// made at row force. Outputs (each may be null, its work then skipped), all with last+1 columns
// indexed by the observation row: coef (n*k rows), pdiag (k), stdinnov, innov, rss, resid (n
// each), sysstat (1). Returns 1 on success, 0 on failure (bad counts or range, allocation
// failure, or a full step whose f <= 0).
int RlsRecursion(MATRIX Y, MATRIX X, int first, int last, int force, int n, int k, MATRIX coef, MATRIX pdiag,
                 MATRIX stdinnov, MATRIX innov, MATRIX rss, MATRIX resid, MATRIX sysstat);

#endif
