// Deleting observation t changes the least-squares estimate by b_(t) - b = -A x_t u_t with
// u_t = e_t / (1 - h_t) and h_t = x_t' A x_t (the leverage), A = (X'X)^-1 (Belsley, Kuh and
// Welsch 1980, chapter 2). With d_t = A x_t u_t the jackknife is
//   ((T-1)/T) (sum_t d_t d_t' - (1/T) (sum_t d_t)(sum_t d_t)'),
// which is ((T-1)/T) (HC3 - A X'u u'X A / T): one pass, O(k^2) per observation, no refit.
#include "estimators/jackknife.h"

#include "base/alloc.h"
#include "base/sums.h"
#include "matrix/matrix.h"

namespace {

// An observation whose leverage reaches this is its own fit: the jackknife does not exist.
constexpr double kLeverageGap = 1e-10;

} // namespace

int JackknifeCovariance(MATRIX X, const double *e, MATRIX A, int T, int k, MATRIX V) {
    // d_t and the running sum of the d_t.
    KvArray<double> scratch(2 * static_cast<size_t>(k));
    if (!scratch.ok()) return 0;
    double *d = scratch.get(), *dsum = d + k;
    MatZero(V, k, k);
    for (int j = 0; j < k; ++j) dsum[j] = 0.0;
    for (int t = 0; t < T; ++t) {
        const double *xt = X[t];
        for (int j = 0; j < k; ++j) d[j] = KvDot(A[j], xt, k);
        const double gap = 1.0 - KvDot(xt, d, k);
        if (!(gap > kLeverageGap)) return 0;
        const double u = e[t] / gap;
        for (int j = 0; j < k; ++j) {
            d[j] *= u;
            dsum[j] += d[j];
        }
        for (int j = 0; j < k; ++j) {
            double *row = V[j];
            const double dj = d[j];
            for (int l = 0; l < k; ++l) row[l] += dj * d[l];
        }
    }
    const double scale = (T - 1.0) / T;
    for (int j = 0; j < k; ++j)
        for (int l = 0; l < k; ++l) V[j][l] = scale * (V[j][l] - dsum[j] * dsum[l] / T);
    return 1;
}
