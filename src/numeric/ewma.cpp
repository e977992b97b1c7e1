// The recursions in the forms of ewma.h, in the same weighted-sum form, so that alpha = 1
// returns the data bit for bit and beta = 0 leaves the slope exactly 0. Both are O(n) with no
// scratch.
#include "numeric/ewma.h"

int SeriesEwma(const double *x, int n, double alpha, double beta, double *out) {
    if (!x || !out || n < 1 || !(alpha > 0.0 && alpha <= 1.0) || !(beta >= 0.0 && beta <= 1.0)) return 0;
    double level = x[0], slope = 0.0;
    out[0] = level;
    for (int t = 1; t < n; ++t) {
        const double next = alpha * x[t] + (1.0 - alpha) * (level + slope);
        slope = beta * (next - level) + (1.0 - beta) * slope;
        level = next;
        out[t] = level;
    }
    return 1;
}

int SeriesEwmc0(const double *x, const double *y, int n, double lambda, double *out) {
    if (!x || !y || !out || n < 1 || !(lambda >= 0.0 && lambda < 1.0)) return 0;
    double c = x[0] * y[0];
    out[0] = c;
    const double w = 1.0 - lambda;
    for (int t = 1; t < n; ++t) {
        c = lambda * c + w * (x[t] * y[t]);
        out[t] = c;
    }
    return 1;
}
