// The frame rules of every estimator export, driven by tables over all of them: bad input (host
// type checks abandon the call, size and range checks return untouched, the likelihoods leave
// their missing result), allocation failure of each library and each host allocation in turn
// (the outcome the export defines, nothing leaked under LeakSanitizer, and a run after the last
// failure identical to an undisturbed one), and outputs omitted or passed by value.
#include <climits>

#include "common/fault.h"
#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

// One valid call of each export on small data.
void rlsArgs(HostCall &c) { // 2 equations, 3 regressors, rows 0..60, full refit forced at 30
    Lcg g{5};
    c.mat(0, 61, 2, g.draws(122)).mat(1, 61, 3, g.draws(183)).num(2, 0).num(3, 60).num(4, 30).ref(5, 11);
}
const Vec kE = {0.1, -0.3, 0.2, 0.4, -0.1};
void garchArgs(HostCall &c) {
    c.col(0, kE).col(1, Vec(5, 0.1)).row(2, {0, 0.9, 0.8}).num(3, 1).num(4, 1).num(5, 2).dbl(6, 0.1).dbl(7, 0);
    c.dbl(8, 0.1).ref(9, 10);
}
void egarchArgs(HostCall &c) {
    c.col(0, kE).col(1, Vec(5, 0.1)).dbl(2, 0.1).dbl(3, 0.2).dbl(4, 0.7).row(5, {0.1}).row(6, {0.5}).num(7, 2);
    c.dbl(8, 0.1).ref(9, 10);
}
void probitArgs(HostCall &c) {
    c.col(0, {0.3, -0.2}).col(1, {0, 1, 1, 0, 1}).mat(2, 5, 2, Lcg{3}.draws(10)).row(3, {1, 2, 1, 0.5, 1}).ref(4, 8);
}
void logitArgs(HostCall &c) { // 3 categories, one individual regressor, one attribute: 3 parameters
    Lcg g{4};
    c.row(0, {0.2, -0.1, 0.4}).col(1, {0, 1, 2, 1, 0}).num(2, 3).mat(3, 5, 1, g.draws(5)).mat(4, 5, 3, g.draws(15));
    c.col(5, {1, 1, 2, 1, 0.5}).mat(6, 5, 3, g.draws(15)).ref(7, 11);
}
void actFitArgs(HostCall &c) { c.col(0, {0, 1, 2, 1, 0}).mat(1, 5, 3, Lcg{6}.draws(15)); }
void filterArgs(HostCall &c) {
    c.mat(0, 3, 2, {0.5, 0.2, 0.3, 0.4, 0.1, 0.6}).mat(1, 2, 2, {0.9, 0.2, 0.1, 0.8}).row(2, {0.5, 0.5}).ref(3, 4);
}
void smoothArgs(HostCall &c) {
    c.mat(0, 3, 2, {0.5, 0.5, 0.3, 0.7, 0.9, 0.1}).mat(1, 2, 2, {0.9, 0.2, 0.1, 0.8}).ref(2, 3);
}
const Vec kY = {1, 3, 2, 5, 4, 6, 5, 8};
void deseasonArgs(HostCall &c) { c.col(0, kY).num(1, 2); }
void rsqArgs(HostCall &c) { c.col(0, kY).num(1, 2).dbl(2, 1.0).ref(3); }
void kronArgs(HostCall &c) {
    c.mat(0, 3, 2, {1, 2, 3, 4, 5, 6}).mat(1, 2, 2, {1, -1, 2, 3}).row(2, {0, 5}).row(3, {1, 3});
}
void glsArgs(HostCall &c) { c.mat(0, 4, 2, {1, 2, 3, 4, 5, 6, 7, 8}).mat(1, 4, 2, Lcg{8}.draws(8)).num(2, 1); }
// A VAR(1) of two equations with a constant: regressors y1(-1), y2(-1), 1 over 6 observations.
void forecastModel(HostCall &c) {
    Lcg g{9};
    c.mat(0, 2, 6, g.draws(12)).mat(1, 3, 6, g.draws(18)).num(2, 1).num(3, 5).num(4, 0).num(5, 1).num(6, 1);
    c.row(7, {1, 2, 1, 2, 3})
        .row(8, {1, 1, 1, 1, 0})
        .row(9, {0, 0, 1, 1, 0})
        .mat(10, 2, 3, {0.5, 0.1, 1, 0.2, 0.3, -1});
    c.mat(11, 2, 2, {0.5, 0.1, 0.1, 0.4});
}
void dynForcArgs(HostCall &c) { // h-step with the coefficient term
    forecastModel(c);
    Vec cov(36, 0.0);
    for (int i = 0; i < 6; ++i) cov[7 * i] = 0.01;
    c.mat(12, 6, 6, cov).num(13, 0).num(14, 0).num(15, 2).ref(16).num(17, 0).num(18, 0);
}
void impulseArgs(HostCall &c) {
    forecastModel(c);
    c.num(12, 0).num(13, 0).num(14, 1).num(15, 2);
}

bool sameValue(const LumoValue &a, const LumoValue &b) {
    if (a.type != b.type || (a.type == LUMO_INT && a.v.w.ival != b.v.w.ival)) return false;
    if (a.type == LUMO_DOUBLE) return std::memcmp(&a.v.dval, &b.v.dval, sizeof(double)) == 0;
    return a.type != LUMO_MATRIX ||
           (a.v.w.ival == b.v.w.ival && a.v.w.u.cols == b.v.w.u.cols && SameBits(HostValues(&a), HostValues(&b)));
}

// What a call leaves in the return record and in the caller's variables.
enum Result { KEEPS, ZERO, ONE, NAN_VALUE, NO_RESULT, ZEROS, SAME };
enum Outputs { UNTOUCHED, MISSING, ZEROED, OUTER_ZEROED, SAME_OUTPUTS };
struct Outcome {
    Result result;
    Outputs outputs;
};

bool zeros(const Vec &v) { return !v.empty() && v == Vec(v.size(), 0.0); }

bool resultHolds(Result r, const HostCall &c, const HostCall &clean) {
    switch (r) {
    case KEEPS: return c.status() == 99;
    case ZERO: return c.status() == 0;
    case ONE: return c.status() == 1;
    case NAN_VALUE: return std::isnan(c.value());
    case NO_RESULT: return c.result.type == LUMO_EMPTY;
    case ZEROS: return zeros(c.values());
    default: return sameValue(c.result, clean.result);
    }
}

// The variable of every output argument is left as the outcome says.
bool outputsHold(Outputs o, const HostCall &c, const HostCall &clean) {
    return c.outputs([&](int i) {
        const Vec w = c.out(i);
        switch (o) {
        case UNTOUCHED: return c.untouched(i);
        case MISSING: return c.targets[i].type == LUMO_MATRIX && AllMissing(w);
        case ZEROED: return zeros(w);
        case OUTER_ZEROED: // the probit's outer product (argument 8) is skipped, the rest as usual
            if (i == 8) return zeros(w);
            [[fallthrough]];
        default: return sameValue(c.targets[i], clean.targets[i]);
        }
    });
}

struct Export {
    const char *name;
    LumoExport fn;
    void (*args)(HostCall &);
};
const Export kRls{"rls", FnRlsEst, rlsArgs}, kGarch{"garch", FnGarchVar, garchArgs},
    kEgarch{"egarch", FnEgarchVar, egarchArgs}, kProbit{"probit", FnBinProbitRz, probitArgs},
    kLogit{"logit", FnLogitRz, logitArgs}, kActFit{"actfit", FnActFitTable, actFitArgs},
    kFilter{"filter", FnFilterMS, filterArgs}, kSmooth{"smooth", FnSmoothMS, smoothArgs},
    kSmooth2{"smooth2", FnSmoothMS2, smoothArgs}, kSmooth2sym{"smooth2sym", FnSmoothMS2sym, smoothArgs},
    kDeseason{"deseasonalize", FnDeSeasonalize, deseasonArgs}, kRsq{"seasonal rsq", FnSeasonalRsq, rsqArgs},
    kKron{"kronecker", FnKroneckerSel, kronArgs}, kGls{"long-run covariance", FnGLScovariance, glsArgs},
    kDynForc{"forecast", FnDynForc, dynForcArgs}, kImpulse{"impulse", FnImpulse, impulseArgs};

TEST(EstimatorExports, BadInput) {
    const Outcome REFUSED{KEEPS, UNTOUCHED}, STATUS0{ZERO, MISSING}, NAN_RESULT{NAN_VALUE, UNTOUCHED};
    using Edit = void (*)(HostCall &);
    // message: the host's report when a check abandons the call (empty when the export ran).
    const struct {
        const Export &x;
        const char *what;
        Edit edit;
        Outcome outcome;
        const char *message;
    } rows[] = {
        // clang-format off
        {kRls, "X a double", [](HostCall &c) { c.dbl(1, 1); }, REFUSED, "argument 1: matrix expected, double found"},
        {kRls, "force a matrix", [](HostCall &c) { c.row(4, {1}); }, REFUSED, "argument 4: int expected, matrix found"},
        {kRls, "last < first", [](HostCall &c) { c.num(2, 10).num(3, 9); }, REFUSED, ""},
        {kRls, "first < 0", [](HostCall &c) { c.num(2, -1); }, REFUSED, ""},
        {kRls, "last = INT_MAX", [](HostCall &c) { c.num(3, INT_MAX); }, REFUSED, ""},
        {kRls, "Y too short", [](HostCall &c) { c.args[0].v.w.ival = 60; }, REFUSED, ""},
        {kRls, "X too short", [](HostCall &c) { c.args[1].v.w.ival = 40; }, REFUSED, ""},
        {kRls, "Y columns < 0", [](HostCall &c) { c.args[0].v.w.u.cols = -1; }, REFUSED, ""},
        {kRls, "first + k > last", [](HostCall &c) { c.num(2, 45).num(3, 47); }, STATUS0, ""},
        {kRls, "no equations", [](HostCall &c) { c.args[0].v.w.u.cols = 0; }, STATUS0, ""},
        {kRls, "no regressors", [](HostCall &c) { c.args[1].v.w.u.cols = 0; }, STATUS0, ""},
        {kGarch, "e two columns", [](HostCall &c) { c.mat(0, 5, 2, Vec(10, 0.1)); }, REFUSED, ""},
        {kGarch, "negative p", [](HostCall &c) { c.num(3, -1); }, REFUSED, ""},
        {kGarch, "coef too short", [](HostCall &c) { c.num(3, 2); }, REFUSED, ""},
        {kGarch, "reference without target", [](HostCall &c) { LumoValSetRef(&c.args[10], nullptr); }, REFUSED, ""},
        {kGarch, "no observations", [](HostCall &c) { c.mat(0, 0, 1, {}).mat(1, 0, 1, {}); }, REFUSED, ""},
        {kGarch, "p a double", [](HostCall &c) { c.dbl(3, 1); }, REFUSED, "argument 3: int expected, double found"},
        {kGarch, "x of other length", [](HostCall &c) { c.col(1, {0.1}); }, REFUSED,
         "argument 1: 5 x 1 matrix expected, 1 x 1 found"},
        {kGarch, "output by value", [](HostCall &c) { c.col(10, kE); }, REFUSED,
         "argument 10: reference expected, matrix found"},
        {kEgarch, "a with columns, no rows", [](HostCall &c) { c.mat(5, 0, 2, {}); }, REFUSED, ""},
        {kEgarch, "theta an int", [](HostCall &c) { c.num(2, 1); }, REFUSED, "argument 2: double expected, int found"},
        {kProbit, "y two columns", [](HostCall &c) { c.mat(1, 5, 2, Vec(10, 1)); }, NAN_RESULT, ""},
        {kProbit, "X rows differ from n", [](HostCall &c) { c.mat(2, 4, 2, Vec(8, 1)); }, NAN_RESULT, ""},
        {kProbit, "X without columns", [](HostCall &c) { c.mat(2, 5, 0, {}).mat(0, 0, 0, {}); }, NAN_RESULT, ""},
        {kProbit, "beta count differs", [](HostCall &c) { c.col(0, {1, 2, 3}); }, NAN_RESULT, ""},
        {kProbit, "beta an int", [](HostCall &c) { c.num(0, 1); }, NAN_RESULT,
         "argument 0: matrix expected, int found"},
        {kLogit, "beta count differs", [](HostCall &c) { c.row(0, {1, 2, 3, 4}); }, NAN_RESULT, ""},
        {kLogit, "no categories", [](HostCall &c) { c.num(2, 0); }, NAN_RESULT, ""},
        {kLogit, "y without columns", [](HostCall &c) { c.mat(1, 5, 0, {}); }, NAN_RESULT, ""},
        {kActFit, "row counts differ", [](HostCall &c) { c.col(0, {0, 1, 2, 1}); }, REFUSED, ""},
        {kActFit, "too few indicator columns", [](HostCall &c) { c.mat(0, 5, 2, Vec(10, 1)); }, REFUSED, ""},
        {kFilter, "no observations", [](HostCall &c) { c.mat(0, 0, 2, {}); }, REFUSED, ""},
        {kFilter, "reference without target", [](HostCall &c) { LumoValSetRef(&c.args[3], nullptr); }, REFUSED, ""},
        {kFilter, "P 3 x 3", [](HostCall &c) { c.mat(1, 3, 3, Vec(9, 0.1)); }, REFUSED,
         "argument 1: 2 x 2 matrix expected, 3 x 3 found"},
        {kFilter, "init 2 x 1", [](HostCall &c) { c.col(2, {0.5, 0.5}); }, REFUSED,
         "argument 2: 1 x 2 matrix expected, 2 x 1 found"},
        {kSmooth, "output by value", [](HostCall &c) { c.num(2, 1); }, REFUSED,
         "argument 2: reference expected, int found"},
        {kDeseason, "s = 1", [](HostCall &c) { c.num(1, 1); }, REFUSED, ""},
        {kDeseason, "no rows", [](HostCall &c) { c.mat(0, 0, 1, {}); }, REFUSED, ""},
        {kDeseason, "no columns", [](HostCall &c) { c.mat(0, 8, 0, {}); }, REFUSED, ""},
        {kRsq, "y two columns", [](HostCall &c) { c.mat(0, 4, 2, kY); }, REFUSED, ""},
        {kRsq, "s = 1", [](HostCall &c) { c.num(1, 1); }, REFUSED, ""},
        {kRsq, "no rows", [](HostCall &c) { c.mat(0, 0, 1, {}); }, REFUSED, ""},
        {kKron, "R an int", [](HostCall &c) { c.num(2, 0); }, REFUSED, "argument 2: matrix expected, int found"},
        {kGls, "U with fewer rows than X", [](HostCall &c) { c.mat(1, 3, 2, Vec(6, 1)); }, REFUSED, ""},
        {kGls, "hac a double", [](HostCall &c) { c.dbl(2, 1); }, REFUSED, "argument 2: int expected, double found"},
        {kDynForc, "horizon a double", [](HostCall &c) { c.dbl(15, 1); }, REFUSED,
         "argument 15: int expected, double found"},
        {kDynForc, "t2 < t1", [](HostCall &c) { c.num(2, 4).num(3, 3); }, REFUSED, ""},
        {kDynForc, "horizon above the count", [](HostCall &c) { c.num(15, 6); }, REFUSED, ""},
        {kDynForc, "lag of an unmodelled variable", [](HostCall &c) { c.row(7, {1, 2, 1, 4, 3}); }, REFUSED, ""},
        {kDynForc, "lag out of range", [](HostCall &c) { c.row(9, {0, 0, 1, 100001, 0}); }, REFUSED, ""},
        {kDynForc, "one regressor too many", [](HostCall &c) { c.row(8, {1, 1, 1, 1, 1}); }, REFUSED, ""},
        {kDynForc, "descriptor too short", [](HostCall &c) { c.row(9, {0, 0, 1, 1}); }, REFUSED, ""},
        {kDynForc, "coefficients 2 x 2", [](HostCall &c) { c.mat(10, 2, 2, Vec(4, 0.1)); }, REFUSED, ""},
        {kDynForc, "no error covariance", [](HostCall &c) { c.mat(11, 0, 0, {}); }, REFUSED, ""},
        {kDynForc, "coefficient covariance 5 x 5", [](HostCall &c) { c.mat(12, 5, 5, Vec(25, 0.1)); }, REFUSED, ""},
        {kDynForc, "restriction of other size", [](HostCall &c) { c.mat(13, 6, 2, Vec(12, 1)).num(14, 3); }, REFUSED,
         ""},
        {kImpulse, "shock a matrix", [](HostCall &c) { c.row(14, {1}); }, REFUSED,
         "argument 14: int expected, matrix found"},
        {kImpulse, "t2 < t1", [](HostCall &c) { c.num(3, 0); }, REFUSED, ""},
        {kImpulse, "shock out of range", [](HostCall &c) { c.num(14, 2); }, REFUSED, ""},
        {kImpulse, "negative shock", [](HostCall &c) { c.num(14, -1); }, REFUSED, ""},
        {kImpulse, "bad kind", [](HostCall &c) { c.num(15, 4); }, REFUSED, ""},
        {kImpulse, "Cholesky fails", [](HostCall &c) { c.mat(11, 2, 2, {1, 2, 2, 1}); }, REFUSED, ""},
        {kImpulse, "kind 2, covariance not square", [](HostCall &c) { c.mat(11, 2, 1, {1, 2}); }, REFUSED, ""},
        {kImpulse, "kind 3 without vector", [](HostCall &c) { c.num(15, 3); }, REFUSED, ""},
        {kImpulse, "kind 3, vector too short", [](HostCall &c) { c.num(15, 3).row(13, {1}); }, REFUSED, ""},
        {kImpulse, "more modelled equations than variables", [](HostCall &c) { c.num(4, 0).mat(11, 3, 3, Vec(9, 1)); },
         REFUSED, ""},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(::testing::Message() << r.x.name << ": " << r.what);
        HostCall c;
        r.x.args(c);
        r.edit(c);
        c.preset();
        EXPECT_EQ(c.invoke(r.x.fn), r.message[0] ? 0 : 1);
        EXPECT_STREQ(LumoHostLastError(), r.message);
        EXPECT_TRUE(resultHolds(r.outcome.result, c, c));
        EXPECT_TRUE(outputsHold(r.outcome.outputs, c, c));
    }
}

TEST(EstimatorExports, AllocationFailures) {
    // Allocations of the library (scratch) and of the host (results), and what a failure leaves.
    const struct {
        const Export &x;
        long libAllocs;
        Outcome lib;
        long hostAllocs;
        Outcome host;
    } rows[] = {
        // clang-format off
        {kRls, 1, {ZERO, MISSING}, 14, {ZERO, UNTOUCHED}},
        {kGarch, 1, {ZERO, MISSING}, 4, {ZERO, UNTOUCHED}},
        {kEgarch, 1, {ONE, ZEROED}, 4, {ZERO, UNTOUCHED}},
        {kProbit, 1, {SAME, OUTER_ZEROED}, 10, {NAN_VALUE, UNTOUCHED}},
        {kLogit, 1, {NAN_VALUE, MISSING}, 10, {NAN_VALUE, UNTOUCHED}},
        {kActFit, 0, {}, 2, {NO_RESULT, UNTOUCHED}},
        {kFilter, 1, {ZERO, MISSING}, 4, {KEEPS, UNTOUCHED}},
        {kSmooth, 1, {ZERO, MISSING}, 4, {KEEPS, UNTOUCHED}},
        {kSmooth2, 1, {ZERO, MISSING}, 4, {KEEPS, UNTOUCHED}},
        {kSmooth2sym, 1, {ZERO, MISSING}, 4, {KEEPS, UNTOUCHED}},
        {kDeseason, 0, {}, 2, {NO_RESULT, UNTOUCHED}},
        {kRsq, 0, {}, 2, {NAN_VALUE, UNTOUCHED}},
        {kKron, 0, {}, 2, {NO_RESULT, UNTOUCHED}},
        {kGls, 2, {ZEROS, UNTOUCHED}, 2, {NO_RESULT, UNTOUCHED}},
        {kDynForc, 1, {KEEPS, UNTOUCHED}, 4, {KEEPS, UNTOUCHED}},
        {kImpulse, 1, {KEEPS, UNTOUCHED}, 2, {KEEPS, UNTOUCHED}},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.x.name);
        HostCall clean, c; // the arguments are built before counting starts
        r.x.args(clean);
        r.x.args(c);
        clean.preset();
        ASSERT_EQ(clean.invoke(r.x.fn), 1);
        auto run = [&](long n, bool host) {
            c.preset();
            ASSERT_EQ(c.invoke(r.x.fn), 1);
            const bool fired = host ? n <= r.hostAllocs : KvAllocCount() >= n;
            const Outcome o = fired ? (host ? r.host : r.lib) : Outcome{SAME, SAME_OUTPUTS};
            EXPECT_TRUE(resultHolds(o.result, c, clean)) << (host ? "host" : "library") << " allocation " << n;
            EXPECT_TRUE(outputsHold(o.outputs, c, clean)) << (host ? "host" : "library") << " allocation " << n;
        };
        EXPECT_EQ(ForEachLibraryAllocationFailure([&](long n) { run(n, false); }), r.libAllocs);
        EXPECT_EQ(ForEachHostAllocationFailure([&](long n) { run(n, true); }), r.hostAllocs);
    }
}

TEST(EstimatorExports, OmittedOutputsChangeNothingElse) {
    // Every subset of the optional outputs: a plain value in an output position is neither read
    // nor replaced, and what is asked for is bit for bit what a call with every output gives.
    const struct {
        const Export &x;
        int first, last;
    } rows[] = {{kRls, 5, 11}, {kProbit, 4, 8}, {kLogit, 7, 11}, {kFilter, 4, 4}};
    for (const auto &r : rows) {
        HostCall all;
        r.x.args(all);
        ASSERT_EQ(all.invoke(r.x.fn), 1);
        for (unsigned mask = 0; mask < 1u << (r.last - r.first + 1); ++mask) {
            SCOPED_TRACE(::testing::Message() << r.x.name << " mask " << mask);
            HostCall some;
            r.x.args(some);
            for (int i = r.first; i <= r.last; ++i)
                if (!(mask >> (i - r.first) & 1)) some.num(i, -3);
            ASSERT_EQ(some.invoke(r.x.fn), 1);
            EXPECT_TRUE(sameValue(some.result, all.result));
            for (int i = r.first; i <= r.last; ++i)
                EXPECT_TRUE(some.isOutput(i) ? sameValue(some.targets[i], all.targets[i])
                                             : some.args[i].v.w.ival == -3);
        }
    }
}

TEST(EstimatorExports, OutputNamingAnInputIsSafe) {
    // A host program that filters or smooths in place passes the input's own variable as an
    // output. Every (output, input) pair of every export with outputs: the call reads all its
    // inputs before it writes, so under AddressSanitizer nothing is read from released storage,
    // and the variable ends holding exactly the output of a call without aliasing.
    const Export *exports[] = {&kRls,    &kGarch,   &kEgarch,     &kProbit, &kLogit,  &kFilter,
                               &kSmooth, &kSmooth2, &kSmooth2sym, &kRsq,    &kDynForc};
    int pairs = 0;
    for (const Export *x : exports) {
        HostCall clean;
        x->args(clean);
        ASSERT_EQ(clean.invoke(x->fn), 1);
        for (int out = 0; out < clean.count; ++out) {
            if (!clean.isOutput(out)) continue;
            for (int in = 0; in < clean.count; ++in) {
                if (clean.isOutput(in)) continue;
                SCOPED_TRACE(::testing::Message() << x->name << ": output " << out << " names input " << in);
                HostCall c;
                x->args(c);
                LumoValSetRef(&c.args[out], &c.args[in]);
                ++pairs;
                ASSERT_EQ(c.invoke(x->fn), 1) << LumoHostLastError();
                EXPECT_TRUE(sameValue(c.result, clean.result));
                EXPECT_TRUE(sameValue(c.args[in], clean.targets[out]));
                for (int other = 0; other < c.count; ++other)
                    if (c.isOutput(other)) {
                        EXPECT_TRUE(sameValue(c.targets[other], clean.targets[other])) << other;
                    }
            }
        }
    }
    EXPECT_EQ(pairs, 7 * 5 + 2 * 9 + 2 * 9 + 5 * 4 + 5 * 7 + 2 * 3 + 3 * 2 * 2 + 1 * 3 + 1 * 18);
}

TEST(EstimatorExports, RecursionOverManyEquations) {
    // 65,536 equations on one regressor: without the system statistic nothing of size n x n is
    // made, and the coefficients are the least-squares ones; with it, the n x n scratch (2^32
    // doubles) is refused, on a 32-bit build by the size check in size_t rather than by a
    // wrapped, too small block, and the call fails with status 0.
    const int n = 65536;
    const Vec x = {1, 2, 3};
    Vec y = Lcg{11}.draws(3 * static_cast<size_t>(n));
    const size_t limit = KvAllocSetLimit(size_t(1) << 30);
    for (const bool withStatistic : {false, true}) {
        SCOPED_TRACE(withStatistic ? "with the system statistic" : "without it");
        HostCall c;
        c.mat(0, 3, n, y).mat(1, 3, 1, x).num(2, 0).num(3, 2).num(4, -1).ref(5);
        if (withStatistic) c.ref(11);
        ASSERT_EQ(c.invoke(FnRlsEst), 1);
        EXPECT_EQ(c.status(), withStatistic ? 0 : 1);
        if (withStatistic) continue;
        const Vec coef = c.out(5); // n x 3, equation e in row e
        ASSERT_EQ(coef.size(), 3u * n);
        for (const int e : {0, 1, n - 1}) {
            const double sxy = x[0] * y[e] + x[1] * y[n + e] + x[2] * y[2 * n + e];
            EXPECT_NEAR(coef[3 * e + 2], sxy / 14.0, 1e-14) << "equation " << e;
        }
    }
    KvAllocSetLimit(limit);
}

TEST(EstimatorExports, KroneckerIndicesOfAnEmptyProduct) {
    // A factor without rows or columns leaves the product without valid indices, even those
    // that truncate to 0: every element is missing, and nothing is read through a null row.
    const struct {
        const char *what;
        int rA, cA, rB, cB;
        double r, c;
    } rows[] = {
        // clang-format off
        {"no rows in either factor", 0, 3, 0, 1048576, -0.5, 0.0},
        {"A without columns", 1, 0, 2, 2, -8.8e-280, -8.8e-280},
        {"B without rows", 2, 2, 0, 3, 0.0, 0.0},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        HostCall c;
        c.mat(0, r.rA, r.cA, {}).mat(1, r.rB, r.cB, {}).row(2, {r.r}).row(3, {r.c});
        ASSERT_EQ(c.invoke(FnKroneckerSel), 1);
        const Vec v = c.values();
        ASSERT_EQ(v.size(), 1u);
        EXPECT_TRUE(std::isnan(v[0]));
    }
}

} // namespace
