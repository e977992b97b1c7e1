// Values from text: the token reader (spellings checked in a fixed order, then a number that may
// turn out to be a date or a time by the character after it), the stream reader, and the
// cleaning of the old missing-value code. Numbers are read with std::from_chars, which gives the
// correctly rounded double of the decimal text (as a correctly rounding strtod does) without
// depending on the locale; values outside the double range fall back to strtod so that they
// become infinities and denormals as the C library reads them.
#include "database/values.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/grow.h"
#include "base/text.h"
#include "database/calendar.h"
#include "database/database.h"
#include "database/output.h"
#include "matrix/matrix.h"

namespace {

inline bool endsToken(char c) { return c == '\0' || c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Inline comparison with a literal: a number fails at its first character.
template <size_t N> inline bool startsWith(const char *p, const char (&word)[N]) {
    for (size_t i = 0; i + 1 < N; ++i)
        if (p[i] != word[i]) return false;
    return true;
}

// "%d": optional blanks, an optional sign, digits. Advances p only on success.
bool scanInt(const char *&p, int *out) {
    const char *q = p;
    while (KvIsBlank(*q)) ++q;
    bool negative = false;
    if (*q == '+' || *q == '-') negative = *q++ == '-';
    if (!KvIsDigit(*q)) return false;
    long long v = 0;
    for (; KvIsDigit(*q); ++q)
        if (v < 1000000000LL) v = 10 * v + (*q - '0');
    *out = static_cast<int>(negative ? -v : v);
    p = q;
    return true;
}

// A literal character followed by "%d".
bool scanAfter(const char *&p, char literal, int *out) {
    if (*p != literal) return false;
    const char *q = p + 1;
    if (!scanInt(q, out)) return false;
    p = q;
    return true;
}

// The numeric scan: a decimal (or inf/nan) number at p. False when none starts there.
bool scanNumber(const char *p, double *x, const char **after) {
    if (!(KvIsDigit(*p) || *p == '.' || *p == '+' || *p == '-' || *p == 'i' || *p == 'I' || *p == 'n' || *p == 'N'))
        return false;
    const char *end = p;
    while (!endsToken(*end)) ++end;
    const char *first = p;
    // from_chars takes no leading '+'.
    if (*first == '+' && first + 1 < end && first[1] != '+' && first[1] != '-') ++first;
    auto r = std::from_chars(first, end, *x, std::chars_format::general);
    if (r.ec == std::errc()) {
        *after = r.ptr;
        return true;
    }
    if (r.ec == std::errc::result_out_of_range) {
        char *e = nullptr;
        *x = std::strtod(p, &e);
        *after = e;
        return e != p;
    }
    return false;
}

// The characters of a decimal number read from a stream the way "%lf" takes them, at any length:
// an optional sign, digits with at most one point, then an exponent letter with an optional sign
// and digits. The first character that cannot continue the number is pushed back, so "1.5-2.25"
// gives 1.5 and leaves "-2.25" for the next read. An exponent letter (and its sign) without
// digits has been consumed and is dropped: a stream takes back only one character. text receives
// the characters, terminated; *digits counts the mantissa's digits. 0, or -1 when text cannot
// grow.
int scanStreamNumber(FILE *stream, int c, KvGrowArray<char> *text, int *digits) {
    auto put = [text](int ch) { return text->push(static_cast<char>(ch)); };
    *digits = 0;
    if (c == '+' || c == '-') {
        if (!put(c)) return -1;
        c = std::getc(stream);
    }
    bool point = false;
    for (; KvIsDigit(c) || (c == '.' && !point); c = std::getc(stream)) {
        if (c == '.')
            point = true;
        else
            ++*digits;
        if (!put(c)) return -1;
    }
    if (*digits > 0 && (c == 'e' || c == 'E')) {
        const size_t mantissa = text->count();
        if (!put(c)) return -1;
        c = std::getc(stream);
        if (c == '+' || c == '-') {
            if (!put(c)) return -1;
            c = std::getc(stream);
        }
        if (!KvIsDigit(c)) text->setCount(mantissa);
        for (; KvIsDigit(c); c = std::getc(stream))
            if (!put(c)) return -1;
    }
    if (c != EOF) std::ungetc(c, stream);
    return put('\0') ? 0 : -1;
}

bool isWholeYear(double x) { return x == std::floor(x) && std::fabs(x) < 2147483647.0; }

// Hours, then ":%d" minutes, ":%d" seconds and ".%d" hundredths, each 0 when absent, as a
// fraction of a day. q is after the hour.
double timeAfterHour(const char *&q, int hours) {
    int minutes = 0, seconds = 0, hundredths = 0;
    scanAfter(q, ':', &minutes);
    scanAfter(q, ':', &seconds);
    scanAfter(q, '.', &hundredths);
    return TimeToDayFraction(hours, minutes, seconds, hundredths);
}

// A date read as a day number; a negative one (no such date) makes the token unreadable.
void takeDay(double day, double *x, int *kind, int *flag) {
    if (day < 0) {
        *kind = VALUE_UNREADABLE;
        *flag = 1;
    } else {
        *x = day;
        *kind = VALUE_DATE;
    }
}

} // namespace

const char *ReadValueToken(const char *text, int yearIsDate, double *value, int *kind, int *flag) {
    double v = MissingValueOf();
    int k = VALUE_NUMBER, f = 1;
    const char *p = text ? text : "";
    while (KvIsBlank(*p)) ++p;
    const char *next = p;

    if (*p == '.' && endsToken(p[1])) {
        next = p + 1;
    } else if (startsWith(p, "#N/A")) {
        next = p + 4;
    } else if (startsWith(p, "#NA")) {
        next = p + 3;
    } else if (startsWith(p, "missing")) {
        next = p + 7;
    } else if (startsWith(p, "+.Inf")) {
        v = HUGE_VAL;
        next = p + 5;
    } else if (startsWith(p, ".Inf")) {
        v = HUGE_VAL;
        next = p + 4;
    } else if (startsWith(p, "-.Inf")) {
        v = -HUGE_VAL;
        next = p + 5;
    } else {
        double x;
        const char *q;
        if (scanNumber(p, &x, &q)) {
            f = 0;
            next = q;
            if (x != x) {
                MissingValue(&x); // any NaN spelling becomes the one missing value
            } else if (*q == '-' && isWholeYear(x)) {
                // A date: year-Www, or year[-month[-day]], then [T or blank]hh[:mm[:ss]][.hh].
                const int year = static_cast<int>(x);
                ++q;
                double day;
                if (*q == 'W') {
                    ++q;
                    int week = 1;
                    scanInt(q, &week);
                    day = IsoWeekMonday(year, week);
                    if (day == 0) day = -1;
                } else {
                    int month = 1, dom = 1;
                    scanInt(q, &month);
                    scanAfter(q, '-', &dom);
                    day = JulianDay(year, month, dom);
                }
                if (*q == 'T' || *q == ' ') {
                    // "2000-01-01 12" is noon: a number after one blank is the hour. A tab is a
                    // separator and never starts a time, which is how the data-file reader keeps
                    // a date and the value beside it apart.
                    const char *r = q + 1;
                    int hours;
                    if (scanInt(r, &hours)) {
                        day += timeAfterHour(r, hours);
                        q = r;
                    }
                }
                next = q;
                takeDay(day, &x, &k, &f);
            } else if (*q == ':' && isWholeYear(x) && x >= 0) {
                ++q;
                int minutes = 0, seconds = 0, hundredths = 0;
                scanInt(q, &minutes);
                scanAfter(q, ':', &seconds);
                scanAfter(q, '.', &hundredths);
                x = TimeToDayFraction(static_cast<int>(x), minutes, seconds, hundredths);
                k = VALUE_DATE;
                next = q;
            } else if (yearIsDate && isWholeYear(x)) {
                takeDay(JulianDay(static_cast<int>(x), 1, 1), &x, &k, &f);
            }
            if (k != VALUE_UNREADABLE) v = x;
        } else {
            // Unreadable: skip to the next blank, at least one character.
            k = VALUE_UNREADABLE;
            next = p;
            if (*next) ++next;
            while (!endsToken(*next)) ++next;
        }
    }
    if (value) *value = v;
    if (kind) *kind = k;
    if (flag) *flag = f;
    return next;
}

int ReadFileValue(FILE *stream, double *value) {
    if (!stream) return -1;
    int c = std::getc(stream);
    while (c == ' ' || c == '\t' || c == ',') c = std::getc(stream);
    if (c == EOF) return -1;
    auto skipLine = [stream]() {
        int d;
        while ((d = std::getc(stream)) != EOF && d != '\n') {
        }
        if (d == '\n') std::ungetc(d, stream);
        return 0;
    };
    if (c == '\r') {
        int d = std::getc(stream);
        if (d != '\n' && d != EOF) std::ungetc(d, stream);
        return 0;
    }
    if (c == '\n') return 0;
    auto expect = [stream](const char *word) {
        for (const char *w = word; *w; ++w) {
            int d = std::getc(stream);
            if (d != *w) {
                if (d != EOF) std::ungetc(d, stream);
                return false;
            }
        }
        return true;
    };
    if (KvIsDigit(c) || c == '.' || c == '+' || c == '-') {
        KvGrowArray<char> text;
        int digits = 0;
        const int status = scanStreamNumber(stream, c, &text, &digits);
        if (status < 0) return skipLine(); // no memory for the digits: the token cannot be read
        if (digits > 0) {
            double x;
            const char *after;
            if (scanNumber(text.data(), &x, &after)) {
                if (x != x) MissingValue(&x);
                if (value) *value = x;
                return 1;
            }
            return skipLine();
        }
        // No digits: ".NaN", "+Inf" / "-Inf" (also "+.Inf" / "-.Inf" as written on output).
        const size_t n = text.count() - 1;
        if (n == 1 && c == '.' && expect("NaN")) {
            if (value) MissingValue(value);
            return 1;
        }
        if ((n == 1 || (n == 2 && text[1] == '.')) && (c == '+' || c == '-') && expect("Inf")) {
            if (value) *value = c == '+' ? HUGE_VAL : -HUGE_VAL;
            return 1;
        }
        return skipLine();
    }
    if (c == '#') {
        if (expect("N/A")) {
            if (value) MissingValue(value);
            return 1;
        }
        return skipLine();
    }
    if (c == 'M' || c == 'm') {
        if (value) MissingValue(value);
        return 1;
    }
    return skipLine();
}

int CleanLoadedData(Database *db, int firstVar, int lastVar, int t0, int t1, int convert, int report) {
    if (!db) return 0;
    if (firstVar < 0) firstVar = 0;
    if (lastVar >= db->varCount) lastVar = db->varCount - 1;
    if (t0 < 0) t0 = 0;
    if (t1 >= db->obsCount) t1 = db->obsCount - 1;
    int large = 0, converted = 0;
    for (int i = firstVar; i <= lastVar; ++i) {
        double *x = db->columns[i];
        for (int t = t0; t <= t1; ++t) {
            if (x[t] != x[t]) continue;
            if (std::fabs(x[t]) > 1e30) {
                ++large;
            } else if (convert && x[t] == -9999.99) {
                MissingValue(&x[t]);
                ++converted;
            }
        }
    }
    if (report && large > 0) SWprintf("Warning: %d observations were read with abs(X) > 1e30\n", large);
    if (converted > 0) {
        SWprintf("Warning: %d observations with value -9999.99 changed to missing values.\n", converted);
        SWprintf("Warning: -9999.99 is no longer a missing value.\n");
    }
    return converted;
}
