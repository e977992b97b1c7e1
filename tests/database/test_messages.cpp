// Every message the database subsystem reports, through the test sink, in the situation that
// calls for it: one row a situation, with the exact texts in order. (The buffer-overwrite error
// is checked at each threshold in test_output.)
#include <climits>
#include <functional>

#include <unistd.h>

#include "base/alloc.h"
#include "database/datafile.h"
#include "database/textdata.h"
#include "dbcapture.h"

using namespace dbtest;

namespace {

using Messages = Capture;

// The action with the first allocation it makes failing.
std::function<void(Database *)> failFirst(void (*act)(Database *)) {
    return [act](Database *db) {
        KvAllocFailAt(1);
        act(db);
        KvAllocFailAt(0);
    };
}

Database *fill(Database *db, double value) { // variable 1, the selector
    for (int t = 0; t < db->obsCount; ++t) db->columns[1][t] = value;
    return db;
}

TEST_F(Messages, EveryMessageInItsSituation) {
    const char *unreadable = "/sys/kernel/profiling"; // a size of 4,096 and fewer bytes to read
    using Act = std::function<void(Database *)>;
    // vars: of the database "test" (1990(1)-1991(4)) the row acts on; printed: the text channel.
    struct Row {
        const char *situation;
        std::vector<const char *> vars;
        Act act;
        Strings want;
        std::string printed = "";
        bool available = true;
    } rows[] = {
        {"observations deleted while no column can be made",
         {"A", "B"},
         failFirst([](Database *db) {
             EXPECT_EQ(DbDeleteObservationRange(db, 0, 1), 0);
             EXPECT_EQ(db->varCount, 0);
         }),
         {"Error: Out of memory", "Error: Not enough memory: variables lost, exit or check data!"}},
        {"extension while no column can be made",
         {"A"},
         failFirst([](Database *db) { EXPECT_EQ(DbExtendSample(db, 1, 1), 0); }),
         {"Error: Out of memory", "Error: Not enough memory for extension: variables lost, exit or check data!"}},
        {"the table full, then a base name in it again, then a name not in it",
         {},
         [](Database *) {
             DbTableEnable(1);
             std::vector<Database *> all{DbCreate("Macro", 0)};
             while (all.size() < DB_TABLE_SLOTS) all.push_back(DbCreate(nullptr, 1));
             EXPECT_EQ(DbCreate("one too many", 0), nullptr);
             DbFree(all.back()), all.pop_back(); // a free slot, so that the name is what fails
             EXPECT_TRUE(DbCreate("dir/MACRO", 0) == nullptr);
             EXPECT_TRUE(DbFindByName("other", 1) == nullptr);
             for (Database *d : all) DbFree(d);
             DbTableEnable(0);
         },
         {"Error: Cannot create database", "Error: Database with this name already exists",
          "Error: Database not found"}},
        {"more variables than can be counted",
         {"A"},
         [](Database *db) { EXPECT_EQ(DbAddVariables(db, INT_MAX), -1); },
         {"Error: Cannot add 2147483647 variable(s) to database"}},
        {"the variable arrays cannot grow",
         {"A"},
         failFirst([](Database *db) { EXPECT_EQ(DbAddVariables(db, 300), -1); }),
         {"Error: Maximum number of variables reached in database test"}},
        {"a protected variable deleted",
         {"A", "B"},
         [](Database *db) {
             DbSetVariableFlags(db, 1, DB_VAR_PROTECTED);
             EXPECT_EQ(DbDeleteVariables(db, 1), 0);
         },
         {"Error: B cannot be deleted"}},
        {"every observation selected for deletion",
         {"A", "S"},
         [](Database *db) { EXPECT_EQ(DbDeleteObservations(fill(db, 1), 1, 0), 0); },
         {"Error: Delete skipped: there would be no observations left"}},
        {"no observation selected for deletion",
         {"A", "S"},
         [](Database *db) { EXPECT_EQ(DbDeleteObservations(fill(db, 0), 1, 0), 0); },
         {"Warning: No observations to delete"}},
        {"a sample beyond the limit",
         {},
         [](Database *db) {
             EXPECT_EQ(DbSetSample(db, Sample{1, 1, 100000005, 1, 1}), 1);
             EXPECT_EQ(db->obsCount, 100000000);
         },
         {"Warning: Truncated number of observations to 100000000"}},
        {"a sample ending before it starts",
         {},
         [](Database *db) {
             EXPECT_EQ(DbSetSample(db, Sample{1990, 1, 1989, 1, 4}), 0);
         },
         {"Error: Invalid sample"}},
        {"an extension reaching the limit",
         {},
         [](Database *db) {
             ASSERT_EQ(DbSetSample(db, Sample{1, 1, 99999990, 1, 1}), 1);
             EXPECT_EQ(DbExtendSample(db, 0, 10), 0);
         },
         {"Error: Unable to extend database: exceeds maximum"}},
        {"an extension leaving no observations",
         {"A"},
         [](Database *db) { EXPECT_EQ(DbExtendSample(db, -4, -5), 0); },
         {"Error: No observations left"}},
        {"a lagged name with two matches",
         {"Y_1", "Y_2", "Y_3"},
         [](Database *db) {
             int lag = 0;
             EXPECT_EQ(DbFindVariable(db, "Y_3", 1, &lag, 0), 0);
             EXPECT_EQ(lag, 2);
         },
         {"Warning: More than one match for Y_3 found, using Y_1 with lag 2"}},
        {"a name not in the database",
         {"y"},
         [](Database *db) { EXPECT_EQ(DbFindVariable(db, "Y_1", 1, nullptr, 0), -1); },
         {"Error: Y_1 not found in database test"}},
        {"a rename to a name in use",
         {"A", "B"},
         [](Database *db) { EXPECT_EQ(DbRenameVariable(db, 0, "B", 1), 0); },
         {"Error: B already exists, use a different name"}},
        {"a file that cannot be opened",
         {},
         [](Database *) { EXPECT_EQ(DbReadDataFile("/nonexistent/dir/x.csv", 0), nullptr); },
         {"Error: Cannot open file /nonexistent/dir/x.csv"}},
        {"a file shorter than its size",
         {},
         [unreadable](Database *) { EXPECT_EQ(DbReadDataFile(unreadable, 0), nullptr); },
         {std::string("Error: Cannot read file ") + unreadable},
         "",
         access(unreadable, R_OK) == 0},
        {"a text without data",
         {},
         [](Database *) { EXPECT_EQ(DbReadDataText("t", "a b\n", 4, 0), nullptr); },
         {"Error: No data in text"}},
        {"rows of differing lengths",
         {},
         [](Database *) {
             char t[] = "x\n1 2\n3\n";
             int r, c;
             EXPECT_EQ(MeasureTextBlock(t, 0, 0, &r, &c, nullptr, nullptr), 1);
         },
         {"Warning: Not all rows have the same number of elements"}},
        {"a read with the old missing code and a huge value",
         {},
         [](Database *) { DbFree(DbReadDataText("t", "x,y\n-9999.99,1\n2,1e31\n", 22, 0)); },
         {},
         "Warning: 1 observations were read with abs(X) > 1e30\n"
         "Warning: 1 observations with value -9999.99 changed to missing values.\n"
         "Warning: -9999.99 is no longer a missing value.\n"},
        {"an output file that cannot be written",
         {}, // reported once, the text channel goes on
         [](Database *) {
             EXPECT_EQ(OutputOpenFile("/dev/full", 0), 1);
             PrintText("lost\n");
             PrintText("shown\n");
         },
         {"Error: An error occurred while writing to disk!"},
         "lost\nshown\n",
         access("/dev/full", W_OK) == 0},
    };
    for (const auto &r : rows) {
        if (!r.available) continue;
        Database *db = makeDb(r.vars);
        r.act(db);
        DbFree(db);
        EXPECT_EQ(takeMessages(), r.want) << r.situation;
        EXPECT_EQ(takePrinted(), r.printed) << r.situation;
    }
}

} // namespace
