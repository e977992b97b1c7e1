// Test helpers for the database tests: a message sink and text channel that record what the
// library says, and a dump of a database's whole visible state for before/after comparisons.
#ifndef KAVREL_TESTS_DATABASE_DBCAPTURE_H
#define KAVREL_TESTS_DATABASE_DBCAPTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "database/column.h"
#include "database/database.h"
#include "database/messages.h"
#include "database/output.h"

namespace dbtest {

inline std::vector<std::string> &messages() {
    static std::vector<std::string> m;
    return m;
}
inline std::string &printed() {
    static std::string s;
    return s;
}
inline int &notifications() {
    static int n = 0;
    return n;
}
inline void sink(const char *title, const char *text) { messages().push_back(std::string(title) + ": " + text); }
inline void textOut(const char *text) { printed() += text; }
inline void notified() { ++notifications(); }

// Installs the recording channels for the test's scope; restores the defaults afterwards.
class Capture : public ::testing::Test {
protected:
    void SetUp() override {
        messages().clear();
        printed().clear();
        notifications() = 0;
        SetMessageSink(sink);
        SetOutputChannels(textOut, notified, nullptr);
        poolBefore_ = ColumnPoolInUse();
    }
    void TearDown() override {
        FlushOutput();
        SetMessageSink(nullptr);
        SetOutputChannels(nullptr, nullptr, nullptr);
        // Every column reference taken in the test was given back.
        EXPECT_EQ(ColumnPoolInUse(), poolBefore_);
    }
    long poolBefore_ = 0;
};

inline std::string bitsOf(double x) {
    uint64_t b;
    std::memcpy(&b, &x, sizeof b);
    return std::to_string(b);
}

// Everything a user can see of a database, as text: sample, names, descriptions, flags, info
// records and the bits of every value.
inline std::string dump(const Database *db) {
    std::string s = std::to_string(db->sample.startYear) + "(" + std::to_string(db->sample.startPeriod) + ")-" +
                    std::to_string(db->sample.endYear) + "(" + std::to_string(db->sample.endPeriod) + ")/" +
                    std::to_string(db->sample.frequency) + " T=" + std::to_string(db->obsCount) +
                    " desc=" + (db->description ? db->description : "<null>") + "\n";
    for (int i = 0; i < db->varCount; ++i) {
        s += std::string(db->names[i] ? db->names[i] : "<null>") + " [" +
             (db->varDescriptions[i] ? db->varDescriptions[i] : "") + "] f=" + std::to_string(db->varFlags[i]) +
             " i=" + std::to_string(db->varInfo[i].word[0]) + ":";
        for (int t = 0; t < db->obsCount; ++t) s += " " + bitsOf(db->columns[i][t]);
        s += "\n";
    }
    return s;
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

} // namespace dbtest

#endif
