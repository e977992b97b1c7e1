// The library's inner products and sums. KvDot keeps eight independent partial sums, so that the
// loop vectorises and hides the adder's latency without the compiler reassociating anything; its
// order is fixed (lanes t mod 8, then a pairwise combination), so results are reproducible.
// KvCompensatedSum is Neumaier's variant of Kahan summation (Neumaier 1974): terms are added in
// the caller's order and the rounding error of each addition is carried separately.
#ifndef KAVREL_BASE_SUMS_H
#define KAVREL_BASE_SUMS_H

#include <cmath>

inline double KvDot(const double *a, const double *b, int len) {
    double acc[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    int t = 0;
    for (; t + 8 <= len; t += 8)
        for (int u = 0; u < 8; ++u) acc[u] += a[t + u] * b[t + u];
    for (; t < len; ++t) acc[0] += a[t] * b[t];
    return ((acc[0] + acc[1]) + (acc[2] + acc[3])) + ((acc[4] + acc[5]) + (acc[6] + acc[7]));
}

inline double KvSumSquares(const double *a, int len) { return KvDot(a, a, len); }

// One rule for non-finite terms: once the running sum is infinite or NaN the carry stops and the
// sum is returned as it is (carrying inf - inf would turn an infinite sum into NaN).
struct KvCompensatedSum {
    double sum = 0.0, carry = 0.0;
    void add(double v) {
        const double t = sum + v;
        if (std::isfinite(t)) carry += std::fabs(sum) >= std::fabs(v) ? (sum - t) + v : (v - t) + sum;
        sum = t;
    }
    double value() const { return std::isfinite(sum) ? sum + carry : sum; }
};

#endif
