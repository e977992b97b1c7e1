// The parameter-constancy statistics through the host: against R (strucchange's Nyblom-Hansen
// test and the individual statistics computed in R) on least-squares residuals, against a direct
// long-double transcription of the definitions on arbitrary residuals, degenerate scores, bad
// input and the frame.
#include <cmath>

#include "estimators/exports_sample.h"
#include "estimators/frame_checks.h"
#include "kavrel/kavrel.h"

namespace {

TEST(InstabilityTest, AgainstR) {
    const ExportsSample s = ReadExportsSample();
    const int n = s.n();
    const LeastSquares ls = FitLeastSquares(s.X, s.z, 3);
    long double ee = 0.0L;
    for (const double e : ls.e) ee += static_cast<long double>(e) * e;
    // strucchange's mean squared norm of the standardised process over t = 1..n is L_c.
    const double joint = s.r.at("nyblom_hansen_meanL2")[0];
    for (const double sigma2 : {0.0, static_cast<double>(ee / n)}) {
        SCOPED_TRACE(::testing::Message() << "sigma2 " << sigma2);
        HostCall c;
        c.mat(0, n, 3, s.X).col(1, ls.e).dbl(2, sigma2).ref(3);
        ASSERT_EQ(c.invoke(FnInstabilityTest), 1);
        EXPECT_NEAR(c.value(), joint, 1e-10);
        ExpectClose(c.out(3), s.r.at("hansen_individual"), 1e-10);
    }
}

// The definitions in long double, V^-1 by elimination: L_i and L_c, on any residuals.
struct Statistics {
    LVec indiv;
    long double joint;
};
Statistics direct(const Vec &X, const Vec &e, int k, double sigma2) {
    const int T = static_cast<int>(e.size()), q = k + 1;
    std::vector<LVec> S(T, LVec(q));
    LMat V(q, LVec(q, 0.0L));
    LVec run(q, 0.0L);
    for (int t = 0; t < T; ++t) {
        LVec f(q);
        for (int j = 0; j < k; ++j) f[j] = static_cast<long double>(X[t * k + j]) * e[t];
        f[k] = static_cast<long double>(e[t]) * e[t] - sigma2;
        for (int j = 0; j < q; ++j) {
            S[t][j] = run[j] += f[j];
            for (int l = 0; l < q; ++l) V[j][l] += f[j] * f[l];
        }
    }
    std::vector<int> all(q);
    for (int j = 0; j < q; ++j) all[j] = j;
    const LMat Vinv = inverseOn(V, all);
    Statistics st{LVec(q, 0.0L), 0.0L};
    for (int t = 0; t < T; ++t)
        for (int j = 0; j < q; ++j) {
            st.indiv[j] += S[t][j] * S[t][j] / (T * V[j][j]);
            for (int l = 0; l < q; ++l) st.joint += S[t][j] * Vinv[j][l] * S[t][l] / T;
        }
    return st;
}

TEST(InstabilityTest, AgainstTheDefinitions) {
    const int T = 25, k = 2;
    const Vec X = Lcg{41}.draws(T * k), e = Lcg{42}.draws(T);
    long double ee = 0.0L;
    for (const double v : e) ee += static_cast<long double>(v) * v;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        const char *what;
        double sigma2, used;
    } rows[] = {
        {"sigma2 given", 0.7, 0.7},
        {"sigma2 0: e'e/T", 0.0, static_cast<double>(ee / T)},
        {"sigma2 negative: e'e/T", -1.0, static_cast<double>(ee / T)},
        {"sigma2 NaN: e'e/T", nan, static_cast<double>(ee / T)},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        HostCall c;
        c.mat(0, T, k, X).col(1, e).dbl(2, r.sigma2).ref(3);
        ASSERT_EQ(c.invoke(FnInstabilityTest), 1);
        const Statistics want = direct(X, e, k, r.used);
        EXPECT_NEAR(c.value(), static_cast<double>(want.joint), 1e-12 * static_cast<double>(want.joint));
        ExpectClose(c.out(3), want.indiv, 1e-12);
    }
}

TEST(InstabilityTest, ZeroRegressorGivesMissingStatistics) {
    // A regressor that is 0 throughout has no score: V is singular, so the joint statistic and
    // that regressor's own are missing; the others stand.
    const int T = 10;
    Vec X;
    const Vec e = Lcg{43}.draws(T);
    for (int t = 0; t < T; ++t) X.insert(X.end(), {1.0, 0.0});
    HostCall c;
    c.mat(0, T, 2, X).col(1, e).dbl(2, 0.0).ref(3);
    ASSERT_EQ(c.invoke(FnInstabilityTest), 1);
    EXPECT_TRUE(std::isnan(c.value()));
    const Vec indiv = c.out(3);
    ASSERT_EQ(indiv.size(), 3u);
    EXPECT_FALSE(std::isnan(indiv[0]));
    EXPECT_TRUE(std::isnan(indiv[1]));
    EXPECT_FALSE(std::isnan(indiv[2]));
}

void instabilityArgs(HostCall &c) { c.mat(0, 6, 2, Lcg{44}.draws(12)).col(1, Lcg{45}.draws(6)).dbl(2, 0.0).ref(3); }

TEST(InstabilityTest, BadInputSetsNothing) {
    const BadInput rows[] = {
        // clang-format off
        {"sigma2 an int", [](HostCall &c) { c.num(2, 1); }, "argument 2: double expected, int found"},
        {"residuals an int", [](HostCall &c) { c.num(1, 1); }, "argument 1: matrix expected, int found"},
        {"output by value", [](HostCall &c) { c.mat(3, 1, 3, Vec(3, 0.0)); },
         "argument 3: reference expected, matrix found"},
        {"X without rows", [](HostCall &c) { c.mat(0, 0, 2, {}); }, ""},
        {"X without columns", [](HostCall &c) { c.mat(0, 6, 0, {}); }, ""},
        {"residuals of other length", [](HostCall &c) { c.col(1, {1, 2, 3}); }, ""},
        // clang-format on
    };
    CheckBadInput(FnInstabilityTest, instabilityArgs, rows, [](const HostCall &c) {
        EXPECT_EQ(c.status(), 99);
        EXPECT_TRUE(c.outputs([&](int i) { return c.untouched(i); }));
    });
}

TEST(InstabilityTest, Frame) {
    // The library's one scratch block: -1.0 and missing individual statistics; a host failure:
    // -1.0 and the variable as it was.
    const auto counts =
        CheckAllocationFailures(FnInstabilityTest, instabilityArgs, 2, [](const HostCall &c, bool host) {
            EXPECT_EQ(c.value(), -1.0);
            if (host) {
                EXPECT_TRUE(c.untouched(3));
                return;
            }
            EXPECT_EQ(c.out(3).size(), 3u);
            EXPECT_TRUE(AllMissing(c.out(3)));
        });
    EXPECT_EQ(counts.first, 1);
    EXPECT_EQ(counts.second, 2);
    EXPECT_EQ(CheckOutputsNamingInputs(FnInstabilityTest, instabilityArgs), 1 * 3);
}

} // namespace
