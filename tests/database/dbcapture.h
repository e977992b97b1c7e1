// Test helpers for the database tests: a fixture whose message sink and text channel record what
// the library says (a message nobody took fails the test), a dump of a database's visible state
// for before/after comparisons, and an independent day-number reference.
#ifndef KAVREL_TESTS_DATABASE_DBCAPTURE_H
#define KAVREL_TESTS_DATABASE_DBCAPTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "database/column.h"
#include "database/database.h"
#include "database/messages.h"
#include "database/output.h"
#include "matrix/matrix.h"

namespace dbtest {

using Strings = std::vector<std::string>;
const double NA = MissingValueOf();

inline Strings g_messages; // "Title: text"
inline Strings g_outputs;  // one entry per call of the text channel
inline int g_notifications = 0;
inline Strings &messages() { return g_messages; }
inline Strings &outputs() { return g_outputs; }
inline int &notifications() { return g_notifications; }
inline std::string bitsOf(double x) {
    uint64_t b;
    std::memcpy(&b, &x, sizeof b);
    return std::to_string(b);
}
inline Strings takeMessages() { return std::exchange(messages(), Strings{}); }
inline std::string takePrinted() {
    FlushOutput();
    std::string s;
    for (const auto &o : std::exchange(outputs(), Strings{})) s += o;
    return s;
}

class Capture : public ::testing::Test {
protected:
    void SetUp() override {
        messages().clear(), outputs().clear(), notifications() = 0;
        SetMessageSink(
            [](const char *title, const char *text) { messages().push_back(std::string(title) + ": " + text); });
        SetOutputChannels([](const char *text) { outputs().push_back(text); }, [] { ++notifications(); }, nullptr);
        SetOutputBuffering(0), OutputClearBuffer();
        poolBefore_ = ColumnPoolInUse();
    }
    void TearDown() override {
        OutputCloseFile(), OutputClearBuffer(), SetMessageSink(nullptr), SetOutputChannels(nullptr, nullptr, nullptr);
        EXPECT_EQ(messages(), Strings{}) << "messages no check took";
        EXPECT_EQ(ColumnPoolInUse(), poolBefore_) << "column references not given back";
    }
    long poolBefore_ = 0;
};

inline void expectColumn(const Database *db, int i, const std::vector<double> &want, const char *what) {
    ASSERT_EQ(db->obsCount, static_cast<int>(want.size())) << what;
    for (size_t t = 0; t < want.size(); ++t)
        EXPECT_EQ(bitsOf(db->columns[i][t]), bitsOf(want[t])) << what << " t=" << t;
}

// Everything a user can see of a database: sample, names, descriptions, flags, info records and
// the bits of every value.
inline std::string dump(const Database *db) {
    const Sample &s = db->sample;
    std::string out = std::to_string(s.startYear) + "(" + std::to_string(s.startPeriod) + ")-" +
                      std::to_string(s.endYear) + "(" + std::to_string(s.endPeriod) + ")/" +
                      std::to_string(s.frequency) + " T=" + std::to_string(db->obsCount) +
                      " desc=" + (db->description ? db->description : "<null>");
    for (int i = 0; i < db->varCount; ++i) {
        out += std::string("\n") + (db->names[i] ? db->names[i] : "<null>") + " [" +
               (db->varDescriptions[i] ? db->varDescriptions[i] : "") + "] f=" + std::to_string(db->varFlags[i]) +
               " i=" + std::to_string(db->varInfo[i].word[0]) + ":";
        for (int t = 0; t < db->obsCount; ++t) out += " " + bitsOf(db->columns[i][t]);
    }
    return out;
}

// The store's invariants: every column at least as long as the sample, data pointers matching
// their handles, names present.
inline void expectConsistent(const Database *db) {
    ASSERT_LE(db->varCount, db->capacity);
    for (int i = 0; i < db->varCount; ++i) {
        ASSERT_NE(db->handles[i], nullptr) << i;
        EXPECT_EQ(db->columns[i], ColumnDoubles(db->handles[i])) << i;
        EXPECT_GE(db->handles[i]->count, db->obsCount) << i;
        EXPECT_NE(db->names[i], nullptr) << i;
    }
}

// A database "test" over s with the named variables, variable i holding 10 i + t.
inline Database *makeDb(const std::vector<const char *> &names, Sample s = Sample{1990, 1, 1991, 4, 4}) {
    Database *db = DbCreate("test", 0);
    DbSetSample(db, s);
    if (!names.empty()) DbAddVariables(db, static_cast<int>(names.size()));
    for (int i = 0; i < static_cast<int>(names.size()); ++i) {
        DbSetVariableName(db, i, names[i]);
        for (int t = 0; t < db->obsCount; ++t) db->columns[i][t] = 10.0 * i + t;
    }
    return db;
}

// Julian day number of a date (astronomical year numbering, year 0 = 1 BC) in the proleptic
// Gregorian or the Julian calendar: days from a March-based era of 400 (or 4) years, after
// H. Hinnant, "chrono-compatible low-level date algorithms" (days_from_civil).
inline long long civilJd(long long y, int m, int d, bool gregorian = true) {
    const long long cycle = gregorian ? 400 : 4;
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - cycle + 1) / cycle, yoe = y - era * cycle;
    const long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long long doe = yoe * 365 + yoe / 4 - (gregorian ? yoe / 100 : 0) + doy;
    return era * (gregorian ? 146097 : 1461) + doe + (gregorian ? 1721120 : 1721118);
}

} // namespace dbtest

#endif
