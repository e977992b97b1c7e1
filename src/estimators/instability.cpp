// One pass over the observations: the scores, their running sums S_t, and the two (k+1) x (k+1)
// moment matrices V = sum f_t f_t' and M = sum S_t S_t' (lower triangles). Then
// L_c = tr(V^-1 M) / T, which is (1/T) sum_t S_t' V^-1 S_t without a solve per observation.
// M's diagonal and V's are sums of squares (no cancellation); the running sums and V's
// off-diagonal are plain sums in observation order.
#include "estimators/instability.h"

#include <climits>
#include <cmath>

#include "base/carve.h"
#include "base/sums.h"
#include "matrix/cholesky.h"
#include "matrix/matrix.h"

double InstabilityEval(MATRIX X, const double *e, int T, int k, double sigma2, double *indiv) {
    // (k+1)^2 doubles could never be made for k = INT_MAX; nor can k + 1 be formed.
    if (k >= INT_MAX) return -1.0;
    const int q = k + 1;
    double *f = nullptr, *S = nullptr;
    MATRIX V = nullptr, M = nullptr;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) {
        f = c.take<double>(q);
        S = c.take<double>(q);
        V = c.matrix(q, q);
        M = c.matrix(q, q);
    })));
    if (!block.ok()) return -1.0;

    if (!(sigma2 > 0.0 && sigma2 < HUGE_VAL)) {
        KvCompensatedSum ss;
        for (int t = 0; t < T; ++t) ss.add(e[t] * e[t]);
        sigma2 = ss.value() / T;
    }
    MatZero(V, q, q);
    MatZero(M, q, q);
    for (int j = 0; j < q; ++j) S[j] = 0.0;
    for (int t = 0; t < T; ++t) {
        const double *xt = X[t];
        for (int j = 0; j < k; ++j) f[j] = xt[j] * e[t];
        f[k] = e[t] * e[t] - sigma2;
        for (int j = 0; j < q; ++j) {
            S[j] += f[j];
            double *vj = V[j], *mj = M[j];
            const double fj = f[j], sj = S[j];
            for (int l = 0; l <= j; ++l) {
                vj[l] += fj * f[l];
                mj[l] += sj * S[l];
            }
        }
    }
    if (indiv)
        for (int j = 0; j < q; ++j) indiv[j] = M[j][j] / (static_cast<double>(T) * V[j][j]);
    // V^-1 in place (full result); tr(V^-1 M) over M's lower triangle, doubling what lies off it.
    if (!MatInvertSpd(V, q)) return MissingValueOf();
    double trace = 0.0;
    for (int j = 0; j < q; ++j) {
        trace += V[j][j] * M[j][j];
        for (int l = 0; l < j; ++l) trace += 2.0 * V[j][l] * M[j][l];
    }
    return trace / T;
}
