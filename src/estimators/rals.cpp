// Restricted autoregressive least squares. Given rho, the innovations are linear in b:
//     e_t = y*_t - x*_t'b,  y*_t = y_t - sum_i rho_i y_{t-i},  x*_t = x_t - sum_i rho_i x_{t-i},
// so b(rho) is the least-squares fit of y* on x* and S(rho) = sum e_t^2 its residual sum of
// squares (Davidson & MacKinnon, Estimation and Inference in Econometrics, 1993, Ch. 10:
// the nonlinear regression of a model with AR(p) errors). The objective is the conditional
// Gaussian log-likelihood with b and the variance concentrated out (Hamilton, Time Series
// Analysis, 1994, Sec. 5.3 and 8.3):
//     l(rho) = -n/2 (1 + log 2 pi + log(S / n)).
// Derivatives of S with b concentrated out (envelope theorem for the gradient; the Hessian of a
// concentrated function, S_rr - S_rb S_bb^-1 S_br, for the second derivatives), with u_s = y_s -
// x_s'b and sums over t = first..last:
//     dS/drho_i = -2 sum e_t u_{t-i}
//     d2S/drho_i drho_j = 2 (sum u_{t-i} u_{t-j} - g_i'(X*'X*)^-1 g_j),
//     g_i = sum (x*_t u_{t-i} + e_t x_{t-i}),
// the exact second derivatives (the term in e_t x_{t-i} is what Gauss-Newton leaves out), then the
// chain rule to l. Forecasts carry the residual recursion forward.
#include "estimators/rals.h"

#include <climits>
#include <cmath>

#include "base/alloc.h"
#include "base/carve.h"
#include "base/sums.h"
#include "matrix/matrix.h"
#include "matrix/qr.h"

namespace {

constexpr double kLog2Pi = 1.8378770664093454836;

// All scratch of one evaluation, carved from one block.
struct RalsWork {
    MATRIX Xs;     // k x n: filtered regressors, observations along rows
    MATRIX Ys;     // 1 x n: filtered y
    MATRIX B, P;   // 1 x k, k x k: coefficients and (X*'X*)^-1
    MATRIX Xl;     // k x (n + p): the regressors over rows first-p..last (second derivatives only)
    MATRIX G, PG;  // p x k each: g_i in row i, then P g_i (second derivatives only)
    double *u, *e; // n + p and n
    double *dS;    // p: the gradient of S
    MatLsqWork lsq;
};

void layoutWork(KvCarve &c, RalsWork *wk, int k, int n, int p, bool second) {
    wk->Xs = c.matrix(k, n);
    wk->Ys = c.matrix(1, n);
    wk->B = c.matrix(1, k);
    wk->P = c.matrix(k, k);
    wk->Xl = second ? c.matrix(k, n + p) : nullptr;
    wk->G = second ? c.matrix(p, k) : nullptr;
    wk->PG = second ? c.matrix(p, k) : nullptr;
    wk->u = c.take<double>(static_cast<size_t>(n) + static_cast<size_t>(p));
    wk->e = c.take<double>(static_cast<size_t>(n));
    wk->dS = c.take<double>(static_cast<size_t>(p));
    MatLsqWorkLayout(c, &wk->lsq, k, 1, n);
}

double failed(double *b, int k, double *grad, MATRIX hess, int p) {
    const double nan = MissingValueOf();
    for (int j = 0; j < k; ++j) b[j] = nan;
    if (grad)
        for (int i = 0; i < p; ++i) grad[i] = nan;
    if (hess && p > 0) MatSetMissing(hess, p, p);
    return nan;
}

// y* and x* for rows first..last into column t - first.
void filterData(const RalsModel &m, int first, int n, RalsWork *wk) {
    for (int t = 0; t < n; ++t) {
        const int r = first + t;
        double v = m.y[r];
        for (int i = 1; i <= m.p; ++i) v -= m.rho[i - 1] * m.y[r - i];
        wk->Ys[0][t] = v;
        for (int j = 0; j < m.k; ++j) {
            double x = m.X[r][j];
            for (int i = 1; i <= m.p; ++i) x -= m.rho[i - 1] * m.X[r - i][j];
            wk->Xs[j][t] = x;
        }
    }
}

// The second derivatives of l from those of S (file comment). u[t + p - i] is u_{t-i}.
void secondDerivatives(const RalsModel &m, int first, int n, double S, const double *dS, RalsWork *wk, MATRIX hess) {
    const int k = m.k, p = m.p;
    for (int j = 0; j < k; ++j)
        for (int s = 0; s < n + p; ++s) wk->Xl[j][s] = m.X[first - p + s][j];
    for (int i = 1; i <= p; ++i) {
        const double *ulag = wk->u + p - i;
        for (int j = 0; j < k; ++j) wk->G[i - 1][j] = KvDot(wk->Xs[j], ulag, n) + KvDot(wk->e, wk->Xl[j] + p - i, n);
        for (int j = 0; j < k; ++j) wk->PG[i - 1][j] = KvDot(wk->P[j], wk->G[i - 1], k);
    }
    const double half = 0.5 * n;
    for (int i = 0; i < p; ++i)
        for (int l = 0; l <= i; ++l) {
            const double uu = KvDot(wk->u + p - 1 - i, wk->u + p - 1 - l, n);
            const double d2S = 2.0 * (uu - KvDot(wk->G[i], wk->PG[l], k));
            hess[i][l] = -half * (d2S / S - dS[i] * dS[l] / (S * S));
            hess[l][i] = hess[i][l];
        }
}

} // namespace

double RalsObjective(const RalsModel &m, int first, int last, double *b, double *grad, MATRIX hess) {
    if (!b || m.k < 1) return MissingValueOf();
    if (!m.y || !m.X || m.p < 0 || (m.p > 0 && !m.rho) || first < m.p || last < first || last >= INT_MAX)
        return failed(b, m.k, grad, hess, m.p);
    const int n = last - first + 1, k = m.k, p = m.p;
    if (n <= k) return failed(b, k, grad, hess, p);
    const bool second = hess && p > 0;
    RalsWork wk;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) { layoutWork(c, &wk, k, n, p, second); })));
    if (!block.ok()) return failed(b, k, grad, hess, p);

    filterData(m, first, n, &wk);
    const int status = MatLsqFit(wk.Xs, k, n, wk.Ys, 1, wk.B, wk.P, &wk.lsq);
    if (status == 0) return failed(b, k, grad, hess, p);
    for (int j = 0; j < k; ++j) b[j] = wk.B[0][j];
    for (int s = 0; s < n + p; ++s) {
        const double *x = m.X[first - p + s];
        wk.u[s] = m.y[first - p + s] - KvDot(x, b, k);
    }
    for (int t = 0; t < n; ++t) {
        double v = wk.Ys[0][t];
        for (int j = 0; j < k; ++j) v -= wk.Xs[j][t] * b[j];
        wk.e[t] = v;
    }
    const double S = KvSumSquares(wk.e, n);
    const double llf = -0.5 * n * (1.0 + kLog2Pi + std::log(S / n));
    if (!grad && !second) return llf;

    // dS/drho_i, then dl/drho_i = -n/2 dS_i / S.
    double *dS = wk.dS;
    for (int i = 1; i <= p; ++i) dS[i - 1] = -2.0 * KvDot(wk.e, wk.u + p - i, n);
    if (second) secondDerivatives(m, first, n, S, dS, &wk, hess);
    if (grad)
        for (int i = 0; i < p; ++i) grad[i] = -0.5 * n * dS[i] / S;
    return llf;
}

double RalsForecast(const RalsModel &m, const double *b, int first, int last, int h, double *fc, double *se) {
    const int k = m.k, p = m.p;
    auto u = [&](int s) { return m.y[s] - KvDot(m.X[s], b, k); };
    // The innovations' sum of squares over the sample, compensated: n terms of one sign.
    KvCompensatedSum S;
    for (int t = first; t <= last; ++t) {
        double e = u(t);
        for (int i = 1; i <= p; ++i) e -= m.rho[i - 1] * u(t - i);
        S.add(e * e);
    }
    const long long df = static_cast<long long>(last) - first + 1 - k - p;
    const double sigma = df > 0 ? std::sqrt(S.value() / static_cast<double>(df)) : MissingValueOf();

    // The error's forecasts first (each needs the p before it, observed or forecast), then the
    // regression part.
    for (int j = 0; j < h; ++j) {
        double v = 0.0;
        for (int i = 1; i <= p; ++i) {
            const int s = last + 1 + j - i;
            v += m.rho[i - 1] * (s <= last ? u(s) : fc[s - last - 1]);
        }
        fc[j] = v;
    }
    for (int j = 0; j < h; ++j) fc[j] += KvDot(m.X[last + 1 + j], b, k);

    // Moving-average weights psi of the error, then se_j = sigma sqrt(psi_0^2 + ... + psi_j^2).
    for (int l = 0; l < h; ++l) {
        double v = l == 0 ? 1.0 : 0.0;
        for (int i = 1; i <= p && i <= l; ++i) v += m.rho[i - 1] * se[l - i];
        se[l] = v;
    }
    double acc = 0.0;
    for (int l = 0; l < h; ++l) {
        acc += se[l] * se[l];
        se[l] = sigma * std::sqrt(acc);
    }
    return sigma;
}
