// Exponentially weighted moving averages of a series.
//
// SeriesEwma is Holt's linear exponential smoothing (Holt 1957): a level l_t and a slope b_t,
//     l_t = alpha x_t + (1 - alpha) (l_{t-1} + b_{t-1}),
//     b_t = beta (l_t - l_{t-1}) + (1 - beta) b_{t-1},
// started at l_0 = x_0, b_0 = 0; the output is the level. With beta = 0 the slope stays 0 and this
// is the plain exponentially weighted moving average m_t = alpha x_t + (1 - alpha) m_{t-1},
// m_0 = x_0. Valid: 0 < alpha <= 1 (alpha = 1 reproduces the data) and 0 <= beta <= 1.
//
// SeriesEwmc0 is the zero-mean exponentially weighted co-moment of the RiskMetrics variance
// (J.P. Morgan/Reuters 1996, eq. 5.3, for one pair of series):
//     c_t = lambda c_{t-1} + (1 - lambda) x_t y_t,   c_0 = x_0 y_0,
// a covariance of returns when x and y are returns, the variance when they are the same series.
// Valid: 0 <= lambda < 1 (0 gives the products themselves).
#ifndef KAVREL_NUMERIC_EWMA_H
#define KAVREL_NUMERIC_EWMA_H

// out[0..n-1] as above. 1, or 0 (out untouched) for n < 1, a null array or a parameter outside
// its range (NaN included). out may be x.
int SeriesEwma(const double *x, int n, double alpha, double beta, double *out);
int SeriesEwmc0(const double *x, const double *y, int n, double lambda, double *out);

#endif
