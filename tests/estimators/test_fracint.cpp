// ARFIMA autocovariances against independent computations: the closed forms of fractional noise
// and of ARMA(1,1), and brute-force sums over long MA(infinity) expansions (with the asymptotic
// tail added) for models with real and complex AR roots; the non-convergence message of the
// hypergeometric series.
#include <cmath>
#include <string>

#include "common/host_call.h"
#include "database/output.h"
#include "estimators/fracint.h"
#include "kavrel/kavrel.h"

namespace {

std::string &printed() {
    static std::string s;
    return s;
}

// Captures the library's text output for the scope.
struct PrintCapture {
    PrintCapture() {
        printed().clear();
        SetOutputChannels([](const char *text) { printed() += text; }, nullptr, nullptr);
    }
    ~PrintCapture() { SetOutputChannels(nullptr, nullptr, nullptr); }
};

// Autocovariances at lags 0..n-1 of psi(L) e_t, psi = (1 + theta L + ...) (1 - L)^-d / phi(L), as
// sum_{k < K} psi_k psi_{k+s} in long double, plus the tail c^2 K^(2d-1) / (1 - 2d) of
// psi_k ~ c k^(d-1), c = theta(1) / (phi(1) Gamma(d)).
Vec bruteForce(const Vec &phi, const Vec &theta, double d, int n, long K) {
    std::vector<long double> pi(K + n), psi(K + n);
    pi[0] = 1;
    for (long k = 1; k < K + n; ++k) pi[k] = pi[k - 1] * (k - 1 + d) / k;
    for (long k = 0; k < K + n; ++k) {
        long double v = pi[k];
        for (size_t i = 0; i < theta.size() && static_cast<long>(i) < k; ++i) v += theta[i] * pi[k - 1 - i];
        for (size_t i = 0; i < phi.size() && static_cast<long>(i) < k; ++i) v += phi[i] * psi[k - 1 - i];
        psi[k] = v;
    }
    long double th1 = 1, ph1 = 1;
    for (double t : theta) th1 += t;
    for (double f : phi) ph1 -= f;
    const long double c = d == 0 ? 0 : th1 / (ph1 * std::tgamma(d));
    const long double tail = c * c * std::pow(static_cast<long double>(K), 2 * d - 1) / (1 - 2 * d);
    Vec out(n);
    for (int s = 0; s < n; ++s) {
        long double sum = 0;
        for (long k = K - 1; k >= 0; --k) sum += psi[k] * psi[k + s];
        out[s] = static_cast<double>(sum + tail);
    }
    return out;
}

// g(k) = Gamma(1 - 2d) Gamma(k + d) / (Gamma(d) Gamma(1 - d) Gamma(k + 1 - d)) for 0 < d < 0.5.
Vec fractionalNoise(double d, int n) {
    Vec g(n);
    const long double e = d;
    for (int k = 0; k < n; ++k)
        g[k] = static_cast<double>(std::exp(std::lgamma(1 - 2 * e) + std::lgamma(k + e) - std::lgamma(e) -
                                            std::lgamma(1 - e) - std::lgamma(k + 1 - e)));
    return g;
}

Vec arma11(double phi, double theta, int n) {
    Vec g(n);
    g[0] = (1 + 2 * phi * theta + theta * theta) / (1 - phi * phi);
    g[1] = (1 + phi * theta) * (phi + theta) / (1 - phi * phi);
    for (int k = 2; k < n; ++k) g[k] = phi * g[k - 1];
    return g;
}

Vec call(const Vec &phi, const Vec &theta, double d, int n, int *status) {
    Vec coef = phi;
    coef.insert(coef.end(), theta.begin(), theta.end());
    HostCall c;
    c.row(0, coef).num(1, static_cast<int>(phi.size())).num(2, static_cast<int>(theta.size()));
    EXPECT_EQ(c.dbl(3, d).num(4, n).ref(5).invoke(FnFracSigma), 1);
    *status = c.status();
    return c.out(5);
}

TEST(FracSigma, AgreesWithClosedFormsAndBruteForce) {
    const struct {
        const char *what;
        Vec phi, theta;
        double d;
        int n;
        Vec want;
        double tol;
    } rows[] = {
        // clang-format off
        {"fractional noise d = 0.45", {}, {}, 0.45, 200, fractionalNoise(0.45, 200), 1e-13},
        {"ARMA(1,1), d = 0", {0.6}, {0.3}, 0.0, 12, arma11(0.6, 0.3, 12), 1e-13},
        {"ARFIMA(1,-0.3,1)", {0.7}, {0.4}, -0.3, 15, bruteForce({0.7}, {0.4}, -0.3, 15, 1000000), 1e-11},
        {"ARFIMA(2,0.2,1), complex roots", {1.0, -0.5}, {0.3}, 0.2, 10,
         bruteForce({1.0, -0.5}, {0.3}, 0.2, 10, 1000000), 1e-8},
        {"ARFIMA(3,-0.2,2), real and complex roots", {0.4, -0.3, 0.2}, {0.5, 0.2}, -0.2, 10,
         bruteForce({0.4, -0.3, 0.2}, {0.5, 0.2}, -0.2, 10, 1000000), 1e-10},
        {"ARFIMA(0,0.1,2)", {}, {0.5, -0.4}, 0.1, 6, bruteForce({}, {0.5, -0.4}, 0.1, 6, 1000000), 1e-9},
        {"trailing zero AR lag", {0.6, 0.0}, {0.3}, 0.0, 5, arma11(0.6, 0.3, 5), 1e-13},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        int status = -1;
        const Vec got = call(r.phi, r.theta, r.d, r.n, &status);
        EXPECT_EQ(status, 1);
        ExpectClose(got, r.want, r.tol);
    }
}

TEST(FracSigma, SeriesReportsNonConvergence) {
    // An AR root of 0.999: the terms shrink like 0.999^k, above 1e-14 after 10,000 terms. Both
    // series of the root report it, the call still completes; a root of 0.99 converges silently.
    const struct {
        double rho;
        const char *message;
    } rows[] = {{0.999, "hyper: end of loop reached!\nhyper: end of loop reached!\n"}, {0.99, ""}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.rho);
        PrintCapture capture;
        int status = -1;
        const Vec got = call({r.rho}, {}, 0.2, 3, &status);
        EXPECT_EQ(status, 1);
        EXPECT_EQ(printed(), r.message);
        EXPECT_TRUE(std::isfinite(got[0]));
    }
    // The series itself: (F(a, 1; b; z) - 1) / z, for a = b the geometric 1 / (1 - z).
    const std::complex<double> z(0.3, 0.4);
    const std::complex<double> s = FracHyperSeries(1.5, 1.5, z, nullptr);
    EXPECT_NEAR(s.real(), (1.0 / (1.0 - z)).real(), 1e-14);
    EXPECT_NEAR(s.imag(), (1.0 / (1.0 - z)).imag(), 1e-14);
}

} // namespace
