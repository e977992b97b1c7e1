// Built-ins of the calendar: where observation t lies in time. A dated database answers from its
// date variable (day number and time of day); any other from its sample of years and periods,
// with the fixed answers the language gives for what an undated observation does not have (day
// 1, hour 1, time 0). docs/algebra.md states the choices made where the language leaves room:
// which observations cover a calendar date, and what season() means for dated data.
#include <climits>
#include <cmath>

#include "algebra/builtins.h"
#include "algebra/compiler.h"
#include "base/types.h"
#include "database/calendar.h"
#include "database/database.h"

namespace {

// Observation t's date value when the database is dated and the value is there.
bool dateOf(const AlgebraCompiler *c, int t, double *value) {
    if (!DbIsDated(c->db)) return false;
    *value = DbDateAt(c->db, t);
    return *value == *value && std::fabs(*value) < INT_MAX;
}

// The civil date of observation t's day.
bool civilOf(const AlgebraCompiler *c, int t, int *year, int *month, int *day) {
    double v;
    if (!dateOf(c, t, &v)) return false;
    CalendarDate(static_cast<int>(std::trunc(v)), year, month, day);
    return true;
}

// Hours, minutes, seconds of observation t's time of day (all 1 without one).
int clockPart(const AlgebraCompiler *c, int part) {
    double v;
    if (!dateOf(c, c->t, &v)) return 1;
    int hms[4];
    DayFractionToTime(v - std::trunc(v), &hms[0], &hms[1], &hms[2], &hms[3]);
    return hms[part];
}

// SampleObsIndex's arithmetic in 64 bits, for years and periods far outside the sample.
long long obsIndex(long long year, long long period, const Sample &s) {
    return (year - s.startYear) * s.frequency - s.startPeriod + period;
}

// A whole number argument as an int, false when it is outside int's range.
bool whole(double x, int *out) {
    const double w = std::trunc(x);
    if (!(w > INT_MIN && w < INT_MAX)) return false;
    *out = static_cast<int>(w);
    return true;
}

double fnDate(AlgebraCompiler *c, const double *) {
    double v;
    if (!DbIsDated(c->db)) return c->t;
    return dateOf(c, c->t, &v) ? std::trunc(v) : MissingValueOf();
}

double fnDay(AlgebraCompiler *c, const double *) {
    int y, m, d;
    if (!DbIsDated(c->db)) return 1.0;
    return civilOf(c, c->t, &y, &m, &d) ? d : MissingValueOf();
}

double fnDayOfWeek(AlgebraCompiler *c, const double *) {
    double v;
    return dateOf(c, c->t, &v) ? WeekdayOfJulianDay(static_cast<int>(std::trunc(v))) : MissingValueOf();
}

double fnHours(AlgebraCompiler *c, const double *) { return clockPart(c, 0); }
double fnMinutes(AlgebraCompiler *c, const double *) { return clockPart(c, 1); }
double fnSeconds(AlgebraCompiler *c, const double *) { return clockPart(c, 2); }

double fnTime(AlgebraCompiler *c, const double *) {
    double v;
    if (!DbIsDated(c->db)) return 0.0;
    return dateOf(c, c->t, &v) ? v - std::trunc(v) : MissingValueOf();
}

double fnMonth(AlgebraCompiler *c, const double *) {
    int y, m, d;
    if (DbIsDated(c->db)) return civilOf(c, c->t, &y, &m, &d) ? m : MissingValueOf();
    const Sample &s = c->db->sample;
    return 1 + 12 * (SamplePeriodOfObs(c->t, s) - 1) / s.frequency;
}

double fnYear(AlgebraCompiler *c, const double *) {
    int y, m, d;
    if (DbIsDated(c->db)) return civilOf(c, c->t, &y, &m, &d) ? y : MissingValueOf();
    return SampleYearOfObs(c->t, c->db->sample);
}

double fnPeriod(AlgebraCompiler *c, const double *) { return SamplePeriodOfObs(c->t, c->db->sample); }

// Dated data: the first observation of its calendar year (its year differs from the previous
// observation's); other data: the first period of the sample's year.
double fnSeason(AlgebraCompiler *c, const double *) {
    if (!DbIsDated(c->db)) return SamplePeriodOfObs(c->t, c->db->sample) == 1 ? 1.0 : 0.0;
    int y, m, d, py, pm, pd;
    if (!civilOf(c, c->t, &y, &m, &d)) return MissingValueOf();
    if (c->t == 0) return 1.0;
    return civilOf(c, c->t - 1, &py, &pm, &pd) && py == y ? 0.0 : 1.0;
}

double fnTrend(AlgebraCompiler *c, const double *) { return c->t + 1.0; }

double fnMakeDate(AlgebraCompiler *, const double *a) {
    int y, m, d;
    if (!whole(a[0], &y) || !whole(a[1], &m) || !whole(a[2], &d)) return MissingValueOf();
    const int jd = JulianDay(y, m, d);
    return jd == -1 ? MissingValueOf() : jd;
}

// To hundredths of a second, the resolution of a date value's time.
double fnMakeTime(AlgebraCompiler *, const double *a) {
    return ((std::trunc(a[0]) * 60.0 + std::trunc(a[1])) * 6000.0 + std::floor(a[2] * 100.0 + 0.5)) / 8.64e6;
}

// ---- Dummies over a stretch of the sample ----

double fnDummy(AlgebraCompiler *c, const double *a) {
    int y1, p1, y2, p2;
    if (!whole(a[0], &y1) || !whole(a[1], &p1) || !whole(a[2], &y2) || !whole(a[3], &p2)) return 0.0;
    const Sample &s = c->db->sample;
    const long long first = obsIndex(y1, p1, s), last = obsIndex(y2, p2, s);
    return first <= c->t && c->t <= last ? 1.0 : 0.0;
}

// Dated data: observation t covers its day up to the day before the next observation's (the last
// one as many days as the one before it, or its own day), and takes part when that stretch meets
// [DATE1, DATE2]. Other data: the calendar dates are placed in the sample's years and periods.
double fnDummyDates(AlgebraCompiler *c, const double *a) {
    int d1, d2;
    if (!whole(a[0], &d1) || !whole(a[1], &d2)) return 0.0;
    const int t = c->t;
    if (DbIsDated(c->db)) {
        double v, next;
        if (!dateOf(c, t, &v)) return 0.0;
        const double day = std::trunc(v);
        double prev;
        if (t + 1 < c->db->obsCount && dateOf(c, t + 1, &next))
            next = std::trunc(next);
        else if (t > 0 && dateOf(c, t - 1, &prev) && std::trunc(prev) < day)
            next = day + (day - std::trunc(prev));
        else
            next = day + 1.0;
        return day <= d2 && next > d1 ? 1.0 : 0.0;
    }
    const Sample &s = c->db->sample;
    auto obsOf = [&s](int jd) {
        int y, m, d;
        CalendarDate(jd, &y, &m, &d);
        int period = 1;
        if (s.frequency <= 12) {
            period = 1 + s.frequency * (m - 1) / 12;
        } else {
            const int yearStart = JulianDay(y, 1, 1), yearDays = JulianDay(y + 1, 1, 1) - yearStart;
            period = 1 + static_cast<int>(static_cast<long long>(s.frequency) * (jd - yearStart) / yearDays);
        }
        return obsIndex(y, period, s);
    };
    return obsOf(d1) <= t && t <= obsOf(d2) ? 1.0 : 0.0;
}

double fnIsDayOfMonth(AlgebraCompiler *c, const double *a) {
    int month, weekday, nth, y, m, d;
    if (!whole(a[0], &month) || !whole(a[1], &weekday) || !whole(a[2], &nth)) return 0.0;
    if (!civilOf(c, c->t, &y, &m, &d) || (month > 0 && m != month)) return 0.0;
    const int target = NthWeekdayOfMonth(y, m, weekday, nth);
    return target != 0 && target == JulianDay(y, m, d) ? 1.0 : 0.0;
}

double fnIsEaster(AlgebraCompiler *c, const double *a) {
    int after, y, m, d;
    if (!whole(a[0], &after) || !civilOf(c, c->t, &y, &m, &d) || (m != 3 && m != 4)) return 0.0;
    return static_cast<long long>(JulianDay(y, m, d)) == static_cast<long long>(EasterDay(y)) + after ? 1.0 : 0.0;
}

const AlgebraFunction kRows[] = {
    {fnDate, "date", 0, "", "date();"},
    {fnDay, "day", 0, "", "day();"},
    {fnDayOfWeek, "dayofweek", 0, "", "dayofweek();"},
    {fnDummy, "dummy", 4, "vvvv", "dummy(YEAR1, PERIOD1, YEAR2, PERIOD2);"},
    {fnDummyDates, "dummydates", 2, "vv", "dummydates(DATE1, DATE2);"},
    {fnHours, "hours", 0, "", "hours();"},
    {fnDummyDates, "indates", 2, "vv", "indates(DATE1, DATE2);"},
    {fnDummy, "insample", 4, "vvvv", "insample(YEAR1, PERIOD1, YEAR2, PERIOD2);"},
    {fnIsDayOfMonth, "isdayofmonth", 3, "vvv", "isdayofmonth(MONTH, DAYOFWEEK, NTH);"},
    {fnIsEaster, "iseaster", 1, "v", "iseaster(DAYSAFTER);"},
    {fnMakeDate, "makedate", 3, "vvv", "makedate(YEAR, MONTH, DAY);"},
    {fnMakeTime, "maketime", 3, "vvv", "maketime(HOUR, MIN, SEC);"},
    {fnMinutes, "minutes", 0, "", "minutes();"},
    {fnMonth, "month", 0, "", "month();"},
    {fnPeriod, "period", 0, "", "period();"},
    {fnSeconds, "seconds", 0, "", "seconds();"},
    {fnSeason, "season", 0, "", "season();"},
    {fnTime, "time", 0, "", "time();"},
    {fnTrend, "trend", 0, "", "trend();"},
    {fnYear, "year", 0, "", "year();"},
};

} // namespace

extern const AlgebraLibrary kAlgebraCalendarLibrary = {kRows, sizeof kRows / sizeof kRows[0]};
