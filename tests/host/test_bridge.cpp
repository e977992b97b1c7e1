// The estimation bridge through the host's values: every failure text, runs for successive
// parameter vectors against the same program compiled with the values written in as constants,
// reading variables back, allocation failures over init, run and exit, and the identity step of
// forecasts (a level forecast through FnDynForc against the level summed by hand, the step's
// failures). Leaks are LeakSanitizer's to find.
#include <gtest/gtest.h>

#include <string>

#include "algebra/algebra.h"
#include "algebra/bridge.h"
#include "common/fault.h"
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
    // FnInitAlgebraNls from 2001(1), quarterly, over x and c (a constant 1) unless other data
    // (observations in rows) are given; with the two outputs when params is set.
    static void init(HostCall &call, const char *text, bool params, Vec data = {},
                     const std::vector<const char *> &names = {"x", "c"}) {
        if (data.empty())
            for (const double x : kX) data.insert(data.end(), {x, 1.0});
        const int vars = static_cast<int>(names.size());
        call.mat(0, static_cast<int>(data.size()) / vars, vars, data).strs(1, names);
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
    HostCall wrong; // a parameter vector of the wrong length
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
    // The host's variables first, then the model's; past them the empty name.
    const std::string names[] = {"x", "c", "y", "z", ""};
    for (int i = 0; i < 5; ++i) {
        HostCall name;
        name.num(0, i).invoke(FnGetAlgebraName);
        EXPECT_EQ(name.text(), names[i]) << i;
    }
    EXPECT_EQ(variable("z", 2, 99), (Vec{13.0, 10.0, 16.0, 22.0})); // last clipped
    HostCall selected;
    selected.str(0, "y").num(1, 1).num(2, 4).row(3, {1.0, 0.0, 2.5, -0.5, 1.0, 1.0}).invoke(FnGetAlgebraVar);
    EXPECT_EQ(selected.values(), (Vec{12.0, 15.0}));
    HostCall unknown; // names are matched exactly
    unknown.str(0, "Y").num(1, 0).num(2, 5).num(3, 0).preset();
    unknown.invoke(FnGetAlgebraVar);
    EXPECT_EQ(unknown.status(), 99);
    HostCall added;
    added.ref(0, 1).invoke(FnGetAlgebraAddedData);
    EXPECT_EQ(added.out(0), (Vec{3, 4, 6, 7, 12, 13, 9, 10, 15, 16, 21, 22}));
    ASSERT_EQ(LumoValGetArrayCount(&added.targets[1]), 2);
    EXPECT_STREQ(LumoValGetString(LumoValGetArrayVal(&added.targets[1], 0)), "y");
    EXPECT_STREQ(LumoValGetString(LumoValGetArrayVal(&added.targets[1], 1)), "z");
}

// Every allocation of init, run and exit fails once in turn: a failed init returns a text and
// leaves no model, a run after a good init runs or reports, and nothing leaks.
TEST_F(Bridge, AllocationFailures) {
    const long runs = ForEachLibraryAllocationFailure([&](long n) {
        HostCall call, run, exit;
        init(call, kModel, true);
        run.row(0, {1.0, 0.5, 0.0}).num(1, 1).num(2, 5);
        KvAllocFailAt(n); // counted from here, after the arguments are made
        call.invoke(FnInitAlgebraNls);
        run.invoke(FnRunAlgebraNls);
        exit.invoke(FnExitAlgebraNls);
        const bool fired = KvAllocCount() >= n, initFailed = call.result.type == LUMO_STRING;
        if (initFailed) {
            EXPECT_EQ(run.text(), "Algebra run error") << n;
        } else if (run.result.type == LUMO_STRING) { // a run that could not have its memory
            EXPECT_NE(run.text(), "") << n;
        } else {
            EXPECT_EQ(run.status(), 1) << n;
        }
        if (!fired) {
            EXPECT_FALSE(initFailed);
            EXPECT_EQ(run.status(), 1);
        }
    });
    EXPECT_GT(runs, 0);
}

// dy follows an AR(1) with a constant; the model adds the level lvl = lvl[-1] + dy, anchored by
// data at observation 3. The forecast's identity row is the level summed by hand from the forecast
// differences, its standard errors those of the summed MA coefficients (the differences' own row
// is the forecast tests' business).
TEST_F(Bridge, ForecastIdentityEqualsTheLevelByHand) {
    const int T = 12, anchor = 3, t1 = 4, t2 = 10, n = t2 - t1 + 1;
    const double c0 = 0.5, phi = 0.3, sigma2 = 0.2;
    const Vec dy = {0.3, -0.1, 0.4, 0.8, 0.2, 0.1, -0.3, 0.5, 0.6, 0.0, 0.2, 0.1};
    Vec data, reg(T, 0.0);
    for (int t = 0; t < T; ++t) data.insert(data.end(), {dy[t], t == anchor ? 1.0 : 0.0, 100.0});
    HostCall call, run, c;
    init(call, "lvl = f > 0 ? base : lvl[-1] + dy;", false, data, {"dy", "f", "base"});
    ASSERT_EQ(call.invoke(FnInitAlgebraNls), 1);
    ASSERT_EQ(call.result.type, LUMO_EMPTY) << call.text();
    run.mat(0, 0, 0, {}).num(1, 0).num(2, anchor); // the level up to the anchor
    ASSERT_EQ(run.invoke(FnRunAlgebraNls), 1);
    // Regressors dy(-1) and a constant.
    for (int t = 1; t < T; ++t) reg[t] = dy[t - 1];
    reg.insert(reg.end(), T, 1.0);
    c.mat(0, 1, T, dy).mat(1, 2, T, reg).num(2, t1).num(3, t2).num(4, 0).num(5, 1).num(6, 1);
    c.row(7, {1, 1, 2}).row(8, {1, 1, 0}).row(9, {0, 1, 0}).mat(10, 1, 2, {phi, c0}).mat(11, 1, 1, {sigma2});
    c.num(12, 0).num(13, 0).num(14, 0).num(15, 0).ref(16).num(17, 1).num(18, anchor);
    ASSERT_EQ(c.invoke(FnDynForc), 1);
    const Vec got = c.values(), se = c.out(16);
    ASSERT_EQ(got.size(), 2u * n);
    ASSERT_EQ(se.size(), 2u * n);
    double f = dy[t1 - 1], level = 100.0, psi = 1.0, cumPsi = 0.0, varLevel = 0.0;
    for (int k = 0; k < n; ++k) {
        f = c0 + phi * f;
        level += f;
        cumPsi += psi; // the level's MA coefficient at lag k is the sum of dy's up to k
        varLevel += cumPsi * cumPsi * sigma2;
        psi *= phi;
        EXPECT_NEAR(got[n + k], level, 1e-12) << k;
        EXPECT_NEAR(se[n + k], std::sqrt(varLevel), 1e-7) << k;
    }
}

// The identity step writes only the column asked for, and a fault, an observation outside the
// sample and too little room for the model's variables each return 0.
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
