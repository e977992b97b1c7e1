// Values from text: every spelling of the value reader (checked against independent day-number
// formulas and published ISO week dates), round trips of every date and time FormatDateValue
// writes, the stream reader, the cleaning of loaded data with its exact messages, the text block
// measure and name cleaning.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "database/calendar.h"
#include "database/names.h"
#include "database/textdata.h"
#include "database/values.h"
#include "dbcapture.h"
#include "matrix/matrix.h"

using dbtest::messages;
using dbtest::printed;

namespace {

const double NA = MissingValueOf();
const double INF = HUGE_VAL;

// Day number of a Gregorian date (Fliegel and Van Flandern, Comm. ACM 11, 1968, p. 657).
long gregorianDay(long y, long m, long d) {
    return (1461 * (y + 4800 + (m - 14) / 12)) / 4 + (367 * (m - 2 - 12 * ((m - 14) / 12))) / 12 -
           (3 * ((y + 4900 + (m - 14) / 12) / 100)) / 4 + d - 32075;
}

using Values = dbtest::Capture;

TEST_F(Values, SpellingsInOrder) {
    const double noon = 0.5;
    struct Row { const char *text; int yearIsDate; double value; int kind, flag, consumed; } rows[] = {
        {".", 0, NA, 1, 1, 1},
        {". 5", 0, NA, 1, 1, 1},
        {".\n", 0, NA, 1, 1, 1},
        {".5", 0, 0.5, 1, 0, 2},
        {"#N/A", 0, NA, 1, 1, 4},
        {"#NA", 0, NA, 1, 1, 3},
        {"missing", 0, NA, 1, 1, 7},
        {"Missing", 0, NA, 0, 1, 7},
        {"+.Inf", 0, INF, 1, 1, 5},
        {".Inf", 0, INF, 1, 1, 4},
        {"-.Inf", 0, -INF, 1, 1, 5},
        {"  \t42 7", 0, 42, 1, 0, 5},
        {"+3", 0, 3, 1, 0, 2},
        {"-1.5e3", 0, -1500, 1, 0, 6},
        {"1e400", 0, INF, 1, 0, 5},
        {"4.9e-324", 0, 4.9e-324, 1, 0, 8},
        {"0.1", 0, 0.1, 1, 0, 3},
        {"NaN", 0, NA, 1, 0, 3},
        {"abc def", 0, NA, 0, 1, 3},
        {"", 0, NA, 0, 1, 0},
        {"1999-W01", 0, 2451183, 2, 0, 8},
        {"2004-W53", 0, static_cast<double>(gregorianDay(2004, 12, 27)), 2, 0, 8},
        {"2009-W01", 0, static_cast<double>(gregorianDay(2008, 12, 29)), 2, 0, 8},
        {"2001-03", 0, static_cast<double>(gregorianDay(2001, 3, 1)), 2, 0, 7},
        {"2001-", 0, static_cast<double>(gregorianDay(2001, 1, 1)), 2, 0, 5},
        {"2024-02-29", 0, static_cast<double>(gregorianDay(2024, 2, 29)), 2, 0, 10},
        {"12:30", 0, 12.5 / 24, 2, 0, 5},
        {"0:00:01.50", 0, 150 / 8.64e6, 2, 0, 10},
        {"2000-01-01T12:00", 0, 2451545 + noon, 2, 0, 16},
        {"2000-01-01 12:00:30.25 7", 0, 2451545 + (12 * 3600 + 30) / 86400.0 + 25 / 8.64e6, 2, 0, 22},
        {"2000-01-01 5.2", 0, 2451545, 2, 0, 10},
        {"2000-01-01T6", 0, 2451545.25, 2, 0, 12},
        {"1999", 1, static_cast<double>(gregorianDay(1999, 1, 1)), 2, 0, 4},
        {"1999", 0, 1999, 1, 0, 4},
        {"1999.5", 1, 1999.5, 1, 0, 6},
        {"0", 1, NA, 0, 1, 1},
        {"2001-00", 0, NA, 0, 1, 7},
        {"-5:30", 0, -5, 1, 0, 2},
        {"1.5-2", 0, 1.5, 1, 0, 3},
    };
    for (const auto &r : rows) {
        double v = 123;
        int kind = -1, flag = -1;
        const char *end = ReadValueToken(r.text, r.yearIsDate, &v, &kind, &flag);
        EXPECT_EQ(kind, r.kind) << r.text;
        EXPECT_EQ(flag, r.flag) << r.text;
        EXPECT_EQ(end - r.text, r.consumed) << r.text;
        if (std::isnan(r.value)) {
            EXPECT_EQ(dbtest::bitsOf(v), dbtest::bitsOf(NA)) << r.text;
        } else {
            EXPECT_DOUBLE_EQ(v, r.value) << r.text;
        }
    }
    EXPECT_TRUE(messages().empty());
}

TEST_F(Values, IsoWeeksAgainstTheirDefinition) {
    // Week 1 is the week with 4 January in it; weeks start on Monday.
    for (int year = 1600; year <= 2400; year += 7)
        for (int week = 1; week <= 53; week += 13) {
            const long jan4 = gregorianDay(year, 1, 4);
            const long monday = jan4 - (jan4 % 7) + 7L * (week - 1); // day number mod 7 is 0 on Mondays
            char text[32];
            std::snprintf(text, sizeof text, "%d-W%02d", year, week);
            double v;
            int kind;
            ReadValueToken(text, 0, &v, &kind, nullptr);
            EXPECT_EQ(kind, VALUE_DATE) << text;
            EXPECT_EQ(v, static_cast<double>(monday)) << text;
        }
}

TEST_F(Values, RoundTripOfFormattedDates) {
    std::mt19937_64 rng(20240301);
    // Gregorian days from 15 October 1582, Julian ones up to the end of 1581 (the day-number key
    // applies the Gregorian correction from January 1582 on, so the dates of 1582 before the
    // switch are not written the way they are read), and times alone.
    struct Range { long lo, hi; } ranges[] = {{2299161, 2488070}, {1721424, 2298883}, {0, 0}};
    for (const auto &range : ranges)
        for (int i = 0; i < 4000; ++i) {
            const long day = range.lo + static_cast<long>(rng() % static_cast<uint64_t>(range.hi - range.lo + 1));
            long c = static_cast<long>(rng() % 8640000);
            if (i % 5 == 0) c = 0;                 // whole days
            if (i % 7 == 0) c -= c % 100;          // whole seconds
            if (range.lo == 0 && c == 0) c = 4500000; // a time needs a fraction
            const double value = static_cast<double>(day) + static_cast<double>(c) / 8.64e6;
            for (int secondsMode = 0; secondsMode <= 1; ++secondsMode)
                for (int space = 0; space <= 1; ++space)
                    for (int zeroTime = 0; zeroTime <= 1; ++zeroTime) {
                        char text[KV_DATE_TEXT_MAX];
                        FormatDateValue(text, sizeof text, value, 0, zeroTime, space, secondsMode);
                        double back;
                        int kind;
                        const char *end = ReadValueToken(text, 0, &back, &kind, nullptr);
                        ASSERT_EQ(kind, VALUE_DATE) << text;
                        ASSERT_EQ(*end, '\0') << text;
                        ASSERT_LT(std::fabs(back - value) * 8.64e6, 0.5) << text << " " << value;
                    }
        }
}

TEST_F(Values, StreamReader) {
    std::FILE *f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    std::fputs("1.5, 2 .NaN #N/A +Inf -Inf +.Inf M m x y\n3 abc 4\r\n#x\n-.5e1", f);
    std::rewind(f);
    struct Step { int result; double value; } steps[] = {
        {1, 1.5}, {1, 2}, {1, NA}, {1, NA}, {1, INF}, {1, -INF}, {1, INF}, {1, NA}, {1, NA}, {0, 0}, {0, 0},
        {1, 3}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {1, -5}, {-1, 0}, {-1, 0}};
    for (size_t i = 0; i < sizeof steps / sizeof steps[0]; ++i) {
        double v = 0;
        ASSERT_EQ(ReadFileValue(f, &v), steps[i].result) << "step " << i;
        if (steps[i].result == 1) {
            EXPECT_EQ(dbtest::bitsOf(v), dbtest::bitsOf(steps[i].value)) << "step " << i;
        }
    }
    std::fclose(f);
    EXPECT_EQ(ReadFileValue(nullptr, nullptr), -1);
}

TEST_F(Values, CleaningLoadedData) {
    const double data[] = {1, -9999.99, 2e31, NA, -9999.99, -1e31, 1e30, -9999.990000001};
    struct Row { int convert, report, converted; const char *text; double second; } rows[] = {
        {1, 1, 2,
         "Warning: 2 observations were read with abs(X) > 1e30\n"
         "Warning: 2 observations with value -9999.99 changed to missing values.\n"
         "Warning: -9999.99 is no longer a missing value.\n",
         NA},
        {1, 0, 2,
         "Warning: 2 observations with value -9999.99 changed to missing values.\n"
         "Warning: -9999.99 is no longer a missing value.\n",
         NA},
        {0, 1, 0, "Warning: 2 observations were read with abs(X) > 1e30\n", -9999.99},
        {0, 0, 0, "", -9999.99},
    };
    for (const auto &r : rows) {
        printed().clear();
        Database *db = DbCreate("c", 0);
        ASSERT_EQ(DbSetSample(db, Sample{1, 1, 8, 1, 1}), 1);
        ASSERT_EQ(DbAddVariables(db, 2), 0);
        for (int t = 0; t < 8; ++t) db->columns[0][t] = db->columns[1][t] = data[t];
        // Only variable 0 and observations 0..6 are cleaned.
        EXPECT_EQ(CleanLoadedData(db, 0, 0, 0, 6, r.convert, r.report), r.converted);
        EXPECT_EQ(printed(), r.text);
        EXPECT_EQ(dbtest::bitsOf(db->columns[0][1]), dbtest::bitsOf(r.second));
        EXPECT_EQ(db->columns[1][1], -9999.99);
        EXPECT_EQ(db->columns[0][7], -9999.990000001);
        EXPECT_EQ(db->columns[0][2], 2e31);
        DbFree(db);
    }
}

TEST_F(Values, TextBlockMeasure) {
    struct Row {
        const char *text;
        int numbersOnly, quiet, result, rows, cols;
        long header, data;
        const char *message;
    } rows[] = {
        {"a b c\n1 2 3\n4 5 6\n", 0, 0, 1, 2, 3, 0, 6, nullptr},
        {"NaN 1 2\n3 4 5", 0, 0, 1, 2, 3, -1, 0, nullptr},
        {"nan 1\n", 0, 0, 1, 1, 2, -1, 0, nullptr},
        {"missing 1\n", 0, 0, 1, 1, 2, -1, 0, nullptr},
        {"MISSIN 1\n", 0, 0, 1, 1, 2, -1, 0, nullptr},
        {"missi 1\n2 3\n", 0, 0, 1, 1, 2, 0, 8, nullptr},
        {"  \n\n\"x\" y\r\n1 2\r\n\r\n3 4", 0, 0, 1, 2, 2, 4, 11, nullptr},
        {"_a\r1\r2\r", 0, 0, 1, 2, 1, 0, 3, nullptr},
        {"x\n1 2\n3\n", 0, 0, 1, 2, 2, 0, 2, "Warning: Not all rows have the same number of elements"},
        {"x\n1 2\n3\n", 0, 1, 1, 2, 2, 0, 2, nullptr},
        {"x y\n", 0, 0, 0, 0, 0, 0, 4, "Error: No data in text"},
        {"", 0, 0, 0, 0, 0, -1, 0, "Error: No data in text"},
        {"\n \n", 1, 1, 0, 0, 0, -1, 3, nullptr},
        {"1 abc 2\n", 0, 0, 1, 1, 3, -1, 0, nullptr},
        {"1 abc 2\n", 1, 0, 1, 1, 2, -1, 0, nullptr},
        {"2001-01-01 12:00 5\n2001-01-02T13:00 6", 1, 0, 1, 2, 1, -1, 0, nullptr},
        {"2001-01-01 12:00 5\n2001-01-02T13:00 6", 0, 0, 1, 2, 2, -1, 0, nullptr},
        {"1\t2\t\t3 . #NA\n", 0, 0, 1, 1, 5, -1, 0, nullptr},
    };
    for (const auto &r : rows) {
        messages().clear();
        std::string text = r.text;
        int nr = -1, nc = -1;
        ptrdiff_t header = -9, data = -9;
        EXPECT_EQ(MeasureTextBlock(&text[0], r.numbersOnly, r.quiet, &nr, &nc, &header, &data), r.result) << r.text;
        EXPECT_EQ(nr, r.rows) << r.text;
        EXPECT_EQ(nc, r.cols) << r.text;
        EXPECT_EQ(header, r.header) << r.text;
        EXPECT_EQ(data, r.data) << r.text;
        if (r.message) {
            EXPECT_EQ(messages(), std::vector<std::string>{r.message}) << r.text;
        } else {
            EXPECT_TRUE(messages().empty()) << r.text;
        }
    }
    // Decimal commas become points in the rows, not in the header.
    std::string text = "a,b c\n1,5 2,25 3, 4\n";
    int nr, nc;
    ASSERT_EQ(MeasureTextBlock(&text[0], 0, 1, &nr, &nc, nullptr, nullptr), 1);
    EXPECT_EQ(text, "a,b c\n1.5 2.25 3, 4\n");
    EXPECT_EQ(nc, 5);
}

TEST_F(Values, NameCleaning) {
    struct Row { const char *in, *out; } rows[] = {
        {"gdp", "gdp"},
        {"  9lives", "lives"},
        {"\"real gdp\"", "real gdp_"},
        {"x\t \r\n", "x"},
        {"_under", "_under"},
        {"1234", ""},
        {"", ""},
        {"\xc3\xa9t\xc3\xa9", "\xc3\xa9t\xc3\xa9"},
        {"a\x01", "a"},
    };
    for (const auto &r : rows) {
        char out[DB_MAX_NAME + 1];
        EXPECT_EQ(CleanVariableName(out, r.in), std::strlen(r.out)) << r.in;
        EXPECT_STREQ(out, r.out) << r.in;
    }
    char out[DB_MAX_NAME + 1];
    const std::string longName = "#" + std::string(100, 'a');
    EXPECT_EQ(CleanVariableName(out, longName.c_str()), 64u);
    EXPECT_EQ(CleanVariableName(out, nullptr), 0u);
}

} // namespace
