// Long-run score covariance. The L+1 most recent scores live in the rows of one matrix whose row
// pointers are rotated each observation, so the newest score is always row 0 and the score of l
// observations earlier row l, without copying. V is exactly symmetric (each term adds the same
// product to (a, b) and (b, a)), so only its lower triangle is accumulated and then mirrored.
#include "estimators/longrun.h"

#include <cmath>

#include "matrix/matrix.h"

int LongRunLag(int nobs) {
    if (nobs < 1) return 0;
    // 2/9 as the double 0.2222222222222222; at T = 99 the product 3.991... truncates to 3.
    return static_cast<int>(4.0 * std::pow(nobs / 100.0, 0.2222222222222222));
}

int LongRunScoreCovariance(MATRIX X, int nobs, int k, MATRIX U, int m, int lag, MATRIX V) {
    const int km = k * m;
    MatZero(V, km, km);
    if (nobs < 1 || km < 1) return 1;
    MatOwner slots(lag + 1, km);
    if (!slots.get()) return 0;
    MATRIX s = slots.get();
    MatZero(s, lag + 1, km);

    for (int t = 0; t < nobs; ++t) {
        double *newest = s[lag];
        for (int l = lag; l >= 1; --l) s[l] = s[l - 1];
        s[0] = newest;
        const double *x = X[t], *u = U[t];
        for (int i = 0; i < k; ++i)
            for (int q = 0; q < m; ++q) newest[i * m + q] = x[i] * u[q];

        const double *s0 = newest;
        for (int a = 0; a < km; ++a) {
            double *v = V[a];
            const double sa = s0[a];
            for (int b = 0; b <= a; ++b) v[b] += sa * s0[b];
        }
        // Lags before the first observation are unavailable and add nothing.
        const int lmax = t < lag ? t : lag;
        for (int l = 1; l <= lmax; ++l) {
            const double w = 1.0 - static_cast<double>(l) / (lag + 1);
            const double *sl = s[l];
            for (int a = 0; a < km; ++a) {
                double *v = V[a];
                const double sa = s0[a], la = sl[a];
                for (int b = 0; b <= a; ++b) v[b] += w * (sa * sl[b] + s0[b] * la);
            }
        }
    }
    for (int a = 0; a < km; ++a)
        for (int b = a + 1; b < km; ++b) V[a][b] = V[b][a];
    return 1;
}
