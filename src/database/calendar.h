// Time in the database: the (year, period) grid of an ordinary sample, Julian day numbers of a
// dated one, and every text form of dates, times and periods. Day numbers follow the Julian
// calendar before the switch and the Gregorian one after it (Meeus, Astronomical Algorithms,
// ch. 7; the Numerical Recipes julday/caldat pair); Easter follows the Oudin/Tondering
// Gregorian rule and the Julian rule before 1583. A date value is a double: integer part the
// day number, fraction the time of day to hundredths of a second. docs/calendar.md has the
// formulas and every choice made where the arithmetic leaves room.
#ifndef KAVREL_DATABASE_CALENDAR_H
#define KAVREL_DATABASE_CALENDAR_H

#include <cstddef>
#include <cstdint>

// The sample record: five int32, always copied and compared as one unit. Periods count from 1.
struct Sample {
    int32_t startYear;
    int32_t startPeriod;
    int32_t endYear;
    int32_t endPeriod;
    int32_t frequency; // periods per year
};

// ---- Sample arithmetic (integers; a frequency below 1 is taken as 1; negative observation
// indices count back from the start; results that do not fit an int32 are clamped) ----
int SampleObsCount(const Sample &s);
// 0-based index of (year, period).
int SampleObsIndex(int year, int period, const Sample &s);
int SampleYearOfObs(int t, const Sample &s);
int SamplePeriodOfObs(int t, const Sample &s);
// Moves the end so that the sample has n observations.
void SampleSetCount(Sample *s, int n);
// Moves the start so that the sample keeps its end and has n observations.
void SampleSetStartFromEnd(Sample *s, int n);

// ---- Calendar ----
// Julian day number at noon of the civil date; -1 for year 0, month < 1 or day < 1 (and for
// dates whose day number does not fit an int32). Year -1 is the year before year 1. The
// Gregorian correction applies from 15 September 1582 on (and to January and February 1582),
// a deliberate property of the switch key.
int JulianDay(int year, int month, int day);
// Civil date of a day number: Gregorian from 2299161 (15 October 1582), Julian before.
void CalendarDate(int jd, int *year, int *month, int *day);
// Easter Sunday: Gregorian rule from 1583, Julian rule before.
void EasterDate(int year, int *month, int *day);
int EasterDay(int year);
// 1 = Sunday ... 7 = Saturday, for every day number (negative ones too).
int WeekdayOfJulianDay(int jd);
int WeekdayOfDate(int year, int month, int day);
// "Sun" .. "Sat"; "???" outside 1..7.
const char *WeekdayShortName(int weekday);
// "January" .. "December"; "???" outside 1..12.
const char *MonthName(int month);
// Day number of the n-th (n = 1..5) or n-th last (n = -1..-5) given weekday of a month; 0 when
// the month has no such day or an argument is out of range.
int NthWeekdayOfMonth(int year, int month, int weekday, int n);
// Day number of the Monday of ISO 8601 week w (1..53) of year; 0 for w outside 1..53 or year 0.
int IsoWeekMonday(int year, int week);

// ---- Time of day ----
double TimeToDayFraction(int hours, int minutes, int seconds, int hundredths);
// Splits a fraction of a day into parts, rounded to the nearest hundredth of a second. A
// fraction that is not finite or too large gives all zeros.
void DayFractionToTime(double fraction, int *hours, int *minutes, int *seconds, int *hundredths);

// ---- Texts. Every formatter writes at most size - 1 characters plus the terminator into out
// and returns out. KV_DATE_TEXT_MAX bytes always suffice. ----
enum { KV_DATE_TEXT_MAX = 64 };

// A date value as "YYYY-MM-DD[ Www][ or T]HH:MM[:SS][.hh]"; "." for missing. secondsMode: 1
// always writes seconds, 0 only when they are not zero, below 0 never (nor hundredths).
char *FormatDateValue(char *out, size_t size, double value, int withWeekday, int withZeroTime, int spaceSeparator,
                      int secondsMode);
// "1990(3)", "1990(12)", "1990" or the wide form "%5d(%3d)".
char *FormatPeriod(char *out, size_t size, int year, int period, const Sample &s);

// The frequency facts of a database, computed from its sample and, when it is dated, the date
// values of its first and last observation (the store's DbFrequencyName, DbDaysPerWeek and
// DbObsPerYear pass its own fields here).
char *SampleFrequencyName(char *out, size_t size, const Sample &s, int nobs, int dated, double firstDate,
                          double lastDate);
int SampleDaysPerWeek(const Sample &s, int nobs, int dated, double firstDate, double lastDate);
int SampleObsPerYear(const Sample &s, int nobs, int dated, double firstDate, double lastDate);

// ---- Current time, elapsed time, file time ----
struct LocalTime {
    int year, month, day; // month 1..12, day 1..31
    int hour, minute, second, hundredths;
};
// Fills now with the current local time. Replaceable for tests; null restores the system clock.
typedef void (*LocalClockFn)(LocalTime *now);
void SetLocalClock(LocalClockFn clock);
// "HH:MM:SS on 3rd March 2024"
char *FormatTimestamp(char *out, size_t size);
// "DD-MM-YYYY"
char *FormatToday(char *out, size_t size);
// "HH:MM:SS"
char *FormatClock(char *out, size_t size);
// Elapsed seconds as "H:MM:SS.hh" (hours right-aligned in two places).
char *FormatElapsed(char *out, size_t size, double seconds);
// "YYYY-MM-DD HH:MM:SS" of a file time; "0000-00-00" when there is none (null).
char *FormatFileTime(char *out, size_t size, const LocalTime *t);

#endif
