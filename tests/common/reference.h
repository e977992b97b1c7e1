// Independent long double references for the least-squares tests: deterministic data and the
// inverse of a normal-equations matrix restricted to chosen variables (Gauss-Jordan elimination).
#ifndef KAVREL_TESTS_COMMON_REFERENCE_H
#define KAVREL_TESTS_COMMON_REFERENCE_H

#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

using LVec = std::vector<long double>;
using LMat = std::vector<LVec>;

// Deterministic uniform(-1, 1) draws (Knuth's MMIX linear congruential generator).
struct Lcg {
    uint64_t s;
    double next() {
        s = s * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(s >> 11) / 9007199254740992.0 * 2.0 - 1.0;
    }
    std::vector<double> draws(size_t n) {
        std::vector<double> v(n);
        for (double &d : v) d = next();
        return v;
    }
};

// (A restricted to rows and columns in keep)^-1, scattered back into a k x k matrix of zeros.
inline LMat inverseOn(const LMat &full, const std::vector<int> &keep) {
    const size_t r = keep.size();
    LMat a(r, LVec(2 * r, 0.0L));
    for (size_t i = 0; i < r; ++i) {
        for (size_t j = 0; j < r; ++j) a[i][j] = full[keep[i]][keep[j]];
        a[i][r + i] = 1.0L;
    }
    for (size_t c = 0; c < r; ++c) {
        size_t p = c;
        for (size_t i = c + 1; i < r; ++i)
            if (std::fabs(a[i][c]) > std::fabs(a[p][c])) p = i;
        std::swap(a[p], a[c]);
        const long double d = a[c][c];
        for (auto &v : a[c]) v /= d;
        for (size_t i = 0; i < r; ++i)
            if (i != c) {
                const long double m = a[i][c];
                for (size_t j = 0; j < 2 * r; ++j) a[i][j] -= m * a[c][j];
            }
    }
    LMat out(full.size(), LVec(full.size(), 0.0L));
    for (size_t i = 0; i < r; ++i)
        for (size_t j = 0; j < r; ++j) out[keep[i]][keep[j]] = a[i][r + j];
    return out;
}

// log det of a symmetric matrix by elimination; NaN unless every pivot is positive.
inline long double logDetRef(LMat a) {
    long double s = 0.0L;
    for (size_t c = 0; c < a.size(); ++c) {
        if (!(a[c][c] > 0.0L)) return NAN;
        s += std::log(a[c][c]);
        for (size_t i = c + 1; i < a.size(); ++i)
            for (size_t j = a.size(); j-- > c;) a[i][j] -= a[i][c] / a[c][c] * a[c][j];
    }
    return s;
}

#endif
