// Seasonal means and seasonal R^2. Season means are summed with Neumaier's compensation
// (Neumaier 1974): series in levels carry a large common part, and an error in the mean would
// reappear in every adjusted value. No scratch is needed: a season's mean only depends on the
// rows of that season, so each season is averaged and adjusted before the next one is read.
#include "estimators/seasonal.h"

#include <cmath>

#include "base/sums.h"

void SeasonalDemean(MATRIX X, int nobs, int ncols, int s) {
    for (int j = 0; j < ncols; ++j) {
        for (int p = 0; p < s && p < nobs; ++p) {
            KvCompensatedSum acc;
            int count = 0;
            for (long long t = p; t < nobs; t += s, ++count) acc.add(X[t][j]);
            const double mean = acc.value() / count;
            for (long long t = p; t < nobs; t += s) X[t][j] -= mean;
        }
    }
}

double SeasonalRsq(const double *y, int nobs, int s, double rss, double *means) {
    if (nobs <= 2 * static_cast<long long>(s)) return -1.0;
    // D accumulates over all seasons in order, as one running total.
    double total = 0.0;
    for (int p = 0; p < s; ++p) {
        KvCompensatedSum acc;
        int count = 0;
        for (long long t = p; t < nobs - 1; t += s, ++count) acc.add(y[t + 1] - y[t]);
        const double mean = acc.value() / count;
        if (means) means[p] = mean;
        for (long long t = p; t < nobs - 1; t += s) {
            double dev = (y[t + 1] - y[t]) - mean;
            total += dev * dev;
        }
    }
    return 1.0 - rss / total;
}
