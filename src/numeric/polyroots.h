// Roots of a real polynomial, for the lag-polynomial computations of the estimators (the roots
// of an autoregressive polynomial in the fractional autocovariances and the common-factor tests).
#ifndef KAVREL_NUMERIC_POLYROOTS_H
#define KAVREL_NUMERIC_POLYROOTS_H

#include <complex>

// The n roots of the monic polynomial z^n + c[0] z^(n-1) + ... + c[n-1] by the simultaneous
// Aberth-Ehrlich iteration (Aberth 1973; Bini 1996 for the starting circle), no scratch.
// Afterwards the roots are conjugate-symmetric: each root is either real (imaginary part exactly
// 0) or one of a pair stored at adjacent positions, positive imaginary part first, whose members
// are exact conjugates; the groups are ordered by decreasing modulus. Returns 1 when every root
// converged, 0 for n < 0, a non-finite coefficient or no convergence in 500 sweeps (roots then
// hold the last iterates). n = 0 succeeds with nothing to do.
int PolyRoots(const double *c, int n, std::complex<double> *roots);

#endif
