// The (year, period) grid of an ordinary sample and the frequency facts of a database: index
// arithmetic in integers, the period texts, and the frequency name, days per week and
// observations per year that a dated database derives from its first and last date.
// Division is floored, which equals truncation for every index inside the sample and keeps
// indices before the start (negative ones) on the right year and period.
#include "database/calendar.h"

#include <climits>
#include <cmath>
#include <cstdio>

namespace {

long long freqOf(const Sample &s) { return s.frequency < 1 ? 1 : s.frequency; }

long long floorDiv(long long a, long long b) {
    long long q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

int clampInt(long long v) { return v < INT_MIN ? INT_MIN : v > INT_MAX ? INT_MAX : static_cast<int>(v); }

// Year and period of index t, from a start (year, period).
void yearPeriodOf(long long t, long long startYear, long long startPeriod, long long f, long long *year,
                  long long *period) {
    long long q = floorDiv(t, f);
    long long r = t - q * f; // 0..f-1
    long long p = startPeriod + r;
    long long y = startYear + q;
    if (p > f) {
        p -= f;
        y += 1;
    }
    *year = y;
    *period = p;
}

// (last - first + 1) / days as a rounded rate; 0 when the span is empty or not finite.
int ratePerSpan(int nobs, double firstDate, double lastDate, double days) {
    double span = (lastDate - firstDate + 1.0) / days;
    if (!(span > 0.0)) return 0;
    double r = std::floor(static_cast<double>(nobs) / span + 0.5);
    if (!(r >= INT_MIN && r <= INT_MAX)) return 0;
    return static_cast<int>(r);
}

} // namespace

int SampleObsCount(const Sample &s) {
    long long n = (static_cast<long long>(s.endYear) - s.startYear) * freqOf(s) - s.startPeriod + s.endPeriod + 1;
    return clampInt(n);
}

int SampleObsIndex(int year, int period, const Sample &s) {
    long long t = (static_cast<long long>(year) - s.startYear) * freqOf(s) - s.startPeriod + period;
    return clampInt(t);
}

int SampleYearOfObs(int t, const Sample &s) {
    long long y, p;
    yearPeriodOf(t, s.startYear, s.startPeriod, freqOf(s), &y, &p);
    return clampInt(y);
}

int SamplePeriodOfObs(int t, const Sample &s) {
    long long y, p;
    yearPeriodOf(t, s.startYear, s.startPeriod, freqOf(s), &y, &p);
    return clampInt(p);
}

void SampleSetCount(Sample *s, int n) {
    if (!s) return;
    long long y, p;
    yearPeriodOf(n - 1LL, s->startYear, s->startPeriod, freqOf(*s), &y, &p);
    s->endYear = clampInt(y);
    s->endPeriod = clampInt(p);
}

void SampleSetStartFromEnd(Sample *s, int n) {
    if (!s) return;
    const long long f = freqOf(*s);
    long long d = n - static_cast<long long>(s->endPeriod);
    long long q = floorDiv(d, f);
    long long r = d - q * f;
    long long k = f + 1 - r;
    if (k > f) { // r = 0: the sample starts in the first period of a year
        s->startYear = clampInt(s->endYear - q);
        s->startPeriod = clampInt(k - f);
    } else {
        s->startYear = clampInt(s->endYear - q - 1);
        s->startPeriod = clampInt(k);
    }
}

char *FormatPeriod(char *out, size_t size, int year, int period, const Sample &s) {
    if (!out || size == 0) return out;
    if (s.frequency == 1) {
        std::snprintf(out, size, "%4d", year);
    } else if (SampleObsCount(s) < 10000 && s.frequency < 10) {
        std::snprintf(out, size, "%4d(%d)", year, period);
    } else if (SampleObsCount(s) < 10000 && s.frequency < 100) {
        std::snprintf(out, size, "%4d(%2d)", year, period);
    } else {
        std::snprintf(out, size, "%5d(%3d)", year, period);
    }
    return out;
}

int SampleDaysPerWeek(const Sample &s, int nobs, int dated, double firstDate, double lastDate) {
    if (!dated) return s.frequency == 52 ? 1 : 0;
    return ratePerSpan(nobs, firstDate, lastDate, 7.0);
}

int SampleObsPerYear(const Sample &s, int nobs, int dated, double firstDate, double lastDate) {
    if (!dated) return s.frequency;
    return ratePerSpan(nobs, firstDate, lastDate, 365.25);
}

char *SampleFrequencyName(char *out, size_t size, const Sample &s, int nobs, int dated, double firstDate,
                          double lastDate) {
    if (!out || size == 0) return out;
    if (dated) {
        int dpw = SampleDaysPerWeek(s, nobs, dated, firstDate, lastDate);
        if (dpw > 1)
            std::snprintf(out, size, "Daily (%d days/week)", dpw);
        else if (dpw == 1)
            std::snprintf(out, size, "Weekly");
        else
            std::snprintf(out, size, "Dated");
        return out;
    }
    switch (s.frequency) {
    case 1: std::snprintf(out, size, "%s", s.startYear < 1801 ? "Undated" : "Annual"); break;
    case 4: std::snprintf(out, size, "Quarterly"); break;
    case 12: std::snprintf(out, size, "Monthly"); break;
    case 52: std::snprintf(out, size, "Weekly (52/year)"); break;
    default: std::snprintf(out, size, "Frequency %d", s.frequency); break;
    }
    return out;
}
