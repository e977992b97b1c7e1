// Local linear kernel smoothing at unit spacing. Each fitted value is the intercept of a weighted
// least-squares line through its window, from the sums S_j = sum w d^j and T_j = sum w d^j v_s,
// d = s - t, v = y - c (c a nearby observation, so that only the local variation is summed):
//     g_t = c + (S2 T0 - S1 T1) / (S0 S2 - S1^2)   (Fan and Gijbels 1996, eq. 3.5),
// and the diagonal of the smoother matrix, needed for GCV, is the weight of y_t itself,
// S2 / (S0 S2 - S1^2). With w = 1 - d^2 / b^2 every sum is a combination of the power sums
// P_k = sum d^k (closed forms) and the moments M_k = sum d^k v_s, k <= 3, so a fit costs O(T)
// whatever the bandwidth:
//   - inside the sample the window is symmetric (S1 = 0) and the moments slide: moving t by one
//     shifts every d by one (M2 <- M2 - 2 M1 + M0, M1 <- M1 - M0), drops one term and adds one.
//     The rounding this carries grows with each step, so the moments are summed afresh, about a
//     new c = y_t, every max(64, window / 4) steps: the error stays near eps max(64, b) times the
//     variation of y over a window and its neighbourhood, and the refreshes cost O(T);
//   - in the first and last b observations the window is cut by the end of the sample; its
//     moments about the end (prefix sums of s^j v_s, which only grow) are turned into moments
//     about t by the binomial theorem. s and t are then both below 2b, so the conversion costs a
//     bounded factor: measured, up to a few hundred eps of the data's range over the window.
#include <cmath>

#include "base/sums.h"
#include "numeric/smooth.h"

namespace {

struct KernelFit {
    double rss = 0.0, trace = 0.0; // trace = tr S
};

// P[k] = sum_{d=A}^{B} d^k, k = 0..4, for A <= 0 <= B (Faulhaber's sums from 1 to N on each side).
void windowPowerSums(int A, int B, double *P) {
    double F[2][5];
    const double ends[2] = {static_cast<double>(B), static_cast<double>(-A)};
    for (int side = 0; side < 2; ++side) {
        const double N = ends[side], a = N * (N + 1.0), b = a * (2.0 * N + 1.0);
        F[side][0] = N;
        F[side][1] = a / 2.0;
        F[side][2] = b / 6.0;
        F[side][3] = F[side][1] * F[side][1];
        F[side][4] = b * (3.0 * a - 1.0) / 30.0;
    }
    P[0] = F[0][0] + F[1][0] + 1.0; // d = 0
    for (int k = 1; k < 5; ++k) P[k] = F[0][k] + (k % 2 ? -F[1][k] : F[1][k]);
}

struct Local {
    double g, own; // fitted value, weight of y_t in it
};

Local localLinear(const double *M, const double *P, double invB2, double c) {
    const double s0 = P[0] - P[2] * invB2, s1 = P[1] - P[3] * invB2, s2 = P[2] - P[4] * invB2;
    const double t0 = M[0] - M[2] * invB2, t1 = M[1] - M[3] * invB2;
    const double den = s0 * s2 - s1 * s1;
    return {c + (s2 * t0 - s1 * t1) / den, s2 / den};
}

// Moments about t (distance u = t - origin) from Q[j] = sum (s - origin)^j v_s; sign -1 when the
// origin is the last observation and s - origin counts backwards.
void momentsAbout(const double *Q, double u, double sign, double *M) {
    M[0] = Q[0];
    M[1] = sign * (Q[1] - u * Q[0]);
    M[2] = Q[2] - 2.0 * u * Q[1] + u * u * Q[0];
    M[3] = sign * (Q[3] - 3.0 * u * Q[2] + 3.0 * u * u * Q[1] - u * u * u * Q[0]);
}

// The fit with half-width b into out (when not null).
KernelFit fitKernel(const double *y, int n, double b, double *out) {
    // |s - t| < b: the farthest neighbour is ceil(b) - 1 away, at most n - 1.
    const double reachD = b > 1.0 ? std::ceil(b) - 1.0 : 0.0;
    const int r = reachD < n - 1 ? static_cast<int>(reachD) : n - 1;
    if (r == 0) {
        if (out)
            for (int t = 0; t < n; ++t) out[t] = y[t];
        return {0.0, static_cast<double>(n)};
    }
    const double invB2 = 1.0 / (b * b);
    KvCompensatedSum rss, trace;
    const auto emit = [&](int t, Local fit) {
        rss.add((y[t] - fit.g) * (y[t] - fit.g));
        trace.add(fit.own);
        if (out) out[t] = fit.g;
    };
    double M[4] = {0, 0, 0, 0}, P[5];

    // First observations: windows [0, hi], growing.
    const int leftEnd = r < n ? r : n;
    double c = y[0], Q[4] = {0, 0, 0, 0};
    for (int t = 0, hi = -1; t < leftEnd; ++t) {
        for (const int top = t + r < n - 1 ? t + r : n - 1; hi < top;) {
            const double s = ++hi, v = y[hi] - c;
            Q[0] += v, Q[1] += s * v, Q[2] += s * s * v, Q[3] += s * s * s * v;
        }
        momentsAbout(Q, t, 1.0, M);
        windowPowerSums(-t, hi - t, P);
        emit(t, localLinear(M, P, invB2, c));
    }
    // Last observations not done yet: windows [lo, n-1], growing downwards, about the last one.
    const int rightStart = n - r > leftEnd ? n - r : leftEnd;
    c = y[n - 1];
    Q[0] = Q[1] = Q[2] = Q[3] = 0.0;
    for (int t = n - 1, lo = n; t >= rightStart; --t) {
        for (const int bottom = t - r > 0 ? t - r : 0; lo > bottom;) {
            const double s = n - 1 - --lo, v = y[lo] - c;
            Q[0] += v, Q[1] += s * v, Q[2] += s * s * v, Q[3] += s * s * s * v;
        }
        momentsAbout(Q, n - 1.0 - t, -1.0, M);
        windowPowerSums(lo - t, n - 1 - t, P);
        emit(t, localLinear(M, P, invB2, c));
    }
    // Inside: t = r..n-1-r, symmetric windows.
    windowPowerSums(-r, r, P);
    M[3] = 0.0; // multiplied by S1 = 0
    const int refresh = (2 * r + 1) / 4 > 64 ? (2 * r + 1) / 4 : 64;
    const double r1 = r + 1.0, rr = r;
    for (int t = r; t + r <= n - 1; ++t) {
        if ((t - r) % refresh == 0) {
            c = y[t];
            M[0] = M[1] = M[2] = 0.0;
            for (int d = -r; d <= r; ++d) {
                const double v = y[t + d] - c;
                M[0] += v, M[1] += d * v, M[2] += static_cast<double>(d) * d * v;
            }
        } else {
            M[2] += M[0] - 2.0 * M[1];
            M[1] -= M[0];
            const double gone = y[t - 1 - r] - c, added = y[t + r] - c;
            M[0] += added - gone;
            M[1] += rr * added + r1 * gone;
            M[2] += rr * rr * added - r1 * r1 * gone;
        }
        emit(t, localLinear(M, P, invB2, c));
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
