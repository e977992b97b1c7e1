// The frame rules of every estimator export, driven by tables over all of them: bad input (host
// type checks abandon the call, size and range checks return untouched, the likelihoods leave
// their missing result), allocation failure of each library and each host allocation in turn
// (the outcome the export defines, nothing leaked under LeakSanitizer, and a run after the last
// failure identical to an undisturbed one), outputs passed by value, and every output
// naming every input.
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
void derivArgs(HostCall &c) { // 4 categories, 3 regressors, observations 2..9 of 30
    c.row(0, Lcg{31}.draws(9)).mat(1, 30, 3, Lcg{32}.draws(90)).num(2, 4).num(3, 2).num(4, 9);
}
void actFitArgs(HostCall &c) { c.col(0, {0, 1, 2, 1, 0}).mat(1, 5, 3, Lcg{6}.draws(15)); }
void countArgs(HostCall &c) { // NB2 with log alpha estimated
    c.col(0, {0.3, -0.2, -0.7}).col(1, {1, 0, 4, 2, 0}).mat(2, 5, 2, {1, 0.5, 1, -0.3, 1, 0.8, 1, 0.1, 1, -1});
    c.num(3, 1).num(4, 0).num(5, 4).dbl(6, 0.0).ref(7, 11);
}
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
void comfacArgs(HostCall &c) { // ADL(2; 2, 2), statistics of orders 1 and 2
    Vec V(81, 0.0);
    for (int i = 0; i < 9; ++i) V[10 * i] = 0.1;
    c.row(0, {0.2, 1.1, -0.28, 1.0, -0.5, 0.1, 0.4, 0.3, -0.2}).mat(1, 9, 9, V).row(2, {2, 2, 2}).row(3, {1, 2});
    c.row(4, {3, 4, 5, 6, 7, 8}).dbl(5, 0.0).num(6, 2).ref(7, 8);
}
void encompassingArgs(HostCall &c) { // y, then model 1: 1, x1, x2; model 2 shares 1, x1 and adds z
    Vec d = Lcg{12}.draws(80);
    for (int t = 0; t < 20; ++t) d[4 * t + 1] = 1.0;
    c.mat(0, 20, 4, d).num(1, 3).num(2, 2).num(3, 1).mat(4, 20, 1, Lcg{13}.draws(20)).num(5, 0).num(6, 19);
    c.num(7, 0).ref(8, 10);
}
void fracArgs(HostCall &c) { c.row(0, {0.5, 0.3}).num(1, 1).num(2, 1).dbl(3, 0.2).num(4, 4).ref(5); }
void instabilityArgs(HostCall &c) { c.mat(0, 6, 2, Lcg{44}.draws(12)).col(1, Lcg{45}.draws(6)).dbl(2, 0.0).ref(3); }
void jackknifeArgs(HostCall &c) { // X = (1, x), residuals, (X'X)^-1: every leverage below 1
    const Vec x = Lcg{53}.draws(8);
    Vec X;
    double sx = 0, sxx = 0;
    for (const double v : x) sx += v, sxx += v * v, X.insert(X.end(), {1.0, v});
    const double det = 8 * sxx - sx * sx;
    c.mat(0, 8, 2, X).col(1, Lcg{54}.draws(8)).mat(2, 2, 2, {sxx / det, -sx / det, -sx / det, 8 / det});
}
void ralsFuncArgs(HostCall &c) { // AR(2) errors, a constant and one regressor, observations 2..29
    Vec X = Lcg{14}.draws(60);
    for (int t = 0; t < 30; ++t) X[2 * t] = 1.0;
    c.col(0, Lcg{15}.draws(30)).mat(1, 30, 2, X).row(2, {0.4, 0.1}).num(3, 2).num(4, 29).ref(5, 7);
}
void ralsForecastArgs(HostCall &c) { // AR(1), fitted over 1..25, four forecasts
    ralsFuncArgs(c);
    c.row(2, {0.4}).num(3, 1).num(4, 25).num(5, 4).col(6, {1, 1}).ref(7, 8);
}
void rivArgs(HostCall &c) { // y, x (endogenous), 1, w, two further instruments; observations 0..80
    Vec d = Lcg{21}.draws(6 * 83);
    std::fill(d.begin() + 2 * 83, d.begin() + 3 * 83, 1.0);
    c.mat(0, 6, 83, d).num(1, 1).num(2, 3).num(3, 2).num(4, 0).num(5, 80).num(6, -1).ref(7, 12);
}

// What a call leaves in the return record and in the caller's variables.
enum Result { KEEPS, ZERO, ONE, MINUS_ONE, NAN_VALUE, NO_RESULT, ZEROS, MISSING_MATRIX, SAME };
enum Outputs { UNTOUCHED, MISSING, ZEROED, OUTER_ZEROED, SAME_OUTPUTS };
struct Outcome {
    Result result;
    Outputs outputs;
};

bool sameValue(const LumoValue &a, const LumoValue &b) {
    if (a.type != b.type || (a.type == LUMO_INT && a.v.w.ival != b.v.w.ival)) return false;
    if (a.type == LUMO_DOUBLE) return std::memcmp(&a.v.dval, &b.v.dval, sizeof(double)) == 0;
    return a.type != LUMO_MATRIX ||
           (a.v.w.ival == b.v.w.ival && a.v.w.u.cols == b.v.w.u.cols && SameBits(HostValues(&a), HostValues(&b)));
}

bool zeros(const Vec &v) { return !v.empty() && v == Vec(v.size(), 0.0); }

// The result as a number: a status or a value, NaN for the missing value and for no matrix.
double resultNumber(const HostCall &c) {
    if (c.result.type == LUMO_INT) return c.result.v.w.ival;
    if (c.result.type == LUMO_DOUBLE) return c.result.v.dval;
    return c.values().empty() ? NAN : HUGE_VAL;
}

bool resultHolds(Result r, const HostCall &c, const HostCall &clean) {
    switch (r) {
    case KEEPS: return resultNumber(c) == 99;
    case ZERO: return resultNumber(c) == 0;
    case ONE: return resultNumber(c) == 1;
    case MINUS_ONE: return resultNumber(c) == -1;
    case NAN_VALUE: return std::isnan(resultNumber(c));
    case NO_RESULT: return c.result.type == LUMO_EMPTY;
    case ZEROS: return zeros(c.values());
    case MISSING_MATRIX: return !c.values().empty() && AllMissing(c.values());
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
    kLogit{"logit", FnLogitRz, logitArgs}, kDeriv{"logit derivatives", FnLogitProbDeriv, derivArgs},
    kActFit{"actfit", FnActFitTable, actFitArgs}, kCount{"count", FnCountRz, countArgs},
    kFilter{"filter", FnFilterMS, filterArgs}, kSmooth{"smooth", FnSmoothMS, smoothArgs},
    kSmooth2{"smooth2", FnSmoothMS2, smoothArgs}, kSmooth2sym{"smooth2sym", FnSmoothMS2sym, smoothArgs},
    kDeseason{"deseasonalize", FnDeSeasonalize, deseasonArgs}, kRsq{"seasonal rsq", FnSeasonalRsq, rsqArgs},
    kKron{"kronecker", FnKroneckerSel, kronArgs}, kGls{"long-run covariance", FnGLScovariance, glsArgs},
    kDynForc{"forecast", FnDynForc, dynForcArgs}, kImpulse{"impulse", FnImpulse, impulseArgs},
    kComfac{"comfac", FnComfac, comfacArgs}, kEncompassing{"encompassing", FnEncompassing, encompassingArgs},
    kFrac{"fracint", FnFracSigma, fracArgs}, kInstability{"instability", FnInstabilityTest, instabilityArgs},
    kJackknife{"jackknife", FnJackknifeHCSE, jackknifeArgs}, kRalsFunc{"rals", FnRalsFunc, ralsFuncArgs},
    kRalsForecast{"rals forecast", FnRalsForecast, ralsForecastArgs}, kRiv{"riv", FnRivEst, rivArgs};

TEST(EstimatorExports, BadInput) {
    const Outcome REFUSED{KEEPS, UNTOUCHED}, STATUS0{ZERO, MISSING}, NAN_RESULT{NAN_VALUE, UNTOUCHED},
        MINUS1{MINUS_ONE, UNTOUCHED};
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
        {kRls, "last = INT_MAX", [](HostCall &c) { c.num(3, INT_MAX); }, REFUSED, ""},
        {kRls, "first + k > last", [](HostCall &c) { c.num(2, 45).num(3, 47); }, STATUS0, ""},
        {kGarch, "coef too short", [](HostCall &c) { c.num(3, 2); }, REFUSED, ""},
        {kGarch, "x of other length", [](HostCall &c) { c.col(1, {0.1}); }, REFUSED,
         "argument 1: 5 x 1 matrix expected, 1 x 1 found"},
        {kGarch, "output by value", [](HostCall &c) { c.col(10, kE); }, REFUSED,
         "argument 10: reference expected, matrix found"},
        {kEgarch, "a with columns, no rows", [](HostCall &c) { c.mat(5, 0, 2, {}); }, REFUSED, ""},
        {kProbit, "y two columns", [](HostCall &c) { c.mat(1, 5, 2, Vec(10, 1)); }, NAN_RESULT, ""},
        {kProbit, "beta an int", [](HostCall &c) { c.num(0, 1); }, NAN_RESULT,
         "argument 0: matrix expected, int found"},
        {kLogit, "beta count differs", [](HostCall &c) { c.row(0, {1, 2, 3, 4}); }, NAN_RESULT, ""},
        {kDeriv, "last beyond the rows", [](HostCall &c) { c.num(4, 30); }, REFUSED, ""},
        {kActFit, "row counts differ", [](HostCall &c) { c.col(0, {0, 1, 2, 1}); }, REFUSED, ""},
        {kCount, "X rows differ from n", [](HostCall &c) { c.mat(2, 4, 2, Vec(8, 1)); }, NAN_RESULT, ""},
        {kFilter, "reference without target", [](HostCall &c) { LumoValSetRef(&c.args[3], nullptr); }, REFUSED, ""},
        {kDeseason, "s = 1", [](HostCall &c) { c.num(1, 1); }, REFUSED, ""},
        {kRsq, "y two columns", [](HostCall &c) { c.mat(0, 4, 2, kY); }, REFUSED, ""},
        {kGls, "U with fewer rows than X", [](HostCall &c) { c.mat(1, 3, 2, Vec(6, 1)); }, REFUSED, ""},
        {kDynForc, "lag of an unmodelled variable", [](HostCall &c) { c.row(7, {1, 2, 1, 4, 3}); }, REFUSED, ""},
        {kImpulse, "shock a matrix", [](HostCall &c) { c.row(14, {1}); }, REFUSED,
         "argument 14: int expected, matrix found"},
        {kImpulse, "Cholesky fails", [](HostCall &c) { c.mat(11, 2, 2, {1, 2, 2, 1}); }, REFUSED, ""},
        {kComfac, "tolerance an int", [](HostCall &c) { c.num(5, 0); }, MINUS1,
         "argument 5: double expected, int found"},
        {kComfac, "covariance 8 x 8", [](HostCall &c) { c.mat(1, 8, 8, Vec(64, 0.1)); }, MINUS1, ""},
        {kEncompassing, "shared > k1", [](HostCall &c) { c.num(2, 4); }, REFUSED, ""},
        {kEncompassing, "rows no more than the nesting model's columns", [](HostCall &c) { c.num(6, 3); }, STATUS0, ""},
        {kFrac, "p above the coefficients", [](HostCall &c) { c.num(1, 3); }, REFUSED, "argument 1 is invalid"},
        {kFrac, "d = 0.5", [](HostCall &c) { c.dbl(3, 0.5); }, STATUS0, ""},
        {kFrac, "double AR root too near the unit circle for the splitting sum",
         [](HostCall &c) { c.row(0, {1.99998, -0.9999800001, 0.3}).num(1, 2).num(2, 1); }, STATUS0, ""},
        {kInstability, "residuals of other length", [](HostCall &c) { c.col(1, {1, 2, 3}); }, REFUSED, ""},
        {kJackknife, "residuals of other length", [](HostCall &c) { c.col(1, {1, 2}); }, REFUSED, ""},
        {kRalsFunc, "no more observations than regressors", [](HostCall &c) { c.num(3, 28); }, NAN_RESULT, ""},
        {kRalsForecast, "X without the forecast rows", [](HostCall &c) { c.num(5, 5); }, REFUSED, ""},
        {kRiv, "last beyond the columns", [](HostCall &c) { c.num(5, 83); }, REFUSED, ""},
        {kRiv, "not identified", [](HostCall &c) { c.num(1, 3); }, STATUS0, ""},
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

// Allocations of the library (scratch) and of the host (results), what a failure of each leaves,
// and the (output, input) pairs of the aliasing check.
const struct {
    const Export &x;
    long libAllocs;
    Outcome lib;
    long hostAllocs;
    Outcome host;
    int pairs;
} kFrames[] = {
    // clang-format off
    {kRls, 1, {ZERO, MISSING}, 14, {ZERO, UNTOUCHED}, 7 * 5},
    {kGarch, 1, {ZERO, MISSING}, 4, {ZERO, UNTOUCHED}, 2 * 9},
    {kEgarch, 1, {ONE, ZEROED}, 4, {ZERO, UNTOUCHED}, 2 * 9},
    {kProbit, 1, {SAME, OUTER_ZEROED}, 10, {NAN_VALUE, UNTOUCHED}, 5 * 4},
    {kLogit, 1, {NAN_VALUE, MISSING}, 10, {NAN_VALUE, UNTOUCHED}, 5 * 7},
    {kDeriv, 1, {MISSING_MATRIX, UNTOUCHED}, 2, {NO_RESULT, UNTOUCHED}, 0},
    {kActFit, 0, {}, 2, {NO_RESULT, UNTOUCHED}, 0},
    {kCount, 0, {}, 10, {NAN_VALUE, UNTOUCHED}, 5 * 7},
    {kFilter, 1, {ZERO, MISSING}, 4, {KEEPS, UNTOUCHED}, 2 * 3},
    {kSmooth, 1, {ZERO, MISSING}, 4, {KEEPS, UNTOUCHED}, 2 * 2},
    {kSmooth2, 1, {ZERO, MISSING}, 4, {KEEPS, UNTOUCHED}, 2 * 2},
    {kSmooth2sym, 1, {ZERO, MISSING}, 4, {KEEPS, UNTOUCHED}, 2 * 2},
    {kDeseason, 0, {}, 2, {NO_RESULT, UNTOUCHED}, 0},
    {kRsq, 0, {}, 2, {NAN_VALUE, UNTOUCHED}, 1 * 3},
    {kKron, 0, {}, 2, {NO_RESULT, UNTOUCHED}, 0},
    {kGls, 2, {ZEROS, UNTOUCHED}, 2, {NO_RESULT, UNTOUCHED}, 0},
    {kDynForc, 1, {KEEPS, UNTOUCHED}, 4, {KEEPS, UNTOUCHED}, 1 * 18},
    {kImpulse, 1, {KEEPS, UNTOUCHED}, 2, {KEEPS, UNTOUCHED}, 0},
    {kComfac, 1, {MINUS_ONE, MISSING}, 4, {MINUS_ONE, UNTOUCHED}, 2 * 7},
    {kEncompassing, 1, {ZERO, MISSING}, 6, {ZERO, UNTOUCHED}, 3 * 8},
    {kFrac, 1, {ZERO, MISSING}, 2, {ZERO, UNTOUCHED}, 1 * 5},
    {kInstability, 1, {MINUS_ONE, MISSING}, 2, {MINUS_ONE, UNTOUCHED}, 1 * 3},
    {kJackknife, 1, {NAN_VALUE, UNTOUCHED}, 2, {NAN_VALUE, UNTOUCHED}, 0},
    {kRalsFunc, 1, {NAN_VALUE, MISSING}, 6, {NAN_VALUE, UNTOUCHED}, 3 * 5},
    {kRalsForecast, 0, {}, 4, {NAN_VALUE, UNTOUCHED}, 2 * 7},
    {kRiv, 1, {ZERO, MISSING}, 12, {ZERO, UNTOUCHED}, 6 * 7},
    // clang-format on
};

TEST(EstimatorExports, AllocationFailures) {
    for (const auto &r : kFrames) {
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

TEST(EstimatorExports, OutputNamingAnInputIsSafe) {
    // A host program that filters or smooths in place passes the input's own variable as an
    // output. Every (output, input) pair of every export with outputs: the call reads all its
    // inputs before it writes, so under AddressSanitizer nothing is read from released storage,
    // and the variable ends holding exactly the output of a call without aliasing.
    for (const auto &r : kFrames) {
        HostCall clean;
        r.x.args(clean);
        ASSERT_EQ(clean.invoke(r.x.fn), 1);
        int pairs = 0;
        for (int out = 0; out < clean.count; ++out) {
            if (!clean.isOutput(out)) continue;
            for (int in = 0; in < clean.count; ++in) {
                if (clean.isOutput(in)) continue;
                SCOPED_TRACE(::testing::Message() << r.x.name << ": output " << out << " names input " << in);
                HostCall c;
                r.x.args(c);
                LumoValSetRef(&c.args[out], &c.args[in]);
                ++pairs;
                ASSERT_EQ(c.invoke(r.x.fn), 1) << LumoHostLastError();
                EXPECT_TRUE(sameValue(c.result, clean.result));
                EXPECT_TRUE(sameValue(c.args[in], clean.targets[out]));
                for (int other = 0; other < c.count; ++other)
                    if (c.isOutput(other)) {
                        EXPECT_TRUE(sameValue(c.targets[other], clean.targets[other])) << other;
                    }
            }
        }
        EXPECT_EQ(pairs, r.pairs) << r.x.name;
    }
}

} // namespace
