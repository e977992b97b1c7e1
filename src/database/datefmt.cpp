// Text forms of date values and of the current, elapsed and file time. A date value's integer
// part (truncated toward zero) is a Julian day number, its fraction the time of day. The
// texts are ISO 8601 extended forms ("2000-01-01T12:00") so that the value reader takes them
// back. The local clock is a replaceable function so that tests can fix "now".
#include "database/calendar.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

void systemClock(LocalTime *now) {
    std::time_t t = std::time(nullptr);
    std::tm tm{};
#if defined(_WIN32)
    localtime_s(&tm, &t);
#else
    localtime_r(&t, &tm);
#endif
    now->year = tm.tm_year + 1900;
    now->month = tm.tm_mon + 1;
    now->day = tm.tm_mday;
    now->hour = tm.tm_hour;
    now->minute = tm.tm_min;
    now->second = tm.tm_sec;
    now->hundredths = 0;
}

LocalClockFn g_clock = systemClock;

LocalTime readClock() {
    LocalTime now{};
    g_clock(&now);
    return now;
}

// Appends to a bounded text; silently stops at the end of the buffer.
struct TextOut {
    char *out;
    size_t size;
    size_t len;
    void add(const char *fmt, int a, int b = 0, int c = 0) {
        if (len + 1 >= size) return;
        int n = std::snprintf(out + len, size - len, fmt, a, b, c);
        if (n > 0) len = len + static_cast<size_t>(n) < size ? len + static_cast<size_t>(n) : size - 1;
    }
    void addText(const char *s) {
        if (len + 1 >= size) return;
        int n = std::snprintf(out + len, size - len, "%s", s);
        if (n > 0) len = len + static_cast<size_t>(n) < size ? len + static_cast<size_t>(n) : size - 1;
    }
};

} // namespace

void SetLocalClock(LocalClockFn clock) { g_clock = clock ? clock : systemClock; }

char *FormatDateValue(char *out, size_t size, double value, int withWeekday, int withZeroTime, int spaceSeparator,
                      int secondsMode) {
    if (!out || size == 0) return out;
    out[0] = '\0';
    TextOut t{out, size, 0};
    // Missing, and values whose day number cannot be an int32 day number, are no date.
    if (value != value || !(std::fabs(value) < 2147483648.0)) {
        t.addText(".");
        return out;
    }
    if (value == 0.0) {
        t.addText(secondsMode == 1 ? "00:00:00" : "00:00");
        return out;
    }
    const double jPart = std::trunc(value);
    const int j = static_cast<int>(jPart);
    if (j != 0) {
        int y, m, d;
        CalendarDate(j, &y, &m, &d);
        t.add("%d-%02d-%02d", y, m, d);
        if (withWeekday) {
            t.addText(" ");
            t.addText(WeekdayShortName(WeekdayOfJulianDay(j)));
        }
    }
    const double f = value - jPart;
    const char *sep = spaceSeparator ? " " : "T";
    if (f == 0.0 && withZeroTime) {
        t.addText(sep);
        t.addText(secondsMode == 1 ? "00:00:00" : "00:00");
    } else if (f > 0.0 && f < 1.0) {
        int h, mi, s, hs;
        DayFractionToTime(f, &h, &mi, &s, &hs);
        if (t.len > 0) t.addText(sep);
        t.add("%02d:%02d", h, mi);
        if (secondsMode >= 0) {
            if (secondsMode == 1 || (secondsMode == 0 && (s >= 1 || hs > 0))) t.add(":%02d", s);
            if (hs >= 1) t.add(".%02d", hs);
        }
    }
    return out;
}

char *FormatTimestamp(char *out, size_t size) {
    if (!out || size == 0) return out;
    static const char *const suffix[4] = {"th", "st", "nd", "rd"};
    LocalTime now = readClock();
    unsigned day = static_cast<unsigned>(now.day);
    const char *sfx = (day % 10 >= 4 || (day >= 10 && day <= 19)) ? "th" : suffix[day % 10];
    std::snprintf(out, size, "%2u:%02u:%02u on %u%s %s %u", static_cast<unsigned>(now.hour),
                  static_cast<unsigned>(now.minute), static_cast<unsigned>(now.second), day, sfx, MonthName(now.month),
                  static_cast<unsigned>(now.year));
    return out;
}

char *FormatToday(char *out, size_t size) {
    if (!out || size == 0) return out;
    LocalTime now = readClock();
    std::snprintf(out, size, "%2u-%02u-%4u", static_cast<unsigned>(now.day), static_cast<unsigned>(now.month),
                  static_cast<unsigned>(now.year));
    return out;
}

char *FormatClock(char *out, size_t size) {
    if (!out || size == 0) return out;
    LocalTime now = readClock();
    std::snprintf(out, size, "%2d:%02d:%02d", now.hour, now.minute, now.second);
    return out;
}

char *FormatElapsed(char *out, size_t size, double seconds) {
    if (!out || size == 0) return out;
    // Whole hundredths first, so that 59.999 s becomes 1:00.00 rather than 0:59.100.
    double c = std::floor(seconds * 100.0 + 0.5);
    if (!(c >= 0.0 && c < 7.2e11)) c = 0.0; // negative, not finite, or beyond 2e9 hours
    long long hs = static_cast<long long>(c);
    std::snprintf(out, size, "%2d:%02d:%02d.%02d", static_cast<int>(hs / 360000), static_cast<int>((hs / 6000) % 60),
                  static_cast<int>((hs / 100) % 60), static_cast<int>(hs % 100));
    return out;
}

char *FormatFileTime(char *out, size_t size, const LocalTime *t) {
    if (!out || size == 0) return out;
    if (!t) {
        std::snprintf(out, size, "0000-00-00");
        return out;
    }
    std::snprintf(out, size, "%4u-%02u-%02u %2d:%02d:%02d", static_cast<unsigned>(t->year),
                  static_cast<unsigned>(t->month), static_cast<unsigned>(t->day), t->hour, t->minute, t->second);
    return out;
}
