// Densities, tail probabilities and quantiles of the normal, t, chi-squared and F distributions,
// and the log-gamma and log-beta functions, as plain functions of doubles. The lower tail (P) and
// the upper tail (Q) are separate functions, each accurate as a tail: Q is never 1 - P. Pinv and
// Qinv invert them. Every function is total: bad parameters or probabilities give NaN, NaN inputs
// give NaN, overflowing quantiles give +-infinity, and nothing throws or loops without bound.
// The implementation builds on Boost.Math behind the no-throw policy of policy.h; no Boost type
// appears here. Methods and measured accuracy are in docs/special.md.
#ifndef KAVREL_SPECIAL_DISTRIBUTIONS_H
#define KAVREL_SPECIAL_DISTRIBUTIONS_H

// Standard normal.
double DistNormalPdf(double x);
double DistNormalP(double x);    // Phi(x), full relative accuracy down to subnormal results
double DistNormalQ(double x);    // 1 - Phi(x), computed as a tail
double DistNormalPinv(double p); // x with Phi(x) = p; -inf at 0, +inf at 1
double DistNormalQinv(double q); // x with Q(x) = q

// Student's t with df > 0 degrees of freedom (df = +inf is the standard normal).
double DistTPdf(double x, double df);
double DistTP(double x, double df);
double DistTQ(double x, double df);
double DistTPinv(double p, double df);
double DistTQinv(double q, double df);

// Chi-squared with df > 0 degrees of freedom.
double DistChi2Pdf(double x, double df);
double DistChi2P(double x, double df);
double DistChi2Q(double x, double df);
double DistChi2Pinv(double p, double df);
double DistChi2Qinv(double q, double df);

// F with d1, d2 > 0 degrees of freedom; one of them may be +inf (the chi-squared limits).
double DistFPdf(double x, double d1, double d2);
double DistFP(double x, double d1, double d2);
double DistFQ(double x, double d1, double d2);
double DistFPinv(double p, double d1, double d2);
double DistFQinv(double q, double d1, double d2);

// log|Gamma(x)|; +inf at the poles (0, -1, -2, ...) and at +inf, NaN at -inf.
double LogGamma(double x);
// log B(a, b) for a, b > 0.
double LogBeta(double a, double b);

#endif
