// Sample arithmetic against a walk along the (year, period) grid, the period and frequency
// texts and the date-value texts.
#include <gtest/gtest.h>

#include "database/calendar.h"
#include "matrix/matrix.h"

namespace {

void step(int *y, int *p, int f, int dir) {
    *p += dir;
    if (*p > f) *p = 1, ++*y;
    if (*p < 1) *p = f, --*y;
}

} // namespace

// Every observation of several samples, from 3 years and 2 periods before the start to the end,
// walked one period at a time; then the end moved, and the start from the end, for every count
// from 1 to twice the sample.
TEST(Sample, ArithmeticAgainstAWalk) {
    const Sample samples[] = {{1990, 3, 1991, 2, 4},   {1950, 1, 2010, 12, 12}, {1996, 1, 2005, 1, 1},
                              {2001, 40, 2003, 7, 52}, {1999, 5, 1999, 5, 7},   {-5, 2, 3, 1, 3}};
    for (const Sample &s : samples) {
        SCOPED_TRACE(testing::Message() << s.startYear << "(" << s.startPeriod << ")/" << s.frequency);
        int y = s.startYear, p = s.startPeriod, t = -3 * s.frequency - 2;
        for (int k = 0; k > t; --k) step(&y, &p, s.frequency, -1);
        for (;; ++t, step(&y, &p, s.frequency, 1)) {
            ASSERT_TRUE(SampleObsIndex(y, p, s) == t) << t;
            ASSERT_TRUE(SampleYearOfObs(t, s) == y) << t;
            ASSERT_TRUE(SamplePeriodOfObs(t, s) == p) << t;
            if (y == s.endYear && p == s.endPeriod) break;
        }
        EXPECT_EQ(SampleObsCount(s), t + 1);
        for (int c = 1; c <= 2 * (t + 1); ++c) {
            Sample a = s, b = s;
            SampleSetCount(&a, c), SampleSetStartFromEnd(&b, c);
            ASSERT_TRUE(a.endYear == SampleYearOfObs(c - 1, s)) << c;
            ASSERT_TRUE(a.endPeriod == SamplePeriodOfObs(c - 1, s)) << c;
            ASSERT_TRUE(b.endYear == s.endYear) << c;
            ASSERT_TRUE(b.endPeriod == s.endPeriod) << c;
            ASSERT_TRUE(b.startPeriod >= 1) << c;
            ASSERT_TRUE(b.startPeriod <= s.frequency) << c;
            ASSERT_TRUE(SampleObsCount(a) == c) << c;
            ASSERT_TRUE(SampleObsCount(b) == c) << c;
        }
    }
    const Sample wide = {-2000000000, 1, 2000000000, 1, 1000};
    EXPECT_EQ(SampleObsCount(wide), 2147483647); // clamped, no overflow
}

TEST(Sample, PeriodAndFrequencyTexts) {
    char out[KV_DATE_TEXT_MAX];
    struct Period {
        Sample s;
        int y, p;
        const char *want;
    } periods[] = {{{1990, 1, 2000, 1, 1}, 95, 1, "  95"},
                   {{1990, 1, 2000, 4, 4}, 1995, 3, "1995(3)"},
                   {{1990, 1, 2000, 12, 12}, 1995, 3, "1995( 3)"},
                   {{1000, 1, 1999, 12, 12}, 1995, 3, " 1995(  3)"}};
    for (const Period &r : periods) EXPECT_STREQ(FormatPeriod(out, sizeof out, r.y, r.p, r.s), r.want);

    const double first = JulianDay(2001, 1, 1);
    struct Row {
        Sample s;
        int nobs, dated;
        double first, last;
        const char *name;
        int daysPerWeek, obsPerYear;
    } rows[] = {
        // clang-format off
        {{1800, 1, 1810, 1, 1}, 11, 0, 0, 0, "Undated", 0, 1},
        {{1801, 1, 1810, 1, 1}, 10, 0, 0, 0, "Annual", 0, 1},
        {{1990, 1, 2000, 5, 26}, 265, 0, 0, 0, "Frequency 26", 0, 26},
        {{1990, 1, 2000, 52, 52}, 572, 0, 0, 0, "Weekly (52/year)", 1, 52},
        // Dated: 260 working days over 52 weeks, 52 Mondays; dates out of order.
        {{1, 1, 260, 1, 1}, 260, 1, first, first + 363, "Daily (5 days/week)", 5, 261},
        {{1, 1, 52, 1, 1}, 52, 1, first, first + 357, "Weekly", 1, 53},
        {{1, 1, 3, 1, 1}, 3, 1, first, first - 5, "Dated", 0, 0},
        // clang-format on
    };
    for (const Row &r : rows) {
        EXPECT_STREQ(SampleFrequencyName(out, sizeof out, r.s, r.nobs, r.dated, r.first, r.last), r.name);
        EXPECT_EQ(SampleDaysPerWeek(r.s, r.nobs, r.dated, r.first, r.last), r.daysPerWeek) << r.name;
        EXPECT_EQ(SampleObsPerYear(r.s, r.nobs, r.dated, r.first, r.last), r.obsPerYear) << r.name;
    }
}

TEST(DateText, FormatDateValue) {
    const double d2000 = 2451545.0; // 2000-01-01, a Saturday
    const double t1345 = TimeToDayFraction(13, 45, 30, 25), t1345z = TimeToDayFraction(13, 45, 0, 0);
    struct Row {
        double v;
        int weekday, zeroTime, space, seconds;
        const char *want;
    } rows[] = {
        // clang-format off
        {1e300, 0, 0, 0, 0, "."},
        {0.0, 1, 1, 1, 1, "00:00:00"},
        {d2000, 0, 0, 0, 0, "2000-01-01"},
        {d2000, 1, 1, 0, -1, "2000-01-01 SatT00:00"},
        {d2000 + t1345, 0, 0, 0, 0, "2000-01-01T13:45:30.25"},
        {d2000 + t1345, 0, 0, 0, 2, "2000-01-01T13:45.25"},
        {d2000 + t1345z, 0, 0, 0, 1, "2000-01-01T13:45:00"},
        {static_cast<double>(JulianDay(-44, 3, 15)), 0, 0, 0, 0, "-44-03-15"},
        // clang-format on
    };
    char out[KV_DATE_TEXT_MAX], small[6];
    for (const Row &r : rows)
        EXPECT_STREQ(FormatDateValue(out, sizeof out, r.v, r.weekday, r.zeroTime, r.space, r.seconds), r.want);
    EXPECT_STREQ(FormatDateValue(small, sizeof small, d2000, 1, 1, 1, 1), "2000-");
}
