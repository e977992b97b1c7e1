// FnRlsEst through the reference host against brute force: at every observation the least-squares
// problem over the sample so far is solved again from scratch in long double (normal equations by
// Gauss-Jordan elimination), and every output is rebuilt from those fits by its definition.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "common/fault.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"
#include "matrix/alloc.h"

namespace {

using LVec = std::vector<long double>;
using LMat = std::vector<LVec>;

struct Lcg {
    uint64_t s;
    double next() {
        s = s * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(s >> 11) / 9007199254740992.0 * 2.0 - 1.0;
    }
};

LMat inverse(LMat a) {
    const size_t n = a.size();
    LMat inv(n, LVec(n, 0.0L));
    for (size_t i = 0; i < n; ++i) inv[i][i] = 1.0L;
    for (size_t c = 0; c < n; ++c) {
        size_t p = c;
        for (size_t r = c + 1; r < n; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[p][c])) p = r;
        std::swap(a[p], a[c]);
        std::swap(inv[p], inv[c]);
        const long double d = a[c][c];
        for (size_t j = 0; j < n; ++j) {
            a[c][j] /= d;
            inv[c][j] /= d;
        }
        for (size_t r = 0; r < n; ++r)
            if (r != c) {
                const long double m = a[r][c];
                for (size_t j = 0; j < n; ++j) {
                    a[r][j] -= m * a[c][j];
                    inv[r][j] -= m * inv[c][j];
                }
            }
    }
    return inv;
}

// log det of a symmetric matrix by elimination; NaN unless positive definite.
long double logDet(LMat a) {
    long double s = 0.0L;
    for (size_t c = 0; c < a.size(); ++c) {
        if (!(a[c][c] > 0.0L)) return NAN;
        s += std::log(a[c][c]);
        for (size_t i = c + 1; i < a.size(); ++i) {
            const long double m = a[i][c] / a[c][c];
            for (size_t j = c; j < a.size(); ++j) a[i][j] -= m * a[c][j];
        }
    }
    return s;
}

enum Design { PLAIN, ZERO_COLUMN, LATE_DUMMY, BADLY_SCALED };

struct Problem {
    int n, k, first, last, force;
    Design design;
    std::vector<double> y, x; // (last+1) rows, row-major: n and k columns
    double Y(int t, int e) const { return y[static_cast<size_t>(t) * n + e]; }
    double X(int t, int j) const { return x[static_cast<size_t>(t) * k + j]; }
};

Problem makeProblem(int n, int k, int first, int last, int force, Design design, uint64_t seed) {
    Problem p{n, k, first, last, force, design, {}, {}};
    Lcg g{seed};
    p.x.resize(static_cast<size_t>(last + 1) * k);
    p.y.resize(static_cast<size_t>(last + 1) * n);
    for (int t = 0; t <= last; ++t) {
        for (int j = 0; j < k; ++j) {
            double v = j == 0 ? 1.0 : g.next() + 0.2 * j;
            if (design == ZERO_COLUMN && j == k - 1) v = 0.0;
            if (design == LATE_DUMMY && j == k - 1 && t < first + 60) v = 0.0;
            if (design == BADLY_SCALED && j == k - 1) v *= 1e-8;
            p.x[static_cast<size_t>(t) * k + j] = v;
        }
        for (int e = 0; e < n; ++e) {
            double v = 0.3 * e + 0.5 * g.next();
            for (int j = 0; j < k; ++j) v += (1.0 + 0.5 * j - 0.25 * e) * p.X(t, j);
            p.y[static_cast<size_t>(t) * n + e] = v;
        }
    }
    return p;
}

// The seven outputs, each (rows x (last+1)) row-major, NaN where nothing is written.
struct Outputs {
    std::vector<std::vector<double>> m[7];
};
const int kRows[7] = {0, 1, 2, 2, 2, 2, 3}; // 0: n*k, 1: k, 2: n, 3: 1
int outRows(const Problem &p, int i) {
    switch (kRows[i]) {
    case 0: return p.n * p.k;
    case 1: return p.k;
    case 2: return p.n;
    default: return 1;
    }
}

// What FnRlsEst is documented to produce, from independent fits. For first > 0 the cross-products
// start from the observations in working columns first..first+k-1 (observations 2 first ..), and the
// system statistic's full-step residuals are taken over working columns first..t-first+first; see
// docs/rls.md. With first = 0 both reduce to the textbook quantities.
Outputs bruteForce(const Problem &p) {
    const int n = p.n, k = p.k, T = p.last - p.first + 1, cols = p.last + 1;
    Outputs o;
    for (int i = 0; i < 7; ++i) o.m[i].assign(outRows(p, i), std::vector<double>(cols, NAN));
    // Observation in working column c (zero beyond the sample).
    auto wx = [&](int c, int j) -> long double { return c < T ? p.X(p.first + c, j) : 0.0L; };
    auto wy = [&](int c, int e) -> long double { return c < T ? p.Y(p.first + c, e) : 0.0L; };
    auto active = [&](int hi, int j) {
        for (int t = p.first; t <= hi; ++t)
            if (p.X(t, j) != 0.0) return true;
        return false;
    };
    // (X'X)^-1 over observations first..hi, restricted to the regressors not identically zero.
    auto moment = [&](int hi, bool *deficient) {
        std::vector<int> keep;
        for (int j = 0; j < k; ++j)
            if (active(hi, j)) keep.push_back(j);
        if (deficient) *deficient = static_cast<int>(keep.size()) < k;
        LMat xx(keep.size(), LVec(keep.size(), 0.0L));
        for (size_t a = 0; a < keep.size(); ++a)
            for (size_t b = 0; b < keep.size(); ++b)
                for (int t = p.first; t <= hi; ++t) xx[a][b] += static_cast<long double>(p.X(t, keep[a])) * p.X(t, keep[b]);
        LMat inv = inverse(xx), P(k, LVec(k, 0.0L));
        for (size_t a = 0; a < keep.size(); ++a)
            for (size_t b = 0; b < keep.size(); ++b) P[keep[a]][keep[b]] = inv[a][b];
        return P;
    };
    auto ls = [&](const LMat &P, int hi) {
        LMat B(n, LVec(k, 0.0L));
        for (int e = 0; e < n; ++e)
            for (int j = 0; j < k; ++j)
                for (int i = 0; i < k; ++i) {
                    long double xy = 0.0L;
                    for (int t = p.first; t <= hi; ++t) xy += static_cast<long double>(p.X(t, i)) * p.Y(t, e);
                    B[e][j] += P[j][i] * xy;
                }
        return B;
    };
    auto quad = [&](const LMat &P, int t) {
        long double s = 0.0L;
        for (int i = 0; i < k; ++i)
            for (int j = 0; j < k; ++j) s += static_cast<long double>(p.X(t, i)) * P[i][j] * p.X(t, j);
        return s;
    };

    LMat XY(n, LVec(k, 0.0L));
    for (int e = 0; e < n; ++e)
        for (int j = 0; j < k; ++j)
            for (int c = p.first; c <= p.first + k - 1; ++c) XY[e][j] += wy(c, e) * wx(c, j);
    LMat Bprev = ls(moment(p.first + k - 1, nullptr), p.first + k - 1);
    LMat S(n, LVec(n, 0.0L));
    LVec rss(n, 0.0L);
    bool refit = true;
    for (int c = k; c < T; ++c) {
        const int t = p.first + c;
        bool deficient = false;
        const LMat P = moment(t, &deficient);
        const bool full = refit || t == p.force || (c - k) % 50 == 0;
        long double f;
        if (full) {
            f = 1.0L + quad(P, t);
            refit = deficient || p.design == BADLY_SCALED;
            const LMat Bfull = ls(P, t);
            for (auto &r : S) std::fill(r.begin(), r.end(), 0.0L);
            for (int col = p.first; col <= t; ++col) {
                LVec r(n);
                for (int e = 0; e < n; ++e) {
                    r[e] = wy(col, e);
                    for (int j = 0; j < k; ++j) r[e] -= Bfull[e][j] * wx(col, j);
                }
                for (int a = 0; a < n; ++a)
                    for (int b = 0; b < n; ++b) S[a][b] += r[a] * r[b];
            }
        } else {
            f = 1.0L + quad(moment(t - 1, nullptr), t);
        }
        LVec w(n);
        for (int e = 0; e < n; ++e) {
            const long double y = p.Y(t, e);
            for (int j = 0; j < k; ++j) XY[e][j] += static_cast<long double>(p.X(t, j)) * y;
            LVec b(k, 0.0L);
            for (int j = 0; j < k; ++j)
                for (int i = 0; i < k; ++i) b[j] += P[j][i] * XY[e][i];
            long double v = y, u = y;
            for (int j = 0; j < k; ++j) {
                v -= Bprev[e][j] * p.X(t, j);
                u -= b[j] * p.X(t, j);
            }
            w[e] = v / std::sqrt(f);
            if (full) {
                rss[e] = 0.0L;
                for (int s = p.first; s <= t; ++s) {
                    long double r = p.Y(s, e);
                    for (int j = 0; j < k; ++j) r -= b[j] * p.X(s, j);
                    rss[e] += r * r;
                }
            } else {
                rss[e] += w[e] * w[e];
            }
            for (int j = 0; j < k; ++j) o.m[0][e * k + j][t] = static_cast<double>(b[j]);
            o.m[2][e][t] = static_cast<double>(w[e]);
            o.m[3][e][t] = static_cast<double>(v);
            o.m[4][e][t] = static_cast<double>(rss[e]);
            o.m[5][e][t] = static_cast<double>(u);
            Bprev[e] = b;
        }
        for (int j = 0; j < k; ++j)
            if (P[j][j] != 0.0L) o.m[1][j][t] = static_cast<double>(P[j][j]);
        if (!full)
            for (int a = 0; a < n; ++a)
                for (int b = 0; b < n; ++b) S[a][b] += w[a] * w[b];
        LMat W = S;
        for (auto &r : W)
            for (auto &v : r) v /= T;
        o.m[6][0][t] = static_cast<double>(-0.5L * logDet(W));
    }
    return o;
}

// One host call: Y, X and the integers as values, outputs as references where mask has a bit.
struct Call {
    LumoValue args[12];
    LumoValue targets[7];
    LumoValue result;
    explicit Call(const Problem &p, unsigned mask = 0x7F) {
        std::memset(this, 0, sizeof *this);
        LumoValSetMatrix(&args[0], p.last + 1, p.n, p.y.data());
        LumoValSetMatrix(&args[1], p.last + 1, p.k, p.x.data());
        LumoValSetInt(&args[2], p.first);
        LumoValSetInt(&args[3], p.last);
        LumoValSetInt(&args[4], p.force);
        for (int i = 0; i < 7; ++i) {
            LumoValSetInt(&targets[i], 7); // the caller's variables hold something beforehand
            if (mask & (1u << i)) LumoValSetRef(&args[5 + i], &targets[i]);
            else LumoValSetInt(&args[5 + i], -3);
        }
        LumoValSetInt(&result, 99);
    }
    ~Call() {
        for (auto &v : args) LumoFreeByValue(&v);
        for (auto &v : targets) LumoFreeByValue(&v);
        LumoFreeByValue(&result);
    }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;
    int invoke() { return LumoHostInvoke(FnRlsEst, &result, args, 12); }
    int status() const { return LumoValGetType(&result) == LUMO_INT ? result.v.w.ival : -100; }
    MATRIX out(int i, int *rows, int *cols) const { return LumoValGetMatrix(&targets[i], rows, cols); }
};

const char *kNames[7] = {"coefficients", "P diagonal", "standardised innovations", "innovations", "RSS",
                         "residuals", "system statistic"};

TEST(RlsEst, MatchesBruteForceRefits) {
    struct Row {
        const char *name;
        int n, k, first, last, force;
        Design design;
        double tol; // relative to max(|reference|, 1) for every output
    } rows[] = {
        {"one equation", 1, 3, 0, 179, -1, PLAIN, 1e-11},
        {"one equation, forced refit", 1, 3, 0, 179, 77, PLAIN, 1e-11},
        {"three equations, forced refit", 3, 4, 0, 179, 120, PLAIN, 1e-11},
        {"first > 0, shifted start inside the sample", 2, 3, 40, 179, -1, PLAIN, 1e-11},
        {"first > 0, shifted start beyond the sample", 2, 3, 100, 179, 150, PLAIN, 1e-11},
        {"last = first + k", 2, 3, 5, 8, -1, PLAIN, 1e-11},
        {"zero regressor", 2, 3, 0, 120, -1, ZERO_COLUMN, 1e-11},
        {"regressor zero until row 60", 1, 3, 0, 150, -1, LATE_DUMMY, 1e-11},
        {"badly scaled regressor", 2, 3, 0, 100, -1, BADLY_SCALED, 1e-7},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const Problem p = makeProblem(r.n, r.k, r.first, r.last, r.force, r.design, 11);
        const Outputs ref = bruteForce(p);
        Call call(p);
        ASSERT_EQ(call.invoke(), 1) << LumoHostLastError();
        EXPECT_EQ(call.status(), 1);
        for (int i = 0; i < 7; ++i) {
            int rows = 0, cols = 0;
            MATRIX m = call.out(i, &rows, &cols);
            ASSERT_TRUE(m) << kNames[i];
            ASSERT_EQ(rows, outRows(p, i));
            ASSERT_EQ(cols, p.last + 1);
            double worst = 0.0;
            for (int a = 0; a < rows; ++a)
                for (int t = 0; t <= p.last; ++t) {
                    const double want = ref.m[i][a][t], got = m[a][t];
                    // Until the residuals have n degrees of freedom S is singular and its computed
                    // log-determinant is rounding noise either way.
                    if (i == 6 && t >= p.first + p.k && t - p.first + 1 - p.k < p.n) continue;
                    if (std::isnan(want)) {
                        EXPECT_TRUE(std::isnan(got)) << kNames[i] << " row " << a << " t " << t;
                        continue;
                    }
                    const double err = std::fabs(got - want) / std::fmax(std::fabs(want), 1.0);
                    if (!(err <= worst)) worst = err;
                }
            EXPECT_LE(worst, r.tol) << kNames[i];
        }
    }
}

TEST(RlsEst, MissingRegressorValuePoisonsLaterRowsOnly) {
    Problem p = makeProblem(2, 3, 0, 140, -1, PLAIN, 3);
    p.x[static_cast<size_t>(60) * 3 + 1] = NAN;
    Call call(p);
    ASSERT_EQ(call.invoke(), 1);
    EXPECT_EQ(call.status(), 1);
    Problem clean = p;
    clean.last = 59;
    const Outputs ref = bruteForce(clean);
    for (int i = 0; i < 7; ++i) {
        int rows, cols;
        MATRIX m = call.out(i, &rows, &cols);
        ASSERT_TRUE(m);
        for (int a = 0; a < rows; ++a) {
            for (int t = 3; t < 60; ++t) {
                if (i == 6) continue; // scaled by the whole sample length, which differs
                EXPECT_NEAR(m[a][t], ref.m[i][a][t], 1e-10 * std::fmax(1.0, std::fabs(ref.m[i][a][t]))) << i;
            }
            for (int t = 60; t <= p.last; ++t) EXPECT_TRUE(std::isnan(m[a][t])) << kNames[i] << " t " << t;
        }
    }
}

TEST(RlsEst, AbsentOutputsChangeNothingElse) {
    const Problem p = makeProblem(2, 4, 0, 130, 70, PLAIN, 5);
    Call all(p);
    ASSERT_EQ(all.invoke(), 1);
    for (unsigned mask : {0x00u, 0x01u, 0x42u, 0x10u, 0x3Fu, 0x40u}) {
        SCOPED_TRACE(mask);
        Call some(p, mask);
        ASSERT_EQ(some.invoke(), 1);
        EXPECT_EQ(some.status(), 1);
        for (int i = 0; i < 7; ++i) {
            if (!(mask & (1u << i))) {
                // A plain value in an output position is neither read nor replaced.
                EXPECT_EQ(LumoValGetType(&some.args[5 + i]), LUMO_INT);
                EXPECT_EQ(LumoValGetInt(&some.targets[i]), 7);
                continue;
            }
            int rows, cols, rows2, cols2;
            MATRIX a = all.out(i, &rows, &cols), b = some.out(i, &rows2, &cols2);
            ASSERT_TRUE(b);
            ASSERT_EQ(rows, rows2);
            ASSERT_EQ(cols, cols2);
            EXPECT_EQ(std::memcmp(a[0], b[0], sizeof(double) * rows * cols), 0) << kNames[i];
        }
    }
}

TEST(RlsEst, BadInput) {
    enum Outcome { ABANDONED, UNTOUCHED, STATUS_ZERO };
    struct Row {
        const char *name;
        void (*edit)(Call *);
        Outcome outcome;
        const char *message;
    } rows[] = {
        {"Y not a matrix", [](Call *c) { LumoValSetInt(&c->args[0], 1); }, ABANDONED,
         "argument 0: matrix expected, int found"},
        {"X a double", [](Call *c) { LumoValSetDouble(&c->args[1], 1.0); }, ABANDONED,
         "argument 1: matrix expected, double found"},
        {"first a double", [](Call *c) { LumoValSetDouble(&c->args[2], 0.0); }, ABANDONED,
         "argument 2: int expected, double found"},
        {"forced row a matrix", [](Call *c) { LumoValSetMatrix(&c->args[4], 1, 1, nullptr); }, ABANDONED,
         "argument 4: int expected, matrix found"},
        {"last below first", [](Call *c) { LumoValSetInt(&c->args[3], 9); LumoValSetInt(&c->args[2], 10); },
         UNTOUCHED, ""},
        {"negative first", [](Call *c) { LumoValSetInt(&c->args[2], -1); }, UNTOUCHED, ""},
        {"Y too short", [](Call *c) { LumoValSetInt(&c->args[3], 60); }, UNTOUCHED, ""},
        {"X too short", [](Call *c) { c->args[1].v.w.ival = 40; }, UNTOUCHED, ""},
        {"negative column count of Y", [](Call *c) { c->args[0].v.w.u.cols = -1; }, UNTOUCHED, ""},
        {"negative column count of X", [](Call *c) { c->args[1].v.w.u.cols = -2; }, UNTOUCHED, ""},
        {"last at the integer limit", [](Call *c) { LumoValSetInt(&c->args[3], INT_MAX); }, UNTOUCHED, ""},
        {"too few observations", [](Call *c) { LumoValSetInt(&c->args[2], 45); LumoValSetInt(&c->args[3], 47); },
         STATUS_ZERO, ""},
        {"no equations", [](Call *c) { c->args[0].v.w.u.cols = 0; }, STATUS_ZERO, ""},
        {"no regressors", [](Call *c) { c->args[1].v.w.u.cols = 0; }, STATUS_ZERO, ""},
    };
    const Problem p = makeProblem(2, 3, 0, 49, -1, PLAIN, 2);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        Call call(p);
        // Shapes edited in place are restored before the host frees the values.
        const LumoValue keepY = call.args[0], keepX = call.args[1];
        r.edit(&call);
        const int ok = call.invoke();
        EXPECT_STREQ(LumoHostLastError(), r.message);
        EXPECT_EQ(ok, r.outcome == ABANDONED ? 0 : 1);
        if (call.args[0].type == LUMO_MATRIX && call.args[0].data == keepY.data) call.args[0] = keepY;
        if (call.args[1].type == LUMO_MATRIX && call.args[1].data == keepX.data) call.args[1] = keepX;
        if (r.outcome != STATUS_ZERO) {
            EXPECT_EQ(call.status(), 99);
            for (int i = 0; i < 7; ++i) EXPECT_EQ(LumoValGetType(&call.targets[i]), LUMO_INT);
            continue;
        }
        EXPECT_EQ(call.status(), 0);
        // Outputs are sized and hold the missing value throughout.
        for (int i = 0; i < 7; ++i) {
            int rows, cols;
            MATRIX m = call.out(i, &rows, &cols);
            EXPECT_EQ(LumoValGetType(&call.targets[i]), LUMO_MATRIX);
            EXPECT_EQ(cols, LumoValGetInt(&call.args[3]) + 1);
            for (int a = 0; m && a < rows; ++a)
                for (int t = 0; t < cols; ++t) EXPECT_TRUE(std::isnan(m[a][t]));
        }
    }
}

TEST(RlsEst, ReferencesToInputsOrToOneVariable) {
    // Output 5 names the record of Y itself; outputs 8 and 10 name one variable. Results are moved
    // in only after the inputs have been read, in argument order.
    const Problem p = makeProblem(1, 2, 0, 60, -1, PLAIN, 4);
    Call plain(p);
    ASSERT_EQ(plain.invoke(), 1);
    Call call(p);
    LumoValSetRef(&call.args[5], &call.args[0]);
    LumoValSetRef(&call.args[10], &call.targets[3]);
    ASSERT_EQ(call.invoke(), 1);
    EXPECT_EQ(call.status(), 1);
    int r1, c1, r2, c2;
    MATRIX coef = LumoValGetMatrix(&call.args[0], &r1, &c1), want = plain.out(0, &r2, &c2);
    ASSERT_TRUE(coef);
    ASSERT_EQ(r1, r2);
    EXPECT_EQ(std::memcmp(coef[0], want[0], sizeof(double) * r1 * c1), 0);
    MATRIX resid = call.out(3, &r1, &c1);
    want = plain.out(5, &r2, &c2);
    ASSERT_TRUE(resid);
    EXPECT_EQ(std::memcmp(resid[0], want[0], sizeof(double) * r2 * c2), 0);
}

TEST(RlsEst, AllocationFailures) {
    const Problem p = makeProblem(2, 3, 0, 120, 60, PLAIN, 8);
    long libRuns = ForEachLibraryAllocationFailure([&](long n) {
        Call call(p);
        ASSERT_EQ(call.invoke(), 1);
        const bool fired = KvAllocCount() >= n;
        EXPECT_EQ(call.status(), fired ? 0 : 1) << n;
        if (fired) {
            int rows, cols;
            MATRIX m = call.out(0, &rows, &cols);
            ASSERT_TRUE(m);
            for (int t = 0; t < cols; ++t) EXPECT_TRUE(std::isnan(m[rows - 1][t]));
        }
    });
    EXPECT_GE(libRuns, 20);
    // One set of arguments for every run, so that only the call's own host allocations count.
    Call call(p);
    int failures = 0;
    long hostRuns = ForEachHostAllocationFailure([&](long n) {
        for (auto &v : call.targets) LumoValSetInt(&v, 7);
        LumoValSetInt(&call.result, 99);
        ASSERT_EQ(call.invoke(), 1);
        if (call.status() == 0) {
            ++failures;
            for (int i = 0; i < 7; ++i) EXPECT_EQ(LumoValGetType(&call.targets[i]), LUMO_INT) << n << " " << i;
        } else {
            EXPECT_EQ(call.status(), 1);
            for (int i = 0; i < 7; ++i) EXPECT_EQ(LumoValGetType(&call.targets[i]), LUMO_MATRIX) << i;
        }
    });
    EXPECT_EQ(failures, 14);
    EXPECT_EQ(hostRuns, 14);
}

} // namespace
