// Values from text: every spelling of the value reader (dates against the independent day-number
// reference), round trips of every date and time FormatDateValue writes, the stream reader against
// the C library's scan.
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "database/calendar.h"
#include "database/values.h"
#include "dbcapture.h"

using namespace dbtest;

namespace {

const double INF = HUGE_VAL;
double jd(int y, int m, int d) { return static_cast<double>(civilJd(y, m, d)); }

using Values = Capture;

TEST_F(Values, SpellingsInOrder) {
    struct Row {
        const char *text;
        int yearIsDate;
        double value;
        int kind, flag, consumed;
    } rows[] = {
        // clang-format off
        {". 5", 0, NA, 1, 1, 1},
        {".5", 0, 0.5, 1, 0, 2},
        {"#N/A", 0, NA, 1, 1, 4},
        {"missing", 0, NA, 1, 1, 7},
        {"-.Inf", 0, -INF, 1, 1, 5},
        {"1e400", 0, INF, 1, 0, 5},
        {"NaN", 0, NA, 1, 0, 3},
        {"abc def", 0, NA, 0, 1, 3},
        {"1999-W01", 0, jd(1999, 1, 4), 2, 0, 8},
        {"0:00:01.50", 0, 150 / 8.64e6, 2, 0, 10},
        {"2000-01-01 12:00:30.25 7", 0, jd(2000, 1, 1) + (12 * 3600 + 30) / 86400.0 + 25 / 8.64e6, 2, 0, 22},
        {"2000-01-01 5.2", 0, jd(2000, 1, 1) + 5 / 24.0 + 2 / 8.64e6, 2, 0, 14},
        {"2000-01-01\t5", 0, jd(2000, 1, 1), 2, 0, 10},
        // a tab separates
        {"1999", 1, jd(1999, 1, 1), 2, 0, 4},
        {"0", 1, NA, 0, 1, 1},
        {"-5:30", 0, -5, 1, 0, 2},
        {"1.5-2", 0, 1.5, 1, 0, 3},
        // clang-format on
    };
    for (const auto &r : rows) {
        double v = 123;
        int kind = -1, flag = -1;
        const char *end = ReadValueToken(r.text, r.yearIsDate, &v, &kind, &flag);
        EXPECT_EQ(kind, r.kind) << r.text;
        EXPECT_EQ(flag, r.flag) << r.text;
        EXPECT_EQ(end - r.text, r.consumed) << r.text;
        if (std::isnan(r.value) || std::isinf(r.value))
            EXPECT_EQ(bitsOf(v), bitsOf(r.value)) << r.text;
        else
            EXPECT_NEAR(v, r.value, 1e-15 * std::fabs(r.value)) << r.text;
    }
}

// Random day numbers (Gregorian from 15 October 1582, Julian up to the end of 1581: the
// day-number key is Gregorian from January 1582 on, so the Julian dates of 1582 are not read back
// as written) and times, in every form FormatDateValue writes, read back to the hundredth.
TEST_F(Values, RoundTripOfFormattedDates) {
    std::mt19937_64 rng(20240301);
    struct Range {
        long lo, hi;
    } ranges[] = {{2299161, 2488070}, {1721424, 2298883}, {0, 0}};
    for (const auto &range : ranges)
        for (int i = 0; i < 4000; ++i) {
            const long day = range.lo + static_cast<long>(rng() % static_cast<uint64_t>(range.hi - range.lo + 1));
            long c = static_cast<long>(rng() % 8640000);
            if (i % 5 == 0) c = 0;                    // whole days
            if (i % 7 == 0) c -= c % 100;             // whole seconds
            if (range.lo == 0 && c == 0) c = 4500000; // a time needs a fraction
            const double value = static_cast<double>(day) + static_cast<double>(c) / 8.64e6;
            for (int form = 0; form < 8; ++form) {
                char text[KV_DATE_TEXT_MAX];
                FormatDateValue(text, sizeof text, value, 0, form & 1, form >> 1 & 1, form >> 2);
                double back;
                int kind;
                const char *end = ReadValueToken(text, 0, &back, &kind, nullptr);
                ASSERT_TRUE(kind == VALUE_DATE) << text << " " << value;
                ASSERT_TRUE(*end == '\0') << text << " " << value;
                ASSERT_TRUE(std::fabs(back - value) * 8.64e6 < 0.5) << text << " " << value;
            }
        }
}

// The stream reader: numbers of any length and numbers written against each other by fixed-width
// output against the C library's own "%lf" scan of the same lines; then the missing and infinite
// spellings, and an unreadable token, which ends its line.
TEST_F(Values, StreamReader) {
    const std::string longMantissa = "0." + std::string(300, '3') + "7";
    const std::string longInteger = "1" + std::string(200, '0');
    const std::string lines[] = {
        longInteger + "," + longMantissa + ",4",
        "-1.5e-3-2.5e+2+7 8",
        "123456789012345678901234567890.123456789012345678901234567890e-10 1",
    };
    std::FILE *f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    for (const auto &line : lines) std::fprintf(f, "%s\n", line.c_str());
    std::fputs(".NaN #N/A -Inf +.Inf M\n3 abc 4\n", f);
    std::rewind(f);
    const auto readLine = [f] {
        Strings got;
        double v;
        while (ReadFileValue(f, &v) == 1) got.push_back(bitsOf(v));
        return got;
    };
    for (const auto &line : lines) {
        Strings want;
        const char *p = line.c_str();
        for (;;) {
            while (*p == ' ' || *p == ',') ++p;
            double x;
            int n = 0;
            if (std::sscanf(p, "%lf%n", &x, &n) != 1) break;
            want.push_back(bitsOf(x));
            p += n;
        }
        EXPECT_EQ(readLine(), want) << line;
    }
    EXPECT_EQ(readLine(), (Strings{bitsOf(NA), bitsOf(NA), bitsOf(-INF), bitsOf(INF), bitsOf(NA)}));
    EXPECT_EQ(readLine(), Strings{bitsOf(3)});
    double v;
    EXPECT_EQ(ReadFileValue(f, &v), 0); // the line end after the skipped rest
    EXPECT_EQ(ReadFileValue(f, &v), -1);
    std::fclose(f);
}

} // namespace
