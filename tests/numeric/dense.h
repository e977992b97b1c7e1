// Dense long double solves for the numeric tests: the systems the banded and recursive kernels
// solve, formed in full and eliminated with partial pivoting.
#ifndef KAVREL_TESTS_NUMERIC_DENSE_H
#define KAVREL_TESTS_NUMERIC_DENSE_H

#include <cmath>
#include <utility>

#include "common/reference.h"

// x with a x = b.
inline LVec SolveDense(LMat a, LVec b) {
    const size_t n = b.size();
    for (size_t c = 0; c < n; ++c) {
        size_t p = c;
        for (size_t i = c + 1; i < n; ++i)
            if (std::fabs(a[i][c]) > std::fabs(a[p][c])) p = i;
        std::swap(a[p], a[c]);
        std::swap(b[p], b[c]);
        for (size_t i = c + 1; i < n; ++i) {
            const long double m = a[i][c] / a[c][c];
            for (size_t j = c; j < n; ++j) a[i][j] -= m * a[c][j];
            b[i] -= m * b[c];
        }
    }
    LVec x(n);
    for (size_t i = n; i-- > 0;) {
        long double s = b[i];
        for (size_t j = i + 1; j < n; ++j) s -= a[i][j] * x[j];
        x[i] = s / a[i][i];
    }
    return x;
}

// a^-1 (a square and non-singular).
inline LMat InverseDense(const LMat &a) {
    std::vector<int> all(a.size());
    for (size_t i = 0; i < a.size(); ++i) all[i] = static_cast<int>(i);
    return inverseOn(a, all);
}

#endif
