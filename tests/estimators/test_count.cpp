// The count-data likelihoods through the host: log-likelihoods at R's maximum-likelihood
// estimates, per-observation values against the textbook lnGamma form in long double, score and
// information against central differences, outer products against sums of single-observation
// scores, invalid outcomes and observation ranges.
#include <cmath>
#include <memory>

#include "common/reference.h"
#include "estimators/exports_sample.h"
#include "kavrel/kavrel.h"

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

// FnCountRz(theta, y, X, model, first, last, alpha, &score, &info, &fitted, &llfobs, &outer).
void countCall(HostCall &c, const Vec &theta, const Vec &y, const Vec &X, int model, int first, int last,
               double alpha) {
    const int n = static_cast<int>(y.size());
    c.col(0, theta).col(1, y).mat(2, n, static_cast<int>(X.size()) / n, X).num(3, model).num(4, first).num(5, last);
    c.dbl(6, alpha).ref(7, 11);
}

TEST(CountRz, RLogLikelihoodsAtTheirEstimates) {
    // R stopped at a relative deviance change of 1e-14: the score vanishes at its estimates.
    const ExportsSample s = ReadExportsSample();
    Vec nb = s.r.at("nb2_beta");
    nb.push_back(-std::log(s.r.at("nb2_theta")[0])); // log alpha
    const struct {
        int model;
        Vec theta;
        double llf;
    } rows[] = {{0, s.r.at("poisson_beta"), s.r.at("poisson_llf")[0]}, {1, nb, s.r.at("nb2_llf")[0]}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.model);
        HostCall c;
        countCall(c, r.theta, s.count, s.X, r.model, 0, s.n() - 1, 0.0);
        ASSERT_EQ(c.invoke(FnCountRz), 1);
        EXPECT_NEAR(c.value(), r.llf, 1e-11 * std::fabs(r.llf));
        for (const double g : c.out(7)) EXPECT_NEAR(g, 0.0, 1e-5);
    }
}

// The textbook terms in long double: Poisson y log mu - mu - lnGamma(y + 1); NB2 with r = 1/alpha
// lnGamma(y + r) - lnGamma(r) - lnGamma(y + 1) + r log(r / (r + mu)) + y log(mu / (r + mu)), with
// Gamma(y + r) / Gamma(r) written as the product of r + j over j < y, so that a large r does not
// cancel.
long double textbookTerm(long double y, long double mu, long double alpha) {
    if (alpha == 0.0L) return y * std::log(mu) - mu - std::lgamma(y + 1.0L);
    const long double r = 1.0L / alpha;
    long double ratios = 0.0L;
    for (int j = 0; j < y; ++j) ratios += std::log((r + j) / (r + mu));
    return ratios + y * std::log(mu) - std::lgamma(y + 1.0L) - r * std::log1p(mu / r);
}

TEST(CountRz, DerivativesAgainstFiniteDifferences) {
    // 40 observations with counts from 0 to 400 (those from 100 on take the gamma-function sums).
    struct {
        Vec y, X;
    } s;
    Lcg g{21};
    const double big[] = {100, 150, 400, 99, 250};
    for (int i = 0; i < 40; ++i) {
        s.X.insert(s.X.end(), {1.0, g.next(), g.next()});
        s.y.push_back(i % 8 == 3 ? big[i / 8] : std::floor(4.0 * (g.next() + 1.0)));
    }
    const int n = 40;
    const Vec beta = {0.9, 0.8, -0.5};
    const struct {
        const char *what;
        int model;
        double alpha;
    } rows[] = {
        // Shapes r = 1/alpha below and above 1000 take two forms of the sums over j < y.
        {"Poisson", 0, 0.0},
        {"NB2 estimated, alpha 0.05", 1, 0.05},
        {"NB2 estimated, alpha 1e-9", 1, 1e-9},
        {"NB2 fixed, alpha 0.4", 2, 0.4},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        Vec theta = beta;
        if (r.model == 1) theta.push_back(std::log(r.alpha));
        const size_t p = theta.size();
        auto call = [&](const Vec &at, int first, int last) {
            auto c = std::make_unique<HostCall>();
            countCall(*c, at, s.y, s.X, r.model, first, last, r.alpha);
            EXPECT_EQ(c->invoke(FnCountRz), 1);
            return c;
        };
        const auto c = call(theta, 0, n - 1);
        const Vec score = c->out(7), info = c->out(8), fitted = c->out(9), llfObs = c->out(10);
        long double total = 0.0L;
        for (int i = 0; i < n; ++i) {
            const long double mu = std::exp(static_cast<long double>(beta[0]) * s.X[3 * i] + beta[1] * s.X[3 * i + 1] +
                                            static_cast<long double>(beta[2]) * s.X[3 * i + 2]);
            const long double term = textbookTerm(s.y[i], mu, r.alpha);
            total += term;
            EXPECT_NEAR(llfObs[i], static_cast<double>(term), 1e-11 * std::max(1.0L, std::fabs(term))) << i;
            EXPECT_NEAR(fitted[2 * i], static_cast<double>(mu), 1e-13 * static_cast<double>(mu)) << i;
            const double var = static_cast<double>(mu * (1.0L + r.alpha * mu));
            EXPECT_NEAR(fitted[2 * i + 1], var, 1e-13 * var) << i;
        }
        EXPECT_NEAR(c->value(), static_cast<double>(total), 1e-12 * std::fabs(static_cast<double>(total)));
        // Score: central differences of the log-likelihood; information: minus those of the score.
        const double h = 1e-5;
        for (size_t j = 0; j < p; ++j) {
            Vec up = theta, down = theta;
            up[j] += h, down[j] -= h;
            const auto u = call(up, 0, n - 1), d = call(down, 0, n - 1);
            const double fd = (u->value() - d->value()) / (2 * h);
            EXPECT_NEAR(score[j], fd, 1e-6 * std::max(1.0, std::fabs(fd))) << "score " << j;
            for (size_t l = 0; l < p; ++l) {
                const double fdi = -(u->out(7)[l] - d->out(7)[l]) / (2 * h);
                EXPECT_NEAR(info[l * p + j], fdi, 1e-6 * std::max(1.0, std::fabs(fdi))) << "information " << l << j;
            }
        }
        // Outer product: the sum of s_i s_i' over single-observation calls.
        Vec sum(p * p, 0.0);
        for (int i = 0; i < n; ++i) {
            const Vec si = call(theta, i, i)->out(7);
            for (size_t j = 0; j < p * p; ++j) sum[j] += si[j / p] * si[j % p];
        }
        ExpectClose(c->out(11), sum, 1e-12, "outer product");
    }
}

TEST(CountRz, InvalidOutcomesAndTheObservationRange) {
    // Rows 2..6 of nine; in the range -1, NaN and infinity are invalid and 2.7 counts as 2.
    const Vec y = {1, 0, 2.7, -1, NaN, 3, HUGE_VAL, 5, 1};
    Vec X;
    for (int i = 0; i < 9; ++i) X.insert(X.end(), {1.0, 0.1 * i});
    const Vec beta = {0.2, 0.5};
    HostCall c;
    countCall(c, beta, y, X, 0, 2, 6, 0.0);
    ASSERT_EQ(c.invoke(FnCountRz), 1);
    const Vec llfObs = c.out(10), fitted = c.out(9);
    double want = 0.0;
    for (int i = 0; i < 9; ++i) {
        SCOPED_TRACE(i);
        const double mu = std::exp(beta[0] + beta[1] * 0.1 * i);
        const bool inRange = i >= 2 && i <= 6, valid = i == 2 || i == 5;
        EXPECT_EQ(std::isnan(fitted[2 * i]), !inRange);
        EXPECT_EQ(std::isnan(llfObs[i]), !valid);
        if (!valid) continue;
        const double term = static_cast<double>(textbookTerm(std::trunc(y[i]), mu, 0.0L));
        EXPECT_NEAR(llfObs[i], term, 1e-14);
        want += term;
    }
    EXPECT_NEAR(c.value(), want, 1e-14);
}

} // namespace
