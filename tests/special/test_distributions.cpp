// Distributions against 50-digit evaluations of the same functions (Boost.Math on
// cpp_bin_float_50), closed forms and published quantiles: body and far tails, both tails,
// quantiles checked by refining them at 50 digits with Newton's method (independent of any
// double-precision inverse), extreme quantiles defined, and NaN/infinite/out-of-range input.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include <boost/math/distributions/chi_squared.hpp>
#include <boost/math/distributions/fisher_f.hpp>
#include <boost/math/distributions/normal.hpp>
#include <boost/math/distributions/students_t.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <boost/multiprecision/cpp_bin_float.hpp>

#include "special/distributions.h"

namespace {

using mp = boost::multiprecision::cpp_bin_float_50;
namespace bm = boost::math;
namespace pol = boost::math::policies;
using MpPolicy = pol::policy<pol::domain_error<pol::ignore_error>, pol::overflow_error<pol::ignore_error>,
                             pol::evaluation_error<pol::ignore_error>, pol::pole_error<pol::ignore_error>>;
const double NaN = std::numeric_limits<double>::quiet_NaN();
const double Inf = std::numeric_limits<double>::infinity();
const double Tiny = 2.2250738585072014e-308;

using Fn = std::function<double(double)>;
using MpFn = std::function<mp(const mp &)>;

// One distribution with its double functions and the 50-digit references.
struct Family {
    std::string name;
    Fn P, Q, pdf, Pinv, Qinv;
    MpFn mP, mQ, mpdf;
    std::vector<double> xs;
    double tol;
};

double relErr(double got, const mp &want) {
    if (want == 0) return got == 0 ? 0 : 1;
    return static_cast<double>(abs((mp(got) - want) / want));
}

// x with tail(x) = prob at 50 digits, by Newton from the double quantile x0 (sign -1 for Q).
mp refineQuantile(double x0, double prob, const MpFn &tail, const MpFn &pdf, int sign) {
    mp x = x0;
    for (int it = 0; it < 6; ++it) x -= (tail(x) - mp(prob)) / (sign * pdf(x));
    return x;
}

std::vector<double> logGrid(bool symmetric) {
    std::vector<double> xs;
    for (double e = -300; e <= 300; e += 37.5) xs.push_back(std::pow(10.0, e));
    for (double x = 0.1; x < 60; x *= 1.7) xs.push_back(x);
    if (symmetric) {
        size_t n = xs.size();
        for (size_t i = 0; i < n; ++i) xs.push_back(-xs[i]);
    }
    return xs;
}

std::vector<Family> families() {
    std::vector<Family> fs;
    {
        bm::normal_distribution<mp, MpPolicy> d;
        std::vector<double> xs;
        for (double x = -38.4; x <= 38.4; x += 0.61) xs.push_back(x);
        fs.push_back({"normal", DistNormalP, DistNormalQ, DistNormalPdf, DistNormalPinv, DistNormalQinv,
                      [d](const mp &x) { return cdf(d, x); }, [d](const mp &x) { return cdf(complement(d, x)); },
                      [d](const mp &x) { return pdf(d, x); }, xs, 2e-15});
    }
    for (double df : {0.05, 1.0, 2.5, 30.0, 1e4, 1e10}) {
        bm::students_t_distribution<mp, MpPolicy> d(df);
        fs.push_back({"t " + std::to_string(df), [df](double x) { return DistTP(x, df); },
                      [df](double x) { return DistTQ(x, df); }, [df](double x) { return DistTPdf(x, df); },
                      [df](double p) { return DistTPinv(p, df); }, [df](double q) { return DistTQinv(q, df); },
                      [d](const mp &x) { return cdf(d, x); }, [d](const mp &x) { return cdf(complement(d, x)); },
                      [d](const mp &x) { return pdf(d, x); }, logGrid(true), 1e-13});
    }
    for (double df : {0.05, 1.0, 7.0, 100.0, 1e5}) {
        bm::chi_squared_distribution<mp, MpPolicy> d(df);
        std::vector<double> xs = logGrid(false);
        for (double f : {0.9, 1.1, 1.3, 2.0}) xs.push_back(f * df);
        fs.push_back({"chi2 " + std::to_string(df), [df](double x) { return DistChi2P(x, df); },
                      [df](double x) { return DistChi2Q(x, df); }, [df](double x) { return DistChi2Pdf(x, df); },
                      [df](double p) { return DistChi2Pinv(p, df); }, [df](double q) { return DistChi2Qinv(q, df); },
                      [d](const mp &x) { return cdf(d, x); }, [d](const mp &x) { return cdf(complement(d, x)); },
                      [d](const mp &x) { return pdf(d, x); }, xs, 1e-13});
    }
    for (auto dd : {std::pair<double, double>{0.1, 0.1}, {1, 1}, {2.5, 40}, {30, 0.5}, {1000, 1e6}}) {
        double a = dd.first, b = dd.second;
        bm::fisher_f_distribution<mp, MpPolicy> d(a, b);
        fs.push_back({"F " + std::to_string(a) + "," + std::to_string(b), [a, b](double x) { return DistFP(x, a, b); },
                      [a, b](double x) { return DistFQ(x, a, b); }, [a, b](double x) { return DistFPdf(x, a, b); },
                      [a, b](double p) { return DistFPinv(p, a, b); }, [a, b](double q) { return DistFQinv(q, a, b); },
                      [d](const mp &x) { return cdf(d, x); }, [d](const mp &x) { return cdf(complement(d, x)); },
                      [d](const mp &x) { return pdf(d, x); }, logGrid(false), 1e-13});
    }
    return fs;
}

TEST(Distributions, AgreeWithFiftyDigitReferenceInBodyAndTails) {
    for (const Family &f : families()) {
        for (double x : f.xs) {
            const mp X = x;
            struct { const Fn &fn; mp want; const char *what; } rows[] = {
                {f.P, f.mP(X), "P"}, {f.Q, f.mQ(X), "Q"}, {f.pdf, f.mpdf(X), "pdf"}};
            for (const auto &r : rows) {
                double got = r.fn(x);
                if (r.want < Tiny || r.want > 1e300) {
                    // Beyond the normal range only underflow to a tiny value (or overflow) is asked.
                    if (r.want < Tiny) {
                        EXPECT_LE(got, 1e-300) << f.name << " " << r.what << " " << x;
                    }
                    continue;
                }
                EXPECT_LE(relErr(got, r.want), f.tol) << f.name << " " << r.what << " x=" << x << " got " << got;
            }
        }
        // Quantiles of both tails, refined at 50 digits from our own result.
        for (double p : {0.7, 0.5, 0.3, 1e-3, 1e-10, 1e-30, 1e-100, 1e-200, 1e-300}) {
            double xp = f.Pinv(p), xq = f.Qinv(p);
            for (int upper = 0; upper < 2; ++upper) {
                double x = upper ? xq : xp;
                ASSERT_FALSE(std::isnan(x)) << f.name << " p=" << p;
                if (std::isinf(x) || std::fabs(x) < 1e-290 || std::fabs(x) > 1e290) continue;
                mp want = upper ? refineQuantile(x, p, f.mQ, f.mpdf, -1) : refineQuantile(x, p, f.mP, f.mpdf, 1);
                EXPECT_LE(relErr(x, want), f.tol) << f.name << (upper ? " Qinv " : " Pinv ") << p << " got " << x;
            }
        }
    }
}

TEST(Distributions, ClosedFormsAndPublishedValues) {
    const double pi = 3.14159265358979323846;
    struct Row { double got, want, tol; const char *what; } rows[] = {
        {DistNormalP(-38.0), 2.88542836006878430835e-316, 2e-8, "Phi(-38), subnormal"},
        {DistNormalQ(35.0), 1.12491070647240e-268, 1e-14, "Q(35)"},
        {DistNormalPinv(0.975), 1.959963984540054, 1e-15, "z 0.975 (A&S 26.2)"},
        {DistTQinv(0.025, 10.0), 2.228138851986274, 1e-14, "t 0.975, 10 df"},
        {DistChi2Qinv(0.05, 1.0), 3.841458820694126, 1e-14, "chi2 0.95, 1 df"},
        {DistFQinv(0.05, 1.0, 1.0), 161.4476387975885, 1e-13, "F 0.95, (1, 1)"},
        {DistTQ(1e-5, 1.0), 0.5 - std::atan(1e-5) / pi, 1e-15, "Cauchy near 0"},
        {DistTQ(1e200, 1.0), 1.0 / (pi * 1e200), 1e-14, "Cauchy far tail"},
        {DistTQ(3.0, 2.0), 0.5 * (1.0 - 3.0 / std::sqrt(11.0)), 1e-14, "t 2 df closed form"},
        {DistChi2Q(1400.0, 2.0), std::exp(-700.0), 1e-13, "chi2 2 df: exp(-x/2)"},
        {DistFP(1e-20, 2.0, 2.0), 1e-20 / (1.0 + 1e-20), 1e-15, "F(2,2): x/(1+x)"},
        {DistFQ(1e-20, 1.0, 1.0), 1.0 - 2.0 / pi * std::atan(1e-10), 1e-15, "F(1,1) near 0"},
        {LogGamma(0.5), 0.5 * std::log(pi), 1e-15, "log Gamma(1/2)"},
        {LogGamma(-0.5), std::log(2.0 * std::sqrt(pi)), 1e-15, "log |Gamma(-1/2)|"},
        {LogGamma(1e-300), 690.7755278982137, 1e-15, "log Gamma near 0"},
        {LogBeta(0.5, 0.5), std::log(pi), 1e-15, "log B(1/2, 1/2)"},
    };
    for (const auto &r : rows) {
        EXPECT_LE(std::fabs(r.got - r.want), r.tol * std::fabs(r.want)) << r.what << " got " << r.got;
    }
    // log Gamma at 50 digits over the whole line.
    for (double x : {1e-300, 1e-5, 0.5, 1.5, 2.5, 10.0, 171.5, 1e5, 1e300, -0.5, -2.5, -100.3}) {
        mp want = bm::lgamma(mp(x), MpPolicy());
        EXPECT_LE(relErr(LogGamma(x), want), 2e-15) << x;
    }
}

TEST(Distributions, ExtremeFQuantilesAreDefined) {
    for (double d1 : {0.1, 0.5, 1.0, 2.0, 5.0})
        for (double d2 : {0.1, 0.5, 1.0, 2.0, 5.0})
            for (double q : {1e-21, 1e-50, 1e-100, 1e-300}) {
                bm::fisher_f_distribution<mp, MpPolicy> d(d1, d2);
                double x = DistFQinv(q, d1, d2);
                ASSERT_FALSE(std::isnan(x)) << d1 << " " << d2 << " " << q;
                if (std::isinf(x)) {
                    // Only when the true quantile lies beyond the largest double.
                    EXPECT_GT(cdf(complement(d, mp(std::numeric_limits<double>::max()))), mp(q));
                } else {
                    EXPECT_LE(relErr(q, cdf(complement(d, mp(x)))), 1e-12) << d1 << " " << d2 << " " << q;
                }
                double xl = DistFPinv(q, d1, d2);
                ASSERT_FALSE(std::isnan(xl));
                if (xl > 1e-290) {
                    EXPECT_LE(relErr(q, cdf(d, mp(xl))), 1e-12) << d1 << " " << d2 << " " << q;
                }
            }
}

TEST(Distributions, BadAndLimitInput) {
    struct Row { double got, want; const char *what; } rows[] = {
        {DistNormalP(NaN), NaN, "P NaN"}, {DistNormalP(-Inf), 0.0, "P -inf"}, {DistNormalQ(-Inf), 1.0, "Q -inf"},
        {DistNormalPinv(-0.1), NaN, "p < 0"}, {DistNormalPinv(1.5), NaN, "p > 1"}, {DistNormalPinv(0.0), -Inf, "p 0"},
        {DistNormalQinv(0.0), Inf, "q 0"}, {DistNormalPdf(Inf), 0.0, "pdf inf"},
        {DistTP(1.0, 0.0), NaN, "t df 0"}, {DistTP(1.0, -2.0), NaN, "t df < 0"}, {DistTQ(1.0, NaN), NaN, "t df NaN"},
        {DistTQ(Inf, 3.0), 0.0, "t Q inf"}, {DistTP(-Inf, 3.0), 0.0, "t P -inf"}, {DistTQ(1.0, Inf), DistNormalQ(1.0), "t inf df"},
        {DistTPinv(1.0, 3.0), Inf, "t p 1"}, {DistTQinv(0.5, 3.0), 0.0, "t centre"},
        {DistChi2P(-1.0, 3.0), 0.0, "chi2 x < 0"}, {DistChi2Q(Inf, 3.0), 0.0, "chi2 Q inf"}, {DistChi2P(1.0, Inf), NaN, "chi2 df inf"},
        {DistChi2Pdf(0.0, 1.0), Inf, "chi2 pdf 0, 1 df"}, {DistChi2Pdf(0.0, 2.0), 0.5, "chi2 pdf 0, 2 df"}, {DistChi2Qinv(NaN, 2.0), NaN, "chi2 q NaN"},
        {DistFP(1.0, 0.0, 1.0), NaN, "F d1 0"}, {DistFQ(1.0, Inf, Inf), NaN, "F both inf"}, {DistFQ(-2.0, 1.0, 1.0), 1.0, "F x < 0"},
        {DistFQ(2.0, 3.0, Inf), DistChi2Q(6.0, 3.0), "F d2 inf"}, {DistFP(2.0, Inf, 4.0), DistChi2Q(2.0, 4.0), "F d1 inf"},
        {DistFQinv(0.0, 2.0, 3.0), Inf, "F q 0"}, {DistFPinv(0.0, 2.0, 3.0), 0.0, "F p 0"},
        {LogGamma(0.0), Inf, "pole 0"}, {LogGamma(-3.0), Inf, "pole -3"}, {LogGamma(-Inf), NaN, "-inf"}, {LogBeta(-1.0, 1.0), NaN, "B a < 0"},
    };
    for (const auto &r : rows) {
        if (std::isnan(r.want)) EXPECT_TRUE(std::isnan(r.got)) << r.what;
        else EXPECT_EQ(r.got, r.want) << r.what;
    }
}

} // namespace
