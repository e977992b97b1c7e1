// The database store: creation and the table, new variables, lag-suffix resolution,
// renaming, deletion of variables and observations, sample setting and extension, the undo chain
// (every kind restores contents and the modified mark), and allocation-failure injection over
// every store operation and the reading of data files. The message texts are in test_messages.
#include <cmath>

#include "base/alloc.h"
#include "database/calendar.h"
#include "database/datafile.h"
#include "dbcapture.h"

using namespace dbtest;

namespace {

using Store = Capture;

// Variables A, B (described), C holding 10 i + t over 1990(1)-1991(4), one missing value, and
// one undo step (a description) when undo is on.
Database *makeStoreDb(int undo) {
    Database *db = makeDb({"A", "B", "C"});
    DbSetVariableDescription(db, 1, "described");
    db->columns[0][6] = NA;
    DbSetUndo(db, undo);
    DbSetDescription(db, "d");
    return db;
}

// One operation of each undo kind, each changing the database; true on success.
struct StoreOp {
    const char *what;
    bool (*op)(Database *);
};
const DbVarInfo kInfo{{1, 2, 3, 4}};
const StoreOp kStoreOps[] = {
    // clang-format off
    {"add with growth", [](Database *db) { return DbAddVariables(db, 300) >= 0; }},
    {"delete variable", [](Database *db) { return DbDeleteVariables(db, 1) == 1; }},
    {"shorter sample", [](Database *db) { return DbSetSample(db, Sample{1990, 1, 1990, 3, 4}) == 1; }},
    {"longer sample", [](Database *db) { return DbSetSample(db, Sample{1989, 1, 1995, 4, 4}) == 1; }},
    {"values",
     [](Database *db) { // written in place between the snapshot and the mark
         if (DbSnapshotValues(db, 0, 2, 2, 3) != 1) return false;
         db->columns[0][2] = db->columns[2][3] = -1;
         DbMarkChanged(db, 0, 2);
         return true;
     }},
    {"column write",
     [](Database *db) { // the scope saves, the write lands in place, the end marks
         DbColumnWrite w(db, 2, 1, 3);
         if (w.data) w.data[2] = -5;
         return w.data != nullptr;
     }},
    {"rename", [](Database *db) { return DbRenameVariable(db, 2, "Renamed", 1) == 1; }},
    {"variable description", [](Database *db) { return DbSetVariableDescription(db, 0, "new text") == 1; }},
    {"database description", [](Database *db) { return DbSetDescription(db, "about") == 1; }},
    {"flags", [](Database *db) { return DbSetVariableFlags(db, 1, DB_VAR_PROTECTED) == 1; }},
    {"info", [](Database *db) { return DbSetVariableInfo(db, 0, &kInfo) == 1; }},
    {"replace column", [](Database *db) { return DbReplaceColumn(db, 1, nullptr) == 1; }},
    {"delete observations", [](Database *db) { return DbDeleteObservationRange(db, 1, 5) == 1; }},
    {"extend", [](Database *db) { return DbExtendSample(db, 3, -2) == 1; }},
    {"sort", [](Database *db) { return DbSortObservations(db, 1) == 1; }},
    {"batch",
     [](Database *db) { // its parts may fail alone: no all-or-nothing to check
         DbBeginBatch(db), DbAddVariables(db, 1), DbExtendSample(db, 0, 2), DbExtendSample(db, 1, 0);
         DbDeleteVariables(db, 0), DbDeleteVariables(db, 2), DbEndBatch(db);
         return true;
     }},
    // clang-format on
};

// The base name of what the caller gave, new variables' names and values, and the table:
// case-blind lookup, a freed slot reused.
TEST_F(Store, NewDatabasesTheTableAndNewVariables) {
    Database *db = DbCreate("C:\\data\\macro.in7", 5);
    EXPECT_STREQ(db->name, "macro.in7");
    EXPECT_EQ(DbAddVariables(db, 7), 0);
    EXPECT_STREQ(db->names[6], "Var7");
    EXPECT_TRUE(std::isnan(db->columns[6][9]));
    DbFree(db);
    DbTableEnable(1);
    Database *a = DbCreate("Macro", 0);
    EXPECT_EQ(DbFindByName("mAcRo", 1), a);
    DbFree(a);
    Database *c = DbCreate("again", 0); // the freed slot
    EXPECT_EQ(c->tableSlot, 1);
    DbTableEnable(0);
    DbFree(c);
}

TEST_F(Store, LagSuffixResolution) {
    // messages: how many (the texts are in test_messages).
    struct Row {
        std::vector<const char *> vars;
        const char *name;
        int index, lag;
        size_t messages;
    } rows[] = {
        // clang-format off
        {{"Y"}, "Y_-2", 0, -2, 0},
        // the nearest is the name itself: no warning
        {{"Y_5", "Y_3"}, "Y_3", 1, 0, 0},
        // tie on |k|: first in order
        {{"Z_1", "Z_-1"}, "Z_4", 0, 3, 0},
        // five digits: no lag, and no variable of that name
        {{"Y"}, "Y_10000", -1, 0, 1},
        // clang-format on
    };
    for (const auto &r : rows) {
        Database *db = makeDb(r.vars);
        int lag = 99;
        EXPECT_EQ(DbFindVariable(db, r.name, 1, &lag, 0), r.index) << r.name;
        EXPECT_EQ(r.index >= 0 ? lag : r.lag, r.lag) << r.name;
        EXPECT_EQ(takeMessages().size(), r.messages) << r.name;
        DbFree(db);
    }
    EXPECT_EQ(DbFindVariable(nullptr, "X", 1, nullptr, 0), -1);
}

// Renaming cuts the name to 64 characters and cleans it (leading characters that cannot begin a
// name and trailing blanks and controls go, quotes become '_'), refuses one that cleans to nothing
// and marks the database modified only when the name changes; deletion inside a batch.
TEST_F(Store, RenameAndDeleteVariables) {
    const std::string longName = "#" + std::string(100, 'a');
    struct Row {
        const char *name;
        int result;
        const char *expect;
    } rows[] = {{"  1abc", 1, "abc"},
                {"123", 0, "A"},
                {"A", 1, "A"},
                {"\"real gdp\"\t\r\n", 1, "real gdp_"},
                {"\xc3\xa9t\xc3\xa9", 1, "\xc3\xa9t\xc3\xa9"},
                {longName.c_str(), 1, longName.c_str() + 38}}; // 64 characters cut, then cleaned
    for (const auto &r : rows) {
        Database *db = makeDb({"A", "B"});
        db->modified = 0;
        EXPECT_EQ(DbRenameVariable(db, 0, r.name, 1), r.result) << r.name;
        EXPECT_STREQ(db->names[0], r.expect) << r.name;
        EXPECT_EQ(db->modified, std::strcmp(r.expect, "A") != 0) << r.name;
        DbFree(db);
    }
    Database *db = makeDb({"A", "B", "C"});
    EXPECT_EQ(DbRenameVariable(db, -1, "x", 1), 0);
    EXPECT_EQ(DbDeleteVariables(db, 3), 0);
    EXPECT_EQ(DbDeleteVariables(db, 1), 1);
    EXPECT_STREQ(db->names[1], "C");
    EXPECT_EQ(db->columns[1][0], 20.0);
    // Inside a batch the deletion is only marked and nothing is announced; the end of the
    // outermost batch removes it and announces the batch's changes once.
    notifications() = 0;
    DbBeginBatch(db), DbBeginBatch(db);
    EXPECT_EQ(DbDeleteVariables(db, 1), 1);
    DbSetDescription(db, "in a batch"), DbMarkChanged(db, 0, 0);
    EXPECT_EQ(db->varFlags[1] & DB_VAR_DELETE_PENDING, DB_VAR_DELETE_PENDING);
    DbEndBatch(db);
    EXPECT_EQ(db->varCount, 2);
    EXPECT_EQ(notifications(), 0);
    DbEndBatch(db);
    EXPECT_EQ(db->varCount, 1);
    EXPECT_EQ(notifications(), 1);
    DbSetDescription(db, "outside"), DbMarkChanged(db, 0, 0);
    EXPECT_EQ(notifications(), 3);
    expectConsistent(db);
    DbFree(db);
}

// Observation edits on variables T (holding t) and S (a selector) over 1990(1)-1991(4): deletion
// by selector (mode 0: non-zero and missing go, mode 1: missing goes) or by a range clipped to
// the sample, a longer sample (new observations missing), extension by a before and b after.
TEST_F(Store, ObservationEdits) {
    // op: 's' deletion by selector (mode a), 'r' range a-b, 'e' extension by a and b, 'l' a longer
    // sample, 'o' sort by a.
    const std::vector<double> all{0, 1, 2, 3, 4, 5, 6, 7};
    struct Row {
        char op;
        int a, b, result;
        Sample sample;
        std::vector<double> t;
    } rows[] = {
        // clang-format off
        {'s', 0, 0, 1, {1990, 1, 1991, 1, 4}, {0, 3, 5, 6, 7}},
        {'s', 1, 0, 1, {1990, 1, 1991, 3, 4}, {0, 1, 3, 4, 5, 6, 7}},
        {'r', 6, 100, 1, {1990, 1, 1991, 2, 4}, {0, 1, 2, 3, 4, 5}},
        {'r', 3, 2, 0, {1990, 1, 1991, 4, 4}, all},
        {'l', 0, 0, 1, {1990, 1, 1992, 4, 4}, {0, 1, 2, 3, 4, 5, 6, 7, NA, NA, NA, NA}},
        {'e', 2, 1, 1, {1989, 3, 1992, 1, 4}, {NA, NA, 0, 1, 2, 3, 4, 5, 6, 7, NA}},
        {'e', -2, 2, 1, {1990, 3, 1992, 2, 4}, {2, 3, 4, 5, 6, 7, NA, NA}},
        {'o', 1, 0, 1, {1990, 1, 1991, 4, 4}, {0, 3, 5, 6, 7, 1, 4, 2}},
        // stable, missing keys last
        // clang-format on
    };
    for (const auto &r : rows) {
        Database *db = makeDb({"T", "S"});
        const double selector[8] = {0, 1, NA, 0, 2, 0, 0, 0};
        std::memcpy(db->columns[1], selector, sizeof selector);
        const int result = r.op == 's'   ? DbDeleteObservations(db, 1, r.a)
                           : r.op == 'r' ? DbDeleteObservationRange(db, r.a, r.b)
                           : r.op == 'e' ? DbExtendSample(db, r.a, r.b)
                           : r.op == 'o' ? DbSortObservations(db, r.a)
                                         : DbSetSample(db, Sample{1990, 1, 1992, 4, 4});
        const std::string what = r.op + std::to_string(r.a) + "," + std::to_string(r.b);
        EXPECT_TRUE(result == r.result) << what;
        EXPECT_TRUE(!std::memcmp(&db->sample, &r.sample, sizeof(Sample))) << what;
        expectColumn(db, 0, r.t, what.c_str());
        expectConsistent(db);
        DbFree(db);
    }
}

// A date column is continued: working days (Monday 2024-01-01 to Friday 2024-01-26, 5 a week)
// extended by 2 before and 3 after; with every old date dropped, all missing.
TEST_F(Store, ExtendContinuesDates) {
    struct Row {
        std::vector<int> days;
        int a, b;
        std::vector<int> expect;
    } rows[] = {
        // clang-format off
        {{1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 15, 16, 17, 18, 19, 22, 23, 24, 25, 26}, 2, 3,
         {-3, -2, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 15, 16, 17, 18, 19, 22, 23, 24, 25, 26, 29, 30, 31}},
        {{1, 8}, 3, -2, {}},
        // clang-format on
    };
    const double base = civilJd(2024, 1, 1) - 1 + 0.5; // day d of January 2024, noon
    for (const auto &r : rows) {
        const int T = static_cast<int>(r.days.size());
        Database *db = makeDb({"d"}, Sample{1, 1, T, 1, 1});
        for (int t = 0; t < T; ++t) db->columns[0][t] = base + r.days[t];
        const DbVarInfo date{{1, 0, 0, 0}};
        DbSetVariableInfo(db, 0, &date);
        ASSERT_TRUE(DbIsDated(db) == 1);
        ASSERT_TRUE(DbExtendSample(db, r.a, r.b) == 1);
        std::vector<double> want;
        for (int d : r.expect) want.push_back(base + d);
        if (want.empty()) want.assign(T + r.a + r.b, NA);
        expectColumn(db, 0, want, "dates");
        DbFree(db);
    }
}

// Each undo kind alone, from either modified mark: the operation changes the database, one
// DbUndo gives back exactly the state before it (values, names, descriptions, flags, info,
// sample) and the modified mark saved.
TEST_F(Store, UndoRestoresEveryKind) {
    for (int startModified = 0; startModified <= 1; ++startModified)
        for (const StoreOp &r : kStoreOps) {
            Database *db = makeStoreDb(1);
            db->modified = startModified;
            const std::string before = dump(db);
            EXPECT_TRUE(r.op(db)) << r.what;
            EXPECT_TRUE(dump(db) != before) << r.what;
            EXPECT_EQ(db->modified, 1) << r.what;
            EXPECT_EQ(DbUndoSteps(db), 2) << r.what;
            EXPECT_TRUE(DbUndo(db) == 1) << r.what;
            EXPECT_TRUE(dump(db) == before) << r.what;
            EXPECT_TRUE(db->modified == startModified) << r.what;
            expectConsistent(db);
            DbFree(db);
        }
    Database *db = makeStoreDb(1);
    // Only the newest 32 steps are kept; switching undo off discards them.
    for (int i = 0; i < 40; ++i) DbSetDescription(db, std::to_string(i).c_str());
    EXPECT_EQ(DbUndoSteps(db), 32);
    DbSetUndo(db, 0);
    EXPECT_EQ(DbUndoSteps(db), 0);
    EXPECT_EQ(DbUndo(db), 0);
    // Undo is refused inside a batch.
    DbSetUndo(db, 1), DbSetDescription(db, "x"), DbBeginBatch(db);
    const int inBatch = DbUndo(db);
    DbEndBatch(db);
    EXPECT_EQ(inBatch, 0);
    EXPECT_EQ(DbUndo(db), 1);
    DbFree(db);
}

// Each allocation of each operation fails once, with undo on and off. A store operation reports
// its failure or succeeds, a refused one changes nothing (the rebuilds that lose variables
// aside), and what undo kept still applies; a read gives null or the whole database. Leaks are
// LeakSanitizer's to find; the fixture checks the column pool.
TEST_F(Store, AllocationFailures) {
    for (const StoreOp &r : kStoreOps)
        for (int undo = 0; undo <= 1; ++undo)
            for (long n = 1;; ++n) {
                Database *db = makeStoreDb(undo);
                const std::string before = dump(db);
                KvAllocFailAt(n);
                const bool ok = r.op(db);
                const long made = KvAllocFailAt(0);
                takeMessages();
                expectConsistent(db);
                if (!ok && db->varCount == 3) {
                    EXPECT_EQ(dump(db), before) << r.what << " n=" << n;
                }
                while (DbUndo(db)) expectConsistent(db);
                DbFree(db);
                if (made < n) { // no allocation failed: it must have succeeded
                    EXPECT_TRUE(ok) << r.what;
                    break;
                }
            }
    // A read is whole or fails with "Out of memory": never a database with its period columns
    // dropped but the sample they give not set.
    struct Read {
        const char *text;
        int obs, vars;
        Sample sample;
    } reads[] = {{"\"d\",\"x\"\n2020-01-01,1\n2020-01-02,-9999.99\n", 2, 2, {1, 1, 2, 1, 1}},
                 {KAVREL_TEST_DATA "/macrodata.csv", 203, 12, {1959, 1, 2009, 3, 4}}};
    for (const Read &r : reads)
        for (long n = 1;; ++n) {
            SCOPED_TRACE(::testing::Message() << r.text << " allocation " << n);
            KvAllocFailAt(n);
            Database *db =
                r.text[0] == '/' ? DbReadDataFile(r.text, 0) : DbReadDataText("f", r.text, std::strlen(r.text), 0);
            const long made = KvAllocFailAt(0);
            const Strings messages = takeMessages();
            takePrinted();
            if (db) {
                expectConsistent(db);
                EXPECT_EQ(db->obsCount, r.obs);
                EXPECT_EQ(db->varCount, r.vars);
                EXPECT_EQ(std::memcmp(&db->sample, &r.sample, sizeof(Sample)), 0);
            } else {
                EXPECT_GE(made, n); // only a failed allocation may fail the read
                ASSERT_FALSE(messages.empty());
                EXPECT_EQ(messages.back(), "Error: Out of memory"); // after what the store reported
            }
            DbFree(db);
            if (made < n) break;
        }
}

} // namespace
