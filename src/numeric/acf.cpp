// Autocovariances either directly (one inner product per lag, KvDot's eight lanes) or, for many
// lags, as the inverse transform of the squared modulus of the zero-padded transform (Wiener and
// Khinchin; the padding to M >= 2T - 1 turns the cyclic correlation into the linear one). M is
// even and both transforms take real input (the second a real, even sequence, whose inverse
// transform is its forward one over M), so each costs one complex transform of length M/2. The
// transform route has an absolute error of order eps log M times c_0 on every lag, the direct one
// a relative error per lag; divided by c_0 both are within a few eps log M of the exact r_k.
// Partial autocorrelations: the Durbin-Levinson recursion (Durbin 1960; Brockwell and Davis 1991,
// Prop. 5.2.1) with the prediction-error variance carried as v_k = v_{k-1} (1 - phi_kk^2).
#include "numeric/acf.h"

#include <cmath>

#include "base/carve.h"
#include "base/sums.h"
#include "base/types.h"
#include "numeric/fft.h"

namespace {

// Work out whether maxlag lags are cheaper through transforms of length M; M is 0 for direct sums.
int transformLength(int n, int maxlag) {
    if (maxlag < 32 || n > 1073741824) return 0;
    const int half = FftGoodSize(n);
    if (half == 0 || half > 1073741823) return 0;
    const int M = 2 * half;
    const double direct = (maxlag + 1.0) * (n - maxlag / 2.0);
    const double viaTransform = 4.0 * M * std::log2(static_cast<double>(M));
    return viaTransform < direct ? M : 0;
}

// Doubles of scratch the autocorrelations need (0 on overflow; n >= 1): the padded series, the
// transform's half spectrum and its scratch.
size_t acfScratchDoubles(int n, int maxlag) {
    const int M = transformLength(n, maxlag);
    if (M == 0) return static_cast<size_t>(n);
    const size_t fft = FftRealScratchDoubles(M);
    const size_t arrays = 2 * static_cast<size_t>(M) + 2;
    if (fft == 0 || fft > static_cast<size_t>(-1) - arrays) return 0;
    return arrays + fft;
}

// All values equal: no variation to correlate.
bool isConstant(const double *x, int n) {
    for (int t = 1; t < n; ++t)
        if (x[t] != x[0]) return false;
    return true;
}

// r[0..maxlag]; work holds acfScratchDoubles(n, maxlag). False for a constant series (r then
// holds 1 and missing values).
bool autocorrelations(const double *x, int n, int maxlag, double *r, double *work) {
    r[0] = 1.0;
    if (isConstant(x, n)) {
        for (int k = 1; k <= maxlag; ++k) MissingValue(&r[k]);
        return false;
    }
    KvCompensatedSum sum;
    for (int t = 0; t < n; ++t) sum.add(x[t]);
    const double mean = sum.value() / n;
    const int M = transformLength(n, maxlag);
    if (M == 0) {
        double *d = work;
        for (int t = 0; t < n; ++t) d[t] = x[t] - mean;
        const double c0 = KvSumSquares(d, n);
        for (int k = 1; k <= maxlag; ++k) r[k] = KvDot(d, d + k, n - k) / c0;
        return true;
    }
    const size_t half = static_cast<size_t>(M) / 2;
    double *pad = work, *re = pad + M, *im = re + half + 1, *fft = im + half + 1;
    for (int t = 0; t < n; ++t) pad[t] = x[t] - mean;
    for (int t = n; t < M; ++t) pad[t] = 0.0;
    FftRealWork(pad, M, re, im, fft);
    // |X_j|^2, a real sequence even about 0 and M/2, laid out whole.
    for (size_t j = 0; j <= half; ++j) pad[j] = re[j] * re[j] + im[j] * im[j];
    for (size_t j = 1; j < half; ++j) pad[M - j] = pad[j];
    FftRealWork(pad, M, re, im, fft);
    for (int k = 1; k <= maxlag; ++k) r[k] = re[k] / re[0];
    return true;
}

bool validArguments(const double *x, int n, int maxlag, const double *out) {
    return x && out && n >= 1 && maxlag >= 0 && maxlag <= n - 1;
}

} // namespace

int SeriesAcf(const double *x, int n, int maxlag, double *r) {
    if (!validArguments(x, n, maxlag, r)) return 0;
    const size_t doubles = acfScratchDoubles(n, maxlag);
    if (doubles == 0) return 0;
    KvArray<double> work(doubles);
    if (!work.ok()) return 0;
    autocorrelations(x, n, maxlag, r, work.get());
    return 1;
}

int SeriesPacf(const double *x, int n, int maxlag, double *pacf) {
    if (!validArguments(x, n, maxlag, pacf)) return 0;
    const size_t acfDoubles = acfScratchDoubles(n, maxlag);
    if (acfDoubles == 0) return 0;
    const size_t lags = static_cast<size_t>(maxlag) + 1;
    double *r = nullptr, *rev = nullptr, *a = nullptr, *acfWork = nullptr;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) {
        r = c.take<double>(lags);
        rev = c.take<double>(lags);
        a = c.take<double>(lags);
        acfWork = c.take<double>(acfDoubles);
    })));
    if (!block.ok()) return 0;

    pacf[0] = 1.0;
    if (!autocorrelations(x, n, maxlag, r, acfWork)) {
        for (int k = 1; k <= maxlag; ++k) MissingValue(&pacf[k]);
        return 1;
    }
    // rev[i] = r[maxlag - i], so that sum_j a_j r_{k-j} is a forward inner product.
    for (int i = 0; i <= maxlag; ++i) rev[i] = r[maxlag - i];
    double v = 1.0; // prediction-error variance of order k-1, in units of c_0
    int k = 1;
    for (; k <= maxlag && v > 0.0; ++k) {
        const double phi = (r[k] - KvDot(a + 1, rev + maxlag - k + 1, k - 1)) / v;
        // |phi| <= 1 in exact arithmetic; beyond it the recursion has lost the variance to rounding.
        if (!(std::fabs(phi) <= 1.0)) break;
        // a_j <- a_j - phi a_{k-j}, j = 1..k-1, pairwise in place
        for (int j = 1; j <= k - j; ++j) {
            const double aj = a[j], akj = a[k - j];
            a[j] = aj - phi * akj;
            if (j != k - j) a[k - j] = akj - phi * aj;
        }
        a[k] = phi;
        pacf[k] = phi;
        v *= (1.0 - phi) * (1.0 + phi);
    }
    for (; k <= maxlag; ++k) MissingValue(&pacf[k]);
    return 1;
}
