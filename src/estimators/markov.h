// Regime-probability recursions of a Markov-switching model with m regimes: the forward filter of
// Hamilton (1989), written in the column-stochastic orientation used here, and the backward
// smoother of Kim (1994):
//   Pr[S_t = i | Y_T] = Pr[S_t = i | Y_t] sum_j P[j][i] Pr[S_{t+1} = j | Y_T] / Pr[S_{t+1} = j | Y_t].
// The transition matrix P is column-stochastic:
// P[j][i] = Pr[S_{t+1} = j | S_t = i]. Regime-conditional densities come from the caller.
#ifndef KAVREL_ESTIMATORS_MARKOV_H
#define KAVREL_ESTIMATORS_MARKOV_H

#include "base/types.h"

// Forward filter over nobs x m densities, starting from the predicted probabilities init
// (m doubles). lik[t] receives the likelihood contribution f_t (not its log); filt, when not null,
// receives Pr[S_t = j | Y_t] row by row. Returns 1, or 0 (nothing written) when the scratch could
// not be allocated.
int MsFilter(MATRIX dens, int nobs, int m, MATRIX P, const double *init, double *lik, MATRIX filt);

// What the smoother accumulates in its m x m output, summed over t = 0 .. nobs-2:
enum {
    MS_SMOOTH_JOINT = 0,    // r_j f_i P[j][i]: the smoothed joint probabilities of (S_t = i, S_{t+1} = j)
    MS_SMOOTH_RATIO = 1,    // r_j f_i, the caller multiplies by P
    MS_SMOOTH_RATIO_SYM = 2 // as RATIO, with the backward step through P transposed (exact for symmetric P)
};

// Backward smoother over nobs x m filtered probabilities. smooth (nobs x m) receives
// Pr[S_t = j | Y_T], trans (m x m) the accumulated terms of kind. Returns 1, or 0 (outputs not
// written) when the scratch could not be allocated.
int MsSmooth(MATRIX filt, int nobs, int m, MATRIX P, int kind, MATRIX smooth, MATRIX trans);

#endif
