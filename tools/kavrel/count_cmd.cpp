// kavrel count: Poisson or negative binomial (NB2, mu (1 + alpha mu) the variance) regression
// with a log link by maximum likelihood, each evaluation one call of the library's CountEval with
// its score and observed information; Newton's method, standard errors from the inverse
// information.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "command.h"
#include "commands.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "estimators/count.h"
#include "matrix/cholesky.h"
#include "numeric/optimize.h"
#include "options.h"

namespace {

const OptionRule kOptions[] = {
    {"--data", "FILE", "the data file"},
    {"--y", "Y", "the counts"},
    {"--x", "X1,X2,...", "the regressors"},
    {"--negbin", nullptr, "negative binomial (NB2) instead of Poisson"},
    {"--no-const", nullptr, "no constant term (one is added by default)"},
    {"--out", "FILE", "the fitted means and variances as CSV"},
    {"--json", nullptr, "print the results as one JSON object"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

const CommandInfo kCommand{"count",
                           "--data FILE --y Y --x X1,X2,... [--negbin] [--no-const] [--out FILE] [--json]",
                           kOptions,
                           kOptionCount,
                           {"--data", "--y", "--x"}};

} // namespace

bool EstimateCount(const Columns &data, bool negbin, bool constant, Report *report, std::string *error) {
    const int n = data.nobs(), k = static_cast<int>(data.names.size()) - 1 + (constant ? 1 : 0);
    const Vec &y = data.data[0], X = data.block(1, data.names.size() - 1, constant);
    double mean = 0.0;
    for (double v : y) {
        if (v < 0 || v != std::floor(v)) {
            *error = "the counts " + data.names[0] + " must be whole numbers, 0 or more";
            return false;
        }
        mean += v / n;
    }
    const int p = k + (negbin ? 1 : 0);
    if (k < 1 || n <= p || mean <= 0.0) {
        *error = "too few observations, or no positive count";
        return false;
    }
    if (!CheckDesign(X, n, k, RegressorNames(data, constant), error)) return false;
    // Start at the constant-only fit (exp(b0) the mean) when there is a constant.
    Vec b(p, 0.0);
    if (constant) b[0] = std::log(mean);
    KeptLikelihood like;
    RowView Xv(X, n, k);
    like.call = [&](const Vec &theta, double *ll, Vec *score, Vec *info) {
        score->assign(p, 0.0), info->assign(static_cast<size_t>(p) * p, 0.0);
        RowView I(*info, p, p);
        const CountOutputs out{score->data(), I, nullptr, nullptr, nullptr};
        *ll = CountEval(negbin ? COUNT_NB2 : COUNT_POISSON, theta.data(), k, y.data(), Xv, 0, n - 1, 1.0, out);
        return true;
    };
    const OptProblem problem = like.problem();
    OptResult res{};
    int status = OptMaximizeNewton(problem, b.data(), p, OptDefaultSettings(), &res);
    if (status == OPT_NO_PROGRESS) status = OptMaximizeBfgs(problem, b.data(), p, OptDefaultSettings(), &res);
    if (status == OPT_FAILED) {
        *error = "the likelihood cannot be evaluated";
        return false;
    }
    std::vector<double> inv(static_cast<size_t>(p) * p);
    std::vector<double *> rows;
    for (int i = 0; i < p; ++i) rows.push_back(&inv[static_cast<size_t>(i) * p]);
    const bool invertible = problem.information(&like, b.data(), p, rows.data()) && MatInvertSpd(rows.data(), p) == 1;
    report->names = RegressorNames(data, constant), report->se.clear();
    if (negbin) report->names.push_back("log(alpha)");
    report->coef = b;
    for (int j = 0; j < p; ++j) report->se.push_back(invertible ? std::sqrt(rows[j][j]) : NAN);
    report->title = std::string(negbin ? "Negative binomial (NB2)" : "Poisson") + " regression of " + data.names[0];
    report->loglik = res.value, report->nobs = n, report->residualDf = 0;
    report->converged = status == OPT_CONVERGED;
    if (negbin) report->stats = {{"alpha", std::exp(b[p - 1])}};
    Vec mv(2 * static_cast<size_t>(n));
    CountEval(negbin ? COUNT_NB2 : COUNT_POISSON, b.data(), k, y.data(), Xv, 0, n - 1, 1.0,
              CountOutputs{nullptr, nullptr, RowView(mv, n, 2), nullptr, nullptr});
    if (static_cast<int>(mv.size()) == 2 * n) {
        Vec mean(n), var(n);
        for (int t = 0; t < n; ++t)
            mean[t] = mv[2 * static_cast<size_t>(t)], var[t] = mv[2 * static_cast<size_t>(t) + 1];
        report->seriesNames = {"mean", "variance"}, report->series = {mean, var};
    }
    return true;
}

int RunCountCommand(int argc, char **argv) {
    return RunEstimationCommand(
        kCommand, argc, argv,
        [](const ParsedOptions &opt, const Database *, const Columns &data, Report *r, std::string *error) {
            return EstimateCount(data, opt.has("--negbin"), !opt.has("--no-const"), r, error);
        });
}
