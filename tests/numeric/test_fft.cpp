// The transform against the O(n^2) definition summed in long double, for every length to 64 and
// for lengths that take each path (radix 4/2/3/5, the generic radix, Bluestein, four steps, at a
// sample of frequencies for the long ones); the real-input transform against the complex one; the
// periodogram against the direct sum.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "numeric/fft.h"
#include "numeric/periodogram.h"
#include "numeric_test.h"

namespace {

const long double kPiL = 3.141592653589793238462643383279502884L;

// Max |X - X_ref| / max |X_ref| over the output frequencies ks (all when empty) against the
// direct DFT with exp(sign 2 pi i j k / n), the angle taken from the exact index j k mod n.
double relativeError(const std::vector<double> &xr, const std::vector<double> &xi, const std::vector<double> &re,
                     const std::vector<double> &im, int sign, std::vector<size_t> ks = {}) {
    const size_t n = xr.size();
    LVec c(n), s(n);
    for (size_t j = 0; j < n; ++j) c[j] = std::cos(sign * 2 * kPiL * j / n), s[j] = std::sin(sign * 2 * kPiL * j / n);
    if (ks.empty())
        for (size_t k = 0; k < n; ++k) ks.push_back(k);
    long double err = 0, norm = 0;
    for (size_t k : ks) {
        long double sr = 0, si = 0;
        for (size_t j = 0, jk = 0; j < n; ++j, jk = (jk + k) % n) {
            sr += xr[j] * c[jk] - xi[j] * s[jk];
            si += xr[j] * s[jk] + xi[j] * c[jk];
        }
        norm = std::max(norm, std::hypot(sr, si));
        err = std::max(err, std::hypot(sr - re[k], si - im[k]));
    }
    return static_cast<double>(err / norm);
}

TEST(Fft, MatchesDirectTransformOnEveryPath) {
    std::vector<int> lengths;
    for (int n = 1; n <= 64; ++n) lengths.push_back(n);
    // primes 97, 1009, 4099, 10007 (Bluestein), 1000 = 2^3 5^3, 4096, 3 x 37 (Bluestein), 29 x 31 (generic twice)
    for (int n : {97, 1000, 1009, 4096, 4099, 10007, 111, 899}) lengths.push_back(n);
    Lcg rng{7};
    for (int n : lengths) {
        const std::vector<double> xr = rng.draws(n), xi = rng.draws(n);
        for (int inverse = 0; inverse <= 1; ++inverse) {
            std::vector<double> re = xr, im = xi;
            ASSERT_EQ(FftComplex(re.data(), im.data(), n, inverse), 1);
            EXPECT_LT(relativeError(xr, xi, re, im, inverse ? 1 : -1), 2e-14) << "n=" << n << " inverse=" << inverse;
        }
    }
    const int good[][2] = {{1, 1}, {7, 8}, {13, 15}, {97, 100}, {1009, 1024}, {2017, 2025}, {0, 0}};
    for (const auto &row : good) EXPECT_EQ(FftGoodSize(row[0]), row[1]) << row[0];
}

TEST(Fft, LongLengthsMatchDirectTransformAtSampledFrequencies) {
    // 2^17 and 3^5 2^10 (four steps over leaves of radix 4/2/3), 3 x 29 x 31^2 (four steps over
    // generic radices), 131071 (prime: Bluestein on M = 262144, itself in four steps)
    Lcg rng{11};
    for (int n : {131072, 248832, 83607, 131071}) {
        const std::vector<double> xr = rng.draws(n), xi = rng.draws(n);
        std::vector<size_t> ks = {0, 1, 2, static_cast<size_t>(n) / 2, static_cast<size_t>(n) - 1};
        for (int i = 0; i < 24; ++i) ks.push_back(static_cast<size_t>((rng.next() + 1.0) / 2.0 * (n - 1)));
        for (int inverse = 0; inverse <= 1; ++inverse) {
            std::vector<double> re = xr, im = xi;
            ASSERT_EQ(FftComplex(re.data(), im.data(), n, inverse), 1);
            EXPECT_LT(relativeError(xr, xi, re, im, inverse ? 1 : -1, ks), 2e-14)
                << "n=" << n << " inverse=" << inverse;
        }
    }
}

TEST(Fft, RealInputMatchesComplexTransform) {
    // even lengths on each complex path of n / 2 (leaf, generic radix, Bluestein, four steps), odd ones
    Lcg rng{13};
    for (int n : {1, 2, 3, 4, 6, 7, 22, 64, 97, 194, 1000, 2018, 262144}) {
        const std::vector<double> x = rng.draws(n);
        std::vector<double> re = x, im(n, 0.0), hr(n / 2 + 1), hi(n / 2 + 1);
        ASSERT_EQ(FftComplex(re.data(), im.data(), n, 0), 1);
        ASSERT_EQ(FftReal(x.data(), n, hr.data(), hi.data()), 1);
        double err = 0, norm = 0;
        for (int k = 0; k <= n / 2; ++k) {
            norm = std::max(norm, std::hypot(re[k], im[k]));
            err = std::max(err, std::hypot(re[k] - hr[k], im[k] - hi[k]));
        }
        EXPECT_LT(err / norm, 2e-14) << "n=" << n;
        EXPECT_EQ(hi[0], 0.0) << "n=" << n;
        if (n % 2 == 0) {
            EXPECT_EQ(hi[n / 2], 0.0) << "n=" << n;
        }
    }
}

TEST(Periodogram, MatchesDirectSum) {
    Lcg rng{3};
    for (int T : {1, 2, 3, 8, 15, 97, 1009, 1000}) {
        std::vector<double> x = rng.draws(T), value(T), freq(T);
        for (int t = 0; t < T; ++t) x[t] += 1000.0 + 0.5 * std::sin(0.3 * t); // a level far above the cycle
        ASSERT_EQ(SeriesPeriodogram(x.data(), T, value.data(), freq.data()), 1);
        long double mean = 0, ss = 0;
        for (double v : x) mean += v / T;
        for (double v : x) ss += (v - mean) * (v - mean);
        for (int j = 0; j < T; ++j) {
            long double sr = 0, si = 0;
            for (int t = 0; t < T; ++t) {
                const long double a = 2 * kPiL * ((static_cast<long>(j) * t) % T) / T;
                sr += (x[t] - mean) * std::cos(a), si -= (x[t] - mean) * std::sin(a);
            }
            const double ref = static_cast<double>((sr * sr + si * si) / (2 * kPiL * T));
            EXPECT_NEAR(value[j], ref, 1e-12 * static_cast<double>(ss)) << "T=" << T << " j=" << j;
            EXPECT_DOUBLE_EQ(freq[j], 6.283185307179586 * j / T) << "T=" << T << " j=" << j;
        }
        EXPECT_EQ(value[0], 0.0) << T;
    }
}

} // namespace
