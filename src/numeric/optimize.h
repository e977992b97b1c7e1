// Maximisation of smooth functions of a few hundred parameters at most, as maximum-likelihood and
// nonlinear least-squares estimation need them: quasi-Newton (BFGS) with a line search satisfying
// the strong Wolfe conditions, Newton's method with a line search for likelihoods that supply
// an information matrix, and numerical derivatives by central differences. docs/numeric.md
// gives the methods, the convergence rule and the references.
#ifndef KAVREL_NUMERIC_OPTIMIZE_H
#define KAVREL_NUMERIC_OPTIMIZE_H

#include "base/types.h"

// The function to maximise and what it can give. value returns f(x), or a non-finite number
// where f is not defined (the line search then steps back). gradient, when not null, writes
// df/dx and returns 1 (0: not defined there). information, when not null, writes a positive
// definite matrix whose inverse times the gradient is the Newton step (minus the Hessian, or the
// expected information) and returns 1.
struct OptProblem {
    void *ctx;
    double (*value)(void *ctx, const double *x, int n);
    int (*gradient)(void *ctx, const double *x, int n, double *g);
    int (*information)(void *ctx, const double *x, int n, MATRIX info);
};

struct OptSettings {
    int maxIterations;
    // Converged when the relative gradient, max_i |g_i| max(|x_i|, 1) / max(|f|, 1), is below
    // gradientTol, or when a step changes no parameter by more than paramTol max(|x_i|, 1) and
    // the relative gradient is below sqrt(gradientTol).
    double gradientTol, paramTol;
    // Called after each iteration (may be null): iteration, f, relative gradient.
    void (*progress)(void *ctx, int iteration, double f, double relGradient);
};
// 200 iterations, 1e-7, 1e-12, no progress.
OptSettings OptDefaultSettings();

enum OptStatus {
    OPT_FAILED = 0,     // no memory, bad arguments, or f not finite at the start
    OPT_CONVERGED = 1,  // the convergence rule held
    OPT_MAX_ITER = 2,   // the iteration limit came first
    OPT_NO_PROGRESS = 3 // the line search found no better point before convergence
};

struct OptResult {
    int status; // OptStatus
    int iterations, evaluations;
    double value;       // f at the returned x
    double relGradient; // the relative gradient there
};

// Maximises from x (replaced by the best point found). Gradients by central differences when
// the problem has none. The status is also returned.
int OptMaximizeBfgs(const OptProblem &p, double *x, int n, const OptSettings &s, OptResult *r);
// Newton's method: steps info^-1 g with a backtracking (Armijo) line search; needs gradient and
// information. A step that is not an ascent direction (information not positive definite) is
// replaced by the gradient step.
int OptMaximizeNewton(const OptProblem &p, double *x, int n, const OptSettings &s, OptResult *r);

// Nonlinear least squares: m residuals r(x) whose sum of squares is minimised. residuals returns
// 1 (0: not defined at x); jacobian, when not null, writes dr/dx (m x n) and returns 1.
struct OptResiduals {
    void *ctx;
    int m;
    int (*residuals)(void *ctx, const double *x, int n, double *r);
    int (*jacobian)(void *ctx, const double *x, int n, MATRIX J);
};
// Levenberg-Marquardt with Marquardt's scaling by the diagonal of J'J (Jacobian by central
// differences when the problem has none). r->value is the residual sum of squares. When cov is
// not null (n x n) it receives (J'J)^-1 at the solution, the Gauss-Newton covariance before the
// factor RSS / (m - n) (missing values when J'J is singular there).
int OptLeastSquares(const OptResiduals &p, double *x, int n, const OptSettings &s, OptResult *r, MATRIX cov);

// Central-difference gradient of value: step h_i = eps^(1/3) max(|x_i|, 1e-3). 1, or 0 when f is
// not finite at a step.
int OptNumericalGradient(const OptProblem &p, const double *x, int n, double *g);
// The Hessian of f at x, symmetric: central differences of the gradient (analytic when the
// problem has one, step eps^(1/3) max(|x_i|, 1e-3)) or second differences of f (step eps^(1/4)
// max(|x_i|, 1e-3)). 1, or 0 when a difference is not finite or memory cannot be had.
int OptNumericalHessian(const OptProblem &p, const double *x, int n, MATRIX H);

#endif
