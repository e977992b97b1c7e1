// The transform against the O(n^2) definition summed in long double, for every length to 64 and
// for primes and composites that take each path (radix 4/2/3/5, the generic radix, Bluestein);
// the periodogram's scaling, symmetry and Parseval's identity against a direct sum.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "common/reference.h"
#include "fault_runs.h"
#include "numeric/fft.h"
#include "numeric/periodogram.h"

namespace {

const long double kPiL = 3.141592653589793238462643383279502884L;

// Relative error of (re, im) against the direct DFT of (xr, xi): max |X - X_ref| / max |X_ref|.
double relativeError(const std::vector<double> &xr, const std::vector<double> &xi, const std::vector<double> &re,
                     const std::vector<double> &im, int sign) {
    const size_t n = xr.size();
    std::vector<long double> c(n), sn(n); // exp(sign 2 pi i j / n) by the exact index j k mod n
    for (size_t j = 0; j < n; ++j) {
        c[j] = std::cos(sign * 2 * kPiL * j / n);
        sn[j] = std::sin(sign * 2 * kPiL * j / n);
    }
    long double err = 0, norm = 0;
    for (size_t k = 0; k < n; ++k) {
        long double sr = 0, si = 0;
        for (size_t j = 0, jk = 0; j < n; ++j, jk = (jk + k) % n) {
            sr += xr[j] * c[jk] - xi[j] * sn[jk];
            si += xr[j] * sn[jk] + xi[j] * c[jk];
        }
        norm = std::max(norm, std::hypot(sr, si));
        err = std::max(err, std::hypot(sr - re[k], si - im[k]));
    }
    return static_cast<double>(err / norm);
}

TEST(Fft, MatchesDirectTransformForEveryPath) {
    std::vector<int> lengths;
    for (int n = 1; n <= 64; ++n) lengths.push_back(n);
    // 97 and 1009 primes (Bluestein), 1000 = 2^3 5^3, 4096, 3 * 37 (Bluestein beside a small factor),
    // 29 * 31 (generic radix twice), 10007 prime.
    for (int n : {97, 1000, 1009, 4096, 111, 899, 10007}) lengths.push_back(n);
    Lcg rng{7};
    for (int n : lengths) {
        SCOPED_TRACE(n);
        const std::vector<double> xr = rng.draws(n), xi = rng.draws(n);
        for (int inverse = 0; inverse <= 1; ++inverse) {
            std::vector<double> re = xr, im = xi;
            ASSERT_EQ(FftComplex(re.data(), im.data(), n, inverse), 1);
            EXPECT_LT(relativeError(xr, xi, re, im, inverse ? 1 : -1), 2e-14) << "inverse " << inverse;
        }
    }
}

TEST(Fft, ForwardThenInverseRestoresTheData) {
    Lcg rng{11};
    for (int n : {1, 6, 97, 4096, 10007, 65537}) {
        const std::vector<double> xr = rng.draws(n), xi = rng.draws(n);
        std::vector<double> re = xr, im = xi;
        ASSERT_EQ(FftComplex(re.data(), im.data(), n, 0), 1);
        ASSERT_EQ(FftComplex(re.data(), im.data(), n, 1), 1);
        double err = 0;
        for (int j = 0; j < n; ++j) err = std::max(err, std::hypot(re[j] / n - xr[j], im[j] / n - xi[j]));
        EXPECT_LT(err, 1e-14) << n;
    }
}

TEST(Fft, LengthsAndScratch) {
    const int good[][2] = {{1, 1}, {7, 8}, {11, 12}, {13, 15}, {17, 18}, {97, 100}, {1009, 1024}, {2017, 2025}};
    for (const auto &row : good) EXPECT_EQ(FftGoodSize(row[0]), row[1]) << row[0];
    EXPECT_EQ(FftGoodSize(0), 0);
    EXPECT_EQ(FftScratchDoubles(0), 0u);
    double re = 1, im = 0;
    EXPECT_EQ(FftComplex(&re, &im, 0, 0), 0);
    EXPECT_EQ(FftComplex(&re, &im, -3, 0), 0);
    EXPECT_EQ(FftComplex(nullptr, &im, 1, 0), 0);
}

TEST(Periodogram, MatchesDirectSumWithSymmetryAndParseval) {
    Lcg rng{3};
    for (int T : {1, 2, 3, 8, 15, 97, 256, 1009}) {
        SCOPED_TRACE(T);
        std::vector<double> x = rng.draws(T);
        for (int t = 0; t < T; ++t) x[t] += 1000.0 + 0.5 * std::sin(0.3 * t); // a level far above the noise
        std::vector<double> value(T), freq(T);
        ASSERT_EQ(SeriesPeriodogram(x.data(), T, value.data(), freq.data()), 1);
        long double mean = 0, ss = 0, total = 0;
        for (double v : x) mean += v;
        mean /= T;
        for (double v : x) ss += (v - mean) * (v - mean);
        for (int j = 0; j < T; ++j) {
            long double sr = 0, si = 0;
            for (int t = 0; t < T; ++t) {
                const long double a = 2 * kPiL * static_cast<long double>((static_cast<long>(j) * t) % T) / T;
                sr += (x[t] - mean) * std::cos(a);
                si -= (x[t] - mean) * std::sin(a);
            }
            const long double ref = (sr * sr + si * si) / (2 * kPiL * T);
            EXPECT_NEAR(value[j], static_cast<double>(ref), 1e-12 * static_cast<double>(ss)) << "j=" << j;
            EXPECT_EQ(value[j], value[(T - j) % T]) << "j=" << j;
            EXPECT_DOUBLE_EQ(freq[j], 6.283185307179586 * j / T) << "j=" << j;
            total += value[j];
        }
        EXPECT_EQ(value[0], 0.0);
        EXPECT_NEAR(static_cast<double>(total), static_cast<double>(ss / (2 * kPiL)), 1e-12 * static_cast<double>(ss));
    }
}

TEST(Periodogram, RejectsBadArgumentsAndFailedAllocation) {
    double x[5] = {1, 2, 3, 4, 6}, value[5], freq[5];
    EXPECT_EQ(SeriesPeriodogram(x, 0, value, freq), 0);
    EXPECT_EQ(SeriesPeriodogram(nullptr, 5, value, freq), 0);
    EXPECT_EQ(SeriesPeriodogram(x, 5, nullptr, freq), 0);
    EXPECT_EQ(SeriesPeriodogram(x, 5, value, nullptr), 1); // frequencies are optional
    // One allocation each: its failure returns 0 and leaves the data and the outputs as they were.
    double re[7] = {1, 2, 3, 4, 5, 6, 7}, im[7] = {0};
    const auto fft = [&] {
        const int status = FftComplex(re, im, 7, 0);
        if (status == 0) {
            EXPECT_EQ(re[6], 7.0);
        }
        return status;
    };
    EXPECT_EQ(StatusesUnderAllocationFailure(fft), (std::vector<int>{0, 1}));
    value[2] = -1;
    const auto periodogram = [&] {
        const int status = SeriesPeriodogram(x, 5, value, freq);
        if (status == 0) {
            EXPECT_EQ(value[2], -1.0);
        }
        return status;
    };
    EXPECT_EQ(StatusesUnderAllocationFailure(periodogram), (std::vector<int>{0, 1}));
}

} // namespace
