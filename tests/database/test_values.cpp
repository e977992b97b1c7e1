// Values from text: every spelling of the value reader (dates against the independent day-number
// reference), round trips of every date and time FormatDateValue writes, the stream reader, the
// cleaning of loaded data with its exact texts, the text block measure and name cleaning.
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
        {"#NA", 0, NA, 1, 1, 3},
        {"missing", 0, NA, 1, 1, 7},
        {"Missing", 0, NA, 0, 1, 7},
        {"+.Inf", 0, INF, 1, 1, 5},
        {".Inf", 0, INF, 1, 1, 4},
        {"-.Inf", 0, -INF, 1, 1, 5},
        {"  \t42 7", 0, 42, 1, 0, 5},
        {"-1.5e3", 0, -1500, 1, 0, 6},
        {"1e400", 0, INF, 1, 0, 5},
        {"4.9e-324", 0, 4.9e-324, 1, 0, 8},
        {"NaN", 0, NA, 1, 0, 3},
        {"abc def", 0, NA, 0, 1, 3},
        {"", 0, NA, 0, 1, 0},
        {"1999-W01", 0, jd(1999, 1, 4), 2, 0, 8},
        {"2004-W53", 0, jd(2004, 12, 27), 2, 0, 8},
        {"2009-W01", 0, jd(2008, 12, 29), 2, 0, 8},
        {"2001-03", 0, jd(2001, 3, 1), 2, 0, 7},
        {"2001-", 0, jd(2001, 1, 1), 2, 0, 5},
        {"2024-02-29", 0, jd(2024, 2, 29), 2, 0, 10},
        {"12:30", 0, 12.5 / 24, 2, 0, 5},
        {"0:00:01.50", 0, 150 / 8.64e6, 2, 0, 10},
        {"2000-01-01T12:00", 0, jd(2000, 1, 1) + 0.5, 2, 0, 16},
        {"2000-01-01 12:00:30.25 7", 0, jd(2000, 1, 1) + (12 * 3600 + 30) / 86400.0 + 25 / 8.64e6, 2, 0, 22},
        {"2000-01-01 12", 0, jd(2000, 1, 1) + 0.5, 2, 0, 13},
        // a number after one blank is the hour
        {"2000-01-01 5.2", 0, jd(2000, 1, 1) + 5 / 24.0 + 2 / 8.64e6, 2, 0, 14},
        {"2000-01-01\t5", 0, jd(2000, 1, 1), 2, 0, 10},
        // a tab separates
        {"2000-01-01T6", 0, jd(2000, 1, 1) + 0.25, 2, 0, 12},
        {"1999", 1, jd(1999, 1, 1), 2, 0, 4},
        {"1999", 0, 1999, 1, 0, 4},
        {"1999.5", 1, 1999.5, 1, 0, 6},
        {"0", 1, NA, 0, 1, 1},
        {"2001-00", 0, NA, 0, 1, 7},
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

TEST_F(Values, StreamReader) {
    std::FILE *f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    std::fputs("1.5, 2 .NaN #N/A +Inf -Inf +.Inf M m x y\n3 abc 4\r\n#x\n-.5e1", f);
    std::rewind(f);
    struct Step {
        int result;
        double value;
    } steps[] = {{1, 1.5}, {1, 2}, {1, NA}, {1, NA}, {1, INF}, {1, -INF}, {1, INF}, {1, NA}, {1, NA}, {0, 0},
                 {0, 0},   {1, 3}, {0, 0},  {0, 0},  {0, 0},   {0, 0},    {1, -5},  {-1, 0}, {-1, 0}};
    for (size_t i = 0; i < sizeof steps / sizeof steps[0]; ++i) {
        double v = 0;
        ASSERT_EQ(ReadFileValue(f, &v), steps[i].result) << "step " << i;
        if (steps[i].result == 1) {
            EXPECT_EQ(bitsOf(v), bitsOf(steps[i].value)) << "step " << i;
        }
    }
    std::fclose(f);
    EXPECT_EQ(ReadFileValue(nullptr, nullptr), -1);
}

// Numbers of any length and numbers written against each other by fixed-width output, read from
// a stream, against the C library's own "%lf" scan of the same lines.
TEST_F(Values, StreamNumbersAsTheCLibraryScansThem) {
    const std::string longMantissa = "0." + std::string(300, '3') + "7";
    const std::string longInteger = "1" + std::string(200, '0');
    const std::string lines[] = {
        longMantissa + " 2 3",
        longInteger + "," + longMantissa + ",4",
        "1.5-2.25 5",
        "-1.5e-3-2.5e+2+7 8",
        "123456789012345678901234567890.123456789012345678901234567890e-10 1",
    };
    std::FILE *f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    for (const auto &line : lines) std::fprintf(f, "%s\n", line.c_str());
    std::rewind(f);
    for (const auto &line : lines) {
        std::vector<double> want;
        const char *p = line.c_str();
        for (;;) {
            while (*p == ' ' || *p == ',') ++p;
            double x;
            int n = 0;
            if (std::sscanf(p, "%lf%n", &x, &n) != 1) break;
            want.push_back(x);
            p += n;
        }
        std::vector<double> got;
        double v;
        while (ReadFileValue(f, &v) == 1) got.push_back(v);
        ASSERT_EQ(got.size(), want.size()) << line;
        for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(bitsOf(got[i]), bitsOf(want[i])) << line << " value " << i;
    }
    std::fclose(f);
}

// Only variable 0 and observations 0..6 are cleaned; the texts go to the text channel.
TEST_F(Values, CleaningLoadedData) {
    const double data[] = {1, -9999.99, 2e31, NA, -9999.99, -1e31, 1e30, -9999.990000001};
    const std::string large = "Warning: 2 observations were read with abs(X) > 1e30\n",
                      changed = "Warning: 2 observations with value -9999.99 changed to missing values.\n"
                                "Warning: -9999.99 is no longer a missing value.\n";
    struct Row {
        int convert, report, converted;
        std::string text;
        double second;
    } rows[] = {
        {1, 1, 2, large + changed, NA}, {1, 0, 2, changed, NA}, {0, 1, 0, large, -9999.99}, {0, 0, 0, "", -9999.99}};
    for (const auto &r : rows) {
        Database *db = makeDb({"a", "b"}, Sample{1, 1, 8, 1, 1});
        for (int t = 0; t < 8; ++t) db->columns[0][t] = db->columns[1][t] = data[t];
        EXPECT_EQ(CleanLoadedData(db, 0, 0, 0, 6, r.convert, r.report), r.converted);
        EXPECT_TRUE(takePrinted() == r.text) << r.convert << r.report;
        EXPECT_TRUE(bitsOf(db->columns[0][1]) == bitsOf(r.second)) << r.convert << r.report;
        EXPECT_TRUE(db->columns[1][1] == -9999.99);
        EXPECT_TRUE(db->columns[0][7] == -9999.990000001);
        EXPECT_TRUE(db->columns[0][2] == 2e31);
        DbFree(db);
    }
}

TEST_F(Values, TextBlockMeasure) {
    struct Row {
        const char *text;
        int numbersOnly, result, rows, cols;
        long header, data;
    } rows[] = {
        // clang-format off
        {"a b c\n1 2 3\n4 5 6\n", 0, 1, 2, 3, 0, 6},
        {"NaN 1 2\n3 4 5", 0, 1, 2, 3, -1, 0},
        {"MISSIN 1\n", 0, 1, 1, 2, -1, 0},
        {"missi 1\n2 3\n", 0, 1, 1, 2, 0, 8},
        {"  \n\n\"x\" y\r\n1 2\r\n\r\n3 4", 0, 1, 2, 2, 4, 11},
        {"_a\r1\r2\r", 0, 1, 2, 1, 0, 3},
        {"x\n1 2\n3\n", 0, 1, 2, 2, 0, 2},
        {"\n \n", 1, 0, 0, 0, -1, 3},
        {"1 abc 2\n", 0, 1, 1, 3, -1, 0},
        {"1 abc 2\n", 1, 1, 1, 2, -1, 0},
        {"2001-01-01 12:00 5\n2001-01-02T13:00 6", 1, 1, 2, 1, -1, 0},
        {"2001-01-01 12:00 5\n2001-01-02T13:00 6", 0, 1, 2, 2, -1, 0},
        {"1\t2\t\t3 . #NA\n", 0, 1, 1, 5, -1, 0},
        // clang-format on
    };
    for (const auto &r : rows) {
        std::string text = r.text;
        int nr = -1, nc = -1;
        ptrdiff_t header = -9, data = -9;
        EXPECT_EQ(MeasureTextBlock(&text[0], r.numbersOnly, 1, &nr, &nc, &header, &data), r.result) << r.text;
        EXPECT_TRUE(nr == r.rows) << r.text << ": " << nr << " " << nc << " " << header << " " << data;
        EXPECT_TRUE(nc == r.cols) << r.text << ": " << nr << " " << nc << " " << header << " " << data;
        EXPECT_TRUE(header == r.header) << r.text << ": " << nr << " " << nc << " " << header << " " << data;
        EXPECT_TRUE(data == r.data) << r.text << ": " << nr << " " << nc << " " << header << " " << data;
    }
    // Decimal commas become points in the rows, not in the header.
    std::string text = "a,b c\n1,5 2,25 3, 4\n";
    int nr, nc;
    EXPECT_TRUE(MeasureTextBlock(&text[0], 0, 1, &nr, &nc, nullptr, nullptr) == 1);
    EXPECT_TRUE(nc == 5);
    EXPECT_EQ(text, "a,b c\n1.5 2.25 3, 4\n");
}

TEST_F(Values, NameCleaning) {
    const std::string longName = "#" + std::string(100, 'a');
    struct Row {
        const char *in, *out;
    } rows[] = {{"gdp", "gdp"},
                {"  9lives", "lives"},
                {"\"real gdp\"", "real gdp_"},
                {"x\t \r\n", "x"},
                {"_under", "_under"},
                {"1234", ""},
                {"", ""},
                {nullptr, ""},
                {"a\x01", "a"},
                {"\xc3\xa9t\xc3\xa9", "\xc3\xa9t\xc3\xa9"},
                {longName.c_str(), longName.c_str() + 37}};
    for (const auto &r : rows) {
        char out[DB_MAX_NAME + 1];
        EXPECT_EQ(CleanVariableName(out, r.in), std::strlen(r.out)) << r.out;
        EXPECT_STREQ(out, r.out);
    }
}

} // namespace
