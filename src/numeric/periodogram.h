// The sample periodogram of a real series x_0..x_{T-1} at the Fourier frequencies w_j = 2 pi j / T:
//     I(w_j) = |sum_t (x_t - xbar) exp(-i w_j t)|^2 / (2 pi T),   j = 0..T-1,
// the scaling of Hamilton (1994, eq. 6.2.5) under which I estimates the spectral density and
// sum_j I(w_j) = sum_t (x_t - xbar)^2 / (2 pi) (Parseval). The mean is removed, so I(0) = 0
// (stored exactly). Values are computed for j = 0..floor(T/2) and mirrored, so value[j] and
// value[T-j] are bit-for-bit equal; the middle entry, j = T/2 for even T, stands alone.
#ifndef KAVREL_NUMERIC_PERIODOGRAM_H
#define KAVREL_NUMERIC_PERIODOGRAM_H

// value[0..n-1] as above and, when freq is not null, freq[j] = 2 pi j / n (frequencies above pi
// alias those below: w_{T-j} = 2 pi - w_j carries the same value). 1, or 0 for n < 1 or when
// scratch cannot be allocated (outputs untouched). O(n log n).
int SeriesPeriodogram(const double *x, int n, double *value, double *freq);

#endif
