// The band factor, its solves and the band of the inverse. Each step reads only the two rows
// above (or below) it, so all three are one pass over n with no scratch.
#include "numeric/banded.h"

int BandFactor5(double *d, double *e, double *f, int n) {
    for (int i = 0; i < n; ++i) {
        double l1 = 0.0, l2 = 0.0;
        if (i >= 2) l2 = f[i - 2] / d[i - 2];
        // A[i][i-1] = L[i][i-1] D[i-1] + L[i][i-2] D[i-2] L[i-1][i-2]
        if (i >= 1) l1 = (e[i - 1] - (i >= 2 ? l2 * d[i - 2] * e[i - 2] : 0.0)) / d[i - 1];
        double di = d[i];
        if (i >= 1) di -= l1 * l1 * d[i - 1];
        if (i >= 2) di -= l2 * l2 * d[i - 2];
        if (!(di > 0.0)) return 0;
        d[i] = di;
        if (i >= 1) e[i - 1] = l1;
        if (i >= 2) f[i - 2] = l2;
    }
    return 1;
}

void BandSolve5(const double *d, const double *e, const double *f, int n, double *b) {
    for (int i = 1; i < n; ++i) b[i] -= e[i - 1] * b[i - 1] + (i >= 2 ? f[i - 2] * b[i - 2] : 0.0);
    for (int i = 0; i < n; ++i) b[i] /= d[i];
    for (int i = n - 2; i >= 0; --i) b[i] -= e[i] * b[i + 1] + (i + 2 < n ? f[i] * b[i + 2] : 0.0);
}

// From L' S = D^-1 L^-1, whose upper triangle is diag(D^-1): for j >= i,
//     S[i][j] = delta_ij / D[i] - L[i+1][i] S[i+1][j] - L[i+2][i] S[i+2][j],
// taken from the bottom row up and only for j = i, i+1, i+2.
void BandInverse5(const double *d, const double *e, const double *f, int n, double *s0, double *s1, double *s2) {
    for (int i = n - 1; i >= 0; --i) {
        const double l1 = i + 1 < n ? e[i] : 0.0, l2 = i + 2 < n ? f[i] : 0.0;
        double sii1 = 0.0, sii2 = 0.0; // S[i][i+1], S[i][i+2]
        if (i + 1 < n) sii1 = -l1 * s0[i + 1] - (i + 2 < n ? l2 * s1[i + 1] : 0.0);
        if (i + 2 < n) sii2 = -l1 * s1[i + 1] - l2 * s0[i + 2];
        s0[i] = 1.0 / d[i] - l1 * sii1 - l2 * sii2;
        if (i + 1 < n) s1[i] = sii1;
        if (i + 2 < n) s2[i] = sii2;
    }
}
