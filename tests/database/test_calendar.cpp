// Calendar arithmetic against independent calendars written here from other sources: the
// proleptic Gregorian days-from-civil algorithm (H. Hinnant, "chrono-compatible low-level date
// algorithms"), its Julian-calendar analogue (4-year eras of 1,461 days), the anonymous Gregorian
// Easter algorithm and Meeus' Julian Easter (Astronomical Algorithms, ch. 8), and ISO 8601 week
// numbering by the Thursday rule. Published day numbers anchor the references themselves.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "database/calendar.h"

namespace {

// Day count of a proleptic Gregorian date (astronomical year) since 1970-01-01.
long long gregorianDays(long long y, int m, int d) {
    y -= m <= 2;
    long long era = (y >= 0 ? y : y - 399) / 400;
    long long yoe = y - era * 400;
    long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}
long long gregorianJd(long long y, int m, int d) { return gregorianDays(y, m, d) + 2440588; }

// Day count of a Julian-calendar date (astronomical year) from a March-based 4-year era; the
// offset puts 1 January -4712 at day 0, the Julian day epoch.
long long julianCount(long long y, int m, int d) {
    y -= m <= 2;
    long long era = (y >= 0 ? y : y - 3) / 4;
    long long yoe = y - era * 4;
    long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    return era * 1461 + yoe * 365 + doy;
}
long long julianJd(long long y, int m, int d) { return julianCount(y, m, d) - julianCount(-4712, 1, 1); }

int daysInMonth(long long y, int m, bool gregorian) {
    static const int len[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = gregorian ? (y % 4 == 0 && (y % 100 != 0 || y % 400 == 0)) : (y % 4 == 0);
    return m == 2 && leap ? 29 : len[m - 1];
}

// The library counts years without a year 0; the references use astronomical years.
int civilYear(long long astro) { return astro <= 0 ? static_cast<int>(astro - 1) : static_cast<int>(astro); }

// 1 = Sunday ... 7 = Saturday from days since 1970-01-01 (a Thursday).
int refWeekday(long long daysSince1970) { return static_cast<int>(((daysSince1970 + 4) % 7 + 7) % 7) + 1; }

void gregorianEaster(int y, int *month, int *day) { // anonymous algorithm (Meeus, ch. 8)
    int a = y % 19, b = y / 100, c = y % 100, d = b / 4, e = b % 4, f = (b + 8) / 25, g = (b - f + 1) / 3;
    int h = (19 * a + b - d - g + 15) % 30, i = c / 4, k = c % 4, l = (32 + 2 * e + 2 * i - h - k) % 7;
    int m = (a + 11 * h + 22 * l) / 451;
    *month = (h + l - 7 * m + 114) / 31;
    *day = (h + l - 7 * m + 114) % 31 + 1;
}

void julianEaster(int y, int *month, int *day) { // Meeus, ch. 8, Julian calendar
    int a = y % 4, b = y % 7, c = y % 19, d = (19 * c + 15) % 30, e = (2 * a + 4 * b - d + 34) % 7;
    *month = (d + e + 114) / 31;
    *day = (d + e + 114) % 31 + 1;
}

} // namespace

// Published day numbers anchor the references and the library alike.
TEST(Calendar, PublishedDayNumbersAndInvalidDates) {
    EXPECT_EQ(gregorianJd(2000, 1, 1), 2451545);   // J2000.0 (Meeus, ex. 7.a)
    EXPECT_EQ(gregorianJd(1582, 10, 15), 2299161); // first Gregorian day
    EXPECT_EQ(julianJd(1582, 10, 4), 2299160);     // last Julian day
    EXPECT_EQ(julianJd(333, 1, 27), 1842713);      // Meeus, ex. 7.b
    struct Row {
        int y, m, d, jd;
    } rows[] = {
        // 4 October 1582 is read in the Gregorian reckoning by the switch key: 2299150, not 2299160.
        {2000, 1, 1, 2451545},  {1582, 10, 15, 2299161}, {1582, 10, 4, 2299150}, {1858, 11, 17, 2400001},
        {1970, 1, 1, 2440588},  {1, 1, 1, 1721424},      {-1, 1, 1, 1721058},    {-4713, 1, 1, 0},
        {-4714, 12, 31, -1},    {1957, 10, 4, 2436116},  {0, 1, 1, -1},          {2000, 0, 1, -1},
        {2000, 1, 0, -1},       {2000, -3, 5, -1},       {2000, 1, -7, -1},
    };
    for (const Row &r : rows) EXPECT_EQ(JulianDay(r.y, r.m, r.d), r.jd) << r.y << "-" << r.m << "-" << r.d;
    EXPECT_EQ(WeekdayOfJulianDay(2451545), 7); // Saturday
    EXPECT_EQ(WeekdayOfJulianDay(0), 2);       // the epoch was a Monday
    EXPECT_EQ(WeekdayOfDate(2024, 3, 31), 1);
    // Wild arguments stay defined.
    EXPECT_EQ(JulianDay(2000000000, 12, 31), -1);
    EXPECT_EQ(JulianDay(-2000000000, 1, 1), -1);
    EXPECT_NE(JulianDay(2000, 2147483647, 2147483647), 0);
}

// Every day from 1583 to 2400 in the proleptic Gregorian calendar: day number, the date back,
// and the weekday.
TEST(Calendar, GregorianEveryDay1583To2400) {
    long long checked = 0;
    for (int y = 1583; y <= 2400; ++y)
        for (int m = 1; m <= 12; ++m)
            for (int d = 1, n = daysInMonth(y, m, true); d <= n; ++d) {
                long long jd = gregorianJd(y, m, d);
                ASSERT_EQ(JulianDay(y, m, d), jd) << y << "-" << m << "-" << d;
                int yy, mm, dd;
                CalendarDate(static_cast<int>(jd), &yy, &mm, &dd);
                ASSERT_TRUE(yy == y && mm == m && dd == d) << jd << " -> " << yy << "-" << mm << "-" << dd;
                ASSERT_EQ(WeekdayOfJulianDay(static_cast<int>(jd)), refWeekday(gregorianDays(y, m, d)));
                ++checked;
            }
    EXPECT_EQ(checked, gregorianJd(2401, 1, 1) - gregorianJd(1583, 1, 1));
}

// Every day of the Julian calendar from 4800 BC to the switch, with the years before 1 AD
// counted without a year 0.
TEST(Calendar, JulianEveryDayBeforeTheSwitch) {
    for (long long a = -4799; a <= 1582; ++a)
        for (int m = 1; m <= 12; ++m) {
            if (a == 1582 && (m <= 2 || m >= 10)) continue; // the switch window, below
            for (int d = 1, n = daysInMonth(a, m, false); d <= n; ++d) {
                if (a == 1582 && m == 9 && d >= 15) break;
                const int y = civilYear(a);
                long long jd = julianJd(a, m, d);
                ASSERT_EQ(JulianDay(y, m, d), jd) << y << "-" << m << "-" << d;
                int yy, mm, dd;
                CalendarDate(static_cast<int>(jd), &yy, &mm, &dd);
                ASSERT_TRUE(yy == y && mm == m && dd == d) << jd << " -> " << yy << "-" << mm << "-" << dd;
                ASSERT_EQ(WeekdayOfJulianDay(static_cast<int>(jd)), refWeekday(jd - 2440588));
            }
        }
}

// The switch key takes the shifted month: January, February and 15 September 1582 onwards are
// already Gregorian in JulianDay, while CalendarDate answers in the Julian calendar up to
// day 2299160. A Julian date label in those windows therefore comes back ten days early.
TEST(Calendar, SwitchWindow1582) {
    EXPECT_EQ(JulianDay(1582, 9, 20), gregorianJd(1582, 9, 20));
    EXPECT_EQ(JulianDay(1582, 9, 14), julianJd(1582, 9, 14));
    EXPECT_EQ(JulianDay(1582, 1, 10), gregorianJd(1582, 1, 10));
    EXPECT_EQ(JulianDay(1582, 3, 1), julianJd(1582, 3, 1));
    EXPECT_EQ(JulianDay(1581, 12, 31), julianJd(1581, 12, 31));
    for (long long jd = julianJd(1581, 12, 1); jd < 2299161 + 60; ++jd) {
        int y, m, d;
        CalendarDate(static_cast<int>(jd), &y, &m, &d);
        bool shifted = y == 1582 && (m <= 2 || (m >= 9 && (m > 9 || d >= 15))) && jd < 2299161;
        EXPECT_EQ(JulianDay(y, m, d), shifted ? jd - 10 : jd) << jd;
    }
}

// The round trip sampled over the whole int32 range, negative day numbers included.
TEST(Calendar, RoundTripWideRange) {
    for (long long jd = -2147483648LL; jd <= 2147483647LL; jd += jd < 2147473000LL ? 9973 : 1) {
        int y, m, d;
        CalendarDate(static_cast<int>(jd), &y, &m, &d);
        ASSERT_TRUE(m >= 1 && m <= 12 && d >= 1 && d <= 31 && y != 0 && WeekdayOfJulianDay(static_cast<int>(jd)) >= 1);
        if (jd >= julianJd(1582, 1, 1) && jd < 2299161) continue; // the switch window, above
        ASSERT_EQ(JulianDay(y, m, d), jd) << y << "-" << m << "-" << d;
    }
}

TEST(Calendar, EasterEveryYear1To4099) {
    for (int y = 1; y <= 4099; ++y) {
        int wm, wd, m, d;
        if (y >= 1583) gregorianEaster(y, &wm, &wd);
        else julianEaster(y, &wm, &wd);
        EasterDate(y, &m, &d);
        ASSERT_TRUE(m == wm && d == wd) << y << ": " << m << "/" << d << " want " << wm << "/" << wd;
        long long jd = y >= 1583 ? gregorianJd(y, m, d) : julianJd(y, m, d);
        ASSERT_EQ(EasterDay(y), jd) << y;
        ASSERT_EQ(WeekdayOfJulianDay(EasterDay(y)), 1) << y; // a Sunday
    }
    int m, d;
    EasterDate(2024, &m, &d);
    EXPECT_TRUE(m == 3 && d == 31);
    EasterDate(1818, &m, &d); // the earliest possible date
    EXPECT_TRUE(m == 3 && d == 22);
    EasterDate(2038, &m, &d); // the latest
    EXPECT_TRUE(m == 4 && d == 25);
    EasterDate(1582, &m, &d); // still the Julian rule
    EXPECT_TRUE(m == 4 && d == 15);
}

// Every Monday from 1900 to 2100 is the Monday of its ISO week, where the ISO year of a week is
// the year of its Thursday and the week number counts Thursdays from the start of that year.
TEST(Calendar, IsoWeeksEveryWeek1900To2100) {
    long long weeks = 0;
    for (long long days = gregorianDays(1900, 1, 1); days <= gregorianDays(2100, 12, 31); ++days) {
        if (refWeekday(days) != 2) continue;
        long long thursday = days + 3;
        long long jdThu = thursday + 2440588;
        int ty, tm, td;
        CalendarDate(static_cast<int>(jdThu), &ty, &tm, &td); // checked against the reference above
        long long ordinal = thursday - gregorianDays(ty, 1, 1);
        int week = static_cast<int>(ordinal / 7 + 1);
        ASSERT_EQ(IsoWeekMonday(ty, week), days + 2440588) << ty << "-W" << week;
        ++weeks;
    }
    EXPECT_GT(weeks, 10000);
    EXPECT_EQ(IsoWeekMonday(1999, 1), gregorianJd(1999, 1, 4));
    EXPECT_EQ(IsoWeekMonday(2009, 53), gregorianJd(2009, 12, 28));
    EXPECT_EQ(IsoWeekMonday(2010, 53), gregorianJd(2011, 1, 3)); // beyond a 52-week year: next year's week 1
    for (int bad : {0, -1, 54, 1000}) EXPECT_EQ(IsoWeekMonday(2000, bad), 0) << bad;
    EXPECT_EQ(IsoWeekMonday(0, 1), 0);
}

TEST(Calendar, NthWeekdayOfMonthByEnumeration) {
    for (int y = 1900; y <= 2100; y += 7)
        for (int m = 1; m <= 12; ++m) {
            int days = daysInMonth(y, m, true);
            for (int w = 1; w <= 7; ++w) {
                int hits[6], count = 0;
                for (int d = 1; d <= days; ++d)
                    if (refWeekday(gregorianDays(y, m, d)) == w) hits[count++] = static_cast<int>(gregorianJd(y, m, d));
                for (int n = 1; n <= 5; ++n) {
                    ASSERT_EQ(NthWeekdayOfMonth(y, m, w, n), n <= count ? hits[n - 1] : 0) << y << m << w << n;
                    ASSERT_EQ(NthWeekdayOfMonth(y, m, w, -n), n <= count ? hits[count - n] : 0) << y << m << w << -n;
                }
            }
        }
    EXPECT_EQ(NthWeekdayOfMonth(2024, 11, 5, 4), gregorianJd(2024, 11, 28)); // fourth Thursday
    struct Bad {
        int y, m, w, n;
    } bad[] = {{2024, 1, 2, 0}, {2024, 1, 2, 6}, {2024, 1, 2, -6}, {2024, 0, 2, 1},
               {2024, 13, 2, 1}, {2024, 1, 0, 1}, {2024, 1, 8, 1},  {0, 1, 2, 1}};
    for (const Bad &b : bad) EXPECT_EQ(NthWeekdayOfMonth(b.y, b.m, b.w, b.n), 0);
    // December of 1 BC rolls into January of 1 AD.
    EXPECT_EQ(NthWeekdayOfMonth(-1, 12, WeekdayOfDate(-1, 12, 31), -1), JulianDay(-1, 12, 31));
}

TEST(Calendar, TimeOfDay) {
    EXPECT_DOUBLE_EQ(TimeToDayFraction(12, 30, 0, 0), 0.5208333333333334);
    // Every 7th hundredth of a day splits back into its parts.
    for (long long c = 0; c < 8640000; c += 7) {
        int h = static_cast<int>(c / 360000), m = static_cast<int>(c / 6000 % 60), s = static_cast<int>(c / 100 % 60),
            hs = static_cast<int>(c % 100);
        int h2, m2, s2, hs2;
        DayFractionToTime(TimeToDayFraction(h, m, s, hs), &h2, &m2, &s2, &hs2);
        ASSERT_TRUE(h == h2 && m == m2 && s == s2 && hs == hs2) << c;
    }
    int h, m, s, hs;
    for (double bad : {std::nan(""), 1e300, -1e300}) {
        DayFractionToTime(bad, &h, &m, &s, &hs);
        EXPECT_TRUE(h == 0 && m == 0 && s == 0 && hs == 0) << bad;
    }
    DayFractionToTime(0.999999999, &h, &m, &s, &hs); // rounds to the next day's midnight
    EXPECT_EQ(h * 1000000 + m * 10000 + s * 100 + hs, 24000000);
}
