// Recursive instrumental variables: two-stage least-squares coefficients, their standard errors,
// one-step innovations, standardised innovations, residual sums of squares and Sargan's statistic
// of the overidentifying restrictions over the growing sample first..t, for every t from the first
// observation after the instruments are identified to the last. Formulas and choices:
// docs/riv.md.
#ifndef KAVREL_ESTIMATORS_RIV_H
#define KAVREL_ESTIMATORS_RIV_H

#include "base/types.h"

// Full inversions are made at this interval of steps (and on demand) to stop rounding drift.
constexpr int RivRefitInterval = 50;

// The model in a data matrix with variables in rows and observations in columns (at least last+1):
// row 0 is y; rows 1..regs the regressors, of which the first endo are endogenous and the others
// exogenous (their own instruments); rows regs+1..regs+extra the additional instruments. The m =
// regs - endo + extra instruments are the exogenous regressors, then the additional ones.
struct RivModel {
    MATRIX data;
    int endo, regs, extra;
};

// Outputs (each may be null, its work then skipped), all with last+1 columns indexed by the
// observation: coef and se (regs rows, regressor j in row j), stdinnov, innov, rss, sargan (one
// row). Observations first..first+m-1 start the recursion; columns first+m..last are written
// and the others hold the missing value. Returns 1 on success, 0 on failure: endo > regs,
// extra < endo (not identified), first + m > last, a failed inversion (instruments or projected
// regressors of deficient rank, or a non-finite value in the data) or an allocation failure.
int RivRecursion(const RivModel &model, int first, int last, int force, MATRIX coef, MATRIX se, MATRIX stdinnov,
                 MATRIX innov, MATRIX rss, MATRIX sargan);

#endif
