// The estimation bridge through the host's values: every failure text of an initialisation, runs
// for successive parameter vectors against the same program compiled with the values written in
// as constants, reading variables back (selection, clipping, the model's own variables), and
// allocation failures over init, run and exit. Leaks are LeakSanitizer's to find.
#include <gtest/gtest.h>

#include <string>

#include "algebra/algebra.h"
#include "algebra/bridge.h"
#include "base/alloc.h"
#include "common/host_call.h"
#include "database/database.h"
#include "database/messages.h"
#include "kavrel/kavrel.h"

namespace {

const Vec kX = {1.0, 2.0, 4.0, 3.0, 5.0, 7.0};
const char *const kModel = "&0 = 1; &1 = 0.5; &2 = -0.25;\ny = &0 + &1 * x + &2 * x[-1];\nw = log(y);";

class Bridge : public ::testing::Test {
protected:
    void SetUp() override {
        SetMessageSink([](const char *, const char *) {});
    }
    void TearDown() override {
        HostCall exit;
        exit.invoke(FnExitAlgebraNls);
        SetMessageSink(nullptr);
    }
    // FnInitAlgebraNls over x and c (a constant 1) from 2001(1), quarterly; with the two outputs
    // when params is set.
    static void init(HostCall &call, const char *text, bool params) {
        Vec data;
        for (double x : kX) data.push_back(x), data.push_back(1.0);
        call.mat(0, static_cast<int>(kX.size()), 2, data).strs(1, {"x", "c"});
        call.num(2, 2001).num(3, 1).num(4, 4).num(5, 0).str(6, text);
        if (params)
            call.ref(7, 8);
        else
            call.num(7, 0).num(8, 0);
    }
    static Vec variable(const char *name, int first, int last) {
        HostCall get;
        get.str(0, name).num(1, first).num(2, last).num(3, 0);
        get.invoke(FnGetAlgebraVar);
        return get.values();
    }
};

TEST_F(Bridge, InitialisationFailsWithItsText) {
    struct Row {
        const char *text;
        bool params;
        std::string want;
    } rows[] = {
        {"y = &0 + &1 * x;", true, "Error: Need starting values for all parameters"},
        {"&0 = 1; &1 = 0.5; y = &0 + &1 * x;", false, "Error: No parameters alllowed here"},
        {"y = 2 * x;", true, "Error: No parameters to estimate"},
        {"y = 2 * x $;", true, "Scan error: $ Unrecognized on line 1"},
        {"&0 = 1;\ny = &0 * nothere;", true, "Parse error: nothere Undeclared identifier on line 2"},
    };
    for (const Row &r : rows) {
        HostCall call;
        init(call, r.text, r.params);
        call.preset();
        ASSERT_EQ(call.invoke(FnInitAlgebraNls), 1) << r.text;
        EXPECT_EQ(call.text(), r.want) << r.text;
        // A failed initialisation leaves no model behind.
        HostCall run;
        run.row(0, {1.0}).num(1, 0).num(2, 5);
        run.invoke(FnRunAlgebraNls);
        EXPECT_EQ(run.text(), "Algebra run error") << r.text;
    }
}

TEST_F(Bridge, RunsEqualTheProgramWithItsValuesWrittenIn) {
    HostCall call;
    init(call, kModel, true);
    call.preset();
    ASSERT_EQ(call.invoke(FnInitAlgebraNls), 1);
    EXPECT_EQ(call.status(), 99); // success leaves the result as it was
    EXPECT_EQ(call.out(7), (Vec{1.0, 0.5, -0.25}));
    EXPECT_EQ(call.out(8), (Vec{0.0, 1.0, 2.0}));
    const Vec params[] = {{2.0, 0.3, -0.2}, {-10.0, 1.5, 0.75}, {0.1, 0.0, 0.0}}; // the second: log faults
    for (const Vec &p : params) {
        HostCall run;
        run.col(0, p).num(1, 1).num(2, 5);
        ASSERT_EQ(run.invoke(FnRunAlgebraNls), 1);
        const bool faults = run.result.type == LUMO_STRING;
        // The same program with the values as constants, over its own database.
        Database *db = DbCreate("direct", 0);
        DbSetSample(db, Sample{2001, 1, 2002, 2, 4});
        DbAddVariables(db, 1);
        DbSetVariableName(db, 0, "x");
        for (size_t t = 0; t < kX.size(); ++t) db->columns[0][t] = kX[t];
        const std::string text = "y = " + std::to_string(p[0]) + " + " + std::to_string(p[1]) + " * x + " +
                                 std::to_string(p[2]) + " * x[-1];\nw = log(y);";
        AlgebraCompiler *c = AlgebraCreate(db, 0);
        ASSERT_EQ(AlgebraLoad(c, text.c_str(), nullptr), 1);
        ASSERT_EQ(AlgebraCompile(c, db), 1);
        const int clean = AlgebraRun(c, 1, 5, db->obsCount, 1);
        EXPECT_EQ(faults, clean == 0) << p[0];
        if (faults) {
            EXPECT_EQ(run.text(), AlgebraMessage(c));
        } else {
            EXPECT_EQ(run.status(), 1);
        }
        for (const char *name : {"y", "w"}) {
            const int v = DbFindVariableExact(db, name);
            EXPECT_TRUE(SameBits(variable(name, 0, 5), Vec(db->columns[v], db->columns[v] + 6))) << name;
        }
        AlgebraFree(c);
        DbFree(db);
    }
    HostCall wrong;
    wrong.row(0, {1.0, 2.0}).num(1, 0).num(2, 5);
    wrong.invoke(FnRunAlgebraNls);
    EXPECT_EQ(wrong.text(), "Algebra run error");
}

TEST_F(Bridge, VariablesReadBack) {
    HostCall call;
    init(call, "&0 = 2; y = &0 * x; z = y + c;", true);
    ASSERT_EQ(call.invoke(FnInitAlgebraNls), 1);
    HostCall run;
    run.row(0, {3.0}).num(1, 0).num(2, 5);
    ASSERT_EQ(run.invoke(FnRunAlgebraNls), 1);
    EXPECT_EQ(run.status(), 1);
    // The host's variables first, then the model's.
    const std::string names[] = {"x", "c", "y", "z", ""};
    for (int i = 0; i < 5; ++i) {
        HostCall name;
        name.num(0, i);
        name.invoke(FnGetAlgebraName);
        EXPECT_EQ(name.text(), names[i]) << i;
    }
    EXPECT_EQ(variable("z", 2, 99), (Vec{13.0, 10.0, 16.0, 22.0}));
    HostCall selected;
    selected.str(0, "y").num(1, 1).num(2, 4).row(3, {1.0, 0.0, 2.5, -0.5, 1.0, 1.0});
    selected.invoke(FnGetAlgebraVar);
    EXPECT_EQ(selected.values(), (Vec{12.0, 15.0}));
    HostCall unknown; // names are matched exactly
    unknown.str(0, "Y").num(1, 0).num(2, 5).num(3, 0);
    unknown.preset();
    unknown.invoke(FnGetAlgebraVar);
    EXPECT_EQ(unknown.status(), 99);
    HostCall added;
    added.ref(0, 1);
    added.invoke(FnGetAlgebraAddedData);
    EXPECT_EQ(added.out(0), (Vec{3, 4, 6, 7, 12, 13, 9, 10, 15, 16, 21, 22}));
    ASSERT_EQ(LumoValGetArrayCount(&added.targets[1]), 2);
    EXPECT_STREQ(LumoValGetString(LumoValGetArrayVal(&added.targets[1], 0)), "y");
    EXPECT_STREQ(LumoValGetString(LumoValGetArrayVal(&added.targets[1], 1)), "z");
}

// Every allocation of init, run and exit fails once in turn: a failed init returns a text and
// leaves no model, a run after a good init still runs, and nothing leaks.
TEST_F(Bridge, AllocationFailures) {
    for (long n = 1;; ++n) {
        HostCall call;
        init(call, kModel, true);
        KvAllocFailAt(n);
        call.invoke(FnInitAlgebraNls);
        HostCall run;
        run.row(0, {1.0, 0.5, 0.0}).num(1, 1).num(2, 5);
        run.invoke(FnRunAlgebraNls);
        HostCall exit;
        exit.invoke(FnExitAlgebraNls);
        const long made = KvAllocFailAt(0);
        const bool initFailed = call.result.type == LUMO_STRING;
        if (initFailed) {
            EXPECT_EQ(run.text(), "Algebra run error") << n;
        } else {
            if (run.result.type == LUMO_STRING) { // a run that could not have its memory
                EXPECT_NE(run.text(), "") << n;
            } else {
                EXPECT_EQ(run.status(), 1) << n;
            }
        }
        if (made < n) {
            EXPECT_FALSE(initFailed);
            EXPECT_EQ(run.status(), 1);
            break;
        }
    }
}

// The forecasts' identities step, whose values test_forecast_identities.cpp checks through
// FnDynForc: it writes only the column asked for, and a fault, an observation outside the sample
// and too little room for the model's variables each return 0 (the room there is still filled).
TEST_F(Bridge, IdentityStepFailures) {
    HostCall call;
    init(call, "&0 = 2; level = &0 * x + c; ratio = level / x;", true);
    ASSERT_EQ(call.invoke(FnInitAlgebraNls), 1);
    const double endog[2] = {10.0, 1.0}, zero[1] = {0.0};
    double ident[2] = {0.0, 0.0};
    EXPECT_EQ(AlgebraNlsIdentityStep(3, endog, 2, ident, 1), 0);
    EXPECT_EQ(ident[0], 21.0);
    EXPECT_EQ(variable("x", 2, 4), (Vec{4.0, 10.0, 5.0}));
    EXPECT_EQ(AlgebraNlsIdentityStep(0, zero, 1, ident, 2), 0); // 1 / 0: a fault
    EXPECT_EQ(AlgebraNlsIdentityStep(6, endog, 2, ident, 2), 0);
}

} // namespace
