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

    MatOwner Yw(n, ncol), Xw(k, ncol), P(k, k), XY(n, k), B(n, k), Bfull(n, k), S(n, n), W(n, n);
    MatOwner R;
    KvArray<double> w(static_cast<size_t>(n)), rssRun(static_cast<size_t>(n)), x(static_cast<size_t>(k)),
        g(static_cast<size_t>(k)), fit(static_cast<size_t>(ncol));
    MatLsqWork work;
    if (!Yw.get() || !Xw.get() || !P.get() || !XY.get() || !B.get() || !Bfull.get() || !S.get() || !W.get() ||
        !w.ok() || !rssRun.ok() || !x.ok() || !g.ok() || !fit.ok() || (wantS && !R.alloc(n, ncol)) ||
        !MatLsqWorkAlloc(&work, k, n, T))
        return 0;

    loadTransposed(Yw, Y, n, first, T, ncol);
    loadTransposed(Xw, X, k, first, T, ncol);
    MatZero(B, n, k);
    MatZero(S, n, n);
    MatZero(W, n, n);

    // The cross-products start from the absolute columns first..first+k-1 of the working copies
    // (the first k observations when first = 0; see docs/rls.md for first > 0).
    MatMulABtRange(Yw, n, first, first + k - 1, Xw, k, XY);
    // Exactly identified start: the coefficients that give the first innovations. Its P and its
    // residual cross-products are superseded by the full step that always comes first.
    MatLsqFit(Xw, k, k, Yw, n, B, P, &work);

    bool refit = true;
    for (int c = k;; ++c) {
        const int t = first + c;
        const int step = c - k;
        for (int j = 0; j < k; ++j) x[j] = Xw.get()[j][c];

        // Update step: g = P x, f = 1 + x'g, P <- P - g g' / f. Each element is (g_j g_i) / f,
        // the same for (i, j) and (j, i), so P stays exactly symmetric; the triangle is computed
        // and mirrored.
        bool full = refit || t == force || step % RlsRefitInterval == 0;
        double f = 0.0;
        if (!full) {
            for (int i = 0; i < k; ++i) g[i] = KvDot(P.get()[i], x.get(), k);
            f = 1.0 + KvDot(x.get(), g.get(), k);
            if (f <= 0.0) {
                full = true;
            } else {
                for (int i = 0; i < k; ++i) {
                    double *pi = P.get()[i];
                    for (int j = i; j < k; ++j) {
                        pi[j] -= (g[j] * g[i]) / f;
                        P.get()[j][i] = pi[j];
                    }
                }
            }
        }
        if (full) {
            // Bfull feeds only the residual cross-products S, so the dependent rows are reflected
            // only when the system statistic is wanted.
            const int status = MatLsqFit(Xw, k, c + 1, Yw, wantS ? n : 0, wantS ? Bfull.get() : nullptr, P, &work);
            refit = status != 1;
            if (wantS) {
                for (int e = 0; e < n; ++e) {
                    double *r = R.get()[e];
                    const double *y = Yw.get()[e];
                    fittedValues(r, Bfull.get()[e], Xw, k, first, t);
                    for (int col = first; col <= t; ++col) r[col] = y[col] - r[col];
                }
                MatMulAAtRange(R, n, first, t, S);
            }
            // P already includes observation t here, unlike the update step.
            f = 1.0 + MatQuadFormCol(c, Xw, P, k);
            if (f <= 0.0) return 0;
        }

        const double sf = std::sqrt(f);
        for (int e = 0; e < n; ++e) {
            const double y = Yw.get()[e][c];
            double *xy = XY.get()[e];
            double *b = B.get()[e];
            double s = 0.0;
            for (int j = 0; j < k; ++j) {
                s += b[j] * x[j];
                xy[j] += x[j] * y;
            }
            const double v = y - s;
            for (int j = 0; j < k; ++j) b[j] = KvDot(P.get()[j], xy, k);
            const double we = v / sf;
            w[e] = we;
            if (resid) resid[e][t] = y - KvDot(x.get(), b, k);
            if (innov) innov[e][t] = v;
            if (stdinnov) stdinnov[e][t] = we;
            if (coef)
                for (int j = 0; j < k; ++j) coef[e * k + j][t] = b[j];
            if (rss) {
                if (full) {
                    fittedValues(fit.get(), b, Xw, k, 0, c);
                    rssRun[e] = sumSquaredDifferences(Yw.get()[e], fit.get(), c + 1);
                } else {
                    rssRun[e] += we * we;
                }
                rss[e][t] = rssRun[e];
            }
        }

        if (pdiag)
            for (int j = 0; j < k; ++j) {
                const double d = P.get()[j][j];
                if (d != 0.0) pdiag[j][t] = d;
            }

        if (wantS) {
            MATRIX Sm = S.get(), Wm = W.get();
            if (!full)
                for (int r = 0; r < n; ++r)
                    for (int q = 0; q < n; ++q) Sm[r][q] += w[q] * w[r];
            for (int r = 0; r < n; ++r)
                for (int q = 0; q < n; ++q) Wm[r][q] = Sm[r][q] / T;
            double logdet;
            if (MatLogDet(Wm, n, &logdet, Wm) == 0)
                sysstat[0][t] = -0.5 * logdet;
            else
                MissingValue(&sysstat[0][t]);
        }

        if (t == last) return 1;
    }
}
