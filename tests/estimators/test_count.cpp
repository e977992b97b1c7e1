// The count-data likelihoods through the host on the stored sample: log-likelihoods at R's
// maximum-likelihood estimates, and away from them score and information against central
// differences and the outer product against sums of single-observation scores; invalid outcomes.
#include <memory>

#include "estimators/exports_sample.h"
#include "kavrel/kavrel.h"

namespace {

// FnCountRz(theta, y, X, model, first, last, alpha, &score, &info, &fitted, &llfobs, &outer).
std::unique_ptr<HostCall> countCall(const Vec &theta, const Vec &y, const Vec &X, int model, int first, int last) {
    auto c = std::make_unique<HostCall>();
    const int n = static_cast<int>(y.size());
    c->col(0, theta).col(1, y).mat(2, n, static_cast<int>(X.size()) / n, X).num(3, model).num(4, first);
    c->num(5, last).dbl(6, 0.0).ref(7, 11);
    EXPECT_EQ(c->invoke(FnCountRz), 1);
    return c;
}

TEST(CountRz, AgainstRAndFiniteDifferences) {
    const ExportsSample s = ReadExportsSample();
    const int n = s.n();
    Vec nb = s.r.at("nb2_beta");
    nb.push_back(-std::log(s.r.at("nb2_theta")[0])); // log alpha
    const struct {
        const char *what;
        int model;
        Vec theta;
        double llf;
    } rows[] = {{"Poisson", 0, s.r.at("poisson_beta"), s.r.at("poisson_llf")[0]},
                {"NB2, alpha estimated", 1, nb, s.r.at("nb2_llf")[0]}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        EXPECT_NEAR(countCall(r.theta, s.count, s.X, r.model, 0, n - 1)->value(), r.llf, 1e-11 * std::fabs(r.llf));
        // Away from the estimates, where the score does not vanish.
        Vec theta = r.theta;
        for (double &v : theta) v += 0.05;
        const auto c = countCall(theta, s.count, s.X, r.model, 0, n - 1);
        const Vec score = c->out(7), info = c->out(8);
        const size_t p = theta.size();
        const double h = 1e-5;
        for (size_t j = 0; j < p; ++j) {
            Vec up = theta, down = theta;
            up[j] += h;
            down[j] -= h;
            const auto u = countCall(up, s.count, s.X, r.model, 0, n - 1);
            const auto d = countCall(down, s.count, s.X, r.model, 0, n - 1);
            const double fd = (u->value() - d->value()) / (2 * h);
            EXPECT_NEAR(score[j], fd, 1e-6 * std::max(1.0, std::fabs(fd))) << "score " << j;
            for (size_t l = 0; l < p; ++l) {
                const double fdi = -(u->out(7)[l] - d->out(7)[l]) / (2 * h);
                EXPECT_NEAR(info[l * p + j], fdi, 1e-6 * std::max(1.0, std::fabs(fdi))) << "information " << l << j;
            }
        }
        Vec outer(p * p, 0.0);
        for (int i = 0; i < n; ++i) {
            const Vec si = countCall(theta, s.count, s.X, r.model, i, i)->out(7);
            for (size_t j = 0; j < p * p; ++j) outer[j] += si[j / p] * si[j % p];
        }
        ExpectClose(c->out(11), outer, 1e-12, "outer product");
    }
}

TEST(CountRz, InvalidOutcomesAreLeftOut) {
    // Rows 2..6 of nine; in the range -1, NaN and infinity are invalid and 2.7 counts as 2: the
    // log-likelihood is that of rows 2 and 5 alone, each y log mu - mu - log y!.
    const Vec y = {1, 0, 2.7, -1, NAN, 3, HUGE_VAL, 5, 1};
    Vec X;
    for (int i = 0; i < 9; ++i) X.insert(X.end(), {1.0, 0.1 * i});
    const auto c = countCall({0.2, 0.5}, y, X, 0, 2, 6);
    const Vec llfObs = c->out(10);
    std::vector<bool> missing;
    for (const double v : llfObs) missing.push_back(std::isnan(v));
    EXPECT_EQ(missing, (std::vector<bool>{true, true, false, true, true, false, true, true, true}));
    const double mu2 = std::exp(0.2 + 0.05 * 2), mu5 = std::exp(0.2 + 0.05 * 5);
    EXPECT_NEAR(c->value(), 2 * std::log(mu2) - mu2 - std::log(2.0) + 3 * std::log(mu5) - mu5 - std::log(6.0), 1e-14);
}

} // namespace
