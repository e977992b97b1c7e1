// Every kernel's refusals: bad counts, null arrays and parameters out of range return 0 with the
// output untouched, and so does each failed allocation (then nothing leaks: the sanitizer build
// runs these).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "numeric/acf.h"
#include "numeric/ewma.h"
#include "numeric/fft.h"
#include "numeric/hpfilter.h"
#include "numeric/periodogram.h"
#include "numeric/smooth.h"
#include "numeric/sort.h"
#include "numeric_test.h"

namespace {

// Long enough for the four-step transforms and the real transform of 2^17.
const int N = 131072;

struct Fixture {
    std::vector<double> x = Lcg{5}.draws(N), y = Lcg{6}.draws(N), out = std::vector<double>(N, -1.0);
    std::vector<int> index = std::vector<int>(N, -1);
    double *o() { return out.data(); }
};

TEST(NumericFailures, BadArgumentsReturnZeroAndLeaveTheOutput) {
    Fixture f;
    const double *x = f.x.data(), *y = f.y.data();
    double *o = f.o(), im[3] = {0, 0, 0};
    const std::function<int()> calls[] = {
        [&] { return FftComplex(o, im, 0, 0); },
        [&] { return FftReal(x, 0, o, im); },
        [&] { return SeriesPeriodogram(x, 0, o, o); },
        [&] { return SeriesAcf(x, 3, 3, o); }, // maxlag beyond n - 1
        [&] { return SeriesPacf(x, 3, 3, o); },
        [&] { return SeriesEwma(x, 50, 0.0, 0.1, o); },  // alpha in (0, 1]
        [&] { return SeriesEwma(x, 50, 0.5, -0.1, o); }, // beta in [0, 1]
        [&] { return SeriesEwmc0(x, y, 50, 1.0, o); },   // lambda in [0, 1)
        [&] { return SeriesEwmc0(x, nullptr, 50, 0.5, o); },
        [&] { return SmoothHp(x, 6, -1.0, o); },
        [&] { return SmoothHp(x, 6, 1e308, o); }, // 16 lambda overflows
        [&] { return SmoothSpline(x, 20, NAN, o); },
        [&] { return SmoothSpline(x, 20, -1e308, o); },
        [&] { return SmoothKernel(x, 20, 2.0, const_cast<double *>(x)); }, // out must not be y
        [&] { return SmoothKernel(x, 20, NAN, o); },
        [&] { return SortAscending(o, -1); },
        [&] { return SortIndexByKey(x, 3, nullptr); },
    };
    for (size_t i = 0; i < std::size(calls); ++i) EXPECT_EQ(calls[i](), 0) << "call " << i;
    EXPECT_EQ(f.out, std::vector<double>(N, -1.0));
}

TEST(NumericFailures, EachAllocationFailureReturnsZeroAndLeavesTheOutput) {
    Fixture f;
    const double *x = f.x.data();
    double *o = f.o();
    std::vector<double> imv(N);
    double *im = imv.data();
    const struct {
        const char *name;
        std::function<int()> call;
    } rows[] = {
        {"fft 7", [&] { return FftComplex(o, im, 7, 0); }},
        {"fft 97 (Bluestein)", [&] { return FftComplex(o, im, 97, 1); }},
        {"fft 65536 (four steps)", [&] { return FftComplex(o, im, 65536, 0); }},
        {"fft 65537 (Bluestein on four steps)", [&] { return FftComplex(o, im, 65537, 0); }},
        {"real fft 131072", [&] { return FftReal(x, N, o, im); }},
        {"real fft 97 (Bluestein)", [&] { return FftReal(x, 97, o, im); }},
        {"periodogram", [&] { return SeriesPeriodogram(x, 400, o, nullptr); }},
        {"acf direct", [&] { return SeriesAcf(x, 400, 5, o); }},
        {"acf by transforms", [&] { return SeriesAcf(x, 400, 399, o); }},
        {"pacf", [&] { return SeriesPacf(x, 400, 399, o); }},
        {"hp", [&] { return SmoothHp(x, 400, 1600.0, o); }},
        {"spline gcv", [&] { return SmoothSpline(x, 40, 0.0, o); }},
        {"spline df", [&] { return SmoothSpline(x, 40, 6.0, o); }},
        {"spline lambda", [&] { return SmoothSpline(x, 40, -10.0, o); }},
        {"sort", [&] { return SortAscending(o, 400); }},
        {"sort index", [&] { return SortIndexByKey(x, 400, f.index.data()); }},
    };
    for (const auto &row : rows) {
        const auto call = [&] {
            f.out.assign(N, -1.0);
            imv.assign(N, 0.5);
            f.index.assign(N, -1);
            const int status = row.call();
            if (status == 0) {
                EXPECT_EQ(f.out, std::vector<double>(N, -1.0)) << row.name;
                EXPECT_EQ(imv, std::vector<double>(N, 0.5)) << row.name;
                EXPECT_EQ(f.index[0], -1) << row.name;
            }
            return status;
        };
        EXPECT_EQ(StatusesUnderAllocationFailure(call), (std::vector<int>{0, 1})) << row.name;
    }
}

} // namespace
