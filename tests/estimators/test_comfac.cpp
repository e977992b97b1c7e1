// Common-factor Wald statistics of an ADL(2; 2, 2) against a direct computation: the restrictions
// evaluated at the roots of the autoregressive polynomial found by the quadratic formula, their
// Jacobian by central differences, W = g' (J V J')^-1 g in long double, minimised over the
// candidate roots; the codes of calls that fail.
#include <complex>

#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"
#include "special/distributions.h"

namespace {

using Cx = std::complex<double>;

// theta = (c, a1, a2, b10, b11, b12, b20, b21, b22). The restrictions at the roots of
// z^2 - a1 z - a2 in `which` (0 the one of larger real part): B_j(z) = b_j0 z^2 + b_j1 z + b_j2
// for both regressors, real and imaginary parts of a complex root.
Vec restrictions(const Vec &t, const std::vector<int> &which) {
    const Cx s = std::sqrt(Cx(t[1] * t[1] + 4 * t[2], 0.0));
    const Cx roots[2] = {(t[1] + s) / 2.0, (t[1] - s) / 2.0};
    Vec g;
    for (const int j : {3, 6})
        for (const int w : which) {
            const Cx B = (t[j] * roots[w] + t[j + 1]) * roots[w] + t[j + 2];
            g.push_back(B.real());
            if (roots[w].imag() != 0.0) g.push_back(B.imag());
        }
    return g;
}

// W = g' (J V J')^-1 g with J by central differences of g at theta.
double directWald(const Vec &theta, const Vec &V, const std::vector<int> &which) {
    const Vec g0 = restrictions(theta, which);
    const size_t k = theta.size(), r = g0.size();
    std::vector<Vec> J(r, Vec(k));
    for (size_t c = 0; c < k; ++c) {
        Vec up = theta, down = theta;
        const double h = 1e-6 * std::max(1.0, std::fabs(theta[c]));
        up[c] += h;
        down[c] -= h;
        const Vec gu = restrictions(up, which), gd = restrictions(down, which);
        for (size_t a = 0; a < r; ++a) J[a][c] = (gu[a] - gd[a]) / (2 * h);
    }
    LMat omega(r, LVec(r, 0.0L));
    for (size_t a = 0; a < r; ++a)
        for (size_t b = 0; b < r; ++b)
            for (size_t i = 0; i < k; ++i)
                for (size_t j = 0; j < k; ++j) omega[a][b] += J[a][i] * V[i * k + j] * J[b][j];
    const LMat inv = inverseOn(omega, r == 2 ? std::vector<int>{0, 1} : std::vector<int>{0, 1, 2, 3});
    long double W = 0;
    for (size_t a = 0; a < r; ++a)
        for (size_t b = 0; b < r; ++b) W += g0[a] * inv[a][b] * g0[b];
    return static_cast<double>(W);
}

// A symmetric positive definite 9 x 9 covariance.
Vec covariance() {
    const Vec a = Lcg{3}.draws(81);
    Vec V(81);
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < 9; ++j) {
            double s = i == j ? 0.05 : 0.0;
            for (int l = 0; l < 9; ++l) s += a[i * 9 + l] * a[j * 9 + l] / 9;
            V[i * 9 + j] = s;
        }
    return V;
}

void adl22(HostCall &c, const Vec &theta) {
    c.row(0, theta).mat(1, 9, 9, covariance()).row(2, {2, 2, 2}).row(3, {1, 2}).row(4, {3, 4, 5, 6, 7, 8});
    c.dbl(5, 0.0).num(6, 3).ref(7, 8);
}

TEST(Comfac, AgreesWithDirectWald) {
    // Order 1: one real root, the smaller statistic of the two (none for a complex pair); order 2:
    // both roots, for a pair one member's real and imaginary parts; order 3 above the AR order.
    // Failed runs: the code, missing statistics and p-values (degrees of freedom when known).
    const Vec real = {0.2, 1.1, -0.28, 1.0, -0.5, 0.1, 0.4, 0.3, -0.2};
    const struct {
        const char *what;
        Vec theta;
        void (*edit)(HostCall &);
        int code;
    } rows[] = {
        // clang-format off
        {"real roots 0.7 and 0.4", real, nullptr, 1},
        {"complex pair 0.5 +- 0.5i", {0.2, 1.0, -0.5, 1.0, -0.5, 0.1, 0.4, 0.3, -0.2}, nullptr, 3},
        {"no AR part", real, [](HostCall &c) { c.row(2, {0, 2, 2}).mat(3, 0, 0, {}); }, 2},
        {"NaN coefficient", {0, 1.1, -0.28, NAN, 0, 0, 0, 0, 0}, nullptr, -1},
        {"zero covariance", real, [](HostCall &c) { c.mat(1, 9, 9, Vec(81, 0.0)); }, 0},
        // clang-format on
    };
    const Vec V = covariance();
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        HostCall c;
        adl22(c, r.theta);
        if (r.edit) r.edit(c);
        ASSERT_EQ(c.invoke(FnComfac), 1);
        EXPECT_EQ(c.status(), r.code);
        const Vec stat = c.out(7), dfp = c.out(8);
        ASSERT_EQ(stat.size(), 3u);
        if (r.code != 1 && r.code != 3) {
            EXPECT_TRUE(AllMissing(stat));
            EXPECT_TRUE(AllMissing(Vec(dfp.begin() + 3, dfp.end())));
            continue;
        }
        const bool pair = r.code == 3;
        const double W1 = pair ? NAN : std::min(directWald(r.theta, V, {0}), directWald(r.theta, V, {1}));
        const double W2 = directWald(r.theta, V, pair ? std::vector<int>{0} : std::vector<int>{0, 1});
        ExpectClose(stat, Vec{W1, W2, NAN}, 1e-7, "statistics");
        const double p1 = pair ? NAN : DistChi2Q(W1, 2);
        ExpectClose(dfp, Vec{2, 4, NAN, p1, DistChi2Q(W2, 4), NAN}, 1e-7, "df and p-values");
    }
}

} // namespace
