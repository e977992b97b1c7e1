// The trend through the cycle: with K K' = the Toeplitz band (6, -4, 1) of order T - 2,
//     y - tau = lambda K' (I + lambda K K')^-1 K y
// (the Woodbury identity applied to (I + lambda K'K)^-1). The second differences K y remove
// the level and slope of the data before anything is solved, so the rounding of a system whose
// condition grows like 16 lambda acts on the cycle, not on the level: for a series near 100 and
// lambda = 1e6 the trend's error falls from about 1e-8 to about 1e-11. A straight line has a
// cycle of exactly zero.
#include "numeric/hpfilter.h"

#include <cmath>

#include "base/carve.h"

int SmoothHp(const double *y, int n, double lambda, double *trend) {
    // 16 lambda bounds the band's largest eigenvalue; beyond the double range nothing is solvable.
    if (!y || !trend || n < 1 || !(lambda >= 0.0) || !std::isfinite(16.0 * lambda)) return 0;
    if (n < 3 || lambda == 0.0) {
        for (int t = 0; t < n; ++t) trend[t] = y[t];
        return 1;
    }
    const int m = n - 2;
    double *inv = nullptr, *l1 = nullptr, *l2 = nullptr, *z = nullptr;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) {
        inv = c.take<double>(m);
        l1 = c.take<double>(m);
        l2 = c.take<double>(m);
        z = c.take<double>(m);
    })));
    if (!block.ok()) return 0;
    // The band is Toeplitz (a, b, c) = (1 + 6 lambda, -4 lambda, lambda), so the factor
    // A = L D L' needs no band arrays, and its forward substitution on z = K y runs in the same
    // pass (banded.h's BandFactor5 and BandSolve5, fused). The eigenvalues are >= 1: no pivot
    // can vanish for a finite band.
    const double a = 1.0 + 6.0 * lambda, b = -4.0 * lambda, c = lambda;
    double dPrev2 = 0.0, dPrev = 0.0, l1Prev = 0.0, zPrev2 = 0.0, zPrev = 0.0;
    for (int i = 0; i < m; ++i) {
        const double li2 = i >= 2 ? c / dPrev2 : 0.0;
        const double li1 = i >= 1 ? (b - li2 * dPrev2 * l1Prev) / dPrev : 0.0;
        const double di = a - li1 * li1 * dPrev - li2 * li2 * dPrev2;
        const double zi = ((y[i] - 2.0 * y[i + 1]) + y[i + 2]) - li1 * zPrev - li2 * zPrev2;
        inv[i] = 1.0 / di, l1[i] = li1, l2[i] = li2, z[i] = zi;
        dPrev2 = dPrev, dPrev = di, l1Prev = li1, zPrev2 = zPrev, zPrev = zi;
    }
    // Back substitution, and the trend y - lambda K'z at t = i + 2 as soon as z[i] is final
    // (it needs z[i], z[i+1], z[i+2]).
    for (int i = m - 1; i >= 0; --i) {
        double zi = z[i] * inv[i];
        if (i + 1 < m) zi -= l1[i + 1] * z[i + 1];
        if (i + 2 < m) zi -= l2[i + 2] * z[i + 2];
        z[i] = zi;
        const int t = i + 2;
        double v = z[i]; // (K'z)_t = z[t-2] - 2 z[t-1] + z[t]
        if (t - 1 < m) v -= 2.0 * z[t - 1];
        if (t < m) v += z[t];
        trend[t] = y[t] - lambda * v;
    }
    trend[0] = y[0] - lambda * z[0];
    trend[1] = y[1] - lambda * ((m > 1 ? z[1] : 0.0) - 2.0 * z[0]);
    return 1;
}
