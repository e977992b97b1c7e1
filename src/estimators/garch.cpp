// GARCH and EGARCH variance recursions. Each runs in two phases: a start-up over the first
// max(p, q) observations, where a lag before the sample takes a pre-sample value, and a main
// phase with every lag inside the sample and no availability tests. The main phase is
// instantiated per in-mean kind (and, for GARCH, with or without the threshold term) so that the
// per-observation loop carries no dispatch. Nothing here bounds the variance: NaN and infinities
// in the data or the parameters propagate, as the host's optimiser expects to see them.
#include "estimators/garch.h"

#include <cmath>

#include "base/alloc.h"
#include "matrix/matrix.h"

namespace {

// The log variance is capped here in the EGARCH main phase: exp(709) is finite in double
// precision, exp(710) is not. Written as a comparison so that NaN passes through.
constexpr double kLogVarianceCap = 709.0;

inline double capLogVariance(double s) { return s > kLogVarianceCap ? kLogVarianceCap : s; }

// sigma-bar^2 = (1/T) sum e_t^2: one running sum in increasing index order, as every inner
// product of the library. All terms are non-negative, so the relative error stays below T eps.
// Kept out of line: inlined into the large callers, its running sum was spilled to the stack on
// every iteration.
[[gnu::noinline]] double meanSquare(const double *e, int nobs) {
    double sum = 0.0;
    for (int t = 0; t < nobs; ++t) sum += e[t] * e[t];
    return sum / nobs;
}

// u_t = e_t - delta * m(h_t) for a variance in levels.
template <int Kind> inline double garchResidual(double e, double delta, double h) {
    if constexpr (Kind == GARCH_INMEAN_VAR)
        return e - delta * h;
    else if constexpr (Kind == GARCH_INMEAN_SD)
        return e - delta * std::sqrt(h);
    else if constexpr (Kind == GARCH_INMEAN_LOGVAR)
        return e - delta * std::log(h);
    else
        return e;
}

double garchResidual(int kind, double e, double delta, double h) {
    switch (kind) {
    case GARCH_INMEAN_VAR: return garchResidual<GARCH_INMEAN_VAR>(e, delta, h);
    case GARCH_INMEAN_SD: return garchResidual<GARCH_INMEAN_SD>(e, delta, h);
    case GARCH_INMEAN_LOGVAR: return garchResidual<GARCH_INMEAN_LOGVAR>(e, delta, h);
    default: return e;
    }
}

// u_t for a log variance l (already capped at 709).
template <int Kind> inline double egarchResidual(double e, double delta, double l) {
    if constexpr (Kind == GARCH_INMEAN_VAR)
        return e - delta * std::exp(l);
    else if constexpr (Kind == GARCH_INMEAN_SD)
        return e - delta * std::exp(0.5 * l);
    else if constexpr (Kind == GARCH_INMEAN_LOGVAR)
        return e - delta * l;
    else
        return e;
}

struct GarchParams {
    const double *e, *x;
    int nobs;
    const double *alpha, *beta; // alpha_1..alpha_q, beta_1..beta_p (0-based storage)
    int p, q;
    double delta, kappa, gamma;
    double *h, *u;
};

// Main phase, t = t0 .. nobs-1, all lags inside the sample:
// h_t = x_t + sum_i alpha_i (u_{t-i} - kappa)^2 + sum_j beta_j h_{t-j} + [u_{t-1} < kappa] gamma (u_{t-1} - kappa)^2.
template <int Kind, bool Threshold> void garchMain(const GarchParams &g, int t0) {
    const double *e = g.e, *x = g.x, *alpha = g.alpha, *beta = g.beta;
    double *h = g.h, *u = g.u;
    const int p = g.p, q = g.q;
    const double kappa = g.kappa, gamma = g.gamma, delta = g.delta;
    for (int t = t0; t < g.nobs; ++t) {
        double s = x[t];
        for (int i = 1; i <= q; ++i) {
            double d = u[t - i] - kappa;
            s += alpha[i - 1] * (d * d);
        }
        for (int j = 1; j <= p; ++j) s += beta[j - 1] * h[t - j];
        if constexpr (Threshold) {
            double d = u[t - 1] - kappa;
            s += u[t - 1] < kappa ? gamma * (d * d) : 0.0;
        }
        h[t] = s;
        u[t] = garchResidual<Kind>(e[t], delta, s);
    }
}

// The same recursion for orders known at compile time: the lags live in registers, so the
// chain from h_{t-1} and u_{t-1} to h_t does not pass through memory. Same arithmetic, same order.
template <int Kind, bool Threshold, int P, int Q> void garchMainFixed(const GarchParams &g, int t0) {
    constexpr int NP = P > 0 ? P : 1, NQ = Q > 0 ? Q : 1;
    double alpha[NQ] = {}, beta[NP] = {}, hl[NP] = {}, ul[NQ] = {}; // hl[j-1] = h_{t-j}, ul[i-1] = u_{t-i}
    for (int i = 0; i < Q; ++i) alpha[i] = g.alpha[i], ul[i] = g.u[t0 - 1 - i];
    for (int j = 0; j < P; ++j) beta[j] = g.beta[j], hl[j] = g.h[t0 - 1 - j];
    const double *e = g.e, *x = g.x;
    double *h = g.h, *u = g.u;
    const double kappa = g.kappa, gamma = g.gamma, delta = g.delta;
    double uprev = g.u[t0 - 1];
    for (int t = t0; t < g.nobs; ++t) {
        double s = x[t];
        for (int i = 0; i < Q; ++i) {
            double d = ul[i] - kappa;
            s += alpha[i] * (d * d);
        }
        for (int j = 0; j < P; ++j) s += beta[j] * hl[j];
        if constexpr (Threshold) {
            double d = uprev - kappa;
            s += uprev < kappa ? gamma * (d * d) : 0.0;
        }
        const double ut = garchResidual<Kind>(e[t], delta, s);
        h[t] = s;
        u[t] = ut;
        for (int j = P - 1; j > 0; --j) hl[j] = hl[j - 1];
        for (int i = Q - 1; i > 0; --i) ul[i] = ul[i - 1];
        if constexpr (P > 0) hl[0] = s;
        if constexpr (Q > 0) ul[0] = ut;
        uprev = ut;
    }
}

template <int Kind, bool Threshold> void garchMainOrders(const GarchParams &g, int t0) {
    if (t0 >= g.nobs) return;
    switch (g.p > 2 || g.q > 2 ? -1 : 3 * g.p + g.q) {
    case 0: garchMainFixed<Kind, Threshold, 0, 0>(g, t0); break;
    case 1: garchMainFixed<Kind, Threshold, 0, 1>(g, t0); break;
    case 2: garchMainFixed<Kind, Threshold, 0, 2>(g, t0); break;
    case 3: garchMainFixed<Kind, Threshold, 1, 0>(g, t0); break;
    case 4: garchMainFixed<Kind, Threshold, 1, 1>(g, t0); break;
    case 5: garchMainFixed<Kind, Threshold, 1, 2>(g, t0); break;
    case 6: garchMainFixed<Kind, Threshold, 2, 0>(g, t0); break;
    case 7: garchMainFixed<Kind, Threshold, 2, 1>(g, t0); break;
    case 8: garchMainFixed<Kind, Threshold, 2, 2>(g, t0); break;
    default: garchMain<Kind, Threshold>(g, t0); break;
    }
}

template <int Kind> void garchMainDispatch(const GarchParams &g, int t0) {
    // Unordered test: a NaN gamma counts as non-zero and adds its NaN where the test holds.
    if (!(g.gamma == 0.0))
        garchMainOrders<Kind, true>(g, t0);
    else
        garchMainOrders<Kind, false>(g, t0);
}

struct EgarchParams {
    const double *e, *x;
    int nobs;
    double theta, phi, nu;
    const double *a, *b; // a_1..a_q, b_1..b_p (0-based storage)
    int q, p;
    double delta;
    double *logh, *u, *g;
};

// Residual, standardised residual and news term of observation t from its capped log variance:
// z_t = exp(-l/2) u_t, g_t = phi (|z_t| - nu) + theta z_t.
template <int Kind> inline void egarchNews(const EgarchParams &w, int t, double l) {
    double ut = egarchResidual<Kind>(w.e[t], w.delta, l);
    double z = std::exp(-0.5 * l) * ut;
    w.u[t] = ut;
    w.g[t] = w.phi * (std::fabs(z) - w.nu) + w.theta * z;
}

template <int Kind> void egarchRun(const EgarchParams &w, int startEnd, double logSigma2) {
    const double *x = w.x, *a = w.a, *b = w.b, *g = w.g;
    double *logh = w.logh;
    const int p = w.p, q = w.q;
    // Start-up: lags before the sample contribute no news and the pre-sample log variance; the
    // stored log variance is not capped here (only the one that feeds u and z is).
    for (int t = 0; t < startEnd; ++t) {
        double s = x[t];
        for (int i = 1; i <= q; ++i) s += t - i >= 0 ? a[i - 1] * g[t - i] : 0.0;
        for (int j = 1; j <= p; ++j) s += b[j - 1] * (t - j >= 0 ? logh[t - j] : logSigma2);
        logh[t] = s;
        egarchNews<Kind>(w, t, capLogVariance(s));
    }
    // Main phase: the capped value is stored, and later lags read it back.
    for (int t = startEnd; t < w.nobs; ++t) {
        double s = x[t];
        for (int i = 1; i <= q; ++i) s += a[i - 1] * g[t - i];
        for (int j = 1; j <= p; ++j) s += b[j - 1] * logh[t - j];
        double l = capLogVariance(s);
        logh[t] = l;
        egarchNews<Kind>(w, t, l);
    }
}

} // namespace

int GarchVariance(const double *e, const double *x, int nobs, const double *coef, int p, int q, int inMean,
                  double delta, double kappa, double gamma, double *h, double *u) {
    const double sigma2 = meanSquare(e, nobs);
    const int maxpq = p > q ? p : q;
    const double *beta = coef + maxpq + 1;

    // alpha_i = phi_i - beta_i where both exist, phi_i alone beyond p.
    KvArray<double> alpha;
    if (q > 0 && !alpha.alloc(static_cast<size_t>(q))) {
        for (int t = 0; t < nobs; ++t) MissingValue(&h[t]);
        for (int t = 0; t < nobs; ++t) MissingValue(&u[t]);
        return 0;
    }
    for (int i = 1; i <= q; ++i) alpha[i - 1] = i <= p ? coef[i] - beta[i - 1] : coef[i];

    // Start-up (at least observation 0, even for p = q = 0): an unavailable squared-residual
    // lag is sigma-bar^2 itself, not (sigma-bar - kappa)^2, and so is an unavailable variance.
    const bool threshold = !(gamma == 0.0);
    int startEnd = maxpq > 1 ? maxpq : 1;
    if (startEnd > nobs) startEnd = nobs;
    for (int t = 0; t < startEnd; ++t) {
        double s = x[t];
        for (int i = 1; i <= q; ++i) {
            double d = t - i >= 0 ? u[t - i] - kappa : 0.0;
            s += alpha[i - 1] * (t - i >= 0 ? d * d : sigma2);
        }
        for (int j = 1; j <= p; ++j) s += beta[j - 1] * (t - j >= 0 ? h[t - j] : sigma2);
        if (threshold && t >= 1 && u[t - 1] < kappa) {
            double d = u[t - 1] - kappa;
            s += gamma * (d * d);
        }
        h[t] = s;
        u[t] = garchResidual(inMean, e[t], delta, s);
    }

    const GarchParams g{e, x, nobs, alpha.get(), beta, p, q, delta, kappa, gamma, h, u};
    switch (inMean) {
    case GARCH_INMEAN_VAR: garchMainDispatch<GARCH_INMEAN_VAR>(g, startEnd); break;
    case GARCH_INMEAN_SD: garchMainDispatch<GARCH_INMEAN_SD>(g, startEnd); break;
    case GARCH_INMEAN_LOGVAR: garchMainDispatch<GARCH_INMEAN_LOGVAR>(g, startEnd); break;
    default: garchMainDispatch<GARCH_INMEAN_NONE>(g, startEnd); break;
    }
    return 1;
}

int EgarchVariance(const double *e, const double *x, int nobs, double theta, double phi, double nu, const double *a,
                   int q, const double *b, int p, int inMean, double delta, double *logh, double *u) {
    KvArray<double> news(static_cast<size_t>(nobs));
    if (!news.ok()) {
        for (int t = 0; t < nobs; ++t) logh[t] = 0.0;
        for (int t = 0; t < nobs; ++t) u[t] = 0.0;
        return 0;
    }
    const double logSigma2 = std::log(meanSquare(e, nobs));
    int startEnd = p > q ? p : q;
    if (startEnd > nobs) startEnd = nobs;

    const EgarchParams w{e, x, nobs, theta, phi, nu, a, b, q, p, delta, logh, u, news.get()};
    switch (inMean) {
    case GARCH_INMEAN_VAR: egarchRun<GARCH_INMEAN_VAR>(w, startEnd, logSigma2); break;
    case GARCH_INMEAN_SD: egarchRun<GARCH_INMEAN_SD>(w, startEnd, logSigma2); break;
    case GARCH_INMEAN_LOGVAR: egarchRun<GARCH_INMEAN_LOGVAR>(w, startEnd, logSigma2); break;
    default: egarchRun<GARCH_INMEAN_NONE>(w, startEnd, logSigma2); break;
    }
    return 1;
}
