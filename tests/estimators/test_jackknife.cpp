// The jackknife covariance through the host: against R's leave-one-out refits of the stored sample,
// and a leverage of 1.
#include "estimators/exports_sample.h"
#include "kavrel/kavrel.h"

namespace {

// FnJackknifeHCSE(X, e, (X'X)^-1) for the least-squares fit of y on X.
void jackknifeCall(HostCall &c, const Vec &X, const Vec &y, int k) {
    const LeastSquares ls = FitLeastSquares(X, y, k);
    Vec inv;
    for (const LVec &row : ls.inv) inv.insert(inv.end(), row.begin(), row.end());
    c.mat(0, static_cast<int>(y.size()), k, X).col(1, ls.e).mat(2, k, k, inv);
}

TEST(JackknifeHCSE, AgainstR) {
    const ExportsSample s = ReadExportsSample();
    HostCall c;
    jackknifeCall(c, s.X, s.z, 3);
    ASSERT_EQ(c.invoke(FnJackknifeHCSE), 1);
    ExpectClose(c.values(), s.r.at("jackknife"), 1e-10);
}

TEST(JackknifeHCSE, LeverageOfOneGivesAnEmptyMatrix) {
    // A dummy for observation 2 fits it exactly: without it the dummy's coefficient is undefined.
    HostCall c;
    Vec X;
    for (int t = 0; t < 6; ++t) X.insert(X.end(), {1.0, t == 2 ? 1.0 : 0.0});
    jackknifeCall(c, X, {1, 3, 2, 5, 4, 6}, 2);
    ASSERT_EQ(c.invoke(FnJackknifeHCSE), 1);
    EXPECT_EQ(c.result.type, LUMO_MATRIX);
    EXPECT_TRUE(c.values().empty());
}

} // namespace
