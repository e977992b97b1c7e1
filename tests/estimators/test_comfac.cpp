// Common-factor Wald statistics against a direct computation: the restrictions evaluated at the
// roots of the autoregressive polynomial found by the quadratic formula, their Jacobian by
// central differences, W = g' (J V J')^-1 g in long double, minimised over the candidate roots;
// an exact common factor; and the codes of a call that runs and fails.
#include <complex>
#include <functional>

#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"
#include "special/distributions.h"

namespace {

using Cx = std::complex<double>;
using Restrictions = std::function<Vec(const Vec &)>;

// W = g' (J V J')^-1 g with J by central differences of g at theta.
double directWald(const Restrictions &g, const Vec &theta, const Vec &V) {
    const Vec g0 = g(theta);
    const size_t k = theta.size(), r = g0.size();
    std::vector<Vec> J(r, Vec(k));
    for (size_t c = 0; c < k; ++c) {
        Vec up = theta, down = theta;
        const double h = 1e-6 * std::max(1.0, std::fabs(theta[c]));
        up[c] += h, down[c] -= h;
        const Vec gu = g(up), gd = g(down);
        for (size_t a = 0; a < r; ++a) J[a][c] = (gu[a] - gd[a]) / (2 * h);
    }
    LMat omega(r, LVec(r, 0.0L));
    for (size_t a = 0; a < r; ++a)
        for (size_t b = 0; b < r; ++b)
            for (size_t i = 0; i < k; ++i)
                for (size_t j = 0; j < k; ++j) omega[a][b] += J[a][i] * V[i * k + j] * J[b][j];
    std::vector<int> all(r);
    for (size_t a = 0; a < r; ++a) all[a] = static_cast<int>(a);
    const LMat inv = inverseOn(omega, all);
    long double W = 0;
    for (size_t a = 0; a < r; ++a)
        for (size_t b = 0; b < r; ++b) W += g0[a] * inv[a][b] * g0[b];
    return static_cast<double>(W);
}

// The roots of z^2 - a1 z - a2, the larger real part first (the one with positive imaginary part
// when complex).
std::pair<Cx, Cx> quadraticRoots(double a1, double a2) {
    const Cx s = std::sqrt(Cx(a1 * a1 + 4 * a2, 0.0));
    return {(a1 + s) / 2.0, (a1 - s) / 2.0};
}

// B(z) = b0 z^2 + b1 z + b2.
Cx reversed(const double *b, Cx z) { return (b[0] * z + b[1]) * z + b[2]; }

// A symmetric positive definite k x k covariance.
Vec covariance(int k, uint64_t seed) {
    Lcg g{seed};
    const Vec a = g.draws(static_cast<size_t>(k) * k);
    Vec V(static_cast<size_t>(k) * k);
    for (int i = 0; i < k; ++i)
        for (int j = 0; j < k; ++j) {
            double s = i == j ? 0.05 : 0.0;
            for (int l = 0; l < k; ++l) s += a[i * k + l] * a[j * k + l] / k;
            V[i * k + j] = s;
        }
    return V;
}

// ADL(2; 2, 2): theta = (c, a1, a2, b10, b11, b12, b20, b21, b22).
void adl22(HostCall &c, const Vec &theta, int R) {
    c.row(0, theta).mat(1, 9, 9, covariance(9, 3)).row(2, {2, 2, 2}).row(3, {1, 2}).row(4, {3, 4, 5, 6, 7, 8});
    c.dbl(5, 0.0).num(6, R).ref(7, 8);
}

TEST(Comfac, AgreesWithDirectWald) {
    // ADL(2; 2, 2) with real roots (0.7, 0.4) and with a complex pair (0.5 +- 0.5i).
    const struct {
        const char *what;
        Vec theta;
        int code;
    } rows[] = {
        {"real roots", {0.2, 1.1, -0.28, 1.0, -0.5, 0.1, 0.4, 0.3, -0.2}, 1},
        {"complex pair", {0.2, 1.0, -0.5, 1.0, -0.5, 0.1, 0.4, 0.3, -0.2}, 3},
    };
    const Vec V = covariance(9, 3);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        HostCall c;
        adl22(c, r.theta, 3);
        ASSERT_EQ(c.invoke(FnComfac), 1);
        EXPECT_EQ(c.status(), r.code);
        const Vec stat = c.out(7), dfp = c.out(8);
        ASSERT_EQ(stat.size(), 3u);
        // Order 1: B_j at one real root, the smaller statistic of the two roots.
        auto atRoot = [](int which) {
            return [which](const Vec &t) {
                const auto roots = quadraticRoots(t[1], t[2]);
                const Cx l = which == 0 ? roots.first : roots.second;
                return Vec{reversed(&t[3], l).real(), reversed(&t[6], l).real()};
            };
        };
        // Order 2: both roots; for a pair, real and imaginary parts at one member.
        const Restrictions both = [](const Vec &t) {
            const auto roots = quadraticRoots(t[1], t[2]);
            const Cx l1 = roots.first, l2 = roots.second;
            if (l1.imag() != 0.0)
                return Vec{reversed(&t[3], l1).real(), reversed(&t[3], l1).imag(), reversed(&t[6], l1).real(),
                           reversed(&t[6], l1).imag()};
            return Vec{reversed(&t[3], l1).real(), reversed(&t[3], l2).real(), reversed(&t[6], l1).real(),
                       reversed(&t[6], l2).real()};
        };
        if (r.code == 1) {
            const double W1 = std::min(directWald(atRoot(0), r.theta, V), directWald(atRoot(1), r.theta, V));
            EXPECT_NEAR(stat[0], W1, 1e-7 * W1);
            EXPECT_NEAR(dfp[3], DistChi2Q(W1, 2), 1e-7);
        } else {
            EXPECT_TRUE(std::isnan(stat[0]));
        }
        const double W2 = directWald(both, r.theta, V);
        EXPECT_NEAR(stat[1], W2, 1e-7 * W2);
        EXPECT_TRUE(std::isnan(stat[2])); // above the autoregressive order
        ExpectClose(Vec(dfp.begin(), dfp.begin() + 3), Vec{2, 4, NAN}, 0, "degrees of freedom");
    }
}

TEST(Comfac, ExactCommonFactorGivesZero) {
    // a(L) = (1 - 0.6L)(1 - 0.3L), b_1(L) = (1 - 0.6L)(2 + L), b_2(L) = (1 - 0.6L)(0.5 - L): the
    // factor 1 - 0.6L is common, so the order-1 statistic is 0 (p-value 1); order 2 is not.
    const Vec theta = {0.1, 0.9, -0.18, 2.0, -0.2, -0.6, 0.5, -1.3, 0.6};
    HostCall c;
    adl22(c, theta, 2);
    ASSERT_EQ(c.invoke(FnComfac), 1);
    EXPECT_EQ(c.status(), 1);
    EXPECT_NEAR(c.out(7)[0], 0.0, 1e-20);
    EXPECT_NEAR(c.out(8)[2], 1.0, 1e-12);
    EXPECT_GT(c.out(7)[1], 0.01);
}

TEST(Comfac, FailedRunsLeaveStatisticsMissing) {
    // The code, missing statistics and p-values (degrees of freedom when known).
    const struct {
        const char *what;
        void (*edit)(HostCall &);
        int status;
    } failed[] = {
        // clang-format off
        {"no AR part", [](HostCall &c) { c.row(2, {0, 2, 2}).mat(3, 0, 0, {}); }, 2},
        {"NaN coefficient", [](HostCall &c) { c.row(0, {0, 1.1, -0.28, NAN, 0, 0, 0, 0, 0}); }, -1},
        {"zero covariance", [](HostCall &c) { c.mat(1, 9, 9, Vec(81, 0.0)); }, 0},
        // clang-format on
    };
    for (const auto &r : failed) {
        SCOPED_TRACE(r.what);
        HostCall c;
        adl22(c, {0.2, 1.1, -0.28, 1.0, -0.5, 0.1, 0.4, 0.3, -0.2}, 2);
        r.edit(c);
        ASSERT_EQ(c.invoke(FnComfac), 1);
        EXPECT_EQ(c.status(), r.status);
        ASSERT_EQ(c.out(7).size(), 2u);
        EXPECT_TRUE(AllMissing(c.out(7)));
        const Vec dfp = c.out(8);
        EXPECT_TRUE(AllMissing(Vec(dfp.begin() + 2, dfp.end())));
    }
}

} // namespace
