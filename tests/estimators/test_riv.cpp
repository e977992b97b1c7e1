// FnRivEst through the host against brute force: at every observation the two-stage least-squares
// problem over the sample so far is solved from its moment matrices in long double, and every
// output is rebuilt from those fits by its definition (docs/riv.md); a failed inversion.
#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

constexpr int kFirstOut = 7;

// Variables in rows (y, the regressors with the endogenous ones first, the additional
// instruments, then `spare` rows the model does not use), observations in columns.
struct Shape {
    int endo, regs, extra, first, last, force;
    double level; // added to the instruments other than the constant
    int spare;
};
struct Problem : Shape {
    int cols;
    Vec d;
    int m() const { return regs - endo + extra; }
    int rows() const { return 1 + regs + extra + spare; }
    double at(int v, int t) const { return d[static_cast<size_t>(v) * cols + t]; }
};

// Instruments drive the endogenous regressors; the structural error shares a component with
// their first-stage errors, so that least squares would be inconsistent.
Problem makeProblem(const Shape &shape) {
    Problem p{shape, shape.last + 3, {}};
    p.d.assign(static_cast<size_t>(p.rows()) * p.cols, 0.0);
    Lcg g{21};
    auto set = [&](int v, int t, double x) { p.d[static_cast<size_t>(v) * p.cols + t] = x; };
    const int inst0 = 1 + p.endo; // data row of the first instrument
    for (int t = 0; t < p.cols; ++t) {
        for (int i = 0; i < p.m(); ++i) set(inst0 + i, t, i == 0 ? 1.0 : p.level + g.next());
        const double common = g.next();
        double y = 0.5 * g.next() + 0.8 * common;
        for (int j = 0; j < p.regs; ++j) {
            double x = p.at(1 + j, t);
            if (j < p.endo) {
                x = 0.6 * common + 0.3 * g.next();
                for (int i = 0; i < p.m(); ++i) x += (0.5 + 0.25 * ((i + j) % 3)) * p.at(inst0 + i, t) / (1 + p.level);
                set(1 + j, t, x);
            }
            y += (1.0 - 0.5 * j) * x;
        }
        set(0, t, y);
        for (int s = 0; s < p.spare; ++s) set(p.rows() - 1 - s, t, g.next());
    }
    return p;
}

void rivArgs(HostCall &c, const Problem &p) {
    c.mat(0, p.rows(), p.cols, p.d).num(1, p.endo).num(2, p.regs).num(3, p.extra).num(4, p.first).num(5, p.last);
    c.num(6, p.force).ref(kFirstOut, kFirstOut + 5);
}

// The six outputs (coefficients, standard errors, standardised innovations, innovations, RSS,
// Sargan), row-major with last+1 columns, NaN where nothing is written.
std::vector<Vec> bruteForce(const Problem &p) {
    const int a = p.regs, m = p.m(), cols = p.last + 1;
    std::vector<Vec> out;
    for (int rows : {a, a, 1, 1, 1, 1}) out.emplace_back(static_cast<size_t>(rows) * cols, NAN);
    LMat zz(m, LVec(m, 0.0L)), zx(m, LVec(a, 0.0L));
    LVec zy(m, 0.0L), bPrev;
    LMat Qprev;
    std::vector<int> all(static_cast<size_t>(std::max(a, m)));
    for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<int>(i);
    auto x = [&](int t, int j) -> long double { return p.at(1 + j, t); };
    auto z = [&](int t, int i) -> long double { return p.at(1 + p.endo + i, t); };
    for (int t = p.first; t <= p.last; ++t) {
        for (int i = 0; i < m; ++i) {
            for (int l = 0; l < m; ++l) zz[i][l] += z(t, i) * z(t, l);
            for (int j = 0; j < a; ++j) zx[i][j] += z(t, i) * x(t, j);
            zy[i] += z(t, i) * p.at(0, t);
        }
        if (t < p.first + m - 1) continue;
        // b = Q X'Z W Z'y, Q = (X'Z W Z'X)^-1, W = (Z'Z)^-1.
        const LMat W = inverseOn(zz, std::vector<int>(all.begin(), all.begin() + m));
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
        const LMat Q = inverseOn(M, std::vector<int>(all.begin(), all.begin() + a));
        for (int j = 0; j < a; ++j)
            for (int l = 0; l < a; ++l) b[j] += Q[j][l] * s[l];
        if (t >= p.first + m) {
            long double v = p.at(0, t), f = 1.0L;
            for (int j = 0; j < a; ++j) {
                v -= bPrev[j] * x(t, j);
                for (int l = 0; l < a; ++l) f += x(t, j) * Qprev[j][l] * x(t, l);
            }
            long double rss = 0.0L;
            LVec zu(m, 0.0L);
            for (int r = p.first; r <= t; ++r) {
                long double u = p.at(0, r);
                for (int j = 0; j < a; ++j) u -= b[j] * x(r, j);
                rss += u * u;
                for (int i = 0; i < m; ++i) zu[i] += z(r, i) * u;
            }
            long double proj = 0.0L;
            for (int i = 0; i < m; ++i)
                for (int l = 0; l < m; ++l) proj += zu[i] * W[i][l] * zu[l];
            const int n = t - p.first + 1;
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
    const struct {
        const char *name;
        Shape shape;
        double tol;
    } rows[] = {
        {"first > 0, forced inversion", {1, 3, 2, 9, 160, 61, 0, 0}, 1e-10},
        {"two endogenous, several refit intervals", {2, 4, 3, 0, 260, -1, 0, 0}, 1e-10},
        {"no exogenous regressor, spare rows", {1, 1, 2, 3, 120, -1, 0, 2}, 1e-10},
        {"exactly identified", {2, 3, 2, 0, 130, 5, 0, 0}, 1e-10},
        {"shortest sample: one step", {1, 3, 2, 4, 8, -1, 0, 0}, 1e-10},
        // Instruments at a level of 100 around unit noise: between full inversions the rank-one
        // steps carry errors of the order of eps cond(Z'Z) (6e-7 at most here, early in the sample).
        {"instruments far from zero", {1, 3, 2, 0, 170, -1, 100, 0}, 5e-6},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const Problem p = makeProblem(r.shape);
        std::vector<Vec> want = bruteForce(p);
        HostCall c;
        rivArgs(c, p);
        ASSERT_EQ(c.invoke(FnRivEst), 1) << LumoHostLastError();
        EXPECT_EQ(c.status(), 1);
        if (p.m() == p.regs) { // exactly identified: Sargan's statistic is 0 up to rounding
            for (int t = p.first + p.m(); t <= p.last; ++t) EXPECT_NEAR(c.out(12)[t], 0.0, 1e-20) << t;
            want.pop_back();
        }
        for (size_t i = 0; i < want.size(); ++i)
            ExpectClose(c.out(kFirstOut + static_cast<int>(i)), want[i], r.tol, std::to_string(i).c_str());
    }
}

TEST(RivEst, FailedInversionKeepsTheColumnsBefore) {
    // A missing instrument at observation 40: status 0, columns 4..39 written, the rest missing.
    Problem p = makeProblem({1, 3, 2, 0, 80, -1, 0, 0});
    p.d[static_cast<size_t>(4) * p.cols + 40] = NAN;
    HostCall c;
    rivArgs(c, p);
    ASSERT_EQ(c.invoke(FnRivEst), 1);
    EXPECT_EQ(c.status(), 0);
    for (int i = kFirstOut; i < kFirstOut + 6; ++i) {
        const Vec v = c.out(i);
        EXPECT_EQ(std::count_if(v.begin(), v.end(), [](double d) { return d == d; }), (40 - 4) * (v.size() / 81)) << i;
    }
}

} // namespace
