// Encompassing tests between model 1, y = X b + u, and model 2, y = Z c + v, each way, with W the
// nesting model (the columns of X and Z, shared ones once). For model 1 tested against model 2,
// with P and M the projections on and off a span, e = M_X y, yhat = P_X y, T rows:
//   s1 = e'e / T, s2 = y'M_Z y / T, s21 = s1 + yhat'M_Z yhat / T, w = M_X M_Z yhat,
//   Cox (Cox 1961, 1962; Pesaran 1974, eqs. 27-28):
//       N = (T/2) log(s2 / s21) / sqrt(s1 w'w / s21^2),   N(0, 1)
//   Ericsson's IV statistic (Ericsson 1983): e'M_Z yhat / sqrt(s1 w'w),   N(0, 1)
//       (its numerator is the leading term of the Cox numerator; in magnitude it is the t-ratio of
//       the JA test of Fisher and McAleer 1981, with the variance of model 1)
//   Sargan (1964): T (e'e - RSS_W) / e'e,   chi^2(q), q = rank W - rank X
//   joint F: ((e'e - RSS_W) / q) / (RSS_W / (T - rank W)),   F(q, T - rank W).
// Normal p-values are two-sided. All fits are pivoted Householder least squares (matrix/qr.h):
// ranks come from its rank decision, so a regressor repeated in both models counts once.
#include "estimators/encompassing.h"

#include <cmath>
#include <cstddef>

#include "base/alloc.h"
#include "base/carve.h"
#include "base/sums.h"
#include "matrix/matrix.h"
#include "matrix/qr.h"
#include "special/distributions.h"

namespace {

// Working rows, observations as columns: the data and the series derived from the fits.
struct EncWork {
    double *y;
    MATRIX x;       // k1 x T, model 1's regressors
    MATRIX zown;    // k2 x T, model 2's own regressors
    MATRIX zrows;   // kz row pointers: the shared rows of x, then zown's
    MATRIX wrows;   // k1 + k2 row pointers: x's rows, then zown's
    MATRIX series;  // 8 x T: yhat1, e1, u1, w1, yhat2, e2, u2, w2
    MATRIX deps;    // 2 row pointers: the dependent rows of a fit
    MATRIX fit;     // 2 x T: fitted values of a fit
    MATRIX B;       // 2 x (k1 + k2) coefficients
    MatLsqWork lsq; // capacity k1 + k2 variables, 2 dependent rows, T observations
};

enum { YHAT1, E1, U1, W1, YHAT2, E2, U2, W2, SERIES };

MATRIX pointers(KvCarve &c, int n) {
    if (n < 1) return nullptr;
    double **p = c.take<double *>(static_cast<size_t>(n) + 1);
    return p ? p + 1 : nullptr;
}

void layout(KvCarve &c, EncWork *w, int k1, int kz, int k2, int T) {
    w->y = c.take<double>(static_cast<size_t>(T));
    w->x = c.matrix(k1, T);
    w->zown = c.matrix(k2, T);
    w->zrows = pointers(c, kz);
    w->wrows = pointers(c, k1 + k2);
    w->series = c.matrix(SERIES, T);
    w->deps = pointers(c, 2);
    w->fit = c.matrix(2, T);
    w->B = c.matrix(2, k1 + k2);
    MatLsqWorkLayout(c, &w->lsq, k1 + k2, 2, T);
}

bool rowUsed(const EncompassingProblem &pb, int t) {
    if (!pb.skipMissing) return true;
    const double *d = pb.data[t];
    for (int j = 0; j <= pb.k1; ++j)
        if (d[j] != d[j]) return false;
    for (int j = 0; j < pb.k2; ++j)
        if (pb.z[t][j] != pb.z[t][j]) return false;
    return true;
}

// Copies the rows used into the working rows; false when one holds a non-finite value.
bool load(const EncompassingProblem &pb, EncWork *w) {
    int c = 0;
    bool finite = true;
    for (int t = pb.first; t <= pb.last; ++t) {
        if (!rowUsed(pb, t)) continue;
        const double *d = pb.data[t];
        w->y[c] = d[0];
        finite = finite && std::isfinite(d[0]);
        for (int j = 0; j < pb.k1; ++j) {
            w->x[j][c] = d[j + 1];
            finite = finite && std::isfinite(d[j + 1]);
        }
        for (int j = 0; j < pb.k2; ++j) {
            w->zown[j][c] = pb.z[t][j];
            finite = finite && std::isfinite(pb.z[t][j]);
        }
        ++c;
    }
    return finite;
}

// Fits the n (1 or 2) rows in deps on the k rows X over T observations; residuals into resid[i]
// and, where fitted[i] is not null, fitted values there. The rank of X, or -1 when the fit fails.
int fitRows(EncWork *w, MATRIX X, int k, int T, int n, double *const *fitted, double *const *resid) {
    if (MatLsqFit(X, k, T, w->deps, n, w->B, nullptr, &w->lsq) == 0) return -1;
    for (int i = 0; i < n; ++i) {
        double *f = fitted[i] ? fitted[i] : w->fit[i];
        for (int t = 0; t < T; ++t) f[t] = 0.0;
        for (int j = 0; j < k; ++j) {
            const double b = w->B[i][j], *x = X[j];
            if (b != 0.0)
                for (int t = 0; t < T; ++t) f[t] += b * x[t];
        }
        const double *y = w->deps[i];
        for (int t = 0; t < T; ++t) resid[i][t] = y[t] - f[t];
    }
    return w->lsq.rank;
}

// The statistics of one way: model a tested against model b.
struct Way {
    double rssA, rssB, rssW, uu, ww, eu;
    int rankA, rankW, T;
};

void testWay(const Way &v, double *stat, double *pval, double *df, bool *nested) {
    for (int i = 0; i < ENC_TESTS; ++i) stat[i] = pval[i] = MissingValueOf();
    const int q = v.rankW - v.rankA, dfW = v.T - v.rankW;
    df[0] = q;
    df[1] = dfW;
    if (q <= 0) {
        *nested = true;
        return;
    }
    const double T = v.T, sA = v.rssA / T, sB = v.rssB / T, sAB = sA + v.uu / T;
    const double scale = std::sqrt(sA * v.ww);
    if (scale > 0.0) {
        stat[ENC_COX] = 0.5 * T * std::log(sB / sAB) * sAB / scale;
        stat[ENC_IV] = v.eu / scale;
    }
    const double drop = v.rssA > v.rssW ? v.rssA - v.rssW : 0.0;
    stat[ENC_SARGAN] = T * drop / v.rssA;
    stat[ENC_F] = drop / q / (v.rssW / dfW);
    for (int i = 0; i < ENC_TESTS; ++i)
        if (!std::isfinite(stat[i])) stat[i] = MissingValueOf();
    pval[ENC_COX] = 2.0 * DistNormalQ(std::fabs(stat[ENC_COX]));
    pval[ENC_IV] = 2.0 * DistNormalQ(std::fabs(stat[ENC_IV]));
    pval[ENC_SARGAN] = DistChi2Q(stat[ENC_SARGAN], q);
    pval[ENC_F] = DistFQ(stat[ENC_F], q, dfW);
}

} // namespace

int EncompassingTests(const EncompassingProblem &pb, MATRIX stat, MATRIX pval, MATRIX df) {
    auto fail = [&] {
        MatSetMissing(stat, 2, ENC_TESTS);
        MatSetMissing(pval, 2, ENC_TESTS);
        MatSetMissing(df, 2, 2);
        return 0;
    };
    int T = 0;
    for (int t = pb.first; t <= pb.last; ++t) T += rowUsed(pb, t) ? 1 : 0;
    const int k1 = pb.k1, k2 = pb.k2, kz = pb.shared + pb.k2, kw = k1 + k2;
    if (T <= kw) return fail();

    EncWork w;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) { layout(c, &w, k1, kz, k2, T); })));
    if (!block.ok() || !load(pb, &w)) return fail();
    for (int j = 0; j < pb.shared; ++j) w.zrows[j] = w.x[j];
    for (int j = 0; j < k2; ++j) w.zrows[pb.shared + j] = w.zown[j];
    for (int j = 0; j < k1; ++j) w.wrows[j] = w.x[j];
    for (int j = 0; j < k2; ++j) w.wrows[k1 + j] = w.zown[j];

    double **s = w.series;
    double *none[2] = {nullptr, nullptr};
    // Model 1 and 2 themselves, each model's fitted values off the other, and the nesting model.
    w.deps[0] = w.y;
    double *f1[2] = {s[YHAT1], nullptr}, *r1[2] = {s[E1], nullptr};
    const int rank1 = fitRows(&w, w.x, k1, T, 1, f1, r1);
    w.deps[1] = s[YHAT1];
    double *f2[2] = {s[YHAT2], nullptr}, *r2[2] = {s[E2], s[U1]};
    const int rank2 = fitRows(&w, w.zrows, kz, T, 2, f2, r2);
    w.deps[0] = s[U1];
    w.deps[1] = s[YHAT2];
    double *r3[2] = {s[W1], s[U2]};
    const int ok3 = fitRows(&w, w.x, k1, T, 2, none, r3);
    w.deps[0] = s[U2];
    double *r4[2] = {s[W2], nullptr};
    const int ok4 = fitRows(&w, w.zrows, kz, T, 1, none, r4);
    w.deps[0] = w.y;
    double *r5[2] = {w.fit[1], nullptr};
    const int rankW = fitRows(&w, w.wrows, kw, T, 1, none, r5);
    if (rank1 < 0 || rank2 < 0 || ok3 < 0 || ok4 < 0 || rankW < 0 || T <= rankW) return fail();

    const double rss1 = KvSumSquares(s[E1], T), rss2 = KvSumSquares(s[E2], T), rssW = KvSumSquares(w.fit[1], T);
    const Way one{rss1,  rss2,  rssW, KvSumSquares(s[U1], T), KvSumSquares(s[W1], T), KvDot(s[E1], s[U1], T),
                  rank1, rankW, T};
    const Way two{rss2,  rss1,  rssW, KvSumSquares(s[U2], T), KvSumSquares(s[W2], T), KvDot(s[E2], s[U2], T),
                  rank2, rankW, T};
    bool nested = false;
    testWay(one, stat[0], pval[0], df[0], &nested);
    testWay(two, stat[1], pval[1], df[1], &nested);
    return nested ? 2 : 1;
}
