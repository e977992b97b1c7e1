// Distributions against 50-digit evaluations of the same functions (Boost.Math on
// cpp_bin_float_50), closed forms and a subnormal tail: body and far tails, both tails,
// quantiles checked by refining them at 50 digits with Newton's method (independent of any
// double-precision inverse), and NaN/infinite/out-of-range input.
#include <gtest/gtest.h>

#include <functional>

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
const double NaN = std::numeric_limits<double>::quiet_NaN(), Inf = std::numeric_limits<double>::infinity();
const double Tiny = 2.2250738585072014e-308;

enum Fn { P, Q, PDF, PINV, QINV };

// One distribution: our functions by Fn, the 50-digit references for P, Q and the density, the
// grid of x and the relative tolerance.
struct Family {
    std::string name;
    std::function<double(Fn, double)> f;
    std::function<mp(Fn, const mp &)> ref;
    std::vector<double> xs;
    double tol;
};

template <class D> std::function<mp(Fn, const mp &)> refOf(D d) {
    return [d](Fn w, const mp &x) { return w == P ? cdf(d, x) : w == Q ? cdf(complement(d, x)) : pdf(d, x); };
}

double relErr(double got, const mp &want) {
    if (want == 0) return got == 0 ? 0 : 1;
    return static_cast<double>(abs((mp(got) - want) / want));
}

std::vector<double> logGrid(bool symmetric) {
    std::vector<double> xs;
    for (double e = -300; e <= 300; e += 37.5) xs.push_back(std::pow(10.0, e));
    for (double x = 0.1; x < 60; x *= 1.7) xs.push_back(x);
    for (size_t i = 0, n = xs.size(); symmetric && i < n; ++i) xs.push_back(-xs[i]);
    return xs;
}

// Our functions, indexed by Fn.
double (*const kNormal[])(double) = {DistNormalP, DistNormalQ, DistNormalPdf, DistNormalPinv, DistNormalQinv};
double (*const kT[])(double, double) = {DistTP, DistTQ, DistTPdf, DistTPinv, DistTQinv};
double (*const kChi2[])(double, double) = {DistChi2P, DistChi2Q, DistChi2Pdf, DistChi2Pinv, DistChi2Qinv};
double (*const kF[])(double, double, double) = {DistFP, DistFQ, DistFPdf, DistFPinv, DistFQinv};

std::vector<Family> families() {
    std::vector<Family> fs;
    std::vector<double> xs;
    for (double x = -38.4; x <= 38.4; x += 0.61) xs.push_back(x);
    fs.push_back({"normal", [](Fn w, double x) { return kNormal[w](x); },
                  refOf(bm::normal_distribution<mp, MpPolicy>()), xs, 2e-15});
    for (double df : {0.05, 1.0, 2.5, 30.0, 1e4, 1e10})
        fs.push_back({"t " + std::to_string(df), [df](Fn w, double x) { return kT[w](x, df); },
                      refOf(bm::students_t_distribution<mp, MpPolicy>(df)), logGrid(true), 1e-13});
    for (double df : {0.05, 1.0, 7.0, 100.0, 1e5}) {
        xs = logGrid(false);
        for (double f : {0.9, 1.1, 1.3, 2.0}) xs.push_back(f * df);
        fs.push_back({"chi2 " + std::to_string(df), [df](Fn w, double x) { return kChi2[w](x, df); },
                      refOf(bm::chi_squared_distribution<mp, MpPolicy>(df)), xs, 1e-13});
    }
    for (auto d : {std::pair<double, double>{0.1, 0.1}, {1, 1}, {2.5, 40}, {30, 0.5}, {1000, 1e6}})
        fs.push_back({"F " + std::to_string(d.first) + "," + std::to_string(d.second),
                      [d](Fn w, double x) { return kF[w](x, d.first, d.second); },
                      refOf(bm::fisher_f_distribution<mp, MpPolicy>(d.first, d.second)), logGrid(false), 1e-13});
    return fs;
}

TEST(Distributions, AgreeWithFiftyDigitReferenceInBodyAndTails) {
    for (const Family &f : families()) {
        for (double x : f.xs)
            for (Fn w : {P, Q, PDF}) {
                const double got = f.f(w, x);
                const mp want = f.ref(w, x);
                // Beyond the normal range only underflow to a tiny value (or overflow) is asked.
                if (want < Tiny) {
                    EXPECT_LE(got, 1e-300) << f.name << " " << w << " " << x;
                } else if (want <= 1e300) {
                    EXPECT_LE(relErr(got, want), f.tol) << f.name << " " << w << " x=" << x << " got " << got;
                }
            }
        // Quantiles of both tails, checked by refining our own result at 50 digits with Newton's
        // method (independent of any double-precision inverse).
        for (double p : {0.7, 0.5, 0.3, 1e-3, 1e-10, 1e-30, 1e-100, 1e-200, 1e-300})
            for (Fn w : {PINV, QINV}) {
                const double x = f.f(w, p);
                ASSERT_FALSE(std::isnan(x)) << f.name << " p=" << p;
                if (std::isinf(x) || std::fabs(x) < 1e-290 || std::fabs(x) > 1e290) continue;
                mp want = x;
                for (int it = 0; it < 6; ++it)
                    want -= (f.ref(w == PINV ? P : Q, want) - mp(p)) / ((w == PINV ? 1 : -1) * f.ref(PDF, want));
                EXPECT_LE(relErr(x, want), f.tol) << f.name << " " << w << " " << p << " got " << x;
            }
    }
}

TEST(Distributions, ClosedFormsAndLimits) {
    const double pi = 3.14159265358979323846;
    struct Row {
        double got, want, tol;
        const char *what;
    } rows[] = {
        // clang-format off
        {DistNormalP(-38.0), 2.88542836006878430835e-316, 2e-8, "Phi(-38), subnormal"},
        {DistFP(1e-20, 2.0, 2.0), 1e-20 / (1.0 + 1e-20), 1e-15, "F(2,2): x/(1+x)"},
        {LogBeta(0.5, 0.5), std::log(pi), 1e-15, "log B(1/2, 1/2)"},
        // Limits and bad input: exact values, NaN where the argument is outside the domain.
        {DistNormalP(NaN), NaN, 0, "P NaN"},
        {DistNormalP(-Inf), 0.0, 0, "P -inf"},
        {DistNormalQ(-Inf), 1.0, 0, "Q -inf"},
        {DistNormalPinv(-0.1), NaN, 0, "p < 0"},
        {DistNormalPinv(0.0), -Inf, 0, "p 0"},
        {DistNormalQinv(0.0), Inf, 0, "q 0"},
        {DistNormalPdf(Inf), 0.0, 0, "pdf inf"},
        {DistTP(1.0, 0.0), NaN, 0, "t df 0"},
        {DistTQ(1.0, NaN), NaN, 0, "t df NaN"},
        {DistTQ(Inf, 3.0), 0.0, 0, "t Q inf"},
        {DistTP(-Inf, 3.0), 0.0, 0, "t P -inf"},
        {DistTQ(1.0, Inf), DistNormalQ(1.0), 0, "t inf df"},
        {DistTPinv(1.0, 3.0), Inf, 0, "t p 1"},
        {DistTQinv(0.5, 3.0), 0.0, 0, "t centre"},
        {DistChi2P(-1.0, 3.0), 0.0, 0, "chi2 x < 0"},
        {DistChi2Q(Inf, 3.0), 0.0, 0, "chi2 Q inf"},
        {DistChi2P(1.0, Inf), NaN, 0, "chi2 df inf"},
        {DistChi2Pdf(0.0, 1.0), Inf, 0, "chi2 pdf 0, 1 df"},
        {DistChi2Pdf(0.0, 2.0), 0.5, 0, "chi2 pdf 0, 2 df"},
        {DistChi2Qinv(NaN, 2.0), NaN, 0, "chi2 q NaN"},
        {DistFP(1.0, 0.0, 1.0), NaN, 0, "F d1 0"},
        {DistFQ(1.0, Inf, Inf), NaN, 0, "F both inf"},
        {DistFQ(-2.0, 1.0, 1.0), 1.0, 0, "F x < 0"},
        {DistFQ(2.0, 3.0, Inf), DistChi2Q(6.0, 3.0), 0, "F d2 inf"},
        {DistFP(2.0, Inf, 4.0), DistChi2Q(2.0, 4.0), 0, "F d1 inf"},
        {DistFQinv(0.0, 2.0, 3.0), Inf, 0, "F q 0"},
        {DistFPinv(0.0, 2.0, 3.0), 0.0, 0, "F p 0"},
        {LogGamma(0.0), Inf, 0, "pole 0"},
        {LogGamma(-3.0), Inf, 0, "pole -3"},
        {LogGamma(-Inf), NaN, 0, "-inf"},
        {LogBeta(-1.0, 1.0), NaN, 0, "B a < 0"},
        // clang-format on
    };
    for (const auto &r : rows) {
        if (std::isnan(r.want)) {
            EXPECT_TRUE(std::isnan(r.got)) << r.what;
        } else if (r.got != r.want) {
            EXPECT_LE(std::fabs(r.got - r.want), r.tol * std::fabs(r.want)) << r.what << " got " << r.got;
        }
    }
    // log Gamma at 50 digits over the whole line.
    for (double x : {1e-300, 1e-5, 0.5, 1.5, 2.5, 10.0, 171.5, 1e5, 1e300, -0.5, -2.5, -100.3})
        EXPECT_LE(relErr(LogGamma(x), bm::lgamma(mp(x), MpPolicy())), 2e-15) << x;
}

} // namespace
