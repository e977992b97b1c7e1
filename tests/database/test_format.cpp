// The fitted-width number formatter, case by case. Each expected text was worked out by hand
// from the width budget of its kind of number (sign, "d.", exponent) and C's %g rules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "database/format.h"
#include "matrix/matrix.h"

TEST(FormatNumber, Table) {
    const double inf = std::numeric_limits<double>::infinity();
    struct Row {
        double x;
        int width, digits, expSign, leadingZero, minDecimals;
        const char *want;
    } rows[] = {
        // Missing and infinite values, at any width.
        {MissingValueOf(), 3, 6, 0, 0, 0, ".NaN"},
        {std::nan("7"), 20, 6, 0, 0, 2, ".NaN"},
        {inf, 4, 6, 0, 0, 0, "+.Inf"},
        {-inf, 12, 6, 1, 1, 3, "-.Inf"},
        // Whole numbers as integers when they fit, whatever the width.
        {3.0, 10, 6, 0, 0, 0, "3"},
        {-42.0, 3, 6, 0, 0, 0, "-42"},
        {7.0, 10, 0, 0, 0, 0, "7"},
        {-0.0, 5, 6, 0, 0, 0, "0"},
        {2147483647.0, 10, 6, 0, 0, 0, "2147483647"},
        // Too narrow or no digits.
        {3.5, 6, 6, 0, 0, 0, "####"},
        {-42.0, 2, 6, 0, 0, 0, "####"},
        {1.5, 10, 0, 0, 0, 0, "####"},
        // Ordinary magnitudes: precision up to width - 2, never below the integer digits.
        {1234.5678, 10, 6, 0, 0, 0, "1234.57"},
        {1234.5678, 10, 12, 0, 0, 0, "1234.5678"},
        {-3.5, 8, 6, 0, 0, 0, "-3.5"},
        {123.0000001, 10, 6, 0, 0, 0, "123."},
        {123.0000001, 10, 6, 1, 0, 0, "123"},
        {999999.7, 8, 6, 0, 0, 0, "1e+06"},
        {123456789.5, 8, 6, 0, 0, 0, "1.2e+08"},
        {123456789.0, 8, 6, 0, 0, 0, "1.2e+08"},
        // Below one: the leading "0" goes unless asked for; the sign takes its place.
        {0.5, 8, 6, 0, 0, 0, ".5"},
        {0.5, 8, 6, 0, 1, 0, "0.5"},
        {0.1, 30, 17, 0, 0, 0, ".10000000000000001"},
        {0.00123456, 8, 6, 0, 0, 0, ".0012346"},
        {0.00123456, 8, 6, 0, 1, 0, "0.001235"},
        {-0.00123456, 8, 6, 0, 0, 0, "-.001235"},
        {-0.00123456, 8, 6, 0, 1, 0, "-0.00123"},
        {1e-4, 8, 6, 0, 0, 0, ".0001"},
        // Small: one exponent digit from 1e-9 to 1e-4, two below, three below 1e-99.
        {1.23456e-5, 10, 6, 0, 0, 0, "1.2346e-5"},
        {-1.23456e-5, 10, 6, 0, 0, 0, "-1.2346e-5"},
        {1.5e-12, 10, 6, 0, 0, 0, "1.5e-12"},
        {1.23456789e-12, 10, 6, 0, 0, 0, "1.235e-12"},
        {1.23456e-120, 10, 6, 0, 0, 0, "1.23e-120"},
        {1e-310, 10, 6, 0, 0, 0, "1e-310"},
        // Large: two exponent digits above 2^31 - 1, three from 1e100; the sign flag drops "+".
        {2147483648.0, 12, 12, 0, 0, 0, "2.14748e+09"},
        {2147483648.0, 12, 12, 1, 0, 0, "2.147484e09"},
        {5e9, 10, 6, 0, 0, 0, "5e+09"},
        {5e9, 10, 6, 1, 0, 0, "5e09"},
        {12345678901.0, 15, 15, 0, 0, 0, "1.23456789e+10"},
        {1.23456789e150, 12, 8, 0, 0, 0, "1.2346e+150"},
        {1.23456789e150, 12, 8, 1, 0, 0, "1.2346e150"},
        // Minimum decimals: a point always, trailing zeros trimmed down to m decimals.
        {2.0, 10, 6, 0, 0, 2, "2.00"},
        {2.5, 10, 6, 0, 0, 1, "2.5"},
        {2.5, 10, 6, 0, 0, 3, "2.500"},
        {0.0, 10, 6, 0, 0, 2, "0.00"},
        {-0.0, 10, 6, 0, 0, 1, "0.0"},
        {1.5e-12, 12, 6, 0, 0, 2, "1.50e-12"},
        {123456.0, 10, 6, 0, 0, 2, "123456."},
    };
    for (const Row &r : rows) {
        char out[64];
        std::memset(out, '?', sizeof out);
        FormatNumber(out, sizeof out, r.x, r.width, r.digits, r.expSign, r.leadingZero, r.minDecimals);
        EXPECT_STREQ(out, r.want) << "x=" << r.x << " width=" << r.width << " digits=" << r.digits
                                  << " expSign=" << r.expSign << " lz=" << r.leadingZero << " m=" << r.minDecimals;
    }
}

// Over a sweep of magnitudes and widths the text never exceeds the width (or is "####", or a
// missing/infinite spelling) and reads back to the value within the precision it shows.
TEST(FormatNumber, FitsWidthAndReadsBack) {
    const int widths[] = {8, 9, 10, 12, 16, 24};
    long checked = 0;
    for (int width : widths) {
        for (int e = -320; e <= 305; e += 3) {
            for (double mant : {1.0, -1.2345678901234, 9.87654321, -5.5}) {
                double x = mant * std::pow(10.0, e);
                if (x == 0.0 || std::isinf(x)) continue;
                for (int lz = 0; lz <= 1; ++lz) {
                    char out[64];
                    FormatNumber(out, sizeof out, x, width, 15, 0, lz, 0);
                    std::string s(out);
                    ASSERT_LE(s.size(), static_cast<size_t>(width)) << x << " -> " << s;
                    if (s == "####") continue;
                    double back = std::strtod(out, nullptr);
                    // At least one significant digit is shown, so 0.6 relative is loose but catches
                    // a lost exponent or digit run; widths from 16 show at least 9 digits.
                    double tol = width >= 16 ? 1e-8 : 0.6;
                    EXPECT_NEAR(back / x, 1.0, tol) << x << " -> " << s;
                    ++checked;
                }
            }
        }
    }
    EXPECT_GT(checked, 5000);
}

TEST(FormatNumber, SmallOutputBufferTruncatesSafely) {
    char out[4];
    FormatNumber(out, sizeof out, 1234.5678, 10, 6, 0, 0, 0);
    EXPECT_STREQ(out, "123");
    FormatNumber(nullptr, 10, 1.0, 10, 6, 0, 0, 0); // no crash
    char one[1] = {'z'};
    FormatNumber(one, 1, 1.0, 10, 6, 0, 0, 0);
    EXPECT_EQ(one[0], '\0');
}
