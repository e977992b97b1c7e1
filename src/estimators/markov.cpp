// Markov-switching filter and smoother. Both run in O(nobs m^2) with their scratch in one
// allocation made before the first observation. Neither renormalises: the filter divides by the
// likelihood contribution without a guard (a zero contribution gives NaN or infinities, which the
// host's likelihood then rejects), and the smoother only flushes tiny probabilities to zero and
// caps the rest at one, so that a run that starts from valid probabilities stays within [0, 1].
#include "estimators/markov.h"

#include "base/alloc.h"

namespace {

// Below this predicted probability the smoother's ratio uses kHugeReciprocal instead of 1/pred,
// and a smoothed probability at or below it is flushed to zero.
constexpr double kTinyProbability = 1e-100;
constexpr double kHugeReciprocal = 1e100;

template <int Kind> void smoothRun(MATRIX filt, int nobs, int m, MATRIX P, MATRIX smooth, MATRIX trans, double *pred,
                                   double *ratio, double *s) {
    for (int j = 0; j < m; ++j) {
        s[j] = filt[nobs - 1][j]; // Pr[S_{T-1} = j | Y_T]: the last filtered row
        smooth[nobs - 1][j] = s[j];
    }
    for (int t = nobs - 2; t >= 0; --t) {
        const double *f = filt[t]; // Pr[S_t = i | Y_t]
        // pred_j = Pr[S_{t+1} = j | Y_t]; ratio_j = Pr[S_{t+1} = j | Y_T] / pred_j.
        for (int j = 0; j < m; ++j) {
            const double *Pj = P[j];
            double sum = 0.0;
            for (int i = 0; i < m; ++i) sum += Pj[i] * f[i];
            pred[j] = sum;
        }
        for (int j = 0; j < m; ++j) {
            double inv = pred[j] <= kTinyProbability ? kHugeReciprocal : 1.0 / pred[j];
            ratio[j] = s[j] * inv;
        }
        for (int j = 0; j < m; ++j) {
            double *out = trans[j];
            const double rj = ratio[j];
            if constexpr (Kind == MS_SMOOTH_JOINT) {
                const double *Pj = P[j];
                for (int i = 0; i < m; ++i) out[i] += rj * f[i] * Pj[i];
            } else {
                for (int i = 0; i < m; ++i) out[i] += rj * f[i];
            }
        }
        // Pr[S_t = i | Y_T] = f_i sum_j ratio_j P[j][i]; the symmetric variant reads P[i][j].
        for (int i = 0; i < m; ++i) {
            double b = 0.0;
            if constexpr (Kind == MS_SMOOTH_RATIO_SYM) {
                const double *Pi = P[i];
                for (int j = 0; j < m; ++j) b += ratio[j] * Pi[j];
            } else {
                for (int j = 0; j < m; ++j) b += ratio[j] * P[j][i];
            }
            double v = f[i] * b;
            if (v <= kTinyProbability)
                v = 0.0;
            else if (v > 1.0)
                v = 1.0;
            s[i] = v;
        }
        double *row = smooth[t];
        for (int i = 0; i < m; ++i) row[i] = s[i];
    }
}

} // namespace

int MsFilter(MATRIX dens, int nobs, int m, MATRIX P, const double *init, double *lik, MATRIX filt) {
    KvArray<double> work(2 * static_cast<size_t>(m));
    if (!work.ok()) return 0;
    double *pred = work.get(); // Pr[S_t = j | Y_{t-1}]
    double *post = pred + m;   // Pr[S_t = j | Y_t]
    for (int j = 0; j < m; ++j) pred[j] = init[j];
    for (int t = 0; t < nobs; ++t) {
        const double *d = dens[t];
        // Joint density of y_t and S_t = j; a negative product (a bad density) counts as zero,
        // while NaN passes through.
        double f = 0.0;
        for (int j = 0; j < m; ++j) {
            double a = d[j] * pred[j];
            if (a < 0.0) a = 0.0;
            post[j] = a;
            f += a;
        }
        if (lik) lik[t] = f;
        for (int j = 0; j < m; ++j) post[j] = post[j] / f;
        if (filt) {
            double *row = filt[t];
            for (int j = 0; j < m; ++j) row[j] = post[j];
        }
        for (int j = 0; j < m; ++j) {
            const double *Pj = P[j];
            double sum = 0.0;
            for (int i = 0; i < m; ++i) sum += Pj[i] * post[i];
            pred[j] = sum;
        }
    }
    return 1;
}

int MsSmooth(MATRIX filt, int nobs, int m, MATRIX P, int kind, MATRIX smooth, MATRIX trans) {
    KvArray<double> work(3 * static_cast<size_t>(m));
    if (!work.ok()) return 0;
    for (int j = 0; j < m; ++j)
        for (int i = 0; i < m; ++i) trans[j][i] = 0.0;
    double *pred = work.get(), *ratio = pred + m, *s = ratio + m;
    switch (kind) {
    case MS_SMOOTH_RATIO: smoothRun<MS_SMOOTH_RATIO>(filt, nobs, m, P, smooth, trans, pred, ratio, s); break;
    case MS_SMOOTH_RATIO_SYM: smoothRun<MS_SMOOTH_RATIO_SYM>(filt, nobs, m, P, smooth, trans, pred, ratio, s); break;
    default: smoothRun<MS_SMOOTH_JOINT>(filt, nobs, m, P, smooth, trans, pred, ratio, s); break;
    }
    return 1;
}
