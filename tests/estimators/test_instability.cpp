// The parameter-constancy statistics through the host: against R (strucchange's Nyblom-Hansen
// test and the individual statistics computed in R) on least-squares residuals, and degenerate
// scores.
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
