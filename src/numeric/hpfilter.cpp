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
#include "numeric/banded.h"

int SmoothHp(const double *y, int n, double lambda, double *trend) {
    // 16 lambda bounds the band's largest eigenvalue; beyond the double range nothing is solvable.
    if (!y || !trend || n < 1 || !(lambda >= 0.0) || !std::isfinite(16.0 * lambda)) return 0;
    if (n < 3 || lambda == 0.0) {
        for (int t = 0; t < n; ++t) trend[t] = y[t];
        return 1;
    }
    const int m = n - 2;
    double *d = nullptr, *e = nullptr, *f = nullptr, *z = nullptr;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) {
        d = c.take<double>(m);
        e = c.take<double>(m);
        f = c.take<double>(m);
        z = c.take<double>(m);
    })));
    if (!block.ok()) return 0;
    for (int i = 0; i < m; ++i) {
        d[i] = 1.0 + 6.0 * lambda;
        e[i] = -4.0 * lambda;
        f[i] = lambda;
    }
    // The eigenvalues are >= 1: the factor cannot fail for a finite band.
    BandFactor5(d, e, f, m);
    for (int i = 0; i < m; ++i) z[i] = (y[i] - 2.0 * y[i + 1]) + y[i + 2];
    BandSolve5(d, e, f, m, z);
    for (int t = 0; t < n; ++t) {
        double v = 0.0; // (K' z)_t
        if (t < m) v += z[t];
        if (t >= 1 && t - 1 < m) v -= 2.0 * z[t - 1];
        if (t >= 2) v += z[t - 2];
        trend[t] = y[t] - lambda * v;
    }
    return 1;
}
