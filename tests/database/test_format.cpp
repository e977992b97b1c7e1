// The fitted-width number formatter, case by case. Each expected text was worked out by hand
// from the width budget of its kind of number (sign, "d.", exponent) and C's %g rules.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "database/format.h"
#include "matrix/matrix.h"

TEST(FormatNumber, Table) {
    const double inf = std::numeric_limits<double>::infinity();
    struct Row {
        double x;
        int width, digits, expSign, leadingZero, minDecimals;
        const char *want;
    } rows[] = {
        // clang-format off
        // Missing and infinite values, at any width.
        {MissingValueOf(), 3, 6, 0, 0, 0, ".NaN"},
        {inf, 4, 6, 0, 0, 0, "+.Inf"},
        // Whole numbers as integers when they fit, whatever the width.
        {3.0, 10, 6, 0, 0, 0, "3"},
        // Too narrow or no digits.
        {3.5, 6, 6, 0, 0, 0, "####"},
        // Ordinary magnitudes: precision up to width - 2, never below the integer digits.
        {1234.5678, 10, 6, 0, 0, 0, "1234.57"},
        {123.0000001, 10, 6, 0, 0, 0, "123."},
        {999999.7, 8, 6, 0, 0, 0, "1e+06"},
        // Below one: the leading "0" goes unless asked for; the sign takes its place.
        {0.00123456, 8, 6, 0, 0, 0, ".0012346"},
        {-0.00123456, 8, 6, 0, 1, 0, "-0.00123"},
        // Small: one exponent digit from 1e-9 to 1e-4, two below, three below 1e-99.
        {1.23456e-5, 10, 6, 0, 0, 0, "1.2346e-5"},
        {1.5e-12, 10, 6, 0, 0, 0, "1.5e-12"},
        {1.23456e-120, 10, 6, 0, 0, 0, "1.23e-120"},
        // Large: two exponent digits above 2^31 - 1, three from 1e100; the sign flag drops "+".
        {2147483648.0, 12, 12, 0, 0, 0, "2.14748e+09"},
        {1.23456789e150, 12, 8, 1, 0, 0, "1.2346e150"},
        // Minimum decimals: a point always, trailing zeros trimmed down to m decimals.
        {2.0, 10, 6, 0, 0, 2, "2.00"},
        {1.5e-12, 12, 6, 0, 0, 2, "1.50e-12"},
        {123456.0, 10, 6, 0, 0, 2, "123456."},
        // clang-format on
    };
    for (const Row &r : rows) {
        char out[64];
        EXPECT_STREQ(FormatNumber(out, sizeof out, r.x, r.width, r.digits, r.expSign, r.leadingZero, r.minDecimals),
                     r.want)
            << r.x << " " << r.width << " " << r.digits << " " << r.expSign << r.leadingZero << r.minDecimals;
    }
}

TEST(FormatNumber, SmallBuffers) {
    char small[4];
    EXPECT_STREQ(FormatNumber(small, sizeof small, 1234.5678, 10, 6, 0, 0, 0), "123"); // truncated, not overrun
    EXPECT_EQ(FormatNumber(nullptr, 10, 1.5, 10, 6, 0, 0, 0), nullptr);
}
