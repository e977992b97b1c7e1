// The jackknife covariance through the host: against R's leave-one-out refits, against brute-force
// refits in long double with a point of high leverage, and a leverage of 1.
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

TEST(JackknifeHCSE, AgainstLeaveOneOutRefits) {
    // ((T-1)/T) sum_t (b_(t) - b_bar)(b_(t) - b_bar)' over T refits; observation 4 has a leverage near 1.
    const int T = 12, k = 3;
    Vec X, y = Lcg{51}.draws(T);
    Lcg g{52};
    for (int t = 0; t < T; ++t) X.insert(X.end(), {1.0, t == 4 ? 12.0 : g.next(), t == 4 ? -9.0 : g.next()});
    std::vector<LVec> b(T);
    LVec mean(k, 0.0L), want(k * k, 0.0L);
    for (int t = 0; t < T; ++t) {
        Vec Xt = X, yt = y;
        Xt.erase(Xt.begin() + t * k, Xt.begin() + (t + 1) * k);
        yt.erase(yt.begin() + t);
        b[t] = FitLeastSquares(Xt, yt, k).b;
        for (int j = 0; j < k; ++j) mean[j] += b[t][j] / T;
    }
    for (int t = 0; t < T; ++t)
        for (int j = 0; j < k * k; ++j)
            want[j] += (T - 1.0L) / T * (b[t][j / k] - mean[j / k]) * (b[t][j % k] - mean[j % k]);
    HostCall c;
    jackknifeCall(c, X, y, k);
    ASSERT_EQ(c.invoke(FnJackknifeHCSE), 1);
    ExpectClose(c.values(), want, 1e-11);
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
