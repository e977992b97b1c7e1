// ARFIMA autocovariances against brute-force sums over long MA(infinity) expansions (with the
// asymptotic tail added), for a model with real and complex AR roots, one without AR part and two
// whose AR roots are too close for the partial fractions; the non-convergence message of the
// hypergeometric series.
#include <cmath>
#include <string>

#include "common/host_call.h"
#include "database/output.h"
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

Vec call(const Vec &phi, const Vec &theta, double d, int n, int *status) {
    Vec coef = phi;
    coef.insert(coef.end(), theta.begin(), theta.end());
    HostCall c;
    c.row(0, coef).num(1, static_cast<int>(phi.size())).num(2, static_cast<int>(theta.size()));
    EXPECT_EQ(c.dbl(3, d).num(4, n).ref(5).invoke(FnFracSigma), 1);
    *status = c.status();
    return c.out(5);
}

TEST(FracSigma, AgreesWithDirectSums) {
    // Real and complex AR roots with negative d; fractional noise with an MA part and no AR part.
    const struct {
        const char *what;
        Vec phi, theta;
        double d;
        double tol;
    } rows[] = {
        {"ARFIMA(3,-0.2,2)", {0.4, -0.3, 0.2}, {0.5, 0.2}, -0.2, 1e-10},
        {"ARFIMA(0,0.1,2)", {}, {0.5, -0.4}, 0.1, 1e-9},
        // Roots closer than the partial fractions allow: the splitting sum.
        {"ARFIMA(2,0.2,1), a double root 0.5", {1.0, -0.25}, {0.3}, 0.2, 1e-9},
        {"ARFIMA(3,-0.3,0), roots 0.6, 0.60001, -0.3", {0.90001, -3e-6, -0.1080018}, {}, -0.3, 1e-10},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        int status = -1;
        const Vec got = call(r.phi, r.theta, r.d, 10, &status);
        EXPECT_EQ(status, 1);
        ExpectClose(got, bruteForce(r.phi, r.theta, r.d, 10, 1000000), r.tol);
    }
}

TEST(FracSigma, SeriesReportsNonConvergence) {
    // An AR root of 0.999: the terms shrink like 0.999^k, above 1e-14 after 10,000 terms. Both
    // series of the root report it, and the call still completes.
    PrintCapture capture;
    int status = -1;
    const Vec got = call({0.999}, {}, 0.2, 3, &status);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(printed(), "hyper: end of loop reached!\nhyper: end of loop reached!\n");
    EXPECT_TRUE(std::isfinite(got[0]));
}

} // namespace
