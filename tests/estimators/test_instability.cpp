// The parameter-constancy statistics through the host: against R (strucchange's Nyblom-Hansen
// test and the individual statistics computed in R) on least-squares residuals, against a direct
// long-double transcription of the definitions on arbitrary residuals, and degenerate scores.
#include <cmath>

#include "estimators/exports_sample.h"
#include "kavrel/kavrel.h"

namespace {

TEST(InstabilityTest, AgainstR) {
    // strucchange's mean squared norm of the standardised process over t = 1..n is L_c; sigma2 0: e'e/T.
    const ExportsSample s = ReadExportsSample();
    HostCall c;
    c.mat(0, s.n(), 3, s.X).col(1, FitLeastSquares(s.X, s.z, 3).e).dbl(2, 0.0).ref(3);
    ASSERT_EQ(c.invoke(FnInstabilityTest), 1);
    EXPECT_NEAR(c.value(), s.r.at("nyblom_hansen_meanL2")[0], 1e-10);
    ExpectClose(c.out(3), s.r.at("hansen_individual"), 1e-10);
}

TEST(InstabilityTest, AgainstTheDefinitions) {
    // L_i = sum_t S_tj^2 / (T V_jj) and L_c = sum_t S_t' V^-1 S_t / T in long double, f_t = (x_t e_t,
    // e_t^2 - sigma2), S_t its running sum, V = sum f_t f_t', sigma2 given (e'e/T when not: against R).
    const int T = 25, k = 2, q = k + 1;
    const double sigma2 = 0.7;
    const Vec X = Lcg{41}.draws(T * k), e = Lcg{42}.draws(T);
    std::vector<LVec> S(T, LVec(q));
    LMat V(q, LVec(q, 0.0L));
    LVec run(q, 0.0L), indiv(q, 0.0L);
    for (int t = 0; t < T; ++t) {
        LVec f(q, e[t] * static_cast<long double>(e[t]) - sigma2);
        for (int j = 0; j < k; ++j) f[j] = static_cast<long double>(X[t * k + j]) * e[t];
        for (int j = 0; j < q; ++j) {
            S[t][j] = run[j] += f[j];
            for (int l = 0; l < q; ++l) V[j][l] += f[j] * f[l];
        }
    }
    const LMat Vinv = inverseOn(V, {0, 1, 2});
    long double joint = 0.0L;
    for (int t = 0; t < T; ++t)
        for (int j = 0; j < q; ++j) {
            indiv[j] += S[t][j] * S[t][j] / (T * V[j][j]);
            for (int l = 0; l < q; ++l) joint += S[t][j] * Vinv[j][l] * S[t][l] / T;
        }
    HostCall c;
    c.mat(0, T, k, X).col(1, e).dbl(2, sigma2).ref(3);
    ASSERT_EQ(c.invoke(FnInstabilityTest), 1);
    EXPECT_NEAR(c.value(), static_cast<double>(joint), 1e-12 * static_cast<double>(joint));
    ExpectClose(c.out(3), indiv, 1e-12);
}

TEST(InstabilityTest, ZeroRegressorGivesMissingStatistics) {
    // A regressor that is 0 throughout has no score: V is singular, so the joint statistic and
    // that regressor's own are missing; the others stand.
    Vec X;
    for (int t = 0; t < 10; ++t) X.insert(X.end(), {1.0, 0.0});
    HostCall c;
    c.mat(0, 10, 2, X).col(1, Lcg{43}.draws(10)).dbl(2, 0.0).ref(3);
    ASSERT_EQ(c.invoke(FnInstabilityTest), 1);
    EXPECT_TRUE(std::isnan(c.value()));
    std::vector<bool> missing;
    for (const double v : c.out(3)) missing.push_back(std::isnan(v));
    EXPECT_EQ(missing, (std::vector<bool>{false, true, false}));
}

} // namespace
