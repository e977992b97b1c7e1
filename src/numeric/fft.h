// The discrete Fourier transform of any length: X[k] = sum_j x[j] exp(-2 pi i j k / n) (forward)
// or with +i (inverse, unscaled: a forward and an inverse transform multiply by n). Lengths whose
// prime factors are all at most 31 are transformed by mixed-radix decimation in time (in four
// cache-sized steps when long); any other length goes through Bluestein's chirp convolution on a
// 5-smooth length, so every n costs O(n log n). Real input has a transform of its own at about
// half the cost.
#ifndef KAVREL_NUMERIC_FFT_H
#define KAVREL_NUMERIC_FFT_H

#include <cstddef>

// Doubles of scratch FftComplexWork needs for length n; 0 when n < 1 or the count overflows.
size_t FftScratchDoubles(int n);

// The smallest length >= n whose prime factors are 2, 3 and 5 only (n >= 1), or 0 when there is
// none within the int range. Zero padding to it keeps a convolution on the fast mixed-radix path.
int FftGoodSize(int n);

// In-place transform of re[0..n-1] + i im[0..n-1]; inverse != 0 selects the +i sign. work holds
// FftScratchDoubles(n) doubles. 1, or 0 for n < 1.
int FftComplexWork(double *re, double *im, int n, int inverse, double *work);

// As FftComplexWork with scratch of its own: 0 also when it cannot be allocated (re and im are
// then untouched).
int FftComplex(double *re, double *im, int n, int inverse);

// Doubles of scratch FftRealWork needs for length n; 0 when n < 1 or the count overflows.
size_t FftRealScratchDoubles(int n);

// X[k] = sum_j x[j] exp(-2 pi i j k / n) of the real x[0..n-1] for k = 0..n/2 into re[0..n/2] and
// im[0..n/2] (the rest are the conjugates X[n-k]). Even n costs one complex transform of length
// n/2; odd n one of length n. work holds FftRealScratchDoubles(n) doubles. 1, or 0 for n < 1.
int FftRealWork(const double *x, int n, double *re, double *im, double *work);

// As FftRealWork with scratch of its own: 0 also when it cannot be allocated (re and im are then
// untouched).
int FftReal(const double *x, int n, double *re, double *im);

#endif
