// Local linear kernel smoothing at unit spacing. Each fitted value solves its own 2 x 2 weighted
// least-squares problem from the window sums S_j = sum w d^j and T_j = sum w d^j (y_s - y_t),
// d = s - t: g_t = y_t + (S2 T0 - S1 T1) / (S0 S2 - S1^2) (Fan and Gijbels 1996, eq. 3.5). The data
// are centred on y_t so that a series far from zero loses nothing to cancellation. The diagonal
// of the smoother matrix, needed for GCV, is the weight of y_t itself: S2 / (S0 S2 - S1^2).
#include <cmath>

#include "base/sums.h"
#include "numeric/smooth.h"

namespace {

struct KernelFit {
    double rss = 0.0, trace = 0.0; // trace = tr S
};

// The fit with half-width b into out (when not null).
KernelFit fitKernel(const double *y, int n, double b, double *out) {
    // |s - t| < b: the farthest neighbour is ceil(b) - 1 away, at most n - 1.
    const double reachD = b > 1.0 ? std::ceil(b) - 1.0 : 0.0;
    const int reach = reachD < n - 1 ? static_cast<int>(reachD) : n - 1;
    const double invB2 = 1.0 / (b * b);
    KvCompensatedSum rss, trace;
    for (int t = 0; t < n; ++t) {
        const int lo = t - reach > 0 ? t - reach : 0, hi = t + reach < n - 1 ? t + reach : n - 1;
        double g = y[t], own = 1.0;
        if (hi > lo) {
            double s0 = 0.0, s1 = 0.0, s2 = 0.0, t0 = 0.0, t1 = 0.0;
            for (int s = lo; s <= hi; ++s) {
                const double d = s - t, w = 1.0 - d * d * invB2, v = y[s] - y[t];
                s0 += w;
                s1 += w * d;
                s2 += w * d * d;
                t0 += w * v;
                t1 += w * d * v;
            }
            const double den = s0 * s2 - s1 * s1;
            g = y[t] + (s2 * t0 - s1 * t1) / den;
            own = s2 / den;
        }
        rss.add((y[t] - g) * (y[t] - g));
        trace.add(own);
        if (out) out[t] = g;
    }
    return {rss.value(), trace.value()};
}

double gcvOf(int n, const KernelFit &fit) { return n * fit.rss / ((n - fit.trace) * (n - fit.trace)); }

double gcvAtBandwidth(const double *y, int n, int h) { return gcvOf(n, fitKernel(y, n, h + 1.0, nullptr)); }

// The bandwidth h in 1..hmax minimising GCV: a grid growing by a quarter (under 130 points for
// any int hmax), a ternary search between the neighbours of the best grid point, then steps of
// one while a neighbour is lower, so the result is a local minimum over the integers.
int chooseBandwidth(const double *y, int n) {
    const int hmax = (n - 1) / 2;
    int grid[160], count = 0, k = 0;
    double bestValue = HUGE_VAL;
    for (int h = 1;; h += h / 4 > 1 ? h / 4 : 1) {
        grid[count] = h < hmax ? h : hmax;
        const double v = gcvAtBandwidth(y, n, grid[count]);
        if (v < bestValue) bestValue = v, k = count;
        if (grid[count++] == hmax) break;
    }
    int best = grid[k];
    int lo = grid[k > 0 ? k - 1 : 0], hi = grid[k + 1 < count ? k + 1 : k];
    while (hi - lo > 3) {
        const int m1 = lo + (hi - lo) / 3, m2 = hi - (hi - lo) / 3;
        if (gcvAtBandwidth(y, n, m1) < gcvAtBandwidth(y, n, m2))
            hi = m2;
        else
            lo = m1;
    }
    for (int h = lo; h <= hi; ++h) {
        const double v = gcvAtBandwidth(y, n, h);
        if (v < bestValue) bestValue = v, best = h;
    }
    for (;;) {
        const double down = best > 1 ? gcvAtBandwidth(y, n, best - 1) : HUGE_VAL;
        const double up = best < hmax ? gcvAtBandwidth(y, n, best + 1) : HUGE_VAL;
        if (down < bestValue && down <= up)
            bestValue = down, --best;
        else if (up < bestValue)
            bestValue = up, ++best;
        else
            return best;
    }
}

} // namespace

int SmoothKernel(const double *y, int n, double alpha, double *out, SmoothChoice *choice) {
    if (!y || !out || out == y || n < 1 || !std::isfinite(alpha)) return 0;
    double b = -alpha;
    if (std::fabs(alpha) <= 1e-20)
        b = n < 3 ? 1.0 : chooseBandwidth(y, n) + 1.0;
    else if (alpha > 0.0)
        b = std::floor(alpha + 0.5) + 1.0;
    const KernelFit fit = fitKernel(y, n, b, out);
    if (choice) *choice = {b, fit.trace, gcvOf(n, fit)};
    return 1;
}
