// Recursive least squares: the rank-one (Sherman-Morrison) recursion for the inverse moment
// matrix P = (X'X)^-1 with recursive residuals (Brown, Durbin & Evans 1975, eqs. 2-4; Harvey,
// The Econometric Analysis of Time Series, 2nd ed., Sec. 2.6), re-estimated in full every
// RlsRefitInterval steps, at the forced row, after a failed fit and whenever an update would make
// 1 + x'Px non-positive.
//
// A full re-estimation works on the upper triangular factor R of the augmented data [X Y] over
// the observations so far, not on the observations themselves: R is updated by one row per step
// with Givens rotations (Golub & Van Loan, 4th ed., Sec. 6.5.1, the row-append update), and since
// R'R = [X Y]'[X Y], the pivoted least-squares fit of R's k + n rows gives the pivots, rank
// decision, coefficients and P of the fit of the t rows, the residual cross-products of any
// coefficients from R's rows as well. So every step costs O((k + n)^2) and a whole call
// O(T (k + n)^2), whatever T.
//
// Working storage holds observations as columns (observation first + c in column c). Everything
// is allocated before the recursion starts, in one block; the steps allocate nothing.
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

// The upper triangular factor R of [X Y] over some observations, kept by columns: RT[j][i] =
// R[i][j] for the first k rows of R (j < k: the regressors' block, j = k + e: equation e's), so
// that its k x (k + n) part is read as k pseudo-observations. Of the trailing n x n block only
// what is needed: the squared norm of each of its columns (rotations within the block keep
// them), so that a system of many equations needs O(n) storage and work per step there, not
// O(n^2); and the whole triangle by columns (YT[f][i] = R[k + i][k + f]) only when the residual
// cross-products of several equations are wanted.
struct RlsFactor {
    MATRIX RT;   // k + n rows of k
    MATRIX YT;   // n x n, or null
    double *ysq; // n
};

void layoutFactor(KvCarve &c, RlsFactor *f, int k, int n, bool cross) {
    f->RT = c.matrix(k + n, k);
    f->YT = cross ? c.matrix(n, n) : nullptr;
    f->ysq = c.take<double>(static_cast<size_t>(n));
}

void clearFactor(RlsFactor *f, int k, int n) {
    MatZero(f->RT, k + n, k);
    MatZero(f->YT, n, n);
    for (int e = 0; e < n; ++e) f->ysq[e] = 0.0;
}

// The Givens rotation that zeroes b against the diagonal element *d (which becomes their
// length, from hypot so that large data does not overflow): its cosine and sine.
inline void makeRotation(double *d, double b, double *c, double *s) {
    const double r = std::hypot(*d, b);
    *c = *d / r;
    *s = b / r;
    *d = r;
}

// One Givens rotation of the pair (*a, *b) by (c, s).
inline void rotate(double *a, double *b, double c, double s) {
    const double x = *a;
    *a = c * x + s * *b;
    *b = c * *b - s * x;
}

// Adds the observation in column col of the working copies (k regressors, then n dependent
// values) to the factor: one Givens rotation per element below the diagonal (Golub & Van Loan,
// 4th ed., Sec. 6.5.1). z: k + n values of scratch.
void addToFactor(RlsFactor *f, MATRIX Xw, MATRIX Yw, int k, int n, int col, double *z) {
    double *zy = z + k;
    for (int j = 0; j < k; ++j) z[j] = Xw[j][col];
    for (int e = 0; e < n; ++e) zy[e] = Yw[e][col];
    MATRIX RT = f->RT;
    double c, s;
    for (int i = 0; i < k; ++i) {
        if (z[i] == 0.0) continue;
        makeRotation(&RT[i][i], z[i], &c, &s);
        for (int j = i + 1; j < k; ++j) rotate(&RT[j][i], &z[j], c, s);
        for (int e = 0; e < n; ++e) rotate(&RT[k + e][i], &zy[e], c, s);
    }
    for (int e = 0; e < n; ++e) f->ysq[e] += zy[e] * zy[e];
    if (!f->YT) return;
    MATRIX YT = f->YT;
    for (int i = 0; i < n; ++i) {
        if (zy[i] == 0.0) continue;
        makeRotation(&YT[i][i], zy[i], &c, &s);
        for (int e = i + 1; e < n; ++e) rotate(&YT[e][i], &zy[e], c, s);
    }
}

// Residuals of coefficients B (n x k) over the factor's k pseudo-observations, res (n x k).
void factorResiduals(const RlsFactor *f, int k, int n, MATRIX B, MATRIX res) {
    for (int e = 0; e < n; ++e) {
        const double *y = f->RT[k + e];
        const double *b = B[e];
        for (int i = 0; i < k; ++i) {
            double v = y[i];
            for (int j = i; j < k; ++j) v -= b[j] * f->RT[j][i];
            res[e][i] = v;
        }
    }
}

// (y_e - X b)'(y_e - X b) over the observations the factor holds: the part of the first k rows
// plus what lies beyond the regressors' span (the trailing block's column e, by its running
// squared norm, whether or not the triangle is kept, so that the output does not depend on which
// others are requested).
double factorRss(const RlsFactor *f, int k, int e, const double *b) {
    const double *y = f->RT[k + e];
    double s = 0.0;
    for (int i = 0; i < k; ++i) {
        double v = y[i];
        for (int j = i; j < k; ++j) v -= b[j] * f->RT[j][i];
        s += v * v;
    }
    return s + f->ysq[e];
}

// The seven outputs, each null when not asked for.
struct RlsOutputs {
    MATRIX coef, pdiag, stdinnov, innov, rss, resid, sysstat;
};

void fillMissing(MATRIX m, long long rows, int cols) {
    if (m && rows > 0 && rows <= INT_MAX) MatSetMissing(m, static_cast<int>(rows), cols);
}

// Before any check, so that what is not computed is missing on every path, failures included.
void fillOutputsMissing(const RlsOutputs &out, int n, int k, int last) {
    if (last < 0 || last >= INT_MAX) return;
    const int cols = last + 1;
    fillMissing(out.coef, static_cast<long long>(n) * k, cols);
    fillMissing(out.pdiag, k, cols);
    fillMissing(out.stdinnov, n, cols);
    fillMissing(out.innov, n, cols);
    fillMissing(out.rss, n, cols);
    fillMissing(out.resid, n, cols);
    fillMissing(out.sysstat, 1, cols);
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
    RlsFactor F;        // factor of [X Y] over working columns 0..c
    RlsFactor F2;       // factor over working columns first..first+c (first > 0, statistic only)
    bool second;        // F2 is kept
    MATRIX Bfull, S, W; // system statistic only: refit coefficients, residual cross-products, scratch
    MATRIX res;         // system statistic only: n x k residuals of the refit on a factor
    double *w, *rssRun; // n: standardised innovations, running residual sums of squares
    double *x, *g;      // k: the current regressors, P x
    double *z;          // k + n: the row being added to a factor
    MatLsqWork lsq;     // the exactly identified start (k columns), then the refits (k pseudo-rows)
};

void layoutWork(KvCarve &c, RlsWork *wk, int n, int k, int ncol, bool wantS, bool second) {
    wk->Yw = c.matrix(n, ncol);
    wk->Xw = c.matrix(k, ncol);
    wk->P = c.matrix(k, k);
    wk->XY = c.matrix(n, k);
    wk->B = c.matrix(n, k);
    // The n x n pieces exist only for the system statistic: a system of many equations that
    // does not ask for it must not need n^2 doubles.
    layoutFactor(c, &wk->F, k, n, wantS && !second);
    wk->second = second;
    if (second) layoutFactor(c, &wk->F2, k, n, true);
    wk->Bfull = wantS ? c.matrix(n, k) : nullptr;
    wk->S = wantS ? c.matrix(n, n) : nullptr;
    wk->W = wantS ? c.matrix(n, n) : nullptr;
    wk->res = wantS ? c.matrix(n, k) : nullptr;
    wk->w = c.take<double>(static_cast<size_t>(n));
    wk->rssRun = c.take<double>(static_cast<size_t>(n));
    wk->x = c.take<double>(static_cast<size_t>(k));
    wk->g = c.take<double>(static_cast<size_t>(k));
    wk->z = c.take<double>(static_cast<size_t>(k) + static_cast<size_t>(n));
    MatLsqWorkLayout(c, &wk->lsq, k, n, k);
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

// The full re-estimation from the observations up to column c, fitted on the k pseudo-rows of
// the factor: P anew and, for the system statistic, the residual cross-products S of the refit
// over the factor that holds the working columns the statistic reads (first..first+c): the part
// of the first k rows plus the trailing block's cross-products. Returns the fit's status.
int refit(RlsWork *wk, int n, int k, bool wantS) {
    // Bfull feeds only S, so the dependent rows are reflected only when the statistic is wanted.
    const int status = MatLsqFit(wk->F.RT, k, k, wk->F.RT + k, wantS ? n : 0, wk->Bfull, wk->P, &wk->lsq);
    if (wantS) {
        const RlsFactor *f = wk->second ? &wk->F2 : &wk->F;
        factorResiduals(f, k, n, wk->Bfull, wk->res);
        MatMulAAtRange(wk->res, n, 0, k - 1, wk->S);
        for (int e = 0; e < n; ++e)
            for (int g = 0; g <= e; ++g) {
                double s = 0.0;
                for (int i = 0; i <= g; ++i) s += f->YT[e][i] * f->YT[g][i];
                wk->S[e][g] += s;
                if (g != e) wk->S[g][e] += s;
            }
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
                // Over columns 0..c, the rows the factor holds (docs/rls.md).
                wk->rssRun[e] = factorRss(&wk->F, k, e, b);
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

// The state before the first step: working copies, the factor(s) of the first k observations,
// the starting cross-products and the exactly identified coefficients.
void startRecursion(RlsWork *wk, MATRIX Y, MATRIX X, int first, int T, int ncol, int n, int k) {
    loadTransposed(wk->Yw, Y, n, first, T, ncol);
    loadTransposed(wk->Xw, X, k, first, T, ncol);
    MatZero(wk->B, n, k);
    MatZero(wk->S, n, n);
    MatZero(wk->W, n, n);
    clearFactor(&wk->F, k, n);
    if (wk->second) clearFactor(&wk->F2, k, n);
    for (int col = 0; col < k; ++col) {
        addToFactor(&wk->F, wk->Xw, wk->Yw, k, n, col, wk->z);
        if (wk->second) addToFactor(&wk->F2, wk->Xw, wk->Yw, k, n, first + col, wk->z);
    }
    // The cross-products start from the absolute columns first..first+k-1 of the working copies
    // (the first k observations when first = 0; see docs/rls.md for first > 0).
    MatMulABtRange(wk->Yw, n, first, first + k - 1, wk->Xw, k, wk->XY);
    // Exactly identified start: the coefficients that give the first innovations. Its P and its
    // residual cross-products are superseded by the full step that always comes first.
    MatLsqFit(wk->Xw, k, k, wk->Yw, n, wk->B, wk->P, &wk->lsq);
}

// Observation first + c becomes the current regressors and enters the factor(s).
void addObservation(RlsWork *wk, int first, int c, int n, int k) {
    for (int j = 0; j < k; ++j) wk->x[j] = wk->Xw[j][c];
    addToFactor(&wk->F, wk->Xw, wk->Yw, k, n, c, wk->z);
    if (wk->second) addToFactor(&wk->F2, wk->Xw, wk->Yw, k, n, first + c, wk->z);
}

} // namespace

int RlsRecursion(MATRIX Y, MATRIX X, int first, int last, int force, int n, int k, MATRIX coef, MATRIX pdiag,
                 MATRIX stdinnov, MATRIX innov, MATRIX rss, MATRIX resid, MATRIX sysstat) {
    const RlsOutputs out{coef, pdiag, stdinnov, innov, rss, resid, sysstat};
    fillOutputsMissing(out, n, k, last);
    if (!Y || !X || n < 1 || k < 1 || first < 0 || last < first || last >= INT_MAX - 1) return 0;
    if (static_cast<long long>(first) + k > last) return 0;

    const int T = last - first + 1;
    const int ncol = last + 1 > T + 1 ? last + 1 : T + 1;
    const bool wantS = sysstat != nullptr;
    // With first > 0 the statistic reads other working columns than the refit (docs/rls.md):
    // a second factor follows those.
    const bool secondFactor = wantS && first > 0;
    RlsWork wk;
    KvArray<char> block;
    block.reset(
        static_cast<char *>(KvCarveBlock([&](KvCarve &c) { layoutWork(c, &wk, n, k, ncol, wantS, secondFactor); })));
    if (!block.ok()) return 0;
    startRecursion(&wk, Y, X, first, T, ncol, n, k);

    bool needRefit = true;
    for (int c = k;; ++c) {
        const int t = first + c;
        addObservation(&wk, first, c, n, k);
        bool full = needRefit || t == force || (c - k) % RlsRefitInterval == 0;
        double f = full ? 0.0 : updateInverse(&wk, k);
        if (f <= 0.0) full = true;
        if (full) {
            needRefit = refit(&wk, n, k, wantS) != 1;
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
