// The database store: creation and the table, variables and capacity, lag-suffix resolution,
// renaming, deletion of variables and observations, sample setting and extension with their
// limits, the undo chain (every kind restores contents and the modified mark), batches, and
// allocation-failure injection over every operation that allocates.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "common/fault.h"
#include "database/calendar.h"
#include "database/database.h"
#include "dbcapture.h"
#include "matrix/matrix.h"

using dbtest::Capture;
using dbtest::messages;

namespace {

const double NA = MissingValueOf();

// A database with the named variables, each filled with base + 10 * variable + t.
Database *makeDb(const std::vector<const char *> &names, Sample s = Sample{1990, 1, 1991, 4, 4}) {
    Database *db = DbCreate("test", 0);
    EXPECT_NE(db, nullptr);
    EXPECT_EQ(DbSetSample(db, s), 1);
    if (!names.empty()) {
        EXPECT_EQ(DbAddVariables(db, static_cast<int>(names.size())), 0);
    }
    for (size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(DbSetVariableName(db, static_cast<int>(i), names[i]), 1);
        for (int t = 0; t < db->obsCount; ++t) db->columns[i][t] = 10.0 * static_cast<double>(i) + t;
    }
    return db;
}

using Store = Capture;

TEST_F(Store, NewDatabaseDefaults) {
    Database *db = DbCreate(nullptr, 0);
    ASSERT_NE(db, nullptr);
    EXPECT_STREQ(db->name, "data0");
    EXPECT_STREQ(db->label, "data0");
    EXPECT_EQ(db->capacity, 256);
    EXPECT_EQ(db->varCount, 0);
    EXPECT_EQ(db->obsCount, 10);
    EXPECT_EQ(db->sample.startYear, 1996);
    EXPECT_EQ(db->sample.endYear, 2005);
    EXPECT_EQ(db->sample.frequency, 1);
    EXPECT_EQ(db->tableSlot, 0);
    EXPECT_EQ(db->undoOn, 0);
    EXPECT_EQ(db->modified, 0);
    char text[64];
    EXPECT_STREQ(DbFrequencyName(db, text, sizeof text), "Annual");
    DbFree(db);

    struct Row { const char *given, *name; } rows[] = {
        {"C:\\data\\macro.in7", "macro.in7"}, {"dir/sub\\x.csv", "x.csv"}, {"D:abc", "abc"}, {"plain", "plain"}};
    for (const auto &r : rows) {
        db = DbCreate(r.given, 5);
        ASSERT_NE(db, nullptr);
        EXPECT_STREQ(db->name, r.name);
        EXPECT_STREQ(db->label, r.given);
        EXPECT_EQ(db->capacity, 5);
        EXPECT_STREQ(DbTableLastName(), r.name);
        DbFree(db);
    }
    EXPECT_TRUE(messages().empty());
}

TEST_F(Store, TableRegistersFindsAndFills) {
    DbTableEnable(1);
    Database *a = DbCreate("Macro", 0);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->tableSlot, 1);
    EXPECT_EQ(DbCreate("dir/MACRO", 0), nullptr);
    EXPECT_EQ(DbFindByName("mAcRo", 1), a);
    EXPECT_EQ(DbFindByName("other", 1), nullptr);
    Database *b = DbCreate("", 0); // generated from the slot: data2
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b->name, "data2");
    std::vector<Database *> more;
    for (int i = 2; i < DB_TABLE_SLOTS; ++i) more.push_back(DbCreate(nullptr, 1));
    EXPECT_EQ(more.back()->tableSlot, DB_TABLE_SLOTS);
    EXPECT_EQ(DbCreate("one too many", 0), nullptr);
    DbFree(a); // frees slot 1, which the next database takes
    Database *c = DbCreate("again", 0);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->tableSlot, 1);
    DbTableEnable(0);
    EXPECT_EQ(c->tableSlot, 0);
    EXPECT_EQ(DbFindByName("again", 0), nullptr);
    DbFree(b);
    DbFree(c);
    for (Database *d : more) DbFree(d);
    EXPECT_EQ(messages(), (std::vector<std::string>{"Error: Database with this name already exists",
                                                    "Error: Database not found", "Error: Cannot create database"}));
}

TEST_F(Store, AddVariablesAndCapacityGrowth) {
    struct Row { int capacity, first, add, expectCapacity; } rows[] = {
        {0, 256, 1, 512}, {0, 10, 300, 310}, {4, 4, 1, 260}, {0, 0, 256, 256}, {1, 0, 1, 1}};
    for (const auto &r : rows) {
        Database *db = DbCreate("g", r.capacity);
        ASSERT_NE(db, nullptr);
        if (r.first) {
            ASSERT_EQ(DbAddVariables(db, r.first), 0);
        }
        EXPECT_EQ(DbAddVariables(db, r.add), r.first);
        EXPECT_EQ(db->capacity, r.expectCapacity) << r.capacity << " " << r.first << " " << r.add;
        EXPECT_EQ(db->varCount, r.first + r.add);
        const int last = db->varCount - 1;
        EXPECT_EQ(std::string(db->names[last]), "Var" + std::to_string(last + 1));
        EXPECT_EQ(db->varFlags[last], DB_VAR_NEW);
        EXPECT_TRUE(std::isnan(db->columns[last][db->obsCount - 1]));
        EXPECT_EQ(db->modified, 1);
        dbtest::expectConsistent(db);
        DbFree(db);
    }
    EXPECT_EQ(DbAddVariables(nullptr, 1), -1);
}

TEST_F(Store, LagSuffixResolution) {
    struct Row {
        std::vector<const char *> vars;
        const char *name;
        int lagAllowed, quiet;
        int index, lag;
        const char *message;
    } rows[] = {
        {{"X", "X_1"}, "X_1", 1, 0, 0, 1, nullptr},
        {{"X", "X_1"}, "X_1", 0, 0, 1, 0, nullptr},
        {{"Y_1", "Y_2"}, "Y_3", 1, 0, 0, 2, nullptr},
        {{"Y_1", "Y_2", "Y_3"}, "Y_3", 1, 0, 0, 2, "Warning: More than one match for Y_3 found, using Y_1 with lag 2"},
        {{"Y_1", "Y_2", "Y_3"}, "Y_3", 1, 1, 0, 2, nullptr},
        {{"Y_5", "Y_3"}, "Y_3", 1, 0, 1, 0, nullptr}, // the nearest is the name itself: no warning
        {{"Y"}, "Y_-2", 1, 0, 0, -2, nullptr},
        {{"Y_2", "Y_-1"}, "Y", 1, 0, 1, 1, nullptr},
        {{"Z_1", "Z_-1"}, "Z_4", 1, 0, 0, 3, nullptr}, // tie on |k|: first in order
        {{"Y"}, "Y_0012", 1, 0, 0, 12, nullptr},
        {{"Y", "Y_10000"}, "Y_10000", 1, 0, 1, 0, nullptr}, // five digits: no lag
        {{"Y"}, "Y_10000", 1, 0, -1, 0, "Error: Y_10000 not found in database test"},
        {{"Y"}, "Y_10000", 1, 1, -1, 0, nullptr},
        {{"_1", "A"}, "_1", 1, 0, 0, 0, nullptr}, // fewer than two characters before the digits
        {{"ab_x1"}, "ab_x1", 1, 0, 0, 0, nullptr},
        {{"y"}, "Y_1", 1, 0, -1, 0, "Error: Y_1 not found in database test"}, // names keep their case
        {{"GDP_1"}, "GDP_-1", 1, 0, 0, -2, nullptr},
        {{"X"}, "", 1, 0, -1, 0, nullptr},
    };
    for (const auto &r : rows) {
        messages().clear();
        Database *db = makeDb(r.vars);
        int lag = 99;
        EXPECT_EQ(DbFindVariable(db, r.name, r.lagAllowed, &lag, r.quiet), r.index) << r.name;
        if (r.index >= 0) {
            EXPECT_EQ(lag, r.lag) << r.name;
        }
        if (r.message) {
            EXPECT_EQ(messages(), std::vector<std::string>{r.message}) << r.name;
        } else {
            EXPECT_TRUE(messages().empty()) << r.name << ": " << (messages().empty() ? "" : messages()[0]);
        }
        DbFree(db);
    }
    EXPECT_EQ(DbFindVariable(nullptr, "X", 1, nullptr, 0), -1);
}

TEST_F(Store, RenameCleansAndRefuses) {
    struct Row { const char *name; int report, result; const char *expect, *message; } rows[] = {
        {"  1abc", 1, 1, "abc", nullptr},
        {"a\"b\"", 1, 1, "a_b_", nullptr},
        {"x  \t", 1, 1, "x", nullptr},
        {"123", 1, 0, "A", nullptr},
        {"A", 1, 1, "A", nullptr},
        {"B", 1, 0, "A", "Error: B already exists, use a different name"},
        {"B", 0, 0, "A", nullptr},
        {"\"C\"", 1, 1, "C_", nullptr},
        {"_lag", 1, 1, "_lag", nullptr},
    };
    for (const auto &r : rows) {
        messages().clear();
        Database *db = makeDb({"A", "B"});
        db->modified = 0;
        EXPECT_EQ(DbRenameVariable(db, 0, r.name, r.report), r.result) << r.name;
        EXPECT_STREQ(db->names[0], r.expect) << r.name;
        EXPECT_EQ(db->modified, std::string(r.expect) != "A" ? 1 : 0) << r.name;
        if (r.message) {
            EXPECT_EQ(messages(), std::vector<std::string>{r.message});
        } else {
            EXPECT_TRUE(messages().empty());
        }
        DbFree(db);
    }
    Database *db = makeDb({"A"});
    const std::string longName(80, 'q');
    EXPECT_EQ(DbRenameVariable(db, 0, longName.c_str(), 1), 1);
    EXPECT_EQ(std::string(db->names[0]), std::string(64, 'q'));
    EXPECT_EQ(DbSetVariableName(db, 0, ""), 0);
    EXPECT_EQ(DbSetVariableName(db, 1, "x"), 0);
    EXPECT_EQ(DbSetVariableName(db, 0, "1 \"raw\""), 1); // plain naming keeps everything
    EXPECT_STREQ(db->names[0], "1 \"raw\"");
    EXPECT_EQ(DbRenameVariable(db, -1, "x", 1), 0);
    DbFree(db);
}

TEST_F(Store, DeleteVariables) {
    Database *db = makeDb({"A", "B", "C"});
    DbSetVariableFlags(db, 1, DB_VAR_PROTECTED);
    EXPECT_EQ(DbDeleteVariables(db, 1), 0);
    EXPECT_EQ(messages(), std::vector<std::string>{"Error: B cannot be deleted"});
    EXPECT_EQ(DbDeleteVariables(db, 0), 1);
    EXPECT_EQ(db->varCount, 2);
    EXPECT_STREQ(db->names[0], "B");
    EXPECT_STREQ(db->names[1], "C");
    EXPECT_EQ(db->columns[1][0], 20.0);
    EXPECT_EQ(DbDeleteVariables(db, 2), 0);
    // Inside a batch the deletion is only marked; the end of the outermost batch removes it.
    DbBeginBatch(db);
    DbBeginBatch(db);
    EXPECT_EQ(DbDeleteVariables(db, 1), 1);
    EXPECT_EQ(db->varFlags[1] & DB_VAR_DELETE_PENDING, DB_VAR_DELETE_PENDING);
    DbEndBatch(db);
    EXPECT_EQ(db->varCount, 2);
    DbEndBatch(db);
    EXPECT_EQ(db->varCount, 1);
    EXPECT_STREQ(db->names[0], "B");
    dbtest::expectConsistent(db);
    DbFree(db);
}

TEST_F(Store, DeleteObservations) {
    struct Row {
        std::vector<double> selector;
        int mode, result;
        std::vector<double> keptT; // the kept observation numbers (values of variable 0 = t)
        const char *message;
    } rows[] = {
        {{0, 1, NA, 0, 2, 0, 0, 0}, 0, 1, {0, 3, 5, 6, 7}, nullptr},
        {{0, 1, NA, 0, 2, 0, 0, 0}, 1, 1, {0, 1, 3, 4, 5, 6, 7}, nullptr},
        {{0, 0, 0, 0, 0, 0, 0, 0}, 0, 0, {0, 1, 2, 3, 4, 5, 6, 7}, "Warning: No observations to delete"},
        {{1, 1, 1, 1, 1, 1, 1, NA}, 0, 0, {0, 1, 2, 3, 4, 5, 6, 7},
         "Error: Delete skipped: there would be no observations left"},
        {{NA, NA, NA, NA, NA, NA, NA, NA}, 3, 0, {0, 1, 2, 3, 4, 5, 6, 7},
         "Error: Delete skipped: there would be no observations left"},
    };
    for (const auto &r : rows) {
        messages().clear();
        Database *db = makeDb({"T", "S"}); // 1990(1)-1991(4), 8 observations
        for (int t = 0; t < 8; ++t) db->columns[1][t] = r.selector[t];
        EXPECT_EQ(DbDeleteObservations(db, 1, r.mode), r.result);
        ASSERT_EQ(db->obsCount, static_cast<int>(r.keptT.size()));
        for (size_t t = 0; t < r.keptT.size(); ++t) EXPECT_EQ(db->columns[0][t], r.keptT[t]);
        EXPECT_EQ(SampleObsCount(db->sample), db->obsCount);
        EXPECT_EQ(db->sample.startYear, 1990);
        if (r.message) {
            EXPECT_EQ(messages(), std::vector<std::string>{r.message});
        } else {
            EXPECT_TRUE(messages().empty());
        }
        dbtest::expectConsistent(db);
        DbFree(db);
    }

    struct Range { int first, last, result, obs; double at2; const char *message; } ranges[] = {
        {2, 3, 1, 6, 4, nullptr}, {-5, 0, 1, 7, 3, nullptr}, {6, 100, 1, 6, 2, nullptr}, {3, 2, 0, 8, 2, nullptr},
        {8, 9, 0, 8, 2, nullptr}, {0, 7, 0, 8, 2, "Error: Delete skipped: there would be no observations left"}};
    for (const auto &r : ranges) {
        messages().clear();
        Database *db = makeDb({"T"});
        EXPECT_EQ(DbDeleteObservationRange(db, r.first, r.last), r.result);
        EXPECT_EQ(db->obsCount, r.obs);
        EXPECT_EQ(db->columns[0][2], r.at2);
        EXPECT_EQ(messages().size(), r.message ? 1u : 0u);
        if (r.message && !messages().empty()) {
            EXPECT_EQ(messages()[0], r.message);
        }
        DbFree(db);
    }
}

TEST_F(Store, SetSampleAndItsLimit) {
    Database *db = DbCreate("s", 0);
    // Exactly 100,000,000 observations can be set (no variables, so no storage).
    EXPECT_EQ(DbSetSample(db, Sample{1, 1, 100000000, 1, 1}), 1);
    EXPECT_EQ(db->obsCount, 100000000);
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(DbSetSample(db, Sample{1, 1, 100000005, 1, 1}), 1);
    EXPECT_EQ(db->obsCount, 100000000);
    EXPECT_EQ(db->sample.endYear, 100000000);
    EXPECT_EQ(messages(), std::vector<std::string>{"Warning: Truncated number of observations to 100000000"});
    // An extension that would reach the limit is refused.
    messages().clear();
    ASSERT_EQ(DbSetSample(db, Sample{1, 1, 99999990, 1, 1}), 1);
    EXPECT_EQ(DbExtendSample(db, 0, 10), 0);
    EXPECT_EQ(DbExtendSample(db, 5, 4), 1);
    EXPECT_EQ(db->obsCount, 99999999);
    EXPECT_EQ(db->sample.startYear, -4);
    EXPECT_EQ(messages(), std::vector<std::string>{"Error: Unable to extend database: exceeds maximum"});
    messages().clear();
    struct Bad { Sample s; } bad[] = {{{1990, 0, 1991, 1, 4}}, {{1990, 5, 1991, 1, 4}}, {{1990, 1, 1989, 1, 4}},
                                      {{1990, 1, 1991, 1, 0}}};
    for (const auto &b : bad) EXPECT_EQ(DbSetSample(db, b.s), 0);
    EXPECT_EQ(messages().size(), 4u);
    EXPECT_EQ(messages()[0], "Error: Invalid sample");
    DbFree(db);

    // Setting a longer sample keeps the values and gives the new observations missing values.
    db = makeDb({"A"});
    ASSERT_EQ(DbSetSample(db, Sample{1990, 1, 1992, 4, 4}), 1);
    EXPECT_EQ(db->obsCount, 12);
    EXPECT_EQ(db->columns[0][7], 7.0);
    EXPECT_TRUE(std::isnan(db->columns[0][11]));
    dbtest::expectConsistent(db);
    DbFree(db);
}

TEST_F(Store, ExtendSample) {
    struct Row {
        int a, b, result;
        Sample expect;
        std::vector<double> values; // variable 0 afterwards
        const char *message;
    } rows[] = {
        {2, 1, 1, {1989, 3, 1992, 1, 4}, {NA, NA, 0, 1, 2, 3, 4, 5, 6, 7, NA}, nullptr},
        {-1, 0, 1, {1990, 2, 1991, 4, 4}, {1, 2, 3, 4, 5, 6, 7}, nullptr},
        {0, -3, 1, {1990, 1, 1991, 1, 4}, {0, 1, 2, 3, 4}, nullptr},
        {-2, 2, 1, {1990, 3, 1992, 2, 4}, {2, 3, 4, 5, 6, 7, NA, NA}, nullptr},
        {0, 0, 1, {1990, 1, 1991, 4, 4}, {0, 1, 2, 3, 4, 5, 6, 7}, nullptr},
        {-8, 0, 0, {1990, 1, 1991, 4, 4}, {0, 1, 2, 3, 4, 5, 6, 7}, "Error: No observations left"},
        {-4, -5, 0, {1990, 1, 1991, 4, 4}, {0, 1, 2, 3, 4, 5, 6, 7}, "Error: No observations left"},
    };
    for (const auto &r : rows) {
        messages().clear();
        Database *db = makeDb({"A", "B"});
        EXPECT_EQ(DbExtendSample(db, r.a, r.b), r.result);
        EXPECT_EQ(std::memcmp(&db->sample, &r.expect, sizeof(Sample)), 0) << r.a << "," << r.b;
        ASSERT_EQ(db->obsCount, static_cast<int>(r.values.size()));
        for (size_t t = 0; t < r.values.size(); ++t) EXPECT_EQ(dbtest::bitsOf(db->columns[0][t]), dbtest::bitsOf(r.values[t]));
        if (r.message) {
            EXPECT_EQ(messages(), std::vector<std::string>{r.message});
        } else {
            EXPECT_TRUE(messages().empty());
        }
        dbtest::expectConsistent(db);
        DbFree(db);
    }
}

TEST_F(Store, ExtendContinuesDates) {
    // Working days Monday 2024-01-01 .. Friday 2024-01-26 (5 days a week), extended by 2 before
    // and 3 after; then daily and weekly dates.
    struct Row { std::vector<int> days; int a, b; std::vector<int> expect; } rows[] = {
        {{1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 15, 16, 17, 18, 19, 22, 23, 24, 25, 26}, 2, 3,
         {-3, -2, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 15, 16, 17, 18, 19, 22, 23, 24, 25, 26, 29, 30, 31}},
        {{1, 2, 3, 4, 5, 6, 7}, 1, 2, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}},
        {{1, 8, 15, 22}, 1, 1, {-6, 1, 8, 15, 22, 29}},
    };
    const int base = JulianDay(2024, 1, 1) - 1; // day d of January 2024 is base + d
    for (const auto &r : rows) {
        Database *db = DbCreate("dated", 0);
        const int T = static_cast<int>(r.days.size());
        ASSERT_EQ(DbSetSample(db, Sample{1, 1, T, 1, 1}), 1);
        ASSERT_EQ(DbAddVariables(db, 1), 0);
        for (int t = 0; t < T; ++t) db->columns[0][t] = base + r.days[t] + 0.5;
        const DbVarInfo date{{1, 0, 0, 0}};
        DbSetVariableInfo(db, 0, &date);
        ASSERT_EQ(DbIsDated(db), 1);
        ASSERT_EQ(DbExtendSample(db, r.a, r.b), 1);
        ASSERT_EQ(db->obsCount, static_cast<int>(r.expect.size()));
        for (size_t t = 0; t < r.expect.size(); ++t) EXPECT_EQ(db->columns[0][t], base + r.expect[t] + 0.5) << t;
        DbFree(db);
    }
}

TEST_F(Store, SortObservations) {
    Database *db = makeDb({"K", "V"});
    const double key[8] = {3, NA, 1, 3, -2, 1, NA, 0};
    for (int t = 0; t < 8; ++t) db->columns[0][t] = key[t];
    ASSERT_EQ(DbSortObservations(db, 0), 1);
    // Stable: equal keys keep their order; missing keys go last.
    const double expectV[8] = {14, 17, 12, 15, 10, 13, 11, 16};
    for (int t = 0; t < 8; ++t) EXPECT_EQ(db->columns[1][t], expectV[t]) << t;
    EXPECT_EQ(DbSortObservations(db, 5), 0);
    DbFree(db);
}

TEST_F(Store, MarkChangedAndDateAt) {
    Database *db = makeDb({"A", "B", "C"});
    db->modified = 0;
    DbMarkChanged(db, 1, 10);
    EXPECT_EQ(db->varFlags[0] & DB_VAR_CHANGED, 0);
    EXPECT_EQ(db->varFlags[2] & DB_VAR_CHANGED, DB_VAR_CHANGED);
    EXPECT_EQ(db->modified, 1);
    EXPECT_GT(dbtest::notifications(), 0);
    struct Row { int t; double v; } rows[] = {{-3, 0}, {0, 0}, {5, 5}, {7, 7}, {100, 7}};
    for (const auto &r : rows) EXPECT_EQ(DbDateAt(db, r.t), r.v);
    EXPECT_EQ(DbIsDated(db), 0);
    DbFree(db);
}

// Each undo kind: the operation changes the database, one DbUndo gives back exactly the state
// before it (values, names, descriptions, flags, info, sample) and the modified mark saved.
TEST_F(Store, UndoRestoresEveryKind) {
    struct Row { const char *what; std::function<void(Database *)> op; } rows[] = {
        {"add (1)", [](Database *db) { DbAddVariables(db, 3); }},
        {"delete (6, 7, 12, 2)",
         [](Database *db) {
             DbDeleteVariables(db, 1);
         }},
        {"sample (3)", [](Database *db) { DbSetSample(db, Sample{1990, 1, 1990, 3, 4}); }},
        {"longer sample (3)", [](Database *db) { DbSetSample(db, Sample{1989, 1, 1992, 4, 4}); }},
        {"values (5, 4)",
         [](Database *db) {
             DbSnapshotValues(db, 0, 0, 2, 3);
             db->columns[0][2] = -1;
             db->columns[2][3] = -2;
             DbMarkChanged(db, 2, 2);
         }},
        {"rename (6)", [](Database *db) { DbRenameVariable(db, 2, "Renamed", 1); }},
        {"set name (6)", [](Database *db) { DbSetVariableName(db, 0, "Other"); }},
        {"variable description (7)", [](Database *db) { DbSetVariableDescription(db, 0, "new text"); }},
        {"database description (8)", [](Database *db) { DbSetDescription(db, "about"); }},
        {"flags (9)", [](Database *db) { DbSetVariableFlags(db, 1, DB_VAR_PROTECTED); }},
        {"column (10)", [](Database *db) { DbReplaceColumn(db, 1, nullptr); }},
        {"delete observations (11)", [](Database *db) { DbDeleteObservationRange(db, 1, 5); }},
        {"delete by selector (11)", [](Database *db) { DbDeleteObservations(db, 0, 1); }},
        {"extend (11)", [](Database *db) { DbExtendSample(db, 3, -2); }},
        {"sort (11)", [](Database *db) { DbSortObservations(db, 1); }},
        {"info (12)",
         [](Database *db) {
             const DbVarInfo info{{1, 2, 3, 4}};
             DbSetVariableInfo(db, 0, &info);
         }},
        {"batch",
         [](Database *db) {
             DbBeginBatch(db);
             DbAddVariables(db, 1);
             DbExtendSample(db, 0, 2);
             DbExtendSample(db, 1, 0);
             DbDeleteVariables(db, 0);
             DbDeleteVariables(db, 3);
             DbEndBatch(db);
         }},
    };
    for (int startModified = 0; startModified <= 1; ++startModified)
        for (const auto &r : rows) {
            Database *db = makeDb({"A", "B", "C"});
            DbSetVariableDescription(db, 1, "described");
            db->columns[0][6] = NA;
            DbSetUndo(db, 1);
            db->modified = startModified;
            const std::string before = dbtest::dump(db);
            r.op(db);
            EXPECT_NE(dbtest::dump(db), before) << r.what;
            EXPECT_EQ(db->modified, 1) << r.what;
            EXPECT_EQ(DbUndoSteps(db), 1) << r.what;
            EXPECT_EQ(DbUndo(db), 1) << r.what;
            EXPECT_EQ(dbtest::dump(db), before) << r.what;
            EXPECT_EQ(db->modified, startModified) << r.what;
            EXPECT_EQ(DbUndo(db), 0) << r.what;
            dbtest::expectConsistent(db);
            DbFree(db);
        }
    EXPECT_TRUE(messages().empty());
}

TEST_F(Store, UndoChainOrderAndLimits) {
    Database *db = makeDb({"A"});
    DbSetUndo(db, 1);
    std::vector<std::string> states{dbtest::dump(db)};
    for (int i = 0; i < 5; ++i) {
        DbAddVariables(db, 1);
        DbExtendSample(db, 0, 1);
        states.push_back(dbtest::dump(db));
    }
    EXPECT_EQ(DbUndoSteps(db), 10);
    for (int i = 5; i >= 1; --i) {
        EXPECT_EQ(DbUndo(db), 1);
        EXPECT_EQ(DbUndo(db), 1);
        EXPECT_EQ(dbtest::dump(db), states[i - 1]);
    }
    // Only the newest 32 steps are kept; switching undo off discards them.
    for (int i = 0; i < 40; ++i) DbSetDescription(db, std::to_string(i).c_str());
    EXPECT_EQ(DbUndoSteps(db), 32);
    DbSetUndo(db, 0);
    EXPECT_EQ(DbUndoSteps(db), 0);
    EXPECT_EQ(DbUndo(db), 0);
    // Undo is refused inside a batch.
    DbSetUndo(db, 1);
    DbSetDescription(db, "x");
    DbBeginBatch(db);
    EXPECT_EQ(DbUndo(db), 0);
    DbEndBatch(db);
    EXPECT_EQ(DbUndo(db), 1);
    // Changed ranges join the newest snapshot.
    DbSnapshotValues(db, 0, 0, 1, 2);
    DbMarkChanged(db, 0, 0);
    int v0, v1, o0, o1;
    ASSERT_EQ(DbUndoChangedRange(db, &v0, &v1, &o0, &o1), 1);
    EXPECT_EQ(v0, 0);
    EXPECT_EQ(v1, 0);
    EXPECT_EQ(o0, 1);
    EXPECT_EQ(o1, 2);
    DbFree(db);
}

// Allocation failures: each allocation of each operation fails once. The operation reports its
// failure or succeeds, the database stays consistent, and nothing leaks (LeakSanitizer, and the
// column pool count checked by the fixture).
TEST_F(Store, AllocationFailures) {
    struct Row { const char *what; std::function<bool(Database *)> op; } rows[] = {
        {"add with growth", [](Database *db) { return DbAddVariables(db, 300) >= 0; }},
        {"delete variable", [](Database *db) { return DbDeleteVariables(db, 1) == 1; }},
        {"rename", [](Database *db) { return DbRenameVariable(db, 0, "New", 1) == 1; }},
        {"set sample", [](Database *db) { return DbSetSample(db, Sample{1990, 1, 1995, 4, 4}) == 1; }},
        {"extend", [](Database *db) { return DbExtendSample(db, 2, 3) == 1; }},
        {"delete observations", [](Database *db) { return DbDeleteObservationRange(db, 0, 2) == 1; }},
        {"sort", [](Database *db) { return DbSortObservations(db, 1) == 1; }},
        {"snapshot", [](Database *db) { return DbSnapshotValues(db, 0, 1, 0, 3) == 1; }},
        {"replace column", [](Database *db) { return DbReplaceColumn(db, 0, nullptr) == 1; }},
        {"description", [](Database *db) { return DbSetVariableDescription(db, 0, "text") == 1; }},
    };
    for (const auto &r : rows)
        for (int undo = 0; undo <= 1; ++undo)
            for (long n = 1;; ++n) {
                Database *db = makeDb({"A", "B", "C"});
                DbSetUndo(db, undo);
                DbSetDescription(db, "d"); // an undo step to keep or lose
                const std::string before = dbtest::dump(db);
                const int vars = db->varCount;
                KvAllocFailAt(n);
                const bool ok = r.op(db);
                const long made = KvAllocFailAt(0);
                dbtest::expectConsistent(db);
                // A refused operation changes nothing (the rebuilds that lose variables aside).
                if (!ok && db->varCount == vars) {
                    EXPECT_EQ(dbtest::dump(db), before) << r.what << " n=" << n;
                }
                // Whatever undo kept still applies cleanly.
                while (DbUndo(db)) {
                }
                dbtest::expectConsistent(db);
                DbFree(db);
                if (made < n) {
                    EXPECT_TRUE(ok) << r.what;
                    break;
                }
            }
}

} // namespace
