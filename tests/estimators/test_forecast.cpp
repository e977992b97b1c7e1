// Forecasts and impulse responses through the exports, against a VAR(2) with a constant and one
// exogenous regressor simulated directly here: dynamic and h-step paths, the error variance from
// MA coefficients computed by their own recursion, the coefficient term from numerical derivatives
// of the direct simulation, and impulses from Psi_j times the impulse vector.
#include <array>

#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

constexpr int kT = 40;
constexpr int kReg = 6; // y1(-1), y1(-2), y2(-1), y2(-2), constant, x
constexpr int kP = 2 * kReg;
using Path = std::array<Vec, 2>; // y_i at observation t in element t + 2 (two pre-sample values)

struct Var2 {
    double B[2][kReg] = {{0.5, -0.2, 0.1, 0.05, 0.3, 0.4}, {0.2, 0.1, 0.3, -0.1, -0.2, 0.25}};
    double omega[2][2] = {{0.5, 0.15}, {0.15, 0.3}};
    Path y;
    Vec x;
    Var2() {
        Lcg g{17};
        y = {g.draws(kT + 2), g.draws(kT + 2)};
        x = g.draws(kT);
    }
    double regressor(const Path &z, int j, int t) const {
        switch (j) {
        case 0: return z[0][t + 1];
        case 1: return z[0][t];
        case 2: return z[1][t + 1];
        case 3: return z[1][t];
        case 4: return 1.0;
        default: return x[t];
        }
    }
    // Actual data before s, forecasts from s through e.
    Path simulate(int s, int e) const {
        Path z = y;
        for (int t = s; t <= e; ++t)
            for (int i = 0; i < 2; ++i) {
                double v = 0.0;
                for (int j = 0; j < kReg; ++j) v += B[i][j] * regressor(z, j, t);
                z[i][t + 2] = v;
            }
        return z;
    }
    // Psi_j by the MA recursion Psi_j = A_1 Psi_{j-1} + A_2 Psi_{j-2}, row-major 2 x 2.
    std::vector<std::array<double, 4>> psi(int count) const {
        std::vector<std::array<double, 4>> p(count, {0, 0, 0, 0});
        p[0] = {1, 0, 0, 1};
        for (int j = 1; j < count; ++j)
            for (int l = 1; l <= 2 && l <= j; ++l)
                for (int a = 0; a < 2; ++a)
                    for (int b = 0; b < 2; ++b)
                        for (int c = 0; c < 2; ++c) // A_l[a][c] is the coefficient of y_c at lag l
                            p[j][2 * a + b] += B[a][2 * c + l - 1] * p[j - l][2 * c + b];
        return p;
    }
    // Diagonal of sum over j < k of Psi_j Omega Psi_j'.
    double errorVariance(int i, int k) const {
        const auto p = psi(k);
        double v = 0.0;
        for (int j = 0; j < k; ++j)
            for (int b = 0; b < 2; ++b)
                for (int c = 0; c < 2; ++c) v += p[j][2 * i + b] * omega[b][c] * p[j][2 * i + c];
        return v;
    }
};

// Endogenous data, regressor data and the descriptor, interleaved so that the map must reorder:
// y1 carries status 1 and y2 status 2, so the regressors are y1's lags, y2's lags, the rest.
void modelArgs(HostCall &c, const Var2 &m, int t1, int t2) {
    Vec endog, reg, coef;
    for (int i = 0; i < 2; ++i) endog.insert(endog.end(), m.y[i].begin() + 2, m.y[i].end());
    for (int j = 0; j < kReg; ++j)
        for (int t = 0; t < kT; ++t) reg.push_back(m.regressor(m.y, j, t));
    for (int i = 0; i < 2; ++i) coef.insert(coef.end(), m.B[i], m.B[i] + kReg);
    c.mat(0, 2, kT, endog).mat(1, kReg, kT, reg).num(2, t1).num(3, t2).num(4, 0).num(5, 1).num(6, 2);
    c.row(7, {10, 11, 20, 10, 11, 21, 10, 11}).row(8, {1, 2, 0, 1, 2, 0, 1, 2}).row(9, {0, 0, 0, 1, 1, 0, 2, 2});
    c.mat(10, 2, kReg, coef).mat(11, 2, 2, {m.omega[0][0], m.omega[0][1], m.omega[1][0], m.omega[1][1]});
    c.num(12, 0).num(13, 0).num(14, 0);
}

void forecastArgs(HostCall &c, const Var2 &m, int t1, int t2, int h, bool se) {
    modelArgs(c, m, t1, t2);
    c.num(15, h).num(17, 0).num(18, 0);
    if (se)
        c.ref(16);
    else
        c.num(16, 0);
}

// The h-step forecast of e as the direct simulation gives it: dynamic from t1 for the first h.
double hStep(const Var2 &m, int i, int t1, int h, int e) {
    const int origin = e < t1 + h ? t1 : e - h + 1;
    return m.simulate(origin, e)[i][e + 2];
}

TEST(Forecast, PathsEqualTheDirectSimulation) {
    const Var2 m;
    const struct { int t1, t2, h; } rows[] = {{7, 39, 0}, {7, 39, -4}, {5, 35, 1}, {5, 35, 3}, {0, 12, 13}};
    for (const auto &r : rows) {
        SCOPED_TRACE(::testing::Message() << "t1 " << r.t1 << " t2 " << r.t2 << " h " << r.h);
        HostCall c;
        forecastArgs(c, m, r.t1, r.t2, r.h, false);
        ASSERT_EQ(c.invoke(FnDynForc), 1);
        const int n = r.t2 - r.t1 + 1;
        Vec want;
        for (int i = 0; i < 2; ++i)
            for (int e = r.t1; e <= r.t2; ++e)
                want.push_back(r.h > 0 ? hStep(m, i, r.t1, r.h, e) : m.simulate(r.t1, r.t2)[i][e + 2]);
        ASSERT_EQ(c.values().size(), 2u * n);
        ExpectClose(c.values(), want, 1e-13);
    }
}

// Central-difference derivative of the direct forecast of y_i at e (from origin s) with respect
// to coefficient p (equation p / kReg, regressor p % kReg).
double coefficientSlope(const Var2 &m, int i, int s, int e, int p) {
    const double step = 1e-6;
    Var2 up = m, down = m;
    up.B[p / kReg][p % kReg] += step;
    down.B[p / kReg][p % kReg] -= step;
    return (up.simulate(s, e)[i][e + 2] - down.simulate(s, e)[i][e + 2]) / (2 * step);
}

TEST(Forecast, StandardErrors) {
    // Error part against the MA coefficients; the coefficient term g' V g against numerical
    // derivatives of the direct simulation, V given directly or as R V_gamma R'.
    const Var2 m;
    Lcg g{23};
    const int nFree = 4;
    const Vec R = g.draws(kP * nFree);
    auto spd = [&](int n) { // A A' / n + I / 10
        const Vec a = g.draws(static_cast<size_t>(n) * n);
        Vec v(static_cast<size_t>(n) * n, 0.0);
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c) {
                for (int k = 0; k < n; ++k) v[r * n + c] += a[r * n + k] * a[c * n + k] / n;
                if (r == c) v[r * n + c] += 0.1;
            }
        return v;
    };
    const Vec V = spd(kP), Vgamma = spd(nFree);
    Vec Vfull(kP * kP, 0.0); // R Vgamma R'
    for (int p = 0; p < kP; ++p)
        for (int q = 0; q < kP; ++q)
            for (int a = 0; a < nFree; ++a)
                for (int b = 0; b < nFree; ++b)
                    Vfull[p * kP + q] += R[p * nFree + a] * Vgamma[a * nFree + b] * R[q * nFree + b];
    enum Cov { NONE, FULL, RESTRICTED };
    const struct {
        int h;
        Cov cov;
    } rows[] = {{0, NONE}, {0, FULL}, {0, RESTRICTED}, {3, FULL}};
    const int t1 = 6, t2 = 26, n = t2 - t1 + 1;
    for (const auto &r : rows) {
        SCOPED_TRACE(::testing::Message() << "h " << r.h << " covariance " << r.cov);
        HostCall c;
        forecastArgs(c, m, t1, t2, r.h, true);
        if (r.cov == FULL) c.mat(12, kP, kP, V);
        if (r.cov == RESTRICTED) c.mat(12, nFree, nFree, Vgamma).mat(13, kP, nFree, R).num(14, nFree);
        ASSERT_EQ(c.invoke(FnDynForc), 1);
        Vec want;
        for (int i = 0; i < 2; ++i)
            for (int e = t1; e <= t2; ++e) {
                const int origin = r.h > 0 && e >= t1 + r.h ? e - r.h + 1 : t1;
                double v = m.errorVariance(i, e - origin + 1);
                if (r.cov != NONE) {
                    const Vec &cov = r.cov == FULL ? V : Vfull;
                    Vec grad(kP);
                    for (int p = 0; p < kP; ++p) grad[p] = coefficientSlope(m, i, origin, e, p);
                    for (int p = 0; p < kP; ++p)
                        for (int q = 0; q < kP; ++q) v += grad[p] * cov[p * kP + q] * grad[q];
                }
                want.push_back(std::sqrt(v));
            }
        ASSERT_EQ(c.out(16).size(), 2u * n);
        ExpectClose(c.out(16), want, r.cov == NONE ? 1e-13 : 1e-7);
    }
}

TEST(Impulse, KindsEqualPsiTimesTheImpulse) {
    const Var2 m;
    const double l00 = std::sqrt(m.omega[0][0]), l10 = m.omega[1][0] / l00;
    const double l11 = std::sqrt(m.omega[1][1] - l10 * l10);
    const struct {
        int kind, shock;
        std::array<double, 2> impulse;
    } rows[] = {
        {0, 0, {1, 0}},     {0, 1, {0, 1}},   {1, 1, {0, std::sqrt(m.omega[1][1])}},
        {2, 0, {l00, l10}}, {2, 1, {0, l11}}, {3, 1, {0.7, -1.2}},
    };
    const int t1 = 2, t2 = 20, n = t2 - t1 + 1;
    const auto psi = m.psi(n);
    for (const auto &r : rows) {
        SCOPED_TRACE(::testing::Message() << "kind " << r.kind << " shock " << r.shock);
        HostCall c;
        modelArgs(c, m, t1, t2);
        c.num(4, 1).num(14, r.shock).num(15, r.kind);
        if (r.kind == 3) c.row(13, {r.impulse[0], r.impulse[1]});
        ASSERT_EQ(c.invoke(FnImpulse), 1);
        Vec want;
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < n; ++j) want.push_back(psi[j][2 * i] * r.impulse[0] + psi[j][2 * i + 1] * r.impulse[1]);
        ExpectClose(c.values(), want, 1e-13);
    }
}

TEST(Impulse, IdentityBlockAndShortData) {
    // Three endogenous variables, only the first two in the error covariance (argument 4 zero):
    // s = y1(-1) + y2(-1) propagates the shock without carrying one. Endogenous data of 10
    // observations: responses from observation 10 on are not written.
    const Var2 m;
    Vec coef;
    for (int i = 0; i < 2; ++i) coef.insert(coef.end(), m.B[i], m.B[i] + kReg);
    coef.insert(coef.end(), {1, 0, 1, 0, 0, 0});
    HostCall c;
    modelArgs(c, m, 2, 20);
    c.mat(0, 3, 10, Vec(30, 0.0)).row(7, {10, 11, 12, 20, 10, 11, 21, 10, 11});
    c.row(8, {1, 2, 2, 0, 1, 2, 0, 1, 2}).row(9, {0, 0, 0, 0, 1, 1, 0, 2, 2}).mat(10, 3, kReg, coef);
    c.num(4, 0).num(14, 0).num(15, 0);
    ASSERT_EQ(c.invoke(FnImpulse), 1);
    const Vec got = c.values();
    ASSERT_EQ(got.size(), 3u * 19);
    const auto psi = m.psi(19);
    for (int j = 0; j < 19; ++j) {
        const double s = j == 0 ? 0.0 : psi[j - 1][0] + psi[j - 1][2];
        if (j + 2 < 10) {
            EXPECT_NEAR(got[2 * 19 + j], s, 1e-13) << j;
        } else {
            EXPECT_TRUE(std::isnan(got[2 * 19 + j])) << j;
        }
    }
}

} // namespace
