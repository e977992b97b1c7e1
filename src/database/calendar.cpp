// Calendar arithmetic on Julian day numbers: civil date to day number and back, Easter, weekdays,
// the n-th weekday of a month, ISO 8601 weeks and the time of day. The date conversions are the
// julday/caldat pair of Numerical Recipes (2nd ed., chapter 1), which follow Meeus,
// Astronomical Algorithms (2nd ed.), ch. 7, eqs. 7.1 and the inverse on p. 63; the Easter rule is
// Oudin's (Explanatory Supplement to the Astronomical Almanac, 1992, chapter 12). Everything
// is computed in 64-bit integers so that no argument, however wild, overflows.
#include "database/calendar.h"

#include <climits>
#include <cmath>

namespace {

constexpr long long kGregorianKey = 588829;       // 15 + 31 * (10 + 12 * 1582)
constexpr long long kFirstGregorianDay = 2299161; // 15 October 1582

bool fitsInt(long long v) { return v >= INT_MIN && v <= INT_MAX; }

// Floored remainder in 0..m-1, so that weekdays of negative day numbers stay in range.
long long floorMod(long long a, long long m) {
    long long r = a % m;
    return r < 0 ? r + m : r;
}

const char *const kWeekdayShort[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char *const kMonthNames[12] = {"January", "February", "March",     "April",   "May",      "June",
                                     "July",    "August",   "September", "October", "November", "December"};

} // namespace

int JulianDay(int year, int month, int day) {
    if (year == 0 || month < 1 || day < 1) return -1;
    // Meeus eq. 7.1 with the year counted from March: January and February belong to the year
    // before, as months 13 and 14. There is no year 0, so negative years move up by one.
    long long jy = year < 0 ? year + 1LL : year;
    long long jm;
    if (month > 2) {
        jm = month + 1LL;
    } else {
        jy -= 1;
        jm = month + 13LL;
    }
    double j = std::floor(30.6001 * static_cast<double>(jm)) + std::floor(365.25 * static_cast<double>(jy)) +
               static_cast<double>(day) + 1720995.0;
    long long jd = static_cast<long long>(j);
    // The switch key takes the shifted month jm with the year as passed in: the Gregorian
    // correction therefore starts on 15 September 1582 (and covers January and February 1582),
    // one month before the historical switch. Day numbers of the whole system depend on it.
    long long key = day + 31LL * (jm + 12LL * year);
    if (key >= kGregorianKey) {
        long long a = jy / 100;
        jd += 2 - a + a / 4;
    }
    return fitsInt(jd) ? static_cast<int>(jd) : -1;
}

void CalendarDate(int jd, int *year, int *month, int *day) {
    const long long j = jd;
    long long a;
    if (j >= kFirstGregorianDay) {
        // Undo the Gregorian correction: alpha counts the dropped century leap days.
        long long alpha = static_cast<long long>((static_cast<double>(j - 1867216) - 0.25) / 36524.25);
        a = j + 1 + alpha - static_cast<long long>(0.25 * static_cast<double>(alpha));
    } else if (j < 0) {
        // Shift by whole Julian centuries into non-negative day numbers; undone on the year below.
        a = j + 36525LL * (1 - j / 36525);
    } else {
        a = j;
    }
    long long b = a + 1524;
    long long c = static_cast<long long>(6680.0 + (static_cast<double>(b - 2439870) - 122.1) / 365.25);
    long long d = static_cast<long long>(365.0 * static_cast<double>(c) + 0.25 * static_cast<double>(c));
    long long e = static_cast<long long>(static_cast<double>(b - d) / 30.6001);
    long long dd = b - d - static_cast<long long>(30.6001 * static_cast<double>(e));
    long long mm = e - 1;
    if (mm > 12) mm -= 12;
    long long yy = mm < 3 ? c - 4715 : c - 4716;
    if (yy < 1) yy -= 1; // no year 0
    if (j < 0) yy -= 100 * (1 - j / 36525);
    if (year) *year = static_cast<int>(yy);
    if (month) *month = static_cast<int>(mm);
    if (day) *day = static_cast<int>(dd);
}

void EasterDate(int year, int *month, int *day) {
    const long long y = year;
    long long g = y % 19; // golden number - 1
    long long i, jw;
    if (y >= 1583) {
        long long c = y / 100;
        long long h = (c - c / 4 - (8 * c + 13) / 25 + 19 * g + 15) % 30; // epact-based
        i = h - (h / 28) * (1 - (29 / (h + 1)) * ((21 - g) / 11));        // days from 21 March to the full moon
        jw = (y + y / 4 + i + 2 - c + c / 4) % 7;                         // weekday of that full moon
    } else {
        i = (19 * g + 15) % 30;
        jw = (y + y / 4 + i) % 7;
    }
    long long l = i - jw; // days from 21 March to the Sunday before the full moon
    long long m = 3 + (l + 40) / 44;
    long long d = l + 28 - 31 * (m / 4);
    if (month) *month = static_cast<int>(m);
    if (day) *day = static_cast<int>(d);
}

int EasterDay(int year) {
    int m = 0, d = 0;
    EasterDate(year, &m, &d);
    return JulianDay(year, m, d);
}

int WeekdayOfJulianDay(int jd) { return static_cast<int>(floorMod(jd + 1LL, 7)) + 1; }

int WeekdayOfDate(int year, int month, int day) { return WeekdayOfJulianDay(JulianDay(year, month, day)); }

const char *WeekdayShortName(int weekday) { return weekday >= 1 && weekday <= 7 ? kWeekdayShort[weekday - 1] : "???"; }

const char *MonthName(int month) { return month >= 1 && month <= 12 ? kMonthNames[month - 1] : "???"; }

int NthWeekdayOfMonth(int year, int month, int weekday, int n) {
    if (n < -5 || n > 5 || n == 0) return 0;
    if (year == 0 || month < 1 || month > 12 || weekday < 1 || weekday > 7) return 0;
    int nextYear = year, nextMonth = month + 1;
    if (nextMonth > 12) {
        nextMonth = 1;
        nextYear = year == -1 ? 1 : year + 1; // no year 0
    }
    const long long first = JulianDay(year, month, 1);
    const long long next = JulianDay(nextYear, nextMonth, 1);
    if (first == -1 || next == -1) return 0;
    long long r;
    if (n > 0) {
        long long d = weekday - WeekdayOfJulianDay(static_cast<int>(first));
        r = first + d + (d < 0 ? 7 : 0) - 7 + 7LL * n;
        if (r > next - 1) return 0;
    } else {
        long long d = weekday - WeekdayOfJulianDay(static_cast<int>(next - 1));
        r = next - 1 + d - (d > 0 ? 7 : 0) + 7 + 7LL * n;
        if (r < first) return 0;
    }
    return fitsInt(r) ? static_cast<int>(r) : 0;
}

int IsoWeekMonday(int year, int week) {
    if (week > 53 || week < 1 || year == 0) return 0;
    // Week 1 is the week that holds 4 January (ISO 8601:2004, 3.2.2).
    const long long j4 = JulianDay(year, 1, 4);
    if (j4 == -1) return 0;
    const long long k = WeekdayOfJulianDay(static_cast<int>(j4));
    long long r = k != 1 ? 7LL * week + j4 - k - 5 : 7LL * week + j4 - 13;
    return fitsInt(r) ? static_cast<int>(r) : 0;
}

double TimeToDayFraction(int hours, int minutes, int seconds, int hundredths) {
    // In doubles: exact for every time a day can hold, and no int overflow on wild input.
    double c = ((static_cast<double>(hours) * 60.0 + minutes) * 60.0 + seconds) * 100.0 + hundredths;
    return c / 8.64e6;
}

void DayFractionToTime(double fraction, int *hours, int *minutes, int *seconds, int *hundredths) {
    int h = 0, m = 0, s = 0, hs = 0;
    double x = std::floor(fraction * 8.64e6 + 0.5); // hundredths of a second
    if (x == x && std::fabs(x) < 2.0e11) {
        long long c = static_cast<long long>(x);
        hs = static_cast<int>(c % 100);
        s = static_cast<int>((c / 100) % 60);
        m = static_cast<int>((c / 6000) % 60);
        h = static_cast<int>(c / 360000);
    }
    if (hours) *hours = h;
    if (minutes) *minutes = m;
    if (seconds) *seconds = s;
    if (hundredths) *hundredths = hs;
}
