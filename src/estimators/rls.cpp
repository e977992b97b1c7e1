// Recursive least squares: the rank-one (Sherman-Morrison) recursion for the inverse moment
// matrix P = (X'X)^-1 with recursive residuals (Brown, Durbin & Evans 1975, eqs. 2-4; Harvey,
// The Econometric Analysis of Time Series, 2nd ed., Sec. 2.6), refitted in full by pivoted
// Householder least squares every RlsRefitInterval steps, at the forced row, after a failed fit
// and whenever an update would make 1 + x'Px non-positive.
//
// Working storage holds observations as columns (observation first + c in column c) so that the
// full refit and the residual passes run along contiguous rows. Everything is allocated before the
// recursion starts; the per-observation steps allocate nothing.
#include "estimators/rls.h"

#include <climits>
#include <cmath>
#include <cstring>

#include "base/alloc.h"
#include "base/carve.h"
#include "base/sums.h"
#include "matrix/cholesky.h"
#include "matrix/matrix.h"
#include "matrix/ops.h"
#include "matrix/qr.h"

namespace {

// Sum of squares of y - fit over len elements, eight partial sums so that the loop vectorises.
double sumSquaredDifferences(const double *y, const double *fit, int len) {
    double acc[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    int t = 0;
    for (; t + 8 <= len; t += 8)
        for (int u = 0; u < 8; ++u) {
            const double d = y[t + u] - fit[t + u];
            acc[u] += d * d;
        }
    for (; t < len; ++t) {
        const double d = y[t] - fit[t];
        acc[0] += d * d;
    }
    return ((acc[0] + acc[1]) + (acc[2] + acc[3])) + ((acc[4] + acc[5]) + (acc[6] + acc[7]));
}

// fit[lo..hi] = sum over j of b[j] * X[j][lo..hi], one contiguous pass per regressor.
void fittedValues(double *fit, const double *b, MATRIX X, int k, int lo, int hi) {
    const int len = hi - lo + 1;
    double *f = fit + lo;
    for (int t = 0; t < len; ++t) f[t] = 0.0;
    for (int j = 0; j < k; ++j) {
        const double bj = b[j];
        const double *x = X[j] + lo;
        for (int t = 0; t < len; ++t) f[t] += bj * x[t];
    }
}

// The per-equation outputs, each null when not asked for.
struct RlsOutputs {
    MATRIX coef, stdinnov, innov, rss, resid;
};

void fillMissing(MATRIX m, long long rows, int cols) {
    if (m && rows > 0 && rows <= INT_MAX) MatSetMissing(m, static_cast<int>(rows), cols);
}

// Observation first + c into column c of the working copies, for c = 0..T-1; the columns from T
// to the end are zero, so that reads at absolute column positions beyond the sample are defined.
void loadTransposed(MATRIX dst, MATRIX src, int vars, int first, int T, int ncol) {
    for (int c = 0; c < T; ++c) {
        const double *row = src[first + c];
        for (int v = 0; v < vars; ++v) dst[v][c] = row[v];
    }
    for (int v = 0; v < vars; ++v)
        for (int c = T; c < ncol; ++c) dst[v][c] = 0.0;
}

// All scratch of one recursion, carved from one block. Observation first + c is column c of the
// working copies.
struct RlsWork {
    MATRIX Yw, Xw;      // n x ncol and k x ncol working copies, observations as columns
    MATRIX P;           // k x k: the inverse moment matrix
    MATRIX XY, B;       // n x k: sums of y(e,t) x(t), current coefficients
    MATRIX Bfull, S, W; // system statistic only: refit coefficients, residual cross-products, scratch
    MATRIX R;           // system statistic only: n x ncol residuals of the refit
    double *w, *rssRun; // n: standardised innovations, running residual sums of squares
    double *x, *g;      // k: the current regressors, P x
    double *fit;        // ncol: fitted values of one equation
    MatLsqWork lsq;     // the full refits
};

void layoutWork(KvCarve &c, RlsWork *wk, int n, int k, int ncol, int T, bool wantS) {
    wk->Yw = c.matrix(n, ncol);
    wk->Xw = c.matrix(k, ncol);
    wk->P = c.matrix(k, k);
    wk->XY = c.matrix(n, k);
    wk->B = c.matrix(n, k);
    // The n x n pieces exist only for the system statistic: a system of many equations that
    // does not ask for it must not need n^2 doubles.
    wk->Bfull = wantS ? c.matrix(n, k) : nullptr;
    wk->S = wantS ? c.matrix(n, n) : nullptr;
    wk->W = wantS ? c.matrix(n, n) : nullptr;
    wk->R = wantS ? c.matrix(n, ncol) : nullptr;
    wk->w = c.take<double>(static_cast<size_t>(n));
    wk->rssRun = c.take<double>(static_cast<size_t>(n));
    wk->x = c.take<double>(static_cast<size_t>(k));
    wk->g = c.take<double>(static_cast<size_t>(k));
    wk->fit = c.take<double>(static_cast<size_t>(ncol));
    MatLsqWorkLayout(c, &wk->lsq, k, n, T);
}

// The rank-one update of P for the regressors x: g = P x, f = 1 + x'g, P <- P - g g' / f. Each
// element is (g_j g_i) / f, the same for (i, j) and (j, i), so P stays exactly symmetric; the
// triangle is computed and mirrored. Returns f; a non-positive f leaves P as it was.
double updateInverse(RlsWork *wk, int k) {
    MATRIX P = wk->P;
    const double *x = wk->x;
    double *g = wk->g;
    for (int i = 0; i < k; ++i) g[i] = KvDot(P[i], x, k);
    const double f = 1.0 + KvDot(x, g, k);
    if (f <= 0.0) return f;
    for (int i = 0; i < k; ++i)
        for (int j = i; j < k; ++j) {
            P[i][j] -= (g[j] * g[i]) / f;
            P[j][i] = P[i][j];
        }
    return f;
}

// The full re-estimation from the observations up to column c (observation t): P anew and, for
// the system statistic, the residual cross-products S of the refit. Returns the fit's status.
int refit(RlsWork *wk, int n, int k, int c, int first, int t, bool wantS) {
    // Bfull feeds only S, so the dependent rows are reflected only when the statistic is wanted.
    const int status = MatLsqFit(wk->Xw, k, c + 1, wk->Yw, wantS ? n : 0, wk->Bfull, wk->P, &wk->lsq);
    if (wantS) {
        for (int e = 0; e < n; ++e) {
            double *r = wk->R[e];
            const double *y = wk->Yw[e];
            fittedValues(r, wk->Bfull[e], wk->Xw, k, first, t);
            for (int col = first; col <= t; ++col) r[col] = y[col] - r[col];
        }
        MatMulAAtRange(wk->R, n, first, t, wk->S);
    }
    return status;
}

// The outputs of observation t (column c) for every equation: innovation v, standardised
// innovation v / sqrt(f), the coefficients from the updated cross-products, the residual and the
// residual sum of squares (recomputed after a full step, accumulated otherwise).
void equationStep(RlsWork *wk, int n, int k, int c, int t, double f, bool full, const RlsOutputs &out) {
    const double sf = std::sqrt(f);
    const double *x = wk->x;
    for (int e = 0; e < n; ++e) {
        const double y = wk->Yw[e][c];
        double *xy = wk->XY[e];
        double *b = wk->B[e];
        double s = 0.0;
        for (int j = 0; j < k; ++j) {
            s += b[j] * x[j];
            xy[j] += x[j] * y;
        }
        const double v = y - s;
        for (int j = 0; j < k; ++j) b[j] = KvDot(wk->P[j], xy, k);
        const double we = v / sf;
        wk->w[e] = we;
        if (out.resid) out.resid[e][t] = y - KvDot(x, b, k);
        if (out.innov) out.innov[e][t] = v;
        if (out.stdinnov) out.stdinnov[e][t] = we;
        if (out.coef)
            for (int j = 0; j < k; ++j) out.coef[e * k + j][t] = b[j];
        if (out.rss) {
            if (full) {
                // Columns 0..c, as the start indexing has it (docs/rls.md).
                fittedValues(wk->fit, b, wk->Xw, k, 0, c);
                wk->rssRun[e] = sumSquaredDifferences(wk->Yw[e], wk->fit, c + 1);
            } else {
                wk->rssRun[e] += we * we;
            }
            out.rss[e][t] = wk->rssRun[e];
        }
    }
}

// -1/2 log det(S / T), S accumulated by the standardised innovations between full steps;
// missing when S / T is not positive definite.
double systemStatistic(RlsWork *wk, int n, int T, bool full) {
    MATRIX S = wk->S, W = wk->W;
    if (!full)
        for (int r = 0; r < n; ++r)
            for (int q = 0; q < n; ++q) S[r][q] += wk->w[q] * wk->w[r];
    for (int r = 0; r < n; ++r)
        for (int q = 0; q < n; ++q) W[r][q] = S[r][q] / T;
    double logdet;
    return MatLogDet(W, n, &logdet, W) == 0 ? -0.5 * logdet : MissingValueOf();
}

} // namespace

int RlsRecursion(MATRIX Y, MATRIX X, int first, int last, int force, int n, int k, MATRIX coef, MATRIX pdiag,
                 MATRIX stdinnov, MATRIX innov, MATRIX rss, MATRIX resid, MATRIX sysstat) {
    // Outputs hold the missing value wherever nothing is computed, on every path.
    if (last >= 0 && last < INT_MAX) {
        const int cols = last + 1;
        fillMissing(coef, static_cast<long long>(n) * k, cols);
        fillMissing(pdiag, k, cols);
        fillMissing(stdinnov, n, cols);
        fillMissing(innov, n, cols);
        fillMissing(rss, n, cols);
        fillMissing(resid, n, cols);
        fillMissing(sysstat, 1, cols);
    }
    if (!Y || !X || n < 1 || k < 1 || first < 0 || last < first || last >= INT_MAX - 1) return 0;
    if (static_cast<long long>(first) + k > last) return 0;

    const int T = last - first + 1;
    const int ncol = last + 1 > T + 1 ? last + 1 : T + 1;
    const bool wantS = sysstat != nullptr;
    const RlsOutputs out{coef, stdinnov, innov, rss, resid};

    RlsWork wk;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) { layoutWork(c, &wk, n, k, ncol, T, wantS); })));
    if (!block.ok()) return 0;

    loadTransposed(wk.Yw, Y, n, first, T, ncol);
    loadTransposed(wk.Xw, X, k, first, T, ncol);
    MatZero(wk.B, n, k);
    MatZero(wk.S, n, n);
    MatZero(wk.W, n, n);

    // The cross-products start from the absolute columns first..first+k-1 of the working copies
    // (the first k observations when first = 0; see docs/rls.md for first > 0).
    MatMulABtRange(wk.Yw, n, first, first + k - 1, wk.Xw, k, wk.XY);
    // Exactly identified start: the coefficients that give the first innovations. Its P and its
    // residual cross-products are superseded by the full step that always comes first.
    MatLsqFit(wk.Xw, k, k, wk.Yw, n, wk.B, wk.P, &wk.lsq);

    bool needRefit = true;
    for (int c = k;; ++c) {
        const int t = first + c;
        for (int j = 0; j < k; ++j) wk.x[j] = wk.Xw[j][c];
        bool full = needRefit || t == force || (c - k) % RlsRefitInterval == 0;
        double f = full ? 0.0 : updateInverse(&wk, k);
        if (f <= 0.0) full = true;
        if (full) {
            needRefit = refit(&wk, n, k, c, first, t, wantS) != 1;
            // P already includes observation t here, unlike the update step.
            f = 1.0 + MatQuadFormCol(c, wk.Xw, wk.P, k);
            if (f <= 0.0) return 0;
        }
        equationStep(&wk, n, k, c, t, f, full, out);
        if (pdiag)
            for (int j = 0; j < k; ++j)
                if (wk.P[j][j] != 0.0) pdiag[j][t] = wk.P[j][j];
        if (wantS) sysstat[0][t] = systemStatistic(&wk, n, T, full);
        if (t == last) return 1;
    }
}
