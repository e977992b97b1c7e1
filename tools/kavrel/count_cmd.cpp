// kavrel count: Poisson or negative binomial (NB2, mu (1 + alpha mu) the variance) regression
// with a log link by maximum likelihood, each evaluation one call of FnCountRz with its score and
// observed information; Newton's method, standard errors from the inverse information.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "command.h"
#include "commands.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
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
    ExportLikelihood like;
    like.call = [&](const Vec &theta, double *ll, Vec *score, Vec *info) {
        ToolCall call;
        call.col(0, theta).col(1, y).mat(2, n, k, X).num(3, negbin ? 1 : 0).num(4, 0).num(5, n - 1).dbl(6, 1.0);
        call.ref(7).ref(8).num(9, 0).num(10, 0).num(11, 0);
        if (!call.invoke(FnCountRz)) return false;
        *ll = call.resultDouble(), *score = call.out(7), *info = call.out(8);
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
    ToolCall fitted;
    fitted.col(0, b).col(1, y).mat(2, n, k, X).num(3, negbin ? 1 : 0).num(4, 0).num(5, n - 1).dbl(6, 1.0);
    fitted.num(7, 0).num(8, 0).ref(9).num(10, 0).num(11, 0);
    const Vec mv = fitted.invoke(FnCountRz) ? fitted.out(9) : Vec();
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
