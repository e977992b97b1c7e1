// The smoothing spline at unit spacing. With h = 1 Reinsch's matrices are fixed bands: R is
// tridiagonal (2/3 on the diagonal, 1/6 beside it) and Q'Q = K K' for the second-difference
// matrix K (6, -4, 1), so B = R + lambda Q'Q is pentadiagonal and positive definite for every
// lambda >= 0. One factor of B gives the fit (Q'y is the second differences of y, Q gamma is
// K'gamma) and the trace of the smoother: I - S = lambda Q B^-1 Q', so
//     tr(I - S) = lambda tr(Q'Q B^-1) = lambda (6 sum_i B^-1_ii - 8 sum_i B^-1_i+1,i + 2 sum_i B^-1_i+2,i),
// which needs only the band of B^-1 (Hutchinson and de Hoog 1985). The residuals are lambda Q gamma
// themselves, so RSS is summed without subtracting the fit from the data.
#include <cmath>

#include "base/carve.h"
#include "base/sums.h"
#include "base/types.h"
#include "numeric/banded.h"
#include "numeric/smooth.h"

namespace {

constexpr double kLogLambdaLow = -6.0, kLogLambdaHigh = 14.0;

struct SplineWork {
    double *d, *e, *f, *gamma, *s0, *s1, *s2;
};

struct SplineFit {
    double rss = 0.0, trace = 0.0; // trace = tr(I - S) = T - df
};

// residual_t = lambda (K' gamma)_t
inline double residual(const double *gamma, int m, int t, double lambda) {
    double v = 0.0;
    if (t < m) v += gamma[t];
    if (t >= 1 && t - 1 < m) v -= 2.0 * gamma[t - 1];
    if (t >= 2) v += gamma[t - 2];
    return lambda * v;
}

// The fit at lambda (n >= 3): RSS and trace, and g into out when out is not null (out may be y).
// False when the factor fails.
bool fitSpline(const double *y, int n, double lambda, const SplineWork &w, double *out, SplineFit *fit) {
    const int m = n - 2;
    for (int i = 0; i < m; ++i) {
        w.d[i] = 2.0 / 3.0 + 6.0 * lambda;
        if (i + 1 < m) w.e[i] = 1.0 / 6.0 - 4.0 * lambda;
        if (i + 2 < m) w.f[i] = lambda;
    }
    if (!BandFactor5(w.d, w.e, w.f, m)) return false;
    for (int i = 0; i < m; ++i) w.gamma[i] = (y[i] - 2.0 * y[i + 1]) + y[i + 2];
    BandSolve5(w.d, w.e, w.f, m, w.gamma);
    BandInverse5(w.d, w.e, w.f, m, w.s0, w.s1, w.s2);
    KvCompensatedSum trace;
    for (int i = 0; i < m; ++i) trace.add(6.0 * w.s0[i]);
    for (int i = 0; i + 1 < m; ++i) trace.add(-8.0 * w.s1[i]);
    for (int i = 0; i + 2 < m; ++i) trace.add(2.0 * w.s2[i]);
    fit->trace = lambda * trace.value();
    KvCompensatedSum rss;
    for (int t = 0; t < n; ++t) {
        const double r = residual(w.gamma, m, t, lambda);
        rss.add(r * r);
        if (out) out[t] = y[t] - r;
    }
    fit->rss = rss.value();
    return true;
}

double gcvOf(int n, const SplineFit &fit) { return n * fit.rss / (fit.trace * fit.trace); }

// GCV at log10 lambda = u; +infinity where the factor fails.
double gcvAt(const double *y, int n, double u, const SplineWork &w) {
    SplineFit fit;
    if (!fitSpline(y, n, std::pow(10.0, u), w, nullptr, &fit)) return HUGE_VAL;
    return gcvOf(n, fit);
}

// log10 lambda minimising GCV: a grid of half decades, then golden-section search between the
// neighbours of the best grid point.
double chooseByGcv(const double *y, int n, const SplineWork &w) {
    const double step = 0.5;
    double best = kLogLambdaLow, bestValue = HUGE_VAL;
    for (double u = kLogLambdaLow; u <= kLogLambdaHigh + 1e-9; u += step) {
        const double v = gcvAt(y, n, u, w);
        if (v < bestValue) bestValue = v, best = u;
    }
    double a = std::fmax(kLogLambdaLow, best - step), b = std::fmin(kLogLambdaHigh, best + step);
    const double r = 0.6180339887498949; // (sqrt 5 - 1) / 2
    double c = b - r * (b - a), d = a + r * (b - a);
    double fc = gcvAt(y, n, c, w), fd = gcvAt(y, n, d, w);
    while (b - a > 1e-5) {
        if (fc < fd) {
            b = d, d = c, fd = fc;
            c = b - r * (b - a);
            fc = gcvAt(y, n, c, w);
        } else {
            a = c, c = d, fc = fd;
            d = a + r * (b - a);
            fd = gcvAt(y, n, d, w);
        }
    }
    const double u = 0.5 * (a + b);
    return gcvAt(y, n, u, w) <= bestValue ? u : best;
}

// log10 lambda with tr S = df (2 < df < n): tr S falls monotonically in lambda, so bisection;
// a target beyond the searched range takes its end.
double chooseByDf(const double *y, int n, double df, const SplineWork &w) {
    double a = kLogLambdaLow, b = kLogLambdaHigh;
    for (int it = 0; it < 60; ++it) {
        const double u = 0.5 * (a + b);
        SplineFit fit;
        const bool ok = fitSpline(y, n, std::pow(10.0, u), w, nullptr, &fit);
        if (ok && n - fit.trace > df)
            a = u;
        else
            b = u;
    }
    return 0.5 * (a + b);
}

// The least-squares line on t, the limit lambda -> infinity.
void fitLine(const double *y, int n, double *out, SmoothChoice *choice) {
    const double tbar = 0.5 * (n - 1);
    KvCompensatedSum sy, sty, stt;
    for (int t = 0; t < n; ++t) sy.add(y[t]);
    const double ybar = sy.value() / n;
    for (int t = 0; t < n; ++t) {
        sty.add((t - tbar) * (y[t] - ybar));
        stt.add((t - tbar) * (t - tbar));
    }
    const double slope = sty.value() / stt.value();
    KvCompensatedSum rss;
    for (int t = 0; t < n; ++t) {
        const double g = ybar + slope * (t - tbar);
        rss.add((y[t] - g) * (y[t] - g));
        out[t] = g;
    }
    if (choice) *choice = {HUGE_VAL, 2.0, n * rss.value() / ((n - 2.0) * (n - 2.0))};
}

void copyData(const double *y, int n, double *out, SmoothChoice *choice) {
    for (int t = 0; t < n; ++t) out[t] = y[t];
    if (choice) *choice = {0.0, static_cast<double>(n), MissingValueOf()};
}

} // namespace

int SmoothSpline(const double *y, int n, double alpha, double *out, SmoothChoice *choice) {
    // A lambda whose band overflows is refused with the non-finite values.
    if (!y || !out || n < 1 || !std::isfinite(alpha) || (alpha < 0.0 && !std::isfinite(16.0 * alpha))) return 0;
    const bool automatic = std::fabs(alpha) <= 1e-20;
    const double df = alpha > 0.0 ? std::floor(alpha + 0.5) : 0.0;
    if (n < 3 || (!automatic && alpha > 0.0 && df >= n)) {
        copyData(y, n, out, choice);
        return 1;
    }
    if (!automatic && alpha > 0.0 && df <= 2.0) {
        fitLine(y, n, out, choice);
        return 1;
    }
    const int m = n - 2;
    SplineWork w{};
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) {
        w.d = c.take<double>(m);
        w.e = c.take<double>(m);
        w.f = c.take<double>(m);
        w.gamma = c.take<double>(m);
        w.s0 = c.take<double>(m);
        w.s1 = c.take<double>(m);
        w.s2 = c.take<double>(m);
    })));
    if (!block.ok()) return 0;
    double lambda = -alpha;
    if (automatic) lambda = std::pow(10.0, chooseByGcv(y, n, w));
    if (alpha > 0.0) lambda = std::pow(10.0, chooseByDf(y, n, df, w));
    SplineFit fit;
    if (!fitSpline(y, n, lambda, w, out, &fit)) return 0;
    if (choice) *choice = {lambda, n - fit.trace, gcvOf(n, fit)};
    return 1;
}
