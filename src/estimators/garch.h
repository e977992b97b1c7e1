// Conditional-variance recursions of GARCH-type models for given parameters: the asymmetric
// GARCH in levels of the variance (Bollerslev 1986, sec. 2, with the threshold term of
// Glosten, Jagannathan and Runkle 1993) and the exponential GARCH in logs (Nelson 1991, sec. 2:
// the news function g(z) = theta z + gamma (|z| - E|z|) and the log-variance recursion). Both
// optionally remove a variance-in-mean term (Engle, Lilien and Robins 1987). Series are
// plain arrays of nobs doubles; the host's optimiser calls these once per likelihood evaluation.
#ifndef KAVREL_ESTIMATORS_GARCH_H
#define KAVREL_ESTIMATORS_GARCH_H

// In-mean kinds: u_t = e_t - delta * m(h_t). Any other value means no in-mean term.
enum {
    GARCH_INMEAN_NONE = 0,
    GARCH_INMEAN_VAR = 1,   // m(h) = h
    GARCH_INMEAN_SD = 2,    // m(h) = sqrt(h)
    GARCH_INMEAN_LOGVAR = 3 // m(h) = log h
};

// GARCH(p, q) with threshold term. coef holds 1 + max(p,q) + p elements: coef[0] unused,
// coef[1..max] the ARMA-form coefficients phi_i = alpha_i + beta_i, coef[max+1..max+p] beta.
// Unavailable lags take sigma-bar^2 = mean of e_t^2. h may become zero or negative; it is kept.
// Returns 1, or 0 when the one scratch array (q doubles) could not be allocated, in which case
// h and u hold missing values. Requires nobs >= 1, p >= 0, q >= 0.
int GarchVariance(const double *e, const double *x, int nobs, const double *coef, int p, int q, int inMean,
                  double delta, double kappa, double gamma, double *h, double *u);

// EGARCH(p, q): a holds a_1..a_q (news terms), b holds b_1..b_p (lagged log variances).
// logh receives the log variance: start-up values as computed, main-phase values capped at 709.
// Returns 1, or 0 when the news series (nobs doubles) could not be allocated, in which case
// logh and u are set to zero. Requires nobs >= 1, p >= 0, q >= 0.
int EgarchVariance(const double *e, const double *x, int nobs, double theta, double phi, double nu, const double *a,
                   int q, const double *b, int p, int inMean, double delta, double *logh, double *u);

#endif
