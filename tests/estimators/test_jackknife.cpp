// The jackknife covariance through the host: against R's leave-one-out refits and, through
// MacKinnon and White's identity, sandwich's HC3; against brute-force refits in long double on
// small samples, one with a point of high leverage; a leverage of 1, bad input and allocation
// failures.
#include <cmath>

#include "estimators/exports_sample.h"
#include "estimators/frame_checks.h"
#include "kavrel/kavrel.h"

namespace {

// FnJackknifeHCSE(X, e, (X'X)^-1) for the least-squares fit of y on X.
void jackknifeCall(HostCall &c, const Vec &X, const Vec &y, int k) {
    const LeastSquares ls = FitLeastSquares(X, y, k);
    Vec inv;
    for (const LVec &row : ls.inv)
        for (const long double v : row) inv.push_back(static_cast<double>(v));
    c.mat(0, static_cast<int>(y.size()), k, X).col(1, ls.e).mat(2, k, k, inv);
}

TEST(JackknifeHCSE, AgainstR) {
    const ExportsSample s = ReadExportsSample();
    const int T = s.n(), k = 3;
    HostCall c;
    jackknifeCall(c, s.X, s.z, k);
    ASSERT_EQ(c.invoke(FnJackknifeHCSE), 1);
    const Vec jk = c.values();
    ExpectClose(jk, s.r.at("jackknife"), 1e-10, "leave-one-out refits in R");
    // MacKinnon and White: JK = ((T-1)/T) (HC3 - A X'u u'X A / T), u_t = e_t / (1 - h_t).
    const LeastSquares ls = FitLeastSquares(s.X, s.z, k);
    LVec g(k, 0.0L); // A X'u
    for (int t = 0; t < T; ++t) {
        long double h = 0.0L;
        for (int j = 0; j < k; ++j)
            for (int l = 0; l < k; ++l) h += s.X[t * k + j] * ls.inv[j][l] * s.X[t * k + l];
        for (int j = 0; j < k; ++j)
            for (int l = 0; l < k; ++l) g[j] += ls.inv[j][l] * s.X[t * k + l] * ls.e[t] / (1.0L - h);
    }
    const Vec &hc3 = s.r.at("hc3");
    Vec want(k * k);
    for (int j = 0; j < k; ++j)
        for (int l = 0; l < k; ++l)
            want[j * k + l] = static_cast<double>((T - 1.0L) / T * (hc3[j * k + l] - g[j] * g[l] / T));
    ExpectClose(jk, want, 1e-10, "HC3 of sandwich::vcovHC");
}

// ((T-1)/T) sum_t (b_(t) - b_bar)(b_(t) - b_bar)' from T refits in long double.
LVec bruteForce(const Vec &X, const Vec &y, int k) {
    const int T = static_cast<int>(y.size());
    std::vector<LVec> b(T);
    LVec mean(k, 0.0L);
    for (int t = 0; t < T; ++t) {
        Vec Xt = X, yt = y;
        Xt.erase(Xt.begin() + t * k, Xt.begin() + (t + 1) * k);
        yt.erase(yt.begin() + t);
        b[t] = FitLeastSquares(Xt, yt, k).b;
        for (int j = 0; j < k; ++j) mean[j] += b[t][j] / T;
    }
    LVec v(k * k, 0.0L);
    for (int t = 0; t < T; ++t)
        for (int j = 0; j < k; ++j)
            for (int l = 0; l < k; ++l) v[j * k + l] += (T - 1.0L) / T * (b[t][j] - mean[j]) * (b[t][l] - mean[l]);
    return v;
}

TEST(JackknifeHCSE, AgainstLeaveOneOutRefits) {
    const int T = 12, k = 3;
    Vec X, y = Lcg{51}.draws(T);
    Lcg g{52};
    for (int t = 0; t < T; ++t) X.insert(X.end(), {1.0, g.next(), g.next()});
    Vec lever = X; // observation 4 far from the others: a leverage close to 1
    lever[4 * k + 1] = 12.0;
    lever[4 * k + 2] = -9.0;
    const struct {
        const char *what;
        const Vec &X;
    } rows[] = {{"uniform design", X}, {"a point of high leverage", lever}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        HostCall c;
        jackknifeCall(c, r.X, y, k);
        ASSERT_EQ(c.invoke(FnJackknifeHCSE), 1);
        ExpectClose(c.values(), bruteForce(r.X, y, k), 1e-11);
    }
}

TEST(JackknifeHCSE, LeverageOfOneGivesAnEmptyMatrix) {
    // A dummy for observation 2 fits it exactly: without it the dummy's coefficient is undefined.
    const int T = 6, k = 2;
    Vec X;
    for (int t = 0; t < T; ++t) X.insert(X.end(), {1.0, t == 2 ? 1.0 : 0.0});
    HostCall c;
    jackknifeCall(c, X, {1, 3, 2, 5, 4, 6}, k);
    c.preset();
    ASSERT_EQ(c.invoke(FnJackknifeHCSE), 1);
    EXPECT_EQ(c.result.type, LUMO_MATRIX);
    EXPECT_EQ(c.result.v.w.ival, 0);
    EXPECT_EQ(c.result.v.w.u.cols, 0);
}

void jackknifeArgs(HostCall &c) {
    Vec X;
    Lcg g{53};
    for (int t = 0; t < 8; ++t) X.insert(X.end(), {1.0, g.next()});
    jackknifeCall(c, X, Lcg{54}.draws(8), 2);
}

TEST(JackknifeHCSE, BadInputLeavesTheResult) {
    const BadInput rows[] = {
        // clang-format off
        {"inverse a double", [](HostCall &c) { c.dbl(2, 1.0); }, "argument 2: matrix expected, double found"},
        {"X without rows", [](HostCall &c) { c.mat(0, 0, 2, {}); }, ""},
        {"X without columns", [](HostCall &c) { c.mat(0, 8, 0, {}); }, ""},
        {"residuals of other length", [](HostCall &c) { c.col(1, {1, 2}); }, ""},
        {"inverse 2 x 3", [](HostCall &c) { c.mat(2, 2, 3, Vec(6, 1.0)); }, ""},
        {"inverse 3 x 2", [](HostCall &c) { c.mat(2, 3, 2, Vec(6, 1.0)); }, ""},
        // clang-format on
    };
    CheckBadInput(FnJackknifeHCSE, jackknifeArgs, rows, [](const HostCall &c) { EXPECT_EQ(c.status(), 99); });
}

TEST(JackknifeHCSE, AllocationFailures) {
    // The library's scratch: a 0 x 0 matrix; the host's two allocations: the result left empty.
    const auto counts = CheckAllocationFailures(FnJackknifeHCSE, jackknifeArgs, 2, [](const HostCall &c, bool host) {
        EXPECT_EQ(c.result.type, host ? LUMO_EMPTY : LUMO_MATRIX);
        EXPECT_TRUE(c.values().empty());
    });
    EXPECT_EQ(counts.first, 1);
    EXPECT_EQ(counts.second, 2);
}

} // namespace
