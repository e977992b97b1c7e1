// Recursive two-stage least squares. Over the observations so far, with instruments Z (m columns)
// and regressors X (a columns), b = Q X'Z W Z'y, W = (Z'Z)^-1 and Q = (X'Z W Z'X)^-1 (Sargan 1958;
// Davidson & MacKinnon, Econometric Theory and Methods, 2004, Sec. 8.3). W and Q are carried from
// one observation to the next by rank-one (Sherman-Morrison) steps: an observation (y, x, z) adds
// z z' to Z'Z, and it changes X'P_Z X by
//     x x' - e e' / f,   e = x - A'W z,   f = 1 + z'W z   (A = Z'X before the observation),
// one update with x and one downdate with e / sqrt(f), e being the first-stage prediction error of
// the regressors (zero for the exogenous ones: they are instruments themselves). docs/riv.md has
// the derivation.
//
// Full inversions (before the first step, at the first step, every RivRefitInterval steps, at the
// forced observation and whenever a rank-one step would lose positive definiteness) are made from
// the upper triangular factor R of [Z X_endo y] over the observations so far, which every
// observation updates by one row with Givens rotations (Golub & Van Loan, 4th ed., Sec. 6.5.1):
// so a full step costs the same at any t. R's Z block gives W, its first m rows the projected
// regressors and so Q (R_zz' R_zx = Z'X, hence R_zx'R_zx = X'P_Z X). The same factor gives the
// residual sum of squares of any coefficients and Sargan's statistic without rereading the data:
// with r = R v, v = (-b, 1) in [Z X_endo y] order, RSS = |r|^2 and u'P_Z u = |r_1..m|^2.
//
// Everything is allocated before the recursion starts, in one block; the steps allocate nothing.
#include "estimators/riv.h"

#include <climits>
#include <cmath>

#include "base/alloc.h"
#include "base/carve.h"
#include "matrix/matrix.h"
#include "matrix/qr.h"

namespace {

struct RivOutputs {
    MATRIX coef, se, stdinnov, innov, rss, sargan;
};

// Sizes of one problem: m instruments, a regressors (E endogenous), p = m + E + 1 factor columns.
struct RivSizes {
    int m, a, E, p;
};

// All scratch of one recursion, carved from one block.
struct RivWork {
    MATRIX R;          // p x p: the factor, upper triangle (rows contiguous, as the rotations run along them)
    MATRIX RT;         // (m + E) x m: its first m rows by columns, made for each full inversion
    MATRIX W;          // m x m: (Z'Z)^-1
    MATRIX Q;          // a x a: (X'P_Z X)^-1
    MATRIX A;          // m x a: Z'X
    double *c;         // m: Z'y
    double *z, *g;     // m: the current instruments, W z
    double *h;         // m: W c
    double *x, *q, *e; // a: the current regressors, Q x, first-stage prediction errors
    double *r, *s, *b; // a: Q e, A'W c, the coefficients
    double *row;       // p: the row being rotated into the factor; v of the residual statistics
    double *rv;        // p: R v
    double **xr;       // a: the projected regressors' rows in the factor, for the full inversion of Q
    MatLsqWork lsq;    // m variables over m pseudo-observations
    double y;          // the current dependent value
};

void layoutWork(KvCarve &c, RivWork *wk, const RivSizes &n) {
    const size_t m = static_cast<size_t>(n.m), a = static_cast<size_t>(n.a), p = static_cast<size_t>(n.p);
    wk->R = c.matrix(n.p, n.p);
    wk->RT = c.matrix(n.m + n.E, n.m);
    wk->W = c.matrix(n.m, n.m);
    wk->Q = c.matrix(n.a, n.a);
    wk->A = c.matrix(n.m, n.a);
    wk->c = c.take<double>(m);
    wk->z = c.take<double>(m);
    wk->g = c.take<double>(m);
    wk->h = c.take<double>(m);
    wk->x = c.take<double>(a);
    wk->q = c.take<double>(a);
    wk->e = c.take<double>(a);
    wk->r = c.take<double>(a);
    wk->s = c.take<double>(a);
    wk->b = c.take<double>(a);
    wk->row = c.take<double>(p);
    wk->rv = c.take<double>(p);
    wk->xr = c.take<double *>(a);
    MatLsqWorkLayout(c, &wk->lsq, n.m, 0, n.m);
}

void fillMissing(MATRIX m, int rows, int cols) {
    if (m && rows > 0) MatSetMissing(m, rows, cols);
}

// Observation t: instrument i is data row 1 + E + i (the exogenous regressors, then the
// additional instruments), regressor j is data row 1 + j.
void loadObservation(const RivModel &model, const RivSizes &n, int t, RivWork *wk) {
    MATRIX d = model.data;
    for (int i = 0; i < n.m; ++i) wk->z[i] = d[1 + n.E + i][t];
    for (int j = 0; j < n.a; ++j) wk->x[j] = d[1 + j][t];
    wk->y = d[0][t];
}

// The Givens rotation that zeroes b against the diagonal element *d (which becomes their length,
// from hypot so that large data does not overflow).
inline void makeRotation(double *d, double b, double *c, double *s) {
    const double len = std::hypot(*d, b);
    *c = *d / len;
    *s = b / len;
    *d = len;
}

inline void rotate(double *a, double *b, double c, double s) {
    const double v = *a;
    *a = c * v + s * *b;
    *b = c * *b - s * v;
}

// Adds the current observation to the factor and to the cross-products A and c.
void addObservation(RivWork *wk, const RivSizes &n) {
    double *row = wk->row;
    for (int i = 0; i < n.m; ++i) row[i] = wk->z[i];
    for (int j = 0; j < n.E; ++j) row[n.m + j] = wk->x[j];
    row[n.p - 1] = wk->y;
    MATRIX R = wk->R;
    double cs, sn;
    for (int i = 0; i < n.p; ++i) {
        if (row[i] == 0.0) continue;
        double *Ri = R[i];
        makeRotation(&Ri[i], row[i], &cs, &sn);
        for (int j = i + 1; j < n.p; ++j) rotate(&Ri[j], &row[j], cs, sn);
    }
    for (int i = 0; i < n.m; ++i) {
        const double zi = wk->z[i];
        double *Ai = wk->A[i];
        for (int j = 0; j < n.a; ++j) Ai[j] += zi * wk->x[j];
        wk->c[i] += zi * wk->y;
    }
}

// W and Q anew from the factor; false when either is not of full rank (or the data not finite).
bool fullInversion(RivWork *wk, const RivSizes &n) {
    // Variable rows over the m pseudo-observations, as the fits take them.
    for (int j = 0; j < n.m + n.E; ++j)
        for (int i = 0; i < n.m; ++i) wk->RT[j][i] = i <= j ? wk->R[i][j] : 0.0;
    const int sw = MatLsqFit(wk->RT, n.m, n.m, nullptr, 0, nullptr, wk->W, &wk->lsq);
    if (sw != 1 && sw != 2) return false;
    for (int j = 0; j < n.a; ++j) wk->xr[j] = j < n.E ? wk->RT[n.m + j] : wk->RT[j - n.E];
    const int sq = MatLsqFit(wk->xr, n.a, n.m, nullptr, 0, nullptr, wk->Q, &wk->lsq);
    return sq == 1 || sq == 2;
}

// b = Q A'W c.
void coefficients(RivWork *wk, const RivSizes &n) {
    for (int i = 0; i < n.m; ++i) {
        double v = 0.0;
        for (int l = 0; l < n.m; ++l) v += wk->W[i][l] * wk->c[l];
        wk->h[i] = v;
    }
    for (int j = 0; j < n.a; ++j) wk->s[j] = 0.0;
    for (int i = 0; i < n.m; ++i)
        for (int j = 0; j < n.a; ++j) wk->s[j] += wk->A[i][j] * wk->h[i];
    for (int j = 0; j < n.a; ++j) {
        double v = 0.0;
        for (int l = 0; l < n.a; ++l) v += wk->Q[j][l] * wk->s[l];
        wk->b[j] = v;
    }
}

// What the rank-one steps need from the state before the observation enters: q = Q x and
// 1 + x'q (returned: it also standardises the innovation), g = W z, f = 1 + z'g (in *f) and the
// first-stage prediction errors e of the endogenous regressors (the exogenous ones' are 0).
double prepareSteps(RivWork *wk, const RivSizes &n, double *f) {
    double fq = 1.0;
    for (int i = 0; i < n.a; ++i) {
        double v = 0.0;
        for (int j = 0; j < n.a; ++j) v += wk->Q[i][j] * wk->x[j];
        wk->q[i] = v;
        fq += wk->x[i] * v;
    }
    double fz = 1.0;
    for (int i = 0; i < n.m; ++i) {
        double v = 0.0;
        for (int j = 0; j < n.m; ++j) v += wk->W[i][j] * wk->z[j];
        wk->g[i] = v;
        fz += wk->z[i] * v;
    }
    for (int j = 0; j < n.E; ++j) {
        double v = wk->x[j];
        for (int i = 0; i < n.m; ++i) v -= wk->A[i][j] * wk->g[i];
        wk->e[j] = v;
    }
    *f = fz;
    return fq;
}

// M <- M + sign u u' / d for a symmetric M: the triangle computed, then mirrored, so that M stays
// exactly symmetric.
void symmetricRankOne(MATRIX M, int k, const double *u, double d, double sign) {
    for (int i = 0; i < k; ++i)
        for (int j = i; j < k; ++j) {
            M[i][j] += sign * ((u[j] * u[i]) / d);
            M[j][i] = M[i][j];
        }
}

// The Sherman-Morrison steps for the observation just added: W with z, Q with x, then Q with the
// downdate e / sqrt(f). False, with W and Q to be inverted in full, when a denominator is not
// positive (rounding, or a non-finite value in the data).
bool rankOneSteps(RivWork *wk, const RivSizes &n, double fq, double f) {
    if (!(f > 0.0) || !(fq > 0.0)) return false;
    symmetricRankOne(wk->W, n.m, wk->g, f, -1.0);
    symmetricRankOne(wk->Q, n.a, wk->q, fq, -1.0);
    double d = f;
    for (int i = 0; i < n.a; ++i) {
        double v = 0.0;
        for (int j = 0; j < n.E; ++j) v += wk->Q[i][j] * wk->e[j];
        wk->r[i] = v;
    }
    for (int j = 0; j < n.E; ++j) d -= wk->e[j] * wk->r[j];
    if (!(d > 0.0)) return false;
    symmetricRankOne(wk->Q, n.a, wk->r, d, 1.0);
    return true;
}

// RSS of the current coefficients over the observations so far and its part in the instruments'
// span, u'P_Z u, both from r = R v (file comment).
void residualStats(RivWork *wk, const RivSizes &n, double *rss, double *proj) {
    double *rv = wk->rv, *v = wk->row;
    for (int j = 0; j < n.p; ++j) {
        if (j < n.a - n.E)
            v[j] = -wk->b[n.E + j];
        else if (j < n.m)
            v[j] = 0.0;
        else if (j < n.m + n.E)
            v[j] = -wk->b[j - n.m];
        else
            v[j] = 1.0;
    }
    for (int i = 0; i < n.p; ++i) {
        const double *Ri = wk->R[i];
        double s = 0.0;
        for (int j = i; j < n.p; ++j) s += Ri[j] * v[j];
        rv[i] = s;
    }
    double inSpan = 0.0, all = 0.0;
    for (int i = 0; i < n.p; ++i) {
        all += rv[i] * rv[i];
        if (i == n.m - 1) inSpan = all;
    }
    *rss = all;
    *proj = inSpan;
}

void writeOutputs(RivWork *wk, const RivSizes &n, const RivOutputs &out, int t, int count, double v, double fq) {
    if (out.coef)
        for (int j = 0; j < n.a; ++j) out.coef[j][t] = wk->b[j];
    if (out.innov) out.innov[0][t] = v;
    if (out.stdinnov) out.stdinnov[0][t] = v / std::sqrt(fq);
    if (!out.rss && !out.se && !out.sargan) return;
    double rss, proj;
    residualStats(wk, n, &rss, &proj);
    if (out.rss) out.rss[0][t] = rss;
    if (out.sargan) out.sargan[0][t] = count * proj / rss;
    if (out.se) {
        const double sigma2 = rss / (count - n.a);
        for (int j = 0; j < n.a; ++j) out.se[j][t] = std::sqrt(sigma2 * wk->Q[j][j]);
    }
}

} // namespace

int RivRecursion(const RivModel &model, int first, int last, int force, MATRIX coef, MATRIX se, MATRIX stdinnov,
                 MATRIX innov, MATRIX rss, MATRIX sargan) {
    const RivOutputs out{coef, se, stdinnov, innov, rss, sargan};
    if (last >= 0 && last < INT_MAX) {
        const int a = model.regs > 0 ? model.regs : 0;
        fillMissing(coef, a, last + 1);
        fillMissing(se, a, last + 1);
        fillMissing(stdinnov, 1, last + 1);
        fillMissing(innov, 1, last + 1);
        fillMissing(rss, 1, last + 1);
        fillMissing(sargan, 1, last + 1);
    }
    if (!model.data || model.endo < 1 || model.regs < model.endo || model.extra < model.endo || first < 0 ||
        last < first || last >= INT_MAX)
        return 0;
    const long long m = static_cast<long long>(model.regs) - model.endo + model.extra;
    const long long p = m + model.endo + 1;
    if (p > INT_MAX || first + m > last) return 0;
    const RivSizes n{static_cast<int>(m), model.regs, model.endo, static_cast<int>(p)};

    RivWork wk;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) { layoutWork(c, &wk, n); })));
    if (!block.ok()) return 0;
    MatZero(wk.R, n.p, n.p);
    MatZero(wk.A, n.m, n.a);
    for (int i = 0; i < n.m; ++i) wk.c[i] = 0.0;

    // The first m observations identify the instruments' moments; their 2SLS fit gives the
    // coefficients of the first innovation and the state of the first rank-one steps.
    for (int t = first; t < first + n.m; ++t) {
        loadObservation(model, n, t, &wk);
        addObservation(&wk, n);
    }
    if (!fullInversion(&wk, n)) return 0;
    coefficients(&wk, n);

    for (int step = 0;; ++step) {
        const int t = first + n.m + step;
        loadObservation(model, n, t, &wk);
        double v = wk.y;
        for (int j = 0; j < n.a; ++j) v -= wk.b[j] * wk.x[j];
        double f;
        const double fq = prepareSteps(&wk, n, &f);
        addObservation(&wk, n);
        bool full = step % RivRefitInterval == 0 || t == force;
        if (!full) full = !rankOneSteps(&wk, n, fq, f);
        if (full && !fullInversion(&wk, n)) return 0;
        coefficients(&wk, n);
        writeOutputs(&wk, n, out, t, t - first + 1, v, fq);
        if (t == last) return 1;
    }
}
