// Data files into a Database: the quarterly macro data against an independent parse of the same
// file, the sample rules (leading year and period columns, dated files, undated files), CSV and
// blank-separated forms, the messages of bad files, and allocation failures while reading.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "database/datafile.h"
#include "database/database.h"
#include "dbcapture.h"
#include "matrix/alloc.h"
#include "matrix/matrix.h"

using dbtest::messages;
using dbtest::printed;

namespace {

const double NA = MissingValueOf();

using DataFile = dbtest::Capture;

TEST_F(DataFile, MacroDataAgainstIndependentParse) {
    const std::string path = std::string(KAVREL_TEST_DATA) + "/macrodata.csv";
    Database *db = DbReadDataFile(path.c_str(), 0);
    ASSERT_NE(db, nullptr);
    EXPECT_TRUE(messages().empty());
    EXPECT_STREQ(db->name, "macrodata.csv");
    EXPECT_EQ(db->obsCount, 203);
    const Sample expect{1959, 1, 2009, 3, 4};
    EXPECT_EQ(std::memcmp(&db->sample, &expect, sizeof expect), 0);
    char freq[64];
    EXPECT_STREQ(DbFrequencyName(db, freq, sizeof freq), "Quarterly");
    EXPECT_EQ(db->modified, 0);
    EXPECT_EQ(DbIsDated(db), 0);

    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    std::vector<std::string> names;
    {
        std::stringstream ss(line);
        std::string field;
        while (std::getline(ss, field, ',')) names.push_back(field.substr(1, field.size() - 2));
    }
    ASSERT_EQ(db->varCount, static_cast<int>(names.size()) - 2);
    for (int i = 0; i < db->varCount; ++i) {
        EXPECT_EQ(db->names[i], names[i + 2]);
        EXPECT_EQ(db->varFlags[i], 0);
    }
    int t = 0;
    while (std::getline(in, line)) {
        std::stringstream ss(line);
        std::string field;
        for (int j = 0; std::getline(ss, field, ','); ++j) {
            if (j < 2) continue; // year and quarter: the sample
            ASSERT_LT(t, db->obsCount);
            EXPECT_EQ(db->columns[j - 2][t], std::stod(field)) << names[j] << " " << t;
        }
        ++t;
    }
    EXPECT_EQ(t, 203);
    DbFree(db);
}

TEST_F(DataFile, TextsIntoDatabases) {
    struct Row {
        const char *what, *text;
        int flags;
        Sample sample;
        std::vector<std::string> names;
        std::vector<std::vector<double>> columns;
        int dated;
        std::vector<std::string> messages;
        const char *printed;
    } rows[] = {
        {"annual year column", "year x\n2000 1\n2001 2\n", 0, {2000, 1, 2001, 1, 1}, {"x"}, {{1, 2}}, 0, {}, ""},
        {"year and month", "Year Month v\n1990 11 1\n1990 12 2\n1991 1 3\n", 0, {1990, 11, 1991, 1, 12}, {"v"},
         {{1, 2, 3}}, 0, {}, ""},
        {"period from its largest value", "year period v\n2000 2 1\n2000 3 2\n2001 1 3\n", 0, {2000, 2, 2001, 1, 3},
         {"v"}, {{1, 2, 3}}, 0, {}, ""},
        {"gaps keep year and quarter as variables", "year quarter v\n2000 1 1\n2000 3 2\n", 0, {1, 1, 2, 1, 1},
         {"year", "quarter", "v"}, {{2000, 2000}, {1, 3}, {1, 2}}, 0, {}, ""},
        {"dated", "Date x\n2020-01-06 1\n2020-01-07T12:00 2\n2020-01-08 3\n", 0, {1, 1, 3, 1, 1}, {"Date", "x"},
         {{2458855, 2458856.5, 2458857}, {1, 2, 3}}, 1, {}, ""},
        {"no header", "1 2\n3 4\n", 0, {1, 1, 2, 1, 1}, {"Var1", "Var2"}, {{1, 3}, {2, 4}}, 0, {}, ""},
        {"ragged rows", "a b c\n1 2 3\n4 5\n", 0, {1, 1, 2, 1, 1}, {"a", "b", "c"}, {{1, 4}, {2, 5}, {3, NA}}, 0,
         {"Warning: Not all rows have the same number of elements"}, ""},
        {"csv with quotes and empty fields", "\"a\",\"b c\",d\r\n1,,3\r\n4,5,\r\n", 0, {1, 1, 2, 1, 1},
         {"a", "b c", "d"}, {{1, 4}, {NA, 5}, {3, NA}}, 0, {}, ""},
        {"csv forced", "1,2\n3,4\n", DATAFILE_CSV, {1, 1, 2, 1, 1}, {"Var1", "Var2"}, {{1, 3}, {2, 4}}, 0, {}, ""},
        {"old missing code", "x,y\n-9999.99,1\n2,1e31\n", 0, {1, 1, 2, 1, 1}, {"x", "y"}, {{NA, 2}, {1, 1e31}}, 0, {},
         "Warning: 1 observations were read with abs(X) > 1e30\n"
         "Warning: 1 observations with value -9999.99 changed to missing values.\n"
         "Warning: -9999.99 is no longer a missing value.\n"},
        {"old missing code kept", "x\n-9999.99\n", DATAFILE_KEEP_9999, {1, 1, 1, 1, 1}, {"x"}, {{-9999.99}}, 0, {},
         ""},
        {"duplicate names", "a a\n1 2\n", 0, {1, 1, 1, 1, 1}, {"a", "Var2"}, {{1}, {2}}, 0,
         {"Error: a already exists, use a different name"}, ""},
        {"missing spellings and decimal commas", "x\ty\n.\t1,5\n#N/A\t-.Inf\nmissing\t2\n", 0, {1, 1, 3, 1, 1},
         {"x", "y"}, {{NA, NA, NA}, {1.5, -HUGE_VAL, 2}}, 0, {},
         "Warning: 1 observations were read with abs(X) > 1e30\n"},
        {"more names than data columns", "a b c\n1 2\n", 0, {1, 1, 1, 1, 1}, {"a", "b", "c"}, {{1}, {2}, {NA}}, 0,
         {}, ""},
    };
    for (const auto &r : rows) {
        messages().clear();
        printed().clear();
        Database *db = DbReadDataText("mem", r.text, std::strlen(r.text), r.flags);
        ASSERT_NE(db, nullptr) << r.what;
        EXPECT_EQ(std::memcmp(&db->sample, &r.sample, sizeof(Sample)), 0)
            << r.what << ": " << db->sample.startYear << "(" << db->sample.startPeriod << ") " << db->sample.endYear
            << "(" << db->sample.endPeriod << ") f" << db->sample.frequency;
        ASSERT_EQ(db->varCount, static_cast<int>(r.names.size())) << r.what;
        for (int i = 0; i < db->varCount; ++i) {
            EXPECT_EQ(db->names[i], r.names[i]) << r.what;
            ASSERT_EQ(db->obsCount, static_cast<int>(r.columns[i].size())) << r.what;
            for (int t = 0; t < db->obsCount; ++t)
                EXPECT_EQ(dbtest::bitsOf(db->columns[i][t]), dbtest::bitsOf(r.columns[i][t])) << r.what << " " << i << "," << t;
        }
        EXPECT_EQ(DbIsDated(db), r.dated) << r.what;
        EXPECT_EQ(messages(), r.messages) << r.what;
        EXPECT_EQ(printed(), r.printed) << r.what;
        dbtest::expectConsistent(db);
        DbFree(db);
    }
}

TEST_F(DataFile, BadInput) {
    struct Row { const char *text; const char *message; } rows[] = {
        {"a b\n", "Error: No data in text"}, {"", "Error: No data in text"}, {"\n\n  \n", "Error: No data in text"}};
    for (const auto &r : rows) {
        messages().clear();
        EXPECT_EQ(DbReadDataText(nullptr, r.text, std::strlen(r.text), 0), nullptr);
        EXPECT_EQ(messages(), std::vector<std::string>{r.message});
    }
    messages().clear();
    EXPECT_EQ(DbReadDataFile("/nonexistent/dir/x.csv", 0), nullptr);
    EXPECT_EQ(messages(), std::vector<std::string>{"Error: Cannot open file /nonexistent/dir/x.csv"});
    EXPECT_EQ(DbReadDataFile(nullptr, 0), nullptr);
    EXPECT_EQ(DbReadDataText(nullptr, nullptr, 0, 0), nullptr);
    // A terminator inside the text ends it.
    const char text[] = "x\n1\n\0 2\n";
    Database *db = DbReadDataText(nullptr, text, sizeof text - 1, 0);
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(db->obsCount, 1);
    DbFree(db);
}

// Every allocation of a read fails once: the read gives null or a whole database, no leaks.
TEST_F(DataFile, AllocationFailures) {
    const char *texts[] = {"year quarter a b\n2000 1 1 2\n2000 2 3 4\n2000 3 5 6\n",
                           "\"d\",\"x\"\n2020-01-01,1\n2020-01-02,-9999.99\n"};
    for (const char *text : texts)
        for (long n = 1;; ++n) {
            KvAllocFailAt(n);
            Database *db = DbReadDataText("f", text, std::strlen(text), 0);
            const long made = KvAllocFailAt(0);
            if (db) {
                dbtest::expectConsistent(db);
                EXPECT_EQ(db->obsCount, 3 - (text[0] == '"' ? 1 : 0));
                EXPECT_EQ(db->varCount, 2);
                DbFree(db);
            }
            if (made < n) {
                EXPECT_NE(db, nullptr);
                break;
            }
        }
}

} // namespace
