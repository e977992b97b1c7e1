// FnRivEst through the host against brute force: at every observation the two-stage least-squares
// problem over the sample so far is solved from its moment matrices in long double, and every
// output is rebuilt from those fits by its definition (docs/riv.md); a failed inversion.
#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

// Variables in rows: y, the regressors (the endogenous ones first), the instruments beyond the
// exogenous regressors, and one row the model does not use; observations in columns. The refits
// start after observation 3, a full inversion is forced at 61, and 260 observations take the
// recursion through several refit intervals.
constexpr int kEndo = 2, kRegs = 4, kExtra = 3, kInst = kRegs - kEndo + kExtra, kRows = kRegs + kExtra + 2;
constexpr int kFirst = 3, kLast = 260, kCols = kLast + 3, kForce = 61, kOut = 7;

// Instruments drive the endogenous regressors; the structural error shares a component with
// their first-stage errors, so that least squares would be inconsistent.
Vec makeData() {
    Vec d(static_cast<size_t>(kRows) * kCols);
    Lcg g{21};
    for (int t = 0; t < kCols; ++t) {
        auto at = [&](int v) -> double & { return d[static_cast<size_t>(v) * kCols + t]; };
        for (int i = 0; i < kInst; ++i) at(1 + kEndo + i) = i == 0 ? 1.0 : g.next();
        const double common = g.next();
        double y = 0.5 * g.next() + 0.8 * common;
        for (int j = 0; j < kRegs; ++j) {
            if (j < kEndo) {
                at(1 + j) = 0.6 * common + 0.3 * g.next();
                for (int i = 0; i < kInst; ++i) at(1 + j) += (0.5 + 0.25 * ((i + j) % 3)) * at(1 + kEndo + i);
            }
            y += (1.0 - 0.5 * j) * at(1 + j);
        }
        at(0) = y;
        at(kRows - 1) = g.next();
    }
    return d;
}

void rivCall(HostCall &c, const Vec &d) {
    c.mat(0, kRows, kCols, d).num(1, kEndo).num(2, kRegs).num(3, kExtra).num(4, kFirst).num(5, kLast);
    c.num(6, kForce).ref(kOut, kOut + 5);
}

// The six outputs (coefficients, standard errors, standardised innovations, innovations, RSS,
// Sargan), row-major with kLast + 1 columns, NaN where nothing is written.
std::vector<Vec> bruteForce(const Vec &d) {
    const int a = kRegs, m = kInst, cols = kLast + 1;
    std::vector<Vec> out;
    for (int rows : {a, a, 1, 1, 1, 1}) out.emplace_back(static_cast<size_t>(rows) * cols, NAN);
    LMat zz(m, LVec(m, 0.0L)), zx(m, LVec(a, 0.0L)), Qprev;
    LVec zy(m, 0.0L), bPrev;
    auto y = [&](int t) -> long double { return d[t]; };
    auto x = [&](int t, int j) -> long double { return d[static_cast<size_t>(1 + j) * kCols + t]; };
    auto z = [&](int t, int i) -> long double { return d[static_cast<size_t>(1 + kEndo + i) * kCols + t]; };
    for (int t = kFirst; t <= kLast; ++t) {
        for (int i = 0; i < m; ++i) {
            for (int l = 0; l < m; ++l) zz[i][l] += z(t, i) * z(t, l);
            for (int j = 0; j < a; ++j) zx[i][j] += z(t, i) * x(t, j);
            zy[i] += z(t, i) * y(t);
        }
        if (t < kFirst + m - 1) continue;
        // b = Q X'Z W Z'y, Q = (X'Z W Z'X)^-1, W = (Z'Z)^-1.
        const LMat W = inverseOn(zz, {0, 1, 2, 3, 4});
        LMat WZX(m, LVec(a, 0.0L)), M(a, LVec(a, 0.0L));
        LVec WZy(m, 0.0L), s(a, 0.0L), b(a, 0.0L);
        for (int i = 0; i < m; ++i)
            for (int l = 0; l < m; ++l) {
                WZy[i] += W[i][l] * zy[l];
                for (int j = 0; j < a; ++j) WZX[i][j] += W[i][l] * zx[l][j];
            }
        for (int j = 0; j < a; ++j)
            for (int i = 0; i < m; ++i) {
                s[j] += zx[i][j] * WZy[i];
                for (int l = 0; l < a; ++l) M[j][l] += zx[i][j] * WZX[i][l];
            }
        const LMat Q = inverseOn(M, {0, 1, 2, 3});
        for (int j = 0; j < a; ++j)
            for (int l = 0; l < a; ++l) b[j] += Q[j][l] * s[l];
        if (t >= kFirst + m) {
            long double v = y(t), f = 1.0L, rss = 0.0L, proj = 0.0L;
            for (int j = 0; j < a; ++j) {
                v -= bPrev[j] * x(t, j);
                for (int l = 0; l < a; ++l) f += x(t, j) * Qprev[j][l] * x(t, l);
            }
            LVec zu(m, 0.0L);
            for (int r = kFirst; r <= t; ++r) {
                long double u = y(r);
                for (int j = 0; j < a; ++j) u -= b[j] * x(r, j);
                rss += u * u;
                for (int i = 0; i < m; ++i) zu[i] += z(r, i) * u;
            }
            for (int i = 0; i < m; ++i)
                for (int l = 0; l < m; ++l) proj += zu[i] * W[i][l] * zu[l];
            const int n = t - kFirst + 1;
            for (int j = 0; j < a; ++j) {
                out[0][static_cast<size_t>(j) * cols + t] = static_cast<double>(b[j]);
                out[1][static_cast<size_t>(j) * cols + t] = static_cast<double>(std::sqrt(rss / (n - a) * Q[j][j]));
            }
            const long double vals[4] = {v / std::sqrt(f), v, rss, n * proj / rss};
            for (int i = 0; i < 4; ++i) out[2 + i][t] = static_cast<double>(vals[i]);
        }
        bPrev = b;
        Qprev = Q;
    }
    return out;
}

TEST(RivEst, MatchesBruteForceRefits) {
    const Vec d = makeData();
    const std::vector<Vec> want = bruteForce(d);
    HostCall c;
    rivCall(c, d);
    ASSERT_EQ(c.invoke(FnRivEst), 1) << LumoHostLastError();
    EXPECT_EQ(c.status(), 1);
    for (int i = 0; i < 6; ++i) ExpectClose(c.out(kOut + i), want[i], 1e-10, std::to_string(i).c_str());
}

TEST(RivEst, FailedInversionKeepsTheColumnsBefore) {
    // A missing instrument at observation 40: status 0, the columns from the first refit
    // (kFirst + kInst) to 39 written, the rest missing.
    Vec d = makeData();
    d[static_cast<size_t>(1 + kEndo + 1) * kCols + 40] = NAN;
    HostCall c;
    rivCall(c, d);
    ASSERT_EQ(c.invoke(FnRivEst), 1);
    EXPECT_EQ(c.status(), 0);
    for (int i = kOut; i < kOut + 6; ++i) {
        const Vec v = c.out(i);
        const size_t rows = v.size() / (kLast + 1);
        EXPECT_EQ(std::count_if(v.begin(), v.end(), [](double e) { return e == e; }), (40 - kFirst - kInst) * rows)
            << i;
    }
}

} // namespace
