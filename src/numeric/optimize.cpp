// Quasi-Newton and Newton maximisation. Internally both minimise F = -f with gradient G = -g, the
// form in which the line-search conditions are usually written (Nocedal and Wright 2006, ch. 3
// and 6). Every vector and the inverse-Hessian approximation live in one block made at the start.
#include "numeric/optimize.h"

#include <cfloat>
#include <cmath>

#include "base/carve.h"
#include "base/sums.h"
#include "matrix/cholesky.h"

namespace {

// The problem with its evaluations counted and gradients by differences where it has none.
struct Objective {
    const OptProblem &p;
    int n;
    int evaluations;
    // F = -f; +inf where f is not finite.
    double F(const double *x) {
        ++evaluations;
        const double f = p.value(p.ctx, x, n);
        return std::isfinite(f) ? -f : HUGE_VAL;
    }
    // G = -g; false where it is not defined.
    bool G(const double *x, double *g) {
        if (p.gradient) {
            if (!p.gradient(p.ctx, x, n, g)) return false;
        } else {
            evaluations += 2 * n;
            if (!OptNumericalGradient(p, x, n, g)) return false;
        }
        for (int i = 0; i < n; ++i) {
            if (!std::isfinite(g[i])) return false;
            g[i] = -g[i];
        }
        return true;
    }
};

double relativeGradient(const double *x, const double *g, int n, double F) {
    double worst = 0.0;
    for (int i = 0; i < n; ++i) worst = std::fmax(worst, std::fabs(g[i]) * std::fmax(std::fabs(x[i]), 1.0));
    return worst / std::fmax(std::fabs(F), 1.0);
}

double relativeStep(const double *x, const double *s, int n) {
    double worst = 0.0;
    for (int i = 0; i < n; ++i) worst = std::fmax(worst, std::fabs(s[i]) / std::fmax(std::fabs(x[i]), 1.0));
    return worst;
}

// A trial point of the line search: x + a d, F and G there.
struct Trial {
    double a, F, slope; // slope = G'd
};

// The strong Wolfe line search of Nocedal and Wright (Alg. 3.5 with zoom, Alg. 3.6), the
// trial inside a bracket placed by a safeguarded quadratic through F(lo), F'(lo) and F(hi).
// On success xt, gt hold the accepted point and *out its values. A point with sufficient
// decrease but without the curvature condition is taken when the bracket collapses.
class LineSearch {
public:
    LineSearch(Objective &obj, const double *x, const double *d, double *xt, double *gt, int n)
        : obj_(obj), x_(x), d_(d), xt_(xt), gt_(gt), n_(n) {}

    bool run(double F0, double slope0, double a1, Trial *out) {
        F0_ = F0, slope0_ = slope0;
        Trial prev{0.0, F0, slope0};
        double a = a1;
        for (int i = 0; i < kMaxTrials; ++i) {
            Trial t;
            if (!at(a, &t, false)) { // beyond where f is defined: shorten without a bracket
                a = 0.5 * (prev.a + a);
                continue;
            }
            if (t.F > F0 + kC1 * a * slope0 || (i > 0 && t.F >= prev.F)) return zoom(prev, t, out);
            if (!at(a, &t, true)) return false;
            if (std::fabs(t.slope) <= -kC2 * slope0) return accept(t, out);
            if (t.slope >= 0.0) return zoom(t, prev, out);
            prev = t;
            a *= 2.0;
        }
        return false;
    }

private:
    static constexpr double kC1 = 1e-4, kC2 = 0.9;
    static constexpr int kMaxTrials = 40;

    // F (and G when withSlope) at x + a d into xt, gt. False where F or G is not defined.
    bool at(double a, Trial *t, bool withSlope) {
        for (int i = 0; i < n_; ++i) xt_[i] = x_[i] + a * d_[i];
        t->a = a;
        if (!withSlope) {
            t->F = obj_.F(xt_);
            return t->F < HUGE_VAL;
        }
        if (!obj_.G(xt_, gt_)) return false;
        t->slope = KvDot(gt_, d_, n_);
        return true;
    }

    bool accept(const Trial &t, Trial *out) {
        *out = t;
        return true;
    }

    // lo satisfies sufficient decrease with the lower F; the minimiser lies between lo and hi.
    bool zoom(Trial lo, Trial hi, Trial *out) {
        for (int j = 0; j < kMaxTrials; ++j) {
            const double width = hi.a - lo.a;
            double a = lo.a + 0.5 * width;
            const double curve = hi.F - lo.F - lo.slope * width;
            if (std::isfinite(hi.F) && curve > 0.0) a = lo.a - 0.5 * lo.slope * width * width / curve;
            const double lowEnd = lo.a + 0.1 * width, highEnd = hi.a - 0.1 * width;
            if (!(a >= std::fmin(lowEnd, highEnd) && a <= std::fmax(lowEnd, highEnd))) a = lo.a + 0.5 * width;
            Trial t;
            if (!at(a, &t, false) || t.F > F0_ + kC1 * a * slope0_ || t.F >= lo.F) {
                hi = t;
                hi.F = std::isfinite(t.F) ? t.F : HUGE_VAL;
            } else {
                if (!at(a, &t, true)) return false;
                if (std::fabs(t.slope) <= -kC2 * slope0_) return accept(t, out);
                if (t.slope * (hi.a - lo.a) >= 0.0) hi = lo;
                lo = t;
            }
            if (std::fabs(hi.a - lo.a) <= DBL_EPSILON * std::fmax(std::fabs(lo.a), 1.0)) break;
        }
        // The bracket collapsed: lo still decreases F sufficiently unless it is the start.
        if (lo.a == 0.0) return false;
        Trial t;
        if (!at(lo.a, &t, false) || !at(lo.a, &t, true)) return false;
        t.F = lo.F;
        return accept(t, out);
    }

    Objective &obj_;
    const double *x_, *d_;
    double *xt_, *gt_;
    int n_;
    double F0_ = 0.0, slope0_ = 0.0;
};

// The scratch of both methods: vectors of n and one n x n matrix.
struct Work {
    double *g, *d, *xt, *gt, *s, *y, *hy;
    MATRIX H;
};

bool makeWork(int n, KvArray<char> *block, Work *w) {
    const size_t m = static_cast<size_t>(n);
    auto describe = [m, n](KvCarve &c, Work *out) {
        out->g = c.take<double>(m), out->d = c.take<double>(m), out->xt = c.take<double>(m);
        out->gt = c.take<double>(m), out->s = c.take<double>(m), out->y = c.take<double>(m);
        out->hy = c.take<double>(m), out->H = c.matrix(n, n);
    };
    KvCarve measure;
    Work ignored;
    describe(measure, &ignored);
    size_t bytes = 0;
    if (!measure.total(&bytes) || !block->alloc(bytes)) return false;
    KvCarve carve(block->get());
    describe(carve, w);
    return true;
}

void identity(MATRIX H, int n, double scale) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) H[i][j] = i == j ? scale : 0.0;
}

int finish(OptResult *r, int status, int iterations, const Objective &obj, double F, double relGrad) {
    if (r) *r = OptResult{status, iterations, obj.evaluations, -F, relGrad};
    return status;
}

} // namespace

OptSettings OptDefaultSettings() { return OptSettings{200, 1e-7, 1e-12, nullptr}; }

int OptMaximizeBfgs(const OptProblem &p, double *x, int n, const OptSettings &s, OptResult *r) {
    Objective obj{p, n, 0};
    if (n < 1 || !p.value) return finish(r, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    KvArray<char> block;
    Work w;
    if (!makeWork(n, &block, &w)) return finish(r, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    double F = obj.F(x);
    if (F == HUGE_VAL || !obj.G(x, w.g)) return finish(r, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    identity(w.H, n, 1.0);
    bool scaled = false, restarted = false;
    for (int iter = 0;; ++iter) {
        const double rg = relativeGradient(x, w.g, n, F);
        if (rg < s.gradientTol) return finish(r, OPT_CONVERGED, iter, obj, F, rg);
        if (iter >= s.maxIterations) return finish(r, OPT_MAX_ITER, iter, obj, F, rg);
        for (int i = 0; i < n; ++i) w.d[i] = -KvDot(w.H[i], w.g, n);
        double slope = KvDot(w.g, w.d, n);
        if (!(slope < 0.0)) { // the approximation lost positive definiteness: start again
            identity(w.H, n, 1.0), scaled = false;
            for (int i = 0; i < n; ++i) w.d[i] = -w.g[i];
            slope = KvDot(w.g, w.d, n);
        }
        // Before the curvature is known, a first step of unit length in the largest parameter.
        double a1 = 1.0;
        if (!scaled) a1 = std::fmin(1.0, 1.0 / std::fmax(relativeStep(x, w.d, n), DBL_MIN));
        LineSearch search(obj, x, w.d, w.xt, w.gt, n);
        Trial t;
        if (!search.run(F, slope, a1, &t)) {
            // No step lowers F any more: converged when the gradient is small at the arithmetic's
            // resolution of F, stuck otherwise.
            if (restarted || !scaled)
                return finish(r, rg < std::sqrt(s.gradientTol) ? OPT_CONVERGED : OPT_NO_PROGRESS, iter, obj, F, rg);
            identity(w.H, n, 1.0), scaled = false, restarted = true; // once more along the gradient
            continue;
        }
        restarted = false;
        for (int i = 0; i < n; ++i) w.s[i] = w.xt[i] - x[i], w.y[i] = w.gt[i] - w.g[i];
        const double sy = KvDot(w.s, w.y, n), yy = KvDot(w.y, w.y, n), ss = KvDot(w.s, w.s, n);
        if (sy > 1e-10 * std::sqrt(ss * yy)) {
            if (!scaled) identity(w.H, n, sy / yy), scaled = true; // Nocedal and Wright (6.20)
            // H <- (I - rho s y') H (I - rho y s') + rho s s', with H y computed once.
            const double rho = 1.0 / sy;
            for (int i = 0; i < n; ++i) w.hy[i] = KvDot(w.H[i], w.y, n);
            const double yhy = KvDot(w.y, w.hy, n);
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                    w.H[i][j] += rho * ((1.0 + rho * yhy) * w.s[i] * w.s[j] - w.hy[i] * w.s[j] - w.s[i] * w.hy[j]);
        }
        const double step = relativeStep(x, w.s, n);
        for (int i = 0; i < n; ++i) x[i] = w.xt[i], w.g[i] = w.gt[i];
        F = t.F;
        const double rgNew = relativeGradient(x, w.g, n, F);
        if (s.progress) s.progress(p.ctx, iter + 1, -F, rgNew);
        if (step < s.paramTol && rgNew < std::sqrt(s.gradientTol))
            return finish(r, OPT_CONVERGED, iter + 1, obj, F, rgNew);
    }
}

int OptMaximizeNewton(const OptProblem &p, double *x, int n, const OptSettings &s, OptResult *r) {
    Objective obj{p, n, 0};
    if (n < 1 || !p.value || !p.gradient || !p.information) return finish(r, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    KvArray<char> block;
    Work w;
    if (!makeWork(n, &block, &w)) return finish(r, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    double F = obj.F(x);
    if (F == HUGE_VAL) return finish(r, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    for (int iter = 0;; ++iter) {
        if (!obj.G(x, w.g)) return finish(r, OPT_FAILED, iter, obj, F, HUGE_VAL);
        const double rg = relativeGradient(x, w.g, n, F);
        if (rg < s.gradientTol) return finish(r, OPT_CONVERGED, iter, obj, F, rg);
        if (iter >= s.maxIterations) return finish(r, OPT_MAX_ITER, iter, obj, F, rg);
        // d = info^-1 g (G = -g): solve with the Cholesky factor L L'.
        bool newton = p.information(p.ctx, x, n, w.H) && MatCholesky(w.H, n);
        if (newton) {
            for (int i = 0; i < n; ++i) w.d[i] = (-w.g[i] - KvDot(w.H[i], w.d, i)) / w.H[i][i];
            for (int i = n - 1; i >= 0; --i) {
                double v = w.d[i];
                for (int k = i + 1; k < n; ++k) v -= w.H[k][i] * w.d[k];
                w.d[i] = v / w.H[i][i];
            }
        }
        double slope = newton ? KvDot(w.g, w.d, n) : 0.0;
        if (!(slope < 0.0)) {
            for (int i = 0; i < n; ++i) w.d[i] = -w.g[i];
            slope = KvDot(w.g, w.d, n);
        }
        double a = 1.0, Ft = HUGE_VAL;
        for (int k = 0; k < 60; ++k, a *= 0.5) {
            for (int i = 0; i < n; ++i) w.xt[i] = x[i] + a * w.d[i];
            Ft = obj.F(w.xt);
            if (Ft <= F + 1e-4 * a * slope) break;
        }
        if (!(Ft <= F + 1e-4 * a * slope)) return finish(r, OPT_NO_PROGRESS, iter, obj, F, rg);
        for (int i = 0; i < n; ++i) w.s[i] = w.xt[i] - x[i];
        const double step = relativeStep(x, w.s, n);
        for (int i = 0; i < n; ++i) x[i] = w.xt[i];
        F = Ft;
        if (s.progress) s.progress(p.ctx, iter + 1, -F, rg);
        if (step < s.paramTol) {
            if (!obj.G(x, w.g)) return finish(r, OPT_FAILED, iter + 1, obj, F, HUGE_VAL);
            const double rgNew = relativeGradient(x, w.g, n, F);
            if (rgNew < std::sqrt(s.gradientTol)) return finish(r, OPT_CONVERGED, iter + 1, obj, F, rgNew);
        }
    }
}

namespace {
// Difference steps follow the parameter's own size, so that a parameter of 0.01 (a GARCH
// intercept) is not stepped by 1% of itself; below 1e-3 the step stops shrinking, so that a
// parameter passing through zero is not differenced in its rounding noise.
double stepScale(double x) { return std::fmax(std::fabs(x), 1e-3); }
} // namespace

int OptNumericalGradient(const OptProblem &p, const double *x, int n, double *g) {
    KvArray<double> xt(n > 0 ? static_cast<size_t>(n) : 1);
    if (!xt.ok()) return 0;
    for (int i = 0; i < n; ++i) xt[i] = x[i];
    const double h0 = std::cbrt(DBL_EPSILON);
    for (int i = 0; i < n; ++i) {
        const double h = h0 * stepScale(x[i]);
        xt[i] = x[i] + h;
        const double up = p.value(p.ctx, xt.get(), n);
        xt[i] = x[i] - h;
        const double down = p.value(p.ctx, xt.get(), n);
        xt[i] = x[i];
        g[i] = (up - down) / (2.0 * h);
        if (!std::isfinite(g[i])) return 0;
    }
    return 1;
}

int OptNumericalHessian(const OptProblem &p, const double *x, int n, MATRIX H) {
    if (n < 1) return 1;
    const size_t m = static_cast<size_t>(n);
    KvArray<double> scratch(3 * m);
    if (!scratch.ok()) return 0;
    double *xt = scratch.get(), *gu = xt + m, *gd = gu + m;
    for (int i = 0; i < n; ++i) xt[i] = x[i];
    if (p.gradient) {
        for (int j = 0; j < n; ++j) {
            const double h = std::cbrt(DBL_EPSILON) * stepScale(x[j]);
            xt[j] = x[j] + h;
            const int up = p.gradient(p.ctx, xt, n, gu);
            xt[j] = x[j] - h;
            const int down = p.gradient(p.ctx, xt, n, gd);
            xt[j] = x[j];
            if (!up || !down) return 0;
            for (int i = 0; i < n; ++i) H[i][j] = (gu[i] - gd[i]) / (2.0 * h);
        }
    } else {
        const double f0 = p.value(p.ctx, x, n);
        auto f = [&](int i, double hi, int j, double hj) {
            xt[i] += hi, xt[j] += hj;
            const double v = p.value(p.ctx, xt, n);
            xt[i] = x[i], xt[j] = x[j];
            return v;
        };
        for (int i = 0; i < n; ++i) {
            const double hi = std::pow(DBL_EPSILON, 0.25) * stepScale(x[i]);
            H[i][i] = (f(i, hi, i, hi) - 2.0 * f0 + f(i, -hi, i, -hi)) / (4.0 * hi * hi);
            for (int j = 0; j < i; ++j) {
                const double hj = std::pow(DBL_EPSILON, 0.25) * stepScale(x[j]);
                H[i][j] = (f(i, hi, j, hj) - f(i, hi, j, -hj) - f(i, -hi, j, hj) + f(i, -hi, j, -hj)) / (4.0 * hi * hj);
            }
        }
    }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < i; ++j) H[i][j] = H[j][i] = p.gradient ? 0.5 * (H[i][j] + H[j][i]) : H[i][j];
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            if (!std::isfinite(H[i][j])) return 0;
    return 1;
}

namespace {

// Central differences of the residuals, step eps^(1/3) |x_j| (eps^(1/3) at 0): relative to the
// parameter's own size, so a parameter of 5e-4 is not stepped by 6e-6 absolute.
int numericalJacobian(const OptResiduals &p, double *x, int n, double *up, double *down, MATRIX J) {
    for (int j = 0; j < n; ++j) {
        const double xj = x[j], h = std::cbrt(DBL_EPSILON) * (xj != 0.0 ? std::fabs(xj) : 1.0);
        x[j] = xj + h;
        const int a = p.residuals(p.ctx, x, n, up);
        x[j] = xj - h;
        const int b = p.residuals(p.ctx, x, n, down);
        x[j] = xj;
        if (!a || !b) return 0;
        for (int i = 0; i < p.m; ++i) J[i][j] = (up[i] - down[i]) / (2.0 * h);
    }
    return 1;
}

// Fourth-order central differences, (8 (r(x+h) - r(x-h)) - (r(x+2h) - r(x-2h))) / 12h with
// h = eps^(1/5) |x_j|: error O(eps^(4/5)) where the second-order rule leaves O(eps^(2/3)). work
// holds 4 m doubles.
int jacobianFourth(const OptResiduals &p, double *x, int n, double *work, MATRIX J) {
    const int m = p.m;
    double *r1 = work, *r2 = work + m, *r3 = work + 2 * m, *r4 = work + 3 * m;
    for (int j = 0; j < n; ++j) {
        const double xj = x[j], h = std::pow(DBL_EPSILON, 0.2) * (xj != 0.0 ? std::fabs(xj) : 1.0);
        int ok = 1;
        x[j] = xj + h, ok &= p.residuals(p.ctx, x, n, r1);
        x[j] = xj - h, ok &= p.residuals(p.ctx, x, n, r2);
        x[j] = xj + 2.0 * h, ok &= p.residuals(p.ctx, x, n, r3);
        x[j] = xj - 2.0 * h, ok &= p.residuals(p.ctx, x, n, r4);
        x[j] = xj;
        if (!ok) return 0;
        for (int i = 0; i < m; ++i) J[i][j] = (8.0 * (r1[i] - r2[i]) - (r3[i] - r4[i])) / (12.0 * h);
    }
    return 1;
}

double sumSquares(const double *r, int m) {
    KvCompensatedSum s;
    for (int i = 0; i < m; ++i) s.add(r[i] * r[i]);
    return s.value();
}

// A = J'J (n x n) and g = J'r.
void normalEquations(MATRIX J, const double *r, int m, int n, MATRIX A, double *g) {
    for (int a = 0; a < n; ++a) {
        KvCompensatedSum ga;
        for (int i = 0; i < m; ++i) ga.add(J[i][a] * r[i]);
        g[a] = ga.value();
        for (int b = 0; b <= a; ++b) {
            KvCompensatedSum s;
            for (int i = 0; i < m; ++i) s.add(J[i][a] * J[i][b]);
            A[a][b] = A[b][a] = s.value();
        }
    }
}

} // namespace

int OptLeastSquares(const OptResiduals &p, double *x, int n, const OptSettings &s, OptResult *res, MATRIX cov) {
    OptProblem none{nullptr, nullptr, nullptr, nullptr};
    Objective obj{none, n, 0};
    const int m = p.m;
    if (n < 1 || m < n || !p.residuals) return finish(res, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    const size_t mm = static_cast<size_t>(m), nn = static_cast<size_t>(n);
    double *r = nullptr, *rt = nullptr, *up = nullptr, *g = nullptr, *d = nullptr, *delta = nullptr, *xt = nullptr;
    MATRIX J = nullptr, A = nullptr, L = nullptr;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) {
        r = c.take<double>(mm), rt = c.take<double>(mm), up = c.take<double>(4 * mm);
        g = c.take<double>(nn), d = c.take<double>(nn), delta = c.take<double>(nn), xt = c.take<double>(nn);
        J = c.matrix(m, n), A = c.matrix(n, n), L = c.matrix(n, n);
    })));
    if (!block.ok()) return finish(res, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    auto evaluate = [&](const double *at, double *out) {
        ++obj.evaluations;
        return p.residuals(p.ctx, at, n, out) ? sumSquares(out, m) : HUGE_VAL;
    };
    auto jacobian = [&]() {
        obj.evaluations += p.jacobian ? 1 : 2 * n;
        return p.jacobian ? p.jacobian(p.ctx, x, n, J) : numericalJacobian(p, x, n, up, up + mm, J);
    };
    double S = evaluate(x, r);
    if (!std::isfinite(S) || !jacobian()) return finish(res, OPT_FAILED, 0, obj, HUGE_VAL, HUGE_VAL);
    normalEquations(J, r, m, n, A, g);
    for (int j = 0; j < n; ++j) d[j] = std::fmax(A[j][j], DBL_MIN);
    double mu = 1e-3;
    auto relGrad = [&]() {
        double worst = 0.0;
        for (int j = 0; j < n; ++j) worst = std::fmax(worst, std::fabs(g[j]) * std::fmax(std::fabs(x[j]), 1e-300));
        return worst / std::fmax(S, DBL_MIN);
    };
    int status = OPT_MAX_ITER, iter = 0;
    for (; iter < s.maxIterations; ++iter) {
        // (J'J + mu D) delta = -g, by the Cholesky factor; a factor that fails raises mu.
        bool stepped = false;
        for (int tries = 0; tries < 60 && !stepped; ++tries) {
            for (int a = 0; a < n; ++a)
                for (int b = 0; b <= a; ++b) L[a][b] = A[a][b] + (a == b ? mu * d[a] : 0.0);
            if (!MatCholesky(L, n)) {
                mu *= 10.0;
                continue;
            }
            for (int a = 0; a < n; ++a) delta[a] = (-g[a] - KvDot(L[a], delta, a)) / L[a][a];
            for (int a = n - 1; a >= 0; --a) {
                double v = delta[a];
                for (int k = a + 1; k < n; ++k) v -= L[k][a] * delta[k];
                delta[a] = v / L[a][a];
            }
            for (int j = 0; j < n; ++j) xt[j] = x[j] + delta[j];
            const double St = evaluate(xt, rt);
            if (St < S) {
                stepped = true;
                const double step = [&] {
                    double w = 0.0;
                    for (int j = 0; j < n; ++j)
                        w = std::fmax(w, std::fabs(delta[j]) / std::fmax(std::fabs(x[j]), 1e-300));
                    return w;
                }();
                const double relDrop = (S - St) / S;
                for (int j = 0; j < n; ++j) x[j] = xt[j];
                for (int i = 0; i < m; ++i) r[i] = rt[i];
                S = St;
                mu = std::fmax(mu / 10.0, 1e-15);
                if (!jacobian()) return finish(res, OPT_FAILED, iter + 1, obj, -S, HUGE_VAL);
                normalEquations(J, r, m, n, A, g);
                for (int j = 0; j < n; ++j) d[j] = std::fmax(d[j], A[j][j]);
                if (s.progress) s.progress(p.ctx, iter + 1, S, relGrad());
                if (step < s.paramTol || relDrop < 1e-15 || relGrad() < 1e-15) status = OPT_CONVERGED;
            } else {
                mu *= 10.0;
                // No step of any length lowers S: x is as good as the arithmetic allows.
                if (mu > 1e30) status = relGrad() < std::sqrt(s.gradientTol) ? OPT_CONVERGED : OPT_NO_PROGRESS;
                if (mu > 1e30) break;
            }
        }
        if (status != OPT_MAX_ITER) break;
        if (!stepped) {
            status = OPT_NO_PROGRESS;
            break;
        }
    }
    // Polish: the minimum is where J'r = 0. Next to it the sum of squares is too flat to rank
    // points in doubles (a valley like MGH09's), but the gradient is not; with a difference
    // Jacobian its accuracy is what limits the solution. Gauss-Newton steps with a fourth-order
    // Jacobian, kept while they shrink the scaled gradient.
    if (!p.jacobian && status == OPT_CONVERGED && jacobianFourth(p, x, n, up, J)) {
        obj.evaluations += 4 * n;
        normalEquations(J, r, m, n, A, g);
        for (int step = 0; step < 5; ++step) {
            const double before = relGrad();
            for (int a = 0; a < n; ++a)
                for (int b = 0; b <= a; ++b) L[a][b] = A[a][b];
            if (!MatCholesky(L, n)) break;
            for (int a = 0; a < n; ++a) delta[a] = (-g[a] - KvDot(L[a], delta, a)) / L[a][a];
            for (int a = n - 1; a >= 0; --a) {
                double v = delta[a];
                for (int k = a + 1; k < n; ++k) v -= L[k][a] * delta[k];
                delta[a] = v / L[a][a];
            }
            for (int j = 0; j < n; ++j) xt[j] = x[j] + delta[j], d[j] = x[j];
            const double St = evaluate(xt, rt);
            if (!std::isfinite(St)) break;
            for (int j = 0; j < n; ++j) x[j] = xt[j];
            obj.evaluations += 4 * n;
            if (!jacobianFourth(p, x, n, up, J)) {
                for (int j = 0; j < n; ++j) x[j] = d[j];
                break;
            }
            const double Sbefore = S;
            std::swap(r, rt), S = St;
            normalEquations(J, r, m, n, A, g);
            if (!(relGrad() < before)) { // no better: back to the point before the step
                for (int j = 0; j < n; ++j) x[j] = d[j];
                std::swap(r, rt), S = Sbefore;
                jacobianFourth(p, x, n, up, J);
                normalEquations(J, r, m, n, A, g);
                break;
            }
        }
    }
    if (cov) {
        for (int a = 0; a < n; ++a)
            for (int b = 0; b <= a; ++b) L[a][b] = A[a][b];
        const bool ok = MatInvertSpd(L, n) == 1;
        for (int a = 0; a < n; ++a)
            for (int b = 0; b < n; ++b) cov[a][b] = ok ? L[a][b] : std::nan("");
    }
    // finish reports -F as the value; the sum of squares is what a least-squares caller wants.
    return finish(res, status, status == OPT_MAX_ITER ? iter : iter + 1, obj, -S, relGrad());
}
