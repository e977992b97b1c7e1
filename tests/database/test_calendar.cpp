// Calendar arithmetic against independent calendars written here: days-from-civil for the
// Gregorian and Julian calendars (dbcapture.h), the anonymous Gregorian Easter algorithm and
// Meeus' Julian Easter (Astronomical Algorithms, ch. 8), and ISO 8601 weeks by the Thursday
// rule. Published day numbers anchor the references themselves.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "database/calendar.h"
#include "dbcapture.h"

using dbtest::civilJd;

namespace {

int daysInMonth(long long y, int m, bool gregorian) {
    return static_cast<int>(civilJd(m == 12 ? y + 1 : y, m % 12 + 1, 1, gregorian) - civilJd(y, m, 1, gregorian));
}

// 1 = Sunday ... 7 = Saturday; anchored below by J2000.0, a Saturday.
int refWeekday(long long jd) { return static_cast<int>(((jd + 1) % 7 + 7) % 7) + 1; }

// Easter as 31 * month + day - 1.
int referenceEaster(int y) {
    if (y >= 1583) { // anonymous Gregorian algorithm (Meeus, ch. 8)
        int a = y % 19, b = y / 100, c = y % 100, d = b / 4, e = b % 4, f = (b + 8) / 25, g = (b - f + 1) / 3;
        int h = (19 * a + b - d - g + 15) % 30, i = c / 4, k = c % 4, l = (32 + 2 * e + 2 * i - h - k) % 7;
        return h + l - 7 * ((a + 11 * h + 22 * l) / 451) + 114;
    }
    const int d = (19 * (y % 19) + 15) % 30; // Julian calendar (Meeus, ch. 8)
    return d + (2 * (y % 4) + 4 * (y % 7) - d + 34) % 7 + 114;
}

} // namespace

TEST(Calendar, PublishedDayNumbersAndInvalidDates) {
    // J2000.0 and Meeus ex. 7.b, the first Gregorian and last Julian days, the epoch.
    struct Ref {
        long long y;
        int m, d;
        bool gregorian;
        long long jd;
    } refs[] = {{2000, 1, 1, true, 2451545},
                {333, 1, 27, false, 1842713},
                {1582, 10, 15, true, 2299161},
                {1582, 10, 4, false, 2299160},
                {-4712, 1, 1, false, 0}};
    for (const Ref &r : refs) EXPECT_EQ(civilJd(r.y, r.m, r.d, r.gregorian), r.jd) << r.y;
    EXPECT_EQ(JulianDay(2000, 0, 1), -1);
    EXPECT_EQ(JulianDay(2000000000, 12, 31), -1);          // beyond the int range
    EXPECT_EQ(refWeekday(2451545), 7);                     // a Saturday
    EXPECT_EQ(WeekdayOfDate(2024, 3, 31), 1);              // a Sunday
    EXPECT_NE(JulianDay(2000, 2147483647, 2147483647), 0); // wild but defined
}

// Every day of the Julian calendar from 4800 BC up to the switch and of the Gregorian one from
// 1583 to 2400: day number, the date back and the weekday. The library counts years without a
// year 0; the reference in astronomical years.
TEST(Calendar, EveryDayOfBothCalendars) {
    struct Range {
        long long from, to;
        bool gregorian;
    } ranges[] = {{-4799, 1581, false}, {1583, 2400, true}};
    for (const Range &r : ranges)
        for (long long a = r.from; a <= r.to; ++a)
            for (int m = 1; m <= 12; ++m)
                for (int d = 1, n = daysInMonth(a, m, r.gregorian); d <= n; ++d) {
                    const int y = static_cast<int>(a <= 0 ? a - 1 : a);
                    const long long jd = civilJd(a, m, d, r.gregorian);
                    ASSERT_EQ(JulianDay(y, m, d), jd) << y << "-" << m << "-" << d;
                    int yy, mm, dd;
                    CalendarDate(static_cast<int>(jd), &yy, &mm, &dd);
                    ASSERT_TRUE(yy == y) << jd << " -> " << yy << "-" << mm << "-" << dd;
                    ASSERT_TRUE(mm == m) << jd << " -> " << yy << "-" << mm << "-" << dd;
                    ASSERT_TRUE(dd == d) << jd << " -> " << yy << "-" << mm << "-" << dd;
                    ASSERT_TRUE(WeekdayOfJulianDay(static_cast<int>(jd)) == refWeekday(jd))
                        << jd << " -> " << yy << "-" << mm << "-" << dd;
                }
}

// The switch key takes the shifted month: January, February and 15 September 1582 onwards are
// already Gregorian in JulianDay, while CalendarDate answers in the Julian calendar up to day
// 2299160, so a date label in those windows comes back ten days early. Beyond it, the round trip
// is sampled over the whole int32 range.
TEST(Calendar, SwitchWindowAndWideRoundTrip) {
    for (long long jd = civilJd(1581, 12, 1, false); jd < 2299161 + 60; ++jd) {
        int y, m, d;
        CalendarDate(static_cast<int>(jd), &y, &m, &d);
        const bool shifted = y == 1582 && (m <= 2 || (m >= 9 && (m > 9 || d >= 15))) && jd < 2299161;
        ASSERT_EQ(JulianDay(y, m, d), shifted ? jd - 10 : jd) << jd;
    }
    for (long long jd = -2147483648LL; jd <= 2147483647LL; jd += jd < 2147473000LL ? 9973 : 1) {
        int y, m, d;
        CalendarDate(static_cast<int>(jd), &y, &m, &d);
        if (jd < civilJd(1582, 1, 1, false) || jd >= 2299161) {
            ASSERT_EQ(JulianDay(y, m, d), jd) << y << "-" << m << "-" << d;
        }
    }
}

TEST(Calendar, EasterEveryYear1To4099) {
    for (int y = 1; y <= 4099; ++y) {
        int m, d;
        EasterDate(y, &m, &d);
        ASSERT_EQ(31 * m + d - 1, referenceEaster(y)) << y << ": " << m << "/" << d;
        ASSERT_TRUE(EasterDay(y) == civilJd(y, m, d, y >= 1583)) << y;
    }
    // Published dates: the earliest (1818) and latest (2038) possible, and 1582 still Julian.
    for (const auto &p : {std::array<int, 3>{2024, 3, 31}, {1818, 3, 22}, {2038, 4, 25}, {1582, 4, 15}})
        EXPECT_EQ(EasterDay(p[0]), civilJd(p[0], p[1], p[2], p[0] > 1582)) << p[0];
}

// Every Monday from 1900 to 2100 is the Monday of its ISO week: the ISO year of a week is the
// year of its Thursday, and the week number counts Thursdays from the start of that year.
TEST(Calendar, IsoWeeksEveryWeek1900To2100) {
    for (long long monday = civilJd(1900, 1, 1); monday <= civilJd(2100, 12, 31); ++monday) {
        if (refWeekday(monday) != 2) continue;
        int ty, tm, td;
        CalendarDate(static_cast<int>(monday + 3), &ty, &tm, &td);
        const int week = static_cast<int>((monday + 3 - civilJd(ty, 1, 1)) / 7 + 1);
        ASSERT_EQ(IsoWeekMonday(ty, week), monday) << ty << "-W" << week;
    }
    EXPECT_EQ(IsoWeekMonday(2010, 53), civilJd(2011, 1, 3)); // beyond a 52-week year: next year's week 1
    for (const int week : {0, -1, 54}) EXPECT_EQ(IsoWeekMonday(2000, week), 0) << week;
    EXPECT_EQ(IsoWeekMonday(0, 1), 0);
}

// Times of day to the hundredth round trip through the date writer and reader
// (Values.RoundTripOfFormattedDates); fractions out of range give midnight, and one just below 1
// rounds to the next midnight.
TEST(Calendar, TimeOfDayOutOfRange) {
    auto hundredths = [](double f) {
        int h, m, s, hs;
        DayFractionToTime(f, &h, &m, &s, &hs);
        return h * 360000LL + m * 6000 + s * 100 + hs;
    };
    EXPECT_EQ(hundredths(std::nan("")), 0);
    EXPECT_EQ(hundredths(0.999999999), 8640000);
}
