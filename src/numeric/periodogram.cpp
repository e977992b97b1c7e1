// The periodogram by one real-input transform of the demeaned series (for even T a complex one of
// length T/2); the mean is a compensated sum, because a level large against the fluctuations would
// otherwise leave a residual mean that leaks into the low frequencies.
#include "numeric/periodogram.h"

#include "base/carve.h"
#include "base/sums.h"
#include "numeric/fft.h"

int SeriesPeriodogram(const double *x, int n, double *value, double *freq) {
    if (n < 1 || !x || !value) return 0;
    const size_t fftDoubles = FftRealScratchDoubles(n);
    if (fftDoubles == 0) return 0;
    const size_t half = static_cast<size_t>(n) / 2 + 1;
    double *re = nullptr, *im = nullptr, *fft = nullptr;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) {
        re = c.take<double>(half);
        im = c.take<double>(half);
        fft = c.take<double>(fftDoubles);
    })));
    if (!block.ok()) return 0;

    KvCompensatedSum sum;
    for (int t = 0; t < n; ++t) sum.add(x[t]);
    const double mean = sum.value() / n;
    // The demeaned series goes through value, which the result then overwrites.
    for (int t = 0; t < n; ++t) value[t] = x[t] - mean;
    FftRealWork(value, n, re, im, fft);
    const double scale = 1.0 / (6.283185307179586 * n);
    value[0] = 0.0;
    for (int j = 1; j <= n / 2; ++j) value[j] = value[n - j] = (re[j] * re[j] + im[j] * im[j]) * scale;
    if (freq)
        for (int j = 0; j < n; ++j) freq[j] = 6.283185307179586 * j / n;
    return 1;
}
