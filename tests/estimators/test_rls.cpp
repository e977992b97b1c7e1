// FnRlsEst through the reference host against brute force: at every observation the least-squares
// problem over the sample so far is solved from scratch in long double, and every output is
// rebuilt from those fits by its definition (docs/rls.md, including the first > 0 start).
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "common/fault.h"
#include "kavrel/kavrel.h"
#include "matrix/reference.h"

namespace {

enum Design { PLAIN, ZERO_COLUMN, LATE_DUMMY, BADLY_SCALED };

struct Problem {
    int n, k, first, last, force;
    Design design;
    std::vector<double> y, x; // last+1 rows, row-major, n and k columns
    double Y(int t, int e) const { return y[static_cast<size_t>(t) * n + e]; }
    double X(int t, int j) const { return x[static_cast<size_t>(t) * k + j]; }
};

Problem makeProblem(int n, int k, int first, int last, int force, Design design) {
    Problem p{n, k, first, last, force, design, {}, {}};
    Lcg g{11};
    for (int t = 0; t <= last; ++t) {
        for (int j = 0; j < k; ++j) {
            double v = j == 0 ? 1.0 : g.next() + 0.2 * j;
            if (j == k - 1 && (design == ZERO_COLUMN || (design == LATE_DUMMY && t < first + 60))) v = 0.0;
            p.x.push_back(design == BADLY_SCALED && j == k - 1 ? 1e-8 * v : v);
        }
        for (int e = 0; e < n; ++e) {
            double v = 0.3 * e + 0.5 * g.next();
            for (int j = 0; j < k; ++j) v += (1.0 + 0.5 * j - 0.25 * e) * p.X(t, j);
            p.y.push_back(v);
        }
    }
    return p;
}

int outRows(const Problem &p, int i) { return i == 0 ? p.n * p.k : i == 1 ? p.k : i == 6 ? 1 : p.n; }
const char *kNames[7] = {"coefficients", "P diagonal", "std. innovations", "innovations", "RSS", "residuals", "system"};

// The seven outputs as documented, NaN where nothing is written.
void bruteForce(const Problem &p, std::vector<std::vector<double>> out[7]) {
    const int n = p.n, k = p.k, T = p.last - p.first + 1;
    for (int i = 0; i < 7; ++i) out[i].assign(outRows(p, i), std::vector<double>(p.last + 1, NAN));
    auto wx = [&](int c, int j) -> long double { return c < T ? p.X(p.first + c, j) : 0.0L; }; // working column c
    auto wy = [&](int c, int e) -> long double { return c < T ? p.Y(p.first + c, e) : 0.0L; };
    LMat xx(k, LVec(k, 0.0L)), xyTrue(n, LVec(k, 0.0L)), xy(n, LVec(k, 0.0L)), S(n, LVec(n, 0.0L)), B(n, LVec(k));
    LMat Pprev;
    LVec rss(n);
    std::vector<int> keep;
    auto fitTo = [&](int t) { // P(t) over first..t on the regressors not identically zero so far
        for (int i = 0; i < k; ++i)
            for (int j = 0; j < k; ++j) xx[i][j] += static_cast<long double>(p.X(t, i)) * p.X(t, j);
        for (int e = 0; e < n; ++e)
            for (int j = 0; j < k; ++j) xyTrue[e][j] += static_cast<long double>(p.X(t, j)) * p.Y(t, e);
        keep.clear();
        for (int j = 0; j < k; ++j)
            if (xx[j][j] != 0.0L) keep.push_back(j);
        return inverseOn(xx, keep);
    };
    auto mul = [&](const LMat &P, const LVec &v) {
        LVec r(k, 0.0L);
        for (int i = 0; i < k; ++i)
            for (int j = 0; j < k; ++j) r[i] += P[i][j] * v[j];
        return r;
    };
    auto dotX = [&](const LVec &b, int c) {
        long double s = 0.0L;
        for (int j = 0; j < k; ++j) s += b[j] * wx(c, j);
        return s;
    };
    for (int c = 0; c < k; ++c) Pprev = fitTo(p.first + c);
    for (int e = 0; e < n; ++e) {
        B[e] = mul(Pprev, xyTrue[e]); // exactly identified start
        for (int j = 0; j < k; ++j)
            for (int c = p.first; c < p.first + k; ++c) xy[e][j] += wy(c, e) * wx(c, j);
    }
    bool refit = true;
    for (int c = k; c < T; ++c) {
        const int t = p.first + c;
        const LMat P = fitTo(t);
        const bool full = refit || t == p.force || (c - k) % 50 == 0;
        LVec x(k), w(n);
        for (int j = 0; j < k; ++j) x[j] = p.X(t, j);
        const LVec Px = mul(full ? P : Pprev, x);
        long double f = 1.0L;
        for (int j = 0; j < k; ++j) f += x[j] * Px[j];
        if (full) {
            refit = static_cast<int>(keep.size()) < k || p.design == BADLY_SCALED;
            for (auto &r : S) std::fill(r.begin(), r.end(), 0.0L);
            for (int col = p.first; col <= t; ++col) { // residuals of the true fit, absolute columns
                LVec r(n);
                for (int e = 0; e < n; ++e) r[e] = wy(col, e) - dotX(mul(P, xyTrue[e]), col);
                for (int a = 0; a < n; ++a)
                    for (int b = 0; b < n; ++b) S[a][b] += r[a] * r[b];
            }
        }
        for (int e = 0; e < n; ++e) {
            const long double y = p.Y(t, e), v = y - dotX(B[e], c);
            for (int j = 0; j < k; ++j) xy[e][j] += x[j] * y;
            B[e] = mul(P, xy[e]);
            w[e] = v / std::sqrt(f);
            if (full) {
                rss[e] = 0.0L;
                for (int s = 0; s <= c; ++s) rss[e] += std::pow(wy(s, e) - dotX(B[e], s), 2);
            } else {
                rss[e] += w[e] * w[e];
            }
            const long double vals[6] = {0, 0, w[e], v, rss[e], y - dotX(B[e], c)};
            for (int i = 2; i < 6; ++i) out[i][e][t] = static_cast<double>(vals[i]);
            for (int j = 0; j < k; ++j) out[0][e * k + j][t] = static_cast<double>(B[e][j]);
        }
        for (int j = 0; j < k; ++j)
            if (P[j][j] != 0.0L) out[1][j][t] = static_cast<double>(P[j][j]);
        LMat W = S;
        for (int a = 0; a < n; ++a)
            for (int b = 0; b < n; ++b) W[a][b] = (S[a][b] += full ? 0.0L : w[a] * w[b]) / T;
        // Until the residuals have n degrees of freedom S is singular: its value is noise.
        if (c + 1 - k >= n) out[6][0][t] = static_cast<double>(-0.5L * logDetRef(W));
        Pprev = P;
    }
}

// One host call: Y, X and the integers as values, outputs as references where mask has a bit.
struct Call {
    LumoValue args[12], targets[7], result;
    explicit Call(const Problem &p, unsigned mask = 0x7F) {
        std::memset(this, 0, sizeof *this);
        LumoValSetMatrix(&args[0], p.last + 1, p.n, p.y.data());
        LumoValSetMatrix(&args[1], p.last + 1, p.k, p.x.data());
        const int ints[3] = {p.first, p.last, p.force};
        for (int i = 0; i < 3; ++i) LumoValSetInt(&args[2 + i], ints[i]);
        for (int i = 0; i < 7; ++i) {
            LumoValSetInt(&targets[i], 7); // the caller's variables hold something beforehand
            if (mask & (1u << i)) LumoValSetRef(&args[5 + i], &targets[i]);
            else LumoValSetInt(&args[5 + i], -3);
        }
        LumoValSetInt(&result, 99);
    }
    ~Call() {
        for (auto *v : {args, targets, &result})
            for (int i = 0; i < (v == args ? 12 : v == targets ? 7 : 1); ++i) LumoFreeByValue(&v[i]);
    }
    int invoke() { return LumoHostInvoke(FnRlsEst, &result, args, 12); }
    int status() const { return result.v.w.ival; }
    MATRIX out(int i, int *rows, int *cols) const { return LumoValGetMatrix(&targets[i], rows, cols); }
};

TEST(RlsEst, MatchesBruteForceRefits) {
    const struct { const char *name; int n, k, first, last, force; Design design; double tol; } rows[] = {
        {"one equation", 1, 3, 0, 179, -1, PLAIN, 1e-11},
        {"one equation, forced refit", 1, 3, 0, 179, 77, PLAIN, 1e-11},
        {"three equations, forced refit", 3, 4, 0, 179, 120, PLAIN, 1e-11},
        {"first > 0, start inside the sample", 2, 3, 40, 179, -1, PLAIN, 1e-11},
        {"first > 0, start beyond the sample", 2, 3, 100, 179, 150, PLAIN, 1e-11},
        {"last = first + k", 2, 3, 5, 8, -1, PLAIN, 1e-11},
        {"zero regressor", 2, 3, 0, 120, -1, ZERO_COLUMN, 1e-11},
        {"regressor zero until row 60", 1, 3, 0, 150, -1, LATE_DUMMY, 1e-11},
        {"badly scaled regressor", 2, 3, 0, 100, -1, BADLY_SCALED, 1e-7},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const Problem p = makeProblem(r.n, r.k, r.first, r.last, r.force, r.design);
        std::vector<std::vector<double>> ref[7];
        bruteForce(p, ref);
        Call call(p);
        ASSERT_EQ(call.invoke(), 1) << LumoHostLastError();
        EXPECT_EQ(call.status(), 1);
        for (int i = 0; i < 7; ++i) {
            int rows = 0, cols = 0;
            MATRIX m = call.out(i, &rows, &cols);
            ASSERT_TRUE(m && rows == outRows(p, i) && cols == p.last + 1) << kNames[i];
            double worst = 0.0;
            for (int a = 0; a < rows; ++a)
                for (int t = 0; t <= p.last; ++t) {
                    const double want = ref[i][a][t], got = m[a][t];
                    const bool noise = i == 6 && t >= p.first + p.k && std::isnan(want);
                    if (noise) continue;
                    if (std::isnan(want)) EXPECT_TRUE(std::isnan(got)) << kNames[i] << " " << a << " " << t;
                    else worst = std::fmax(worst, std::fabs(got - want) / std::fmax(std::fabs(want), 1.0));
                }
            EXPECT_LE(worst, r.tol) << kNames[i];
        }
    }
}

TEST(RlsEst, MissingRegressorValueMakesLaterColumnsMissing) {
    Problem p = makeProblem(2, 3, 0, 140, -1, PLAIN);
    p.x[60 * 3 + 1] = NAN; // fits that include row 60 fail (status 0): refits continue, nothing stops
    Call call(p);
    ASSERT_EQ(call.invoke(), 1);
    EXPECT_EQ(call.status(), 1);
    for (int i = 0; i < 7; ++i) {
        MATRIX m = call.out(i, nullptr, nullptr);
        EXPECT_FALSE(std::isnan(m[0][59])) << kNames[i];
        for (int t = 60; t <= p.last; ++t) EXPECT_TRUE(std::isnan(m[0][t])) << kNames[i] << " " << t;
    }
}

TEST(RlsEst, AbsentOrAliasedOutputsChangeNothingElse) {
    const Problem p = makeProblem(2, 4, 0, 130, 70, PLAIN);
    Call all(p);
    ASSERT_EQ(all.invoke(), 1);
    for (unsigned mask : {0x00u, 0x01u, 0x42u, 0x10u, 0x3Fu, 0x40u, 0x7Fu}) {
        Call some(p, mask);
        if (mask == 0x7F) { // output 5 names the record of Y itself, 8 and 10 one variable (10 wins)
            LumoValSetRef(&some.args[5], &some.args[0]);
            LumoValSetRef(&some.args[10], &some.targets[3]);
        }
        ASSERT_EQ(some.invoke(), 1);
        EXPECT_EQ(some.status(), 1);
        for (int i = 0; i < 7; ++i) {
            int rows, cols;
            MATRIX a = all.out(i, &rows, &cols), b = some.out(i, nullptr, nullptr);
            if (mask == 0x7F && (i == 0 || i == 3)) b = static_cast<MATRIX>(i == 0 ? some.args[0].data : nullptr);
            if (mask == 0x7F && i == 5) b = some.out(3, nullptr, nullptr);
            if (!(mask & (1u << i))) { // a plain value in an output position is neither read nor replaced
                EXPECT_TRUE(some.args[5 + i].type == LUMO_INT && LumoValGetInt(&some.targets[i]) == 7);
            } else if (b) {
                EXPECT_EQ(std::memcmp(a[0], b[0], sizeof(double) * rows * cols), 0) << kNames[i] << mask;
            }
        }
    }
}

TEST(RlsEst, BadInput) {
    enum Outcome { ABANDONED, UNTOUCHED, STATUS_ZERO };
    const struct { const char *name; void (*edit)(Call *); Outcome outcome; const char *message; } rows[] = {
        {"Y an int", [](Call *c) { LumoValSetInt(&c->args[0], 1); }, ABANDONED, "argument 0: matrix expected, int found"},
        {"X a double", [](Call *c) { LumoValSetDouble(&c->args[1], 1); }, ABANDONED, "argument 1: matrix expected, double found"},
        {"first a double", [](Call *c) { LumoValSetDouble(&c->args[2], 0); }, ABANDONED, "argument 2: int expected, double found"},
        {"force a matrix", [](Call *c) { LumoValSetMatrix(&c->args[4], 1, 1, nullptr); }, ABANDONED, "argument 4: int expected, matrix found"},
        {"last < first", [](Call *c) { LumoValSetInt(&c->args[2], 10); LumoValSetInt(&c->args[3], 9); }, UNTOUCHED, ""},
        {"first < 0", [](Call *c) { LumoValSetInt(&c->args[2], -1); }, UNTOUCHED, ""},
        {"Y too short", [](Call *c) { LumoValSetInt(&c->args[3], 60); }, UNTOUCHED, ""},
        {"X too short", [](Call *c) { c->args[1].v.w.ival = 40; }, UNTOUCHED, ""},
        {"Y columns < 0", [](Call *c) { c->args[0].v.w.u.cols = -1; }, UNTOUCHED, ""},
        {"X columns < 0", [](Call *c) { c->args[1].v.w.u.cols = -2; }, UNTOUCHED, ""},
        {"last = INT_MAX", [](Call *c) { LumoValSetInt(&c->args[3], INT_MAX); }, UNTOUCHED, ""},
        {"first + k > last", [](Call *c) { LumoValSetInt(&c->args[2], 45); LumoValSetInt(&c->args[3], 47); }, STATUS_ZERO, ""},
        {"no equations", [](Call *c) { c->args[0].v.w.u.cols = 0; }, STATUS_ZERO, ""},
        {"no regressors", [](Call *c) { c->args[1].v.w.u.cols = 0; }, STATUS_ZERO, ""},
    };
    const Problem p = makeProblem(2, 3, 0, 49, -1, PLAIN);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        Call call(p);
        const LumoValue keep[2] = {call.args[0], call.args[1]};
        r.edit(&call);
        EXPECT_EQ(call.invoke(), r.outcome == ABANDONED ? 0 : 1);
        EXPECT_STREQ(LumoHostLastError(), r.message);
        for (int i = 0; i < 2; ++i) // shapes edited in place are restored before the values are freed
            if (call.args[i].data == keep[i].data) call.args[i] = keep[i];
        EXPECT_EQ(call.status(), r.outcome == STATUS_ZERO ? 0 : 99);
        for (int i = 0; i < 7; ++i) {
            int rows = 0, cols = 0;
            MATRIX m = call.out(i, &rows, &cols);
            EXPECT_EQ(call.targets[i].type, r.outcome == STATUS_ZERO ? LUMO_MATRIX : LUMO_INT);
            for (int e = 0; m && e < rows * cols; ++e) EXPECT_TRUE(std::isnan(m[0][e])); // sized, all missing
        }
    }
}

TEST(RlsEst, AllocationFailures) {
    const Problem p = makeProblem(2, 3, 0, 120, 60, PLAIN);
    long libRuns = ForEachLibraryAllocationFailure([&](long n) {
        Call call(p);
        ASSERT_EQ(call.invoke(), 1);
        const bool fired = KvAllocCount() >= n;
        EXPECT_EQ(call.status(), fired ? 0 : 1) << n;
        int rows, cols;
        MATRIX m = call.out(0, &rows, &cols);
        for (int e = 0; fired && e < rows * cols; ++e) EXPECT_TRUE(std::isnan(m[0][e]));
    });
    EXPECT_GE(libRuns, 20);
    // One set of arguments for all runs, so that only the call's own host allocations count.
    Call call(p);
    int failures = 0;
    ForEachHostAllocationFailure([&](long) {
        for (auto &v : call.targets) LumoValSetInt(&v, 7);
        LumoValSetInt(&call.result, 99);
        ASSERT_EQ(call.invoke(), 1);
        failures += call.status() == 0;
        for (int i = 0; i < 7; ++i) // a failed call leaves every variable as it was
            EXPECT_EQ(call.targets[i].type, call.status() == 0 ? LUMO_INT : LUMO_MATRIX);
    });
    EXPECT_EQ(failures, 14); // two blocks for each of the seven outputs
}

} // namespace
