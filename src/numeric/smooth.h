// Nonparametric smoothers of a series y_0..y_{T-1} over its index t = 0..T-1, with the amount of
// smoothing chosen automatically or given. alpha selects it in both:
//     alpha == 0   automatic: the minimiser of generalised cross-validation (Craven and Wahba
//                  1979), GCV = T RSS / (T - tr S)^2, S the linear smoother matrix (g = S y);
//     alpha > 0    a whole number (the caller rounds it): the kernel smoother's bandwidth h, or
//                  the spline's equivalent degrees of freedom tr S;
//     alpha < 0    |alpha| is the smoothing parameter itself: the kernel's half-width b (real), or
//                  the spline's lambda.
// Both return 1, or 0 (out untouched) for n < 1, null arrays, a non-finite alpha or (spline)
// failed scratch; the spline also refuses a lambda so large that 16 lambda overflows. n < 3
// returns the data (any line through two points is exact).
#ifndef KAVREL_NUMERIC_SMOOTH_H
#define KAVREL_NUMERIC_SMOOTH_H

// What was used, for a caller that reports it: the parameter (h + 1 = b for the kernel, lambda
// for the spline), the equivalent degrees of freedom tr S and the GCV criterion at it.
struct SmoothChoice {
    double param, df, gcv;
};

// Local linear regression (Fan 1992; Fan and Gijbels 1996) with Epanechnikov weights
// w_s = 1 - ((s - t) / b)^2 for |s - t| < b: g_t is the intercept of the weighted least-squares
// line through the window around t, so the ends carry no boundary bias; inside the sample it is
// the kernel-weighted mean. An integer bandwidth h uses b = h + 1: windows of 2h + 1 observations,
// h = 0 (or b <= 1) returns the data. The automatic choice searches h = 1..(T-1)/2 (about
// 100 fits and a local search). out must not overlap y. O(T) per fit whatever b; no scratch.
int SmoothKernel(const double *y, int n, double alpha, double *out, SmoothChoice *choice = nullptr);

// The cubic smoothing spline with knots at every observation (Reinsch 1967; Green and Silverman
// 1994, ch. 2): g minimising sum_t (y_t - g(t))^2 + lambda int g''(u)^2 du, from the banded system
// (R + lambda Q'Q) gamma = Q'y, g = y - lambda Q gamma. Equivalent degrees of freedom run from T
// (lambda = 0, interpolation) down to 2 (lambda -> infinity, the least-squares line); a whole
// number >= T returns the data, <= 2 the line. The automatic choice and the degrees of freedom
// search lambda over [1e-6, 1e14] (with unit spacing the scale of lambda is that of the
// Hodrick-Prescott lambda). out may be y. O(T) per lambda.
int SmoothSpline(const double *y, int n, double alpha, double *out, SmoothChoice *choice = nullptr);

#endif
