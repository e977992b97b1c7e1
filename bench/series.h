// The series the numeric benchmarks transform and smooth: a level of 100, a slow sine and uniform
// noise from a 64-bit congruential step, the same for every n and every run.
#ifndef KAVREL_BENCH_SERIES_H
#define KAVREL_BENCH_SERIES_H

#include <cmath>
#include <cstdint>
#include <vector>

inline std::vector<double> BenchSeries(int n) {
    std::vector<double> y(n);
    uint64_t s = 12345;
    for (int t = 0; t < n; ++t) {
        s = s * 6364136223846793005ULL + 1442695040888963407ULL;
        y[t] = 100.0 + std::sin(0.01 * t) + static_cast<double>(s >> 11) / 9007199254740992.0;
    }
    return y;
}

#endif
