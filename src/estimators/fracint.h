// Autocovariances of a stationary fractionally integrated ARFIMA(p, d, q) process
//     phi(L) (1 - L)^d y_t = theta(L) e_t,   phi(L) = 1 - phi_1 L - ... - phi_p L^p,
//     theta(L) = 1 + theta_1 L + ... + theta_q L^q,   Var e_t = 1,
// by Sowell's (1992) formula in terms of Gauss hypergeometric functions. Details and references
// in docs/fracint.md.
#ifndef KAVREL_ESTIMATORS_FRACINT_H
#define KAVREL_ESTIMATORS_FRACINT_H

#include <complex>

// Where the hypergeometric series reports that it did not converge; the export connects it to
// the library's text output (estimators print nothing themselves). May be null.
typedef void (*FracPrintFn)(const char *text);

// Terms taken before the series gives up, and the magnitude below which a term ends it.
constexpr int FracSeriesMaxTerms = 10000;
constexpr double FracSeriesTolerance = 1e-14;

// sum_{k >= 0} t_k with t_0 = a/b and t_k = t_{k-1} (k + a) z / (k + b), that is
// sum_k (a)_{k+1} / (b)_{k+1} z^k = (F(a, 1; b; z) - 1) / z for the Gauss hypergeometric
// function F. Stops at the first term of magnitude below FracSeriesTolerance (not added); after
// FracSeriesMaxTerms terms it prints "hyper: end of loop reached!\n" through print and returns the
// partial sum. b must not be 0, -1, -2, ... (the callers' b are positive).
std::complex<double> FracHyperSeries(double a, double b, std::complex<double> z, FracPrintFn print);

// gamma[0..n-1]: the autocovariances at lags 0..n-1 for unit innovation variance. phi: p AR
// coefficients, theta: q MA coefficients (either null when its count is 0). When two inverse AR
// roots are closer than FracRootSeparation, the partial fractions of Sowell's formula would divide
// by their difference; the autocovariances are then the ARMA part's convolved with those of
// fractional noise (the splitting method), over as many ARMA lags as their decay needs, at most
// FracSplitMaxLags. Returns 1, or 0 with gamma set to the missing value when d is not in
// (-1, 0.5) or not finite, a coefficient is not finite, the AR polynomial has a root on or inside
// the unit circle (an inverse root of modulus >= 1), its roots cannot be found, the splitting
// sum would need more lags, or the scratch cannot be allocated. n < 1 or p, q < 0: 0, gamma
// untouched.
constexpr double FracRootSeparation = 1e-4;
constexpr long FracSplitMaxLags = 1000000;
int FracAutocovariances(const double *phi, int p, const double *theta, int q, double d, int n, double *gamma,
                        FracPrintFn print);

#endif
