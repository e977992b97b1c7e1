// Forecasts and impulse responses through the exports, against a VAR(2) with a constant and one
// exogenous regressor simulated directly here: dynamic and h-step paths, the error variance from
// the MA coefficients as powers of the companion matrix, and impulses from those coefficients
// times the Cholesky factor's columns.
#include <array>
#include <cstring>

#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

constexpr int kT = 40;
constexpr int kReg = 6;          // y1(-1), y1(-2), y2(-1), y2(-2), constant, x
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
        const double values[kReg] = {z[0][t + 1], z[0][t], z[1][t + 1], z[1][t], 1.0, x[t]};
        return values[j];
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
    // Psi_j, the top left 2 x 2 block of C^j for the companion matrix C = [A_1 A_2; I 0] of the
    // state (y1, y2, y1(-1), y2(-1)), row-major.
    std::vector<std::array<double, 4>> psi(int count) const {
        double C[4][4] = {}, P[4][4] = {};
        for (int a = 0; a < 2; ++a) {
            for (int c = 0; c < 2; ++c) {
                C[a][c] = B[a][2 * c];
                C[a][2 + c] = B[a][2 * c + 1];
            }
            C[2 + a][a] = 1.0;
        }
        for (int a = 0; a < 4; ++a) P[a][a] = 1.0;
        std::vector<std::array<double, 4>> p;
        for (int j = 0; j < count; ++j) {
            p.push_back({P[0][0], P[0][1], P[1][0], P[1][1]});
            double next[4][4] = {};
            for (int a = 0; a < 4; ++a)
                for (int b = 0; b < 4; ++b)
                    for (int c = 0; c < 4; ++c) next[a][b] += C[a][c] * P[c][b];
            std::memcpy(P, next, sizeof P);
        }
        return p;
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

// Central-difference derivative of the direct dynamic forecast of y_i at e from t1 with respect to
// coefficient p (equation p / kReg, regressor p % kReg).
double coefficientSlope(const Var2 &m, int i, int t1, int e, int p) {
    const double step = 1e-6;
    Var2 up = m, down = m;
    up.B[p / kReg][p % kReg] += step;
    down.B[p / kReg][p % kReg] -= step;
    return (up.simulate(t1, e)[i][e + 2] - down.simulate(t1, e)[i][e + 2]) / (2 * step);
}

TEST(Forecast, PathsAndStandardErrorsAgainstTheSimulation) {
    // Dynamic (h 0) from t1 and 3-step: the forecast of e from the data up to e - 3 alone (those of
    // the first three observations dynamic from t1), against the direct simulation from that
    // origin. The variance of an error j steps from its origin is the diagonal of the sum over
    // l < j of Psi_l Omega Psi_l' plus g' V g, g the forecast's gradient in the coefficients
    // (numerical derivatives of the simulation); V = R V_gamma R' given whole, by its factors, or
    // not at all, when the error part alone is the companion-matrix formula to rounding.
    constexpr int kP = 2 * kReg, kFree = 4;
    const Var2 m;
    Lcg g{23};
    const Vec R = g.draws(kP * kFree), a = g.draws(kFree * kFree);
    Vec Vgamma(kFree * kFree, 0.0), V(kP * kP, 0.0);
    for (int r = 0; r < kFree; ++r)
        for (int c = 0; c < kFree; ++c) {
            for (int k = 0; k < kFree; ++k) Vgamma[r * kFree + c] += a[r * kFree + k] * a[c * kFree + k];
            Vgamma[r * kFree + c] += r == c ? 0.1 : 0.0;
        }
    for (int p = 0; p < kP; ++p)
        for (int q = 0; q < kP; ++q)
            for (int x = 0; x < kFree; ++x)
                for (int y = 0; y < kFree; ++y)
                    V[p * kP + q] += R[p * kFree + x] * Vgamma[x * kFree + y] * R[q * kFree + y];
    const int t1 = 6, t2 = 26;
    const auto psi = m.psi(t2 - t1 + 1);
    enum Cov { WHOLE, FACTORS, NONE };
    const struct {
        int h;
        Cov cov;
    } rows[] = {{0, WHOLE}, {3, FACTORS}, {3, NONE}};
    for (const auto &r : rows) {
        const int h = r.h;
        SCOPED_TRACE(::testing::Message() << "h " << h << " covariance " << r.cov);
        HostCall c;
        modelArgs(c, m, t1, t2);
        c.num(15, h).ref(16).num(17, 0).num(18, 0);
        if (r.cov == WHOLE) c.mat(12, kP, kP, V);
        if (r.cov == FACTORS) c.mat(12, kFree, kFree, Vgamma).mat(13, kP, kFree, R).num(14, kFree);
        ASSERT_EQ(c.invoke(FnDynForc), 1);
        Vec want, se;
        for (int i = 0; i < 2; ++i)
            for (int e = t1; e <= t2; ++e) {
                const int origin = h > 0 && e >= t1 + h ? e - h + 1 : t1;
                want.push_back(m.simulate(origin, e)[i][e + 2]);
                double v = 0.0;
                for (int l = 0; l <= e - origin; ++l)
                    for (int b = 0; b < 2; ++b)
                        for (int d = 0; d < 2; ++d) v += psi[l][2 * i + b] * m.omega[b][d] * psi[l][2 * i + d];
                Vec grad(kP);
                for (int p = 0; p < kP && r.cov != NONE; ++p) grad[p] = coefficientSlope(m, i, origin, e, p);
                for (int p = 0; p < kP && r.cov != NONE; ++p)
                    for (int q = 0; q < kP; ++q) v += grad[p] * V[p * kP + q] * grad[q];
                se.push_back(std::sqrt(v));
            }
        ExpectClose(c.values(), want, 1e-13, "forecasts");
        ExpectClose(c.out(16), se, r.cov == NONE ? 1e-13 : 1e-7, "standard errors");
    }
}

TEST(Impulse, CholeskyImpulsesArePsiTimesTheFactorsColumns) {
    // Kind 2: the shock is column `shock` of the lower Cholesky factor of Omega.
    const Var2 m;
    const double l00 = std::sqrt(m.omega[0][0]), l10 = m.omega[1][0] / l00;
    const double l11 = std::sqrt(m.omega[1][1] - l10 * l10);
    const std::array<double, 2> columns[2] = {{l00, l10}, {0.0, l11}};
    const int t1 = 2, t2 = 20, n = t2 - t1 + 1;
    const auto psi = m.psi(n);
    for (int shock = 0; shock < 2; ++shock) {
        SCOPED_TRACE(::testing::Message() << "shock " << shock);
        HostCall c;
        modelArgs(c, m, t1, t2);
        c.num(4, 1).num(14, shock).num(15, 2);
        ASSERT_EQ(c.invoke(FnImpulse), 1);
        const auto &u = columns[shock];
        Vec want;
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < n; ++j) want.push_back(psi[j][2 * i] * u[0] + psi[j][2 * i + 1] * u[1]);
        ExpectClose(c.values(), want, 1e-13);
    }
}

} // namespace
