// Data files into a Database: the quarterly macro data against an independent parse of the same
// file, the sample rules (leading year and period columns, dated files, undated files), CSV and
// blank-separated forms, and bad input. Allocation failures while reading are in test_store,
// the message texts in test_messages.
#include <cmath>
#include <fstream>
#include <sstream>

#include "database/column.h"
#include "database/datafile.h"
#include "dbcapture.h"

using namespace dbtest;

namespace {

using DataFile = Capture;

std::vector<std::string> splitCsv(const std::string &line) {
    std::vector<std::string> fields;
    std::stringstream ss(line);
    for (std::string field; std::getline(ss, field, ',');) fields.push_back(field);
    return fields;
}

TEST_F(DataFile, MacroDataAgainstIndependentParse) {
    const std::string path = std::string(KAVREL_TEST_DATA) + "/macrodata.csv";
    Database *db = DbReadDataFile(path.c_str(), 0);
    ASSERT_NE(db, nullptr);
    EXPECT_STREQ(db->name, "macrodata.csv");
    const Sample expect{1959, 1, 2009, 3, 4};
    char freq[64];
    EXPECT_TRUE(!std::memcmp(&db->sample, &expect, sizeof expect));
    EXPECT_EQ(db->modified, 0);
    EXPECT_EQ(DbIsDated(db), 0);
    EXPECT_STREQ(DbFrequencyName(db, freq, sizeof freq), "Quarterly");

    // Every field after year and quarter (the sample) against std::stod of the same text.
    std::ifstream in(path);
    std::string line;
    int t = -1;
    for (; std::getline(in, line); ++t) {
        const std::vector<std::string> fields = splitCsv(line);
        ASSERT_EQ(static_cast<int>(fields.size()), db->varCount + 2);
        ASSERT_LT(t, db->obsCount);
        for (int i = 0; i < db->varCount; ++i) {
            if (t < 0)
                EXPECT_EQ("\"" + std::string(db->names[i]) + "\"", fields[i + 2]); // the header
            else
                EXPECT_EQ(db->columns[i][t], std::stod(fields[i + 2])) << i << " " << t;
        }
    }
    EXPECT_EQ(t, db->obsCount);
    DbFree(db);
}

TEST_F(DataFile, TextsIntoDatabases) {
    // messages: how many (the texts, cleaning texts among them, are in test_messages).
    using Names = std::vector<std::string>;
    using Columns = std::vector<std::vector<double>>;
    struct Row {
        const char *text;
        int flags;
        Sample sample;
        Names names;
        Columns columns;
        int dated;
        size_t messages;
    } rows[] = {
        // clang-format off
        // the number of periods from the largest period; gaps keep year and quarter as variables
        {"year period v\n2000 2 1\n2000 3 2\n2001 1 3\n", 0, {2000, 2, 2001, 1, 3}, {"v"}, {{1, 2, 3}}, 0, 0},
        {"year quarter v\n2000 1 1\n2000 3 2\n", 0, {1, 1, 2, 1, 1}, {"year", "quarter", "v"},
         {{2000, 2000}, {1, 3}, {1, 2}}, 0, 0},
        {"Date\tx\n2020-01-06\t1\n2020-01-07T12:00\t2\n2020-01-08\t3\n", 0, {1, 1, 3, 1, 1}, {"Date", "x"},
         {{2458855, 2458856.5, 2458857}, {1, 2, 3}}, 1, 0},
        // after a blank a number is the hour: in CSV the time stays inside its field
        {"date,x\n2020-01-06 12,1\n2020-01-07,2\n", 0, {1, 1, 2, 1, 1}, {"date", "x"},
         {{2458855.5, 2458856}, {1, 2}}, 1, 0},
        {"1,2\n3,4\n", DATAFILE_CSV, {1, 1, 2, 1, 1}, {"Var1", "Var2"}, {{1, 3}, {2, 4}}, 0, 0},
        {"a b c\n1 2 3\n4 5\n", 0, {1, 1, 2, 1, 1}, {"a", "b", "c"}, {{1, 4}, {2, 5}, {3, NA}}, 0, 1},
        {"\"a\",\"b c\",d\r\n1,,3\r\n4,5,\r\n", 0, {1, 1, 2, 1, 1}, {"a", "b c", "d"},
         {{1, 4}, {NA, 5}, {3, NA}}, 0, 0},
        {"a a\n1 2\n", 0, {1, 1, 1, 1, 1}, {"a", "Var2"}, {{1}, {2}}, 0, 1},
        {"x\ty\n.\t1,5\n#N/A\t-.Inf\nmissing\t2\n", 0, {1, 1, 3, 1, 1}, {"x", "y"},
         {{NA, NA, NA}, {1.5, -HUGE_VAL, 2}}, 0, 0},
        // clang-format on
    };
    for (const auto &r : rows) {
        Database *db = DbReadDataText("mem", r.text, std::strlen(r.text), r.flags);
        ASSERT_NE(db, nullptr) << r.text;
        EXPECT_EQ(std::memcmp(&db->sample, &r.sample, sizeof(Sample)), 0) << r.text;
        ASSERT_EQ(db->varCount, static_cast<int>(r.names.size())) << r.text;
        for (int i = 0; i < db->varCount; ++i) {
            EXPECT_EQ(db->names[i], r.names[i]) << r.text;
            expectColumn(db, i, r.columns[i], r.text);
        }
        EXPECT_EQ(DbIsDated(db), r.dated) << r.text;
        EXPECT_EQ(takeMessages().size(), r.messages) << r.text;
        takePrinted(); // the cleaning texts: test_messages
        expectConsistent(db);
        DbFree(db);
    }
}

TEST_F(DataFile, BadInput) {
    EXPECT_EQ(DbReadDataFile(nullptr, 0), nullptr);
    EXPECT_EQ(DbReadDataText(nullptr, nullptr, 0, 0), nullptr);
    const char text[] = "x\n1\n\0 2\n"; // a terminator inside the text ends it
    Database *db = DbReadDataText(nullptr, text, sizeof text - 1, 0);
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(db->obsCount, 1);
    DbFree(db);
}

// Blank lines take no room: one row of 10,000 values above 10,000 empty lines is one observation
// of 10,000 variables, whose columns hold one value each (not one per line of the text).
TEST_F(DataFile, ColumnsSizedByTheLinesThatHoldData) {
    std::string text;
    for (int i = 0; i < 10000; ++i) text += "1 ";
    text += std::string(10000, '\n');
    Database *db = DbReadDataText(nullptr, text.data(), text.size(), 0);
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(db->obsCount, 1);
    EXPECT_EQ(db->varCount, 10000);
    EXPECT_LE(db->handles[9999]->count, 2);
    DbFree(db);
}

} // namespace
