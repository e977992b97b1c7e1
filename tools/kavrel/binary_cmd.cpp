// kavrel probit | logit: maximum likelihood of a binary probit or a binary or multinomial logit,
// by Newton's method on the score and the information matrix of the library's likelihoods
// (ProbitEval, LogitEval); standard errors from the inverse information, and the
// actual-versus-fitted table. The estimation reaches the routines directly, without host records,
// so that the Python module runs the same code.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "command.h"
#include "commands.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "estimators/discrete.h"
#include "matrix/cholesky.h"
#include "numeric/optimize.h"
#include "options.h"

namespace {

const OptionRule kOptions[] = {
    {"--data", "FILE", "the data file"},
    {"--y", "Y", "the outcome: 0 or 1 (probit), 0, 1, ..., m-1 (logit)"},
    {"--x", "X1,X2,...", "the regressors"},
    {"--no-const", nullptr, "no constant term (one is added by default)"},
    {"--out", "FILE", "the fitted probabilities as CSV"},
    {"--json", nullptr, "print the results as one JSON object"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

} // namespace

bool EstimateDiscrete(const Columns &data, bool logit, bool constant, Report *report, std::string *error) {
    struct {
        int n, kx, m;
        Vec y, X, prob;
    } d{data.nobs(),
        static_cast<int>(data.names.size()) - 1 + (constant ? 1 : 0),
        0,
        data.data[0],
        data.block(1, data.names.size() - 1, constant),
        Vec()};
    int top = 0;
    for (double v : d.y) {
        if (v != std::floor(v) || v < 0 || v > 1000) {
            *error = "the outcome " + data.names[0] + " must hold the codes 0, 1, ...";
            return false;
        }
        top = std::max(top, static_cast<int>(v));
    }
    d.m = top + 1;
    if (d.m < 2 || (!logit && d.m != 2)) {
        *error = logit ? "the outcome takes one value only" : "a probit needs an outcome of 0 and 1";
        return false;
    }
    const int k = logit ? (d.m - 1) * d.kx : d.kx;
    if (d.kx < 1 || d.n <= k) {
        *error = "too few observations for the regressors";
        return false;
    }
    if (!CheckDesign(d.X, d.n, d.kx, RegressorNames(data, constant), error)) return false;
    Vec b(k, 0.0);
    KeptLikelihood like;
    RowView X(d.X, d.n, d.kx), Y(d.y, d.n, 1);
    like.call = [&](const Vec &beta, double *ll, Vec *score, Vec *info) {
        score->assign(k, 0.0), info->assign(static_cast<size_t>(k) * k, 0.0);
        d.prob.assign(static_cast<size_t>(d.n) * (logit ? d.m : 2), 0.0);
        RowView I(*info, k, k), P(d.prob, d.n, logit ? d.m : 2);
        const DiscreteOutputs out{score->data(), I, P, nullptr, nullptr};
        if (!logit) {
            *ll = ProbitEval(beta.data(), k, d.y.data(), X, d.n, nullptr, out);
            return true;
        }
        LogitProblem pb{d.n, d.m, beta.data(), Y, 1, X, d.kx, nullptr, 0, nullptr, nullptr, 0};
        return LogitEval(pb, out, ll) == 1;
    };
    const OptProblem problem = like.problem();
    OptResult res{};
    const int status = OptMaximizeNewton(problem, b.data(), k, OptDefaultSettings(), &res);
    if (status == OPT_FAILED) {
        *error = "the likelihood cannot be evaluated";
        return false;
    }
    std::vector<double> inv(static_cast<size_t>(k) * k);
    std::vector<double *> rows;
    for (int i = 0; i < k; ++i) rows.push_back(&inv[static_cast<size_t>(i) * k]);
    const bool invertible = problem.information(&like, b.data(), k, rows.data()) && MatInvertSpd(rows.data(), k) == 1;
    const std::vector<std::string> xnames = RegressorNames(data, constant);
    report->names.clear(), report->se.clear();
    for (int c = 1; c < (logit ? d.m : 2); ++c)
        for (const std::string &x : xnames)
            report->names.push_back(logit && d.m > 2 ? x + "(" + std::to_string(c) + ")" : x);
    report->coef = b;
    for (int j = 0; j < k; ++j) report->se.push_back(invertible ? std::sqrt(rows[j][j]) : NAN);
    report->title = std::string(logit ? (d.m > 2 ? "Multinomial logit" : "Logit") : "Probit") + " of " + data.names[0] +
                    (logit && d.m > 2 ? " (category 0 the base)" : "");
    report->loglik = res.value, report->nobs = d.n, report->residualDf = 0, report->converged = status == OPT_CONVERGED;
    const int categories = logit ? d.m : 2;
    for (int c = 0; c < categories && static_cast<int>(d.prob.size()) == d.n * categories; ++c) {
        Vec p(d.n);
        for (int t = 0; t < d.n; ++t) p[t] = d.prob[static_cast<size_t>(t) * categories + c];
        report->seriesNames.push_back("p" + std::to_string(c)), report->series.push_back(p);
    }
    // Average marginal effects of the regressors on each category's probability. The constant
    // does not vary, so it has none: its column is left out of the table and the JSON.
    if (logit) {
        const int j0 = constant ? 1 : 0;
        Vec effects(static_cast<size_t>(d.m) * d.kx);
        if (LogitProbDerivEval(b.data(), X, d.kx, d.m, 0, d.n - 1, RowView(effects, d.m, d.kx)) == 1) {
            report->lines.push_back("\nAverage marginal effects dP(category)/dx (rows: categories 0.." +
                                    std::to_string(d.m - 1) + "):");
            std::string head = "  ";
            for (int j = j0; j < d.kx; ++j) head += xnames[j] + "\t";
            report->lines.push_back(head);
            Vec shown;
            for (int c = 0; c < d.m; ++c) {
                std::string line = "  ";
                for (int j = j0; j < d.kx; ++j) {
                    const double e = effects[static_cast<size_t>(c) * d.kx + j];
                    char buf[32];
                    std::snprintf(buf, sizeof buf, "%.6g\t", e);
                    line += buf;
                    shown.push_back(e);
                }
                report->lines.push_back(line);
            }
            report->json.push_back("\"marginal_effects\": " + JsonArray(shown));
        }
    }
    // The fitted table: actual categories in rows, predicted in columns, totals last.
    const int cols = logit ? d.m : 2, tr = cols + 1, tc = cols + 1;
    Vec cells(static_cast<size_t>(tr) * tc);
    if (static_cast<int>(d.prob.size()) == d.n * cols) {
        ActFitTableEval(Y, 1, RowView(d.prob, d.n, cols), d.n, cols, RowView(cells, tr, tc));
        report->lines.push_back("\nActual (rows) against predicted (columns), totals last:");
        std::string matrix = "[";
        for (int i = 0; i < tr; ++i) {
            std::string line = "  ";
            Vec row(cells.begin() + static_cast<long>(i) * tc, cells.begin() + static_cast<long>(i + 1) * tc);
            for (double v : row) line += std::to_string(static_cast<long long>(v)) + "\t";
            report->lines.push_back(line);
            matrix += (i ? ", " : "") + JsonArray(row);
        }
        report->json.push_back("\"fitted_table\": " + matrix + "]");
    }
    return true;
}

namespace {

int run(int argc, char **argv, bool logit) {
    const CommandInfo command{logit ? "logit" : "probit",
                              "--data FILE --y Y --x X1,X2,... [--no-const] [--out FILE] [--json]",
                              kOptions,
                              kOptionCount,
                              {"--data", "--y", "--x"}};
    return RunEstimationCommand(
        command, argc, argv,
        [logit](const ParsedOptions &opt, const Database *, const Columns &data, Report *r, std::string *error) {
            return EstimateDiscrete(data, logit, !opt.has("--no-const"), r, error);
        });
}

} // namespace

int RunProbitCommand(int argc, char **argv) { return run(argc, argv, false); }
int RunLogitCommand(int argc, char **argv) { return run(argc, argv, true); }
