// Long-run score covariance against the direct double sum over observations and lags, the lag
// truncation at its integer boundaries, and the Kronecker selection against the full product
// formed in the test: indices out of range, empty selections and zero-sized factors.
#include <random>

#include "common/host_call.h"
#include "estimators/longrun.h"
#include "kavrel/kavrel.h"

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

// V[a][b] = sum_t s_t[a] s_t[b] + sum_{l=1..L} (1 - l/(L+1)) sum_{t>=l} (s_t[a] s_{t-l}[b] + s_{t-l}[a] s_t[b]),
// s_t[a] = X[t][a / m] U[t][a % m].
std::vector<long double> directLongRun(const Vec &X, const Vec &U, int T, int k, int m, int L) {
    const int km = k * m;
    auto s = [&](int t, int a) { return static_cast<long double>(X[t * k + a / m]) * U[t * m + a % m]; };
    std::vector<long double> V(km * km, 0);
    for (int a = 0; a < km; ++a)
        for (int b = 0; b < km; ++b) {
            long double v = 0;
            for (int t = 0; t < T; ++t) v += s(t, a) * s(t, b);
            for (int l = 1; l <= L; ++l)
                for (int t = l; t < T; ++t)
                    v += (1 - static_cast<long double>(l) / (L + 1)) * (s(t, a) * s(t - l, b) + s(t - l, a) * s(t, b));
            V[a * km + b] = v;
        }
    return V;
}

TEST(LongRun, LagTruncationAtItsIntegerBoundaries) {
    // 4 (T/100)^(2/9) crosses 2 between T = 4 and 5, 3 between 27 and 28, 4 at T = 100.
    const int table[][2] = {{0, 0}, {4, 1}, {5, 2}, {27, 2}, {28, 3}, {99, 3}, {100, 4}};
    for (const auto &row : table) EXPECT_EQ(LongRunLag(row[0]), row[1]) << "T=" << row[0];
}

TEST(LongRun, MatchesDirectDoubleSum) {
    std::mt19937_64 rng(17);
    std::normal_distribution<double> z;
    // L: the lag the export must use (T = 100 gives 4, T = 99 gives 3); T = 0 gives a zero matrix.
    struct Case {
        int T, k, m, hac, L;
    } cases[] = {
        {100, 2, 2, 1, 4}, {99, 3, 1, 1, 3}, {99, 2, 3, 0, 0}, {1, 2, 1, 1, 1}, {0, 2, 2, 1, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << "T=" << c.T << " k=" << c.k << " m=" << c.m << " hac=" << c.hac);
        Vec X(c.T * c.k), U((c.T + 2) * c.m); // U may have more rows than X
        for (double &x : X) x = z(rng);
        for (double &u : U) u = z(rng);
        for (int t = 1; t < c.T; ++t) U[t * c.m] += 0.6 * U[(t - 1) * c.m]; // autocorrelated scores
        HostCall h;
        ASSERT_EQ(h.mat(0, c.T, c.k, X).mat(1, c.T + 2, c.m, U).num(2, c.hac).invoke(FnGLScovariance), 1);
        EXPECT_EQ(LumoValGetMatrix(&h.result, nullptr, nullptr) ? h.result.v.w.u.cols : -1, c.k * c.m);
        ExpectClose(h.values(), directLongRun(X, U, c.T, c.k, c.m, c.L), 1e-12 * c.T);
    }
    // NaN in a residual spreads to the rows and columns of its equation only.
    HostCall h;
    ASSERT_EQ(h.mat(0, 4, 2, {1, 2, 3, 4, 5, 6, 7, 8})
                  .mat(1, 4, 2, {1, 1, NaN, 1, 1, 1, 1, 1})
                  .num(2, 0)
                  .invoke(FnGLScovariance),
              1);
    const Vec V = h.values();
    // The missing element reaches rows 0 and 2 of the 4 x 4 result and its even columns.
    const bool missing[16] = {1, 1, 1, 1, 1, 0, 1, 0, 1, 1, 1, 1, 1, 0, 1, 0};
    for (int a = 0; a < 16; ++a) EXPECT_EQ(std::isnan(V[a]), missing[a]) << a;
}

TEST(Kronecker, SelectionMatchesFullProduct) {
    // A = 1.5 (1, 2, ...) row by row, B = (0.5, -1, 2, ...) cycled: every product element distinct.
    const Vec bs = {0.5, -1, 2, 3, 7, 0.25, -4, 9};
    const struct {
        const char *what;
        int rA, cA, rB, cB;
        Vec R, C, rowOf, colOf;
    } cases[] = {
        // clang-format off
        // rowOf, colOf: the product's row and column behind each result element (-1: missing)
        {"chosen rows and columns", 3, 2, 2, 4, {5, 0, 3}, {7, 2}, {5, 0, 3}, {7, 2}},
        {"empty R: all rows", 3, 2, 2, 4, {}, {1, 6}, {0, 1, 2, 3, 4, 5}, {1, 6}},
        {"2.9 is row 2, -0.5 row 0", 3, 2, 2, 4, {2.9, -0.5}, {3.99}, {2, 0}, {3}},
        {"outside the product or not a number", 3, 2, 2, 4, {-1, 6, NaN, 1e300, 1}, {8, -INFINITY, 0},
         {-1, -1, -1, -1, 1}, {-1, -1, 0}},
        {"empty C: cA cB rows and no columns, whatever R holds", 3, 2, 2, 4, {0, 1}, {}, Vec(8), {}},
        {"B 0 x 0, empty R: no rows", 3, 2, 0, 0, {}, {0, 1}, {}, {-1, -1}},
        // Indices that truncate to 0 are still outside a product without columns or rows.
        {"A without columns", 3, 0, 2, 4, {-8.8e-280}, {-8.8e-280, 1, 2}, {0}, {-1, -1, -1}},
        {"no rows in either factor", 0, 3, 0, 1048576, {-0.5}, {0}, {-1}, {0}},
        // clang-format on
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        Vec A(k.rA * k.cA), B(k.rB * k.cB);
        for (size_t i = 0; i < A.size(); ++i) A[i] = 1.5 * (i + 1);
        for (size_t i = 0; i < B.size(); ++i) B[i] = bs[i % bs.size()];
        HostCall h;
        ASSERT_EQ(h.mat(0, k.rA, k.cA, A).mat(1, k.rB, k.cB, B).row(2, k.R).col(3, k.C).invoke(FnKroneckerSel), 1);
        int r = -1, c = -1;
        LumoValGetMatrix(&h.result, &r, &c);
        ASSERT_TRUE(r == static_cast<int>(k.rowOf.size())) << r << " x " << c;
        ASSERT_TRUE(c == static_cast<int>(k.colOf.size())) << r << " x " << c;
        Vec want;
        for (double pr : k.rowOf)
            for (double pc : k.colOf)
                want.push_back(pr < 0 || pc < 0 ? NaN
                                                : A[(int(pr) / k.rB) * k.cA + int(pc) / k.cB] *
                                                      B[(int(pr) % k.rB) * k.cB + int(pc) % k.cB]);
        ExpectClose(h.values(), want, 0);
    }
}

} // namespace
