// kavrel count: Poisson or negative binomial (NB2, mu (1 + alpha mu) the variance) regression
// with a log link by maximum likelihood, each evaluation one call of FnCountRz with its score and
// observed information; Newton's method, standard errors from the inverse information.
#include <algorithm>
#include <cmath>
#include <cstdio>

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
    {"--json", nullptr, "print the results as one JSON object"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

int fail(const std::string &what) {
    std::fprintf(stderr, "kavrel count: %s\n", what.c_str());
    return EXIT_BAD_INPUT;
}

// The last call's results, for the optimiser's three questions at one point.
struct Count {
    int n, k;
    bool negbin;
    Vec y, X, lastB, score, info;
    double ll = NAN;
    bool evaluate(const double *b, int p) {
        if (static_cast<int>(lastB.size()) == p && std::equal(lastB.begin(), lastB.end(), b)) return std::isfinite(ll);
        ToolCall call;
        call.col(0, Vec(b, b + p)).col(1, y).mat(2, n, k, X).num(3, negbin ? 1 : 0).num(4, 0).num(5, n - 1).dbl(6, 1.0);
        call.ref(7).ref(8).num(9, 0).num(10, 0).num(11, 0);
        if (!call.invoke(FnCountRz)) return false;
        lastB.assign(b, b + p), ll = call.resultDouble(), score = call.out(7), info = call.out(8);
        return std::isfinite(ll) && static_cast<int>(score.size()) == p;
    }
};

double value(void *ctx, const double *b, int p) {
    auto &c = *static_cast<Count *>(ctx);
    return c.evaluate(b, p) ? c.ll : NAN;
}
int gradient(void *ctx, const double *b, int p, double *g) {
    auto &c = *static_cast<Count *>(ctx);
    if (!c.evaluate(b, p)) return 0;
    for (int j = 0; j < p; ++j) g[j] = c.score[j];
    return 1;
}
int information(void *ctx, const double *b, int p, MATRIX info) {
    auto &c = *static_cast<Count *>(ctx);
    if (!c.evaluate(b, p) || static_cast<int>(c.info.size()) != p * p) return 0;
    for (int i = 0; i < p; ++i)
        for (int j = 0; j < p; ++j) info[i][j] = c.info[static_cast<size_t>(i) * p + j];
    return 1;
}

} // namespace

bool EstimateCount(const Columns &data, bool negbin, bool constant, Report *report, std::string *error) {
    Count c;
    c.n = data.nobs(), c.k = static_cast<int>(data.names.size()) - 1 + (constant ? 1 : 0), c.negbin = negbin;
    c.y = data.data[0], c.X = data.block(1, data.names.size() - 1, constant);
    double mean = 0.0;
    for (double v : c.y) {
        if (v < 0 || v != std::floor(v)) {
            *error = "the counts " + data.names[0] + " must be whole numbers, 0 or more";
            return false;
        }
        mean += v / c.n;
    }
    const int p = c.k + (negbin ? 1 : 0);
    if (c.k < 1 || c.n <= p || mean <= 0.0) {
        *error = "too few observations, or no positive count";
        return false;
    }
    // Start at the constant-only fit (exp(b0) the mean) when there is a constant.
    Vec b(p, 0.0);
    if (constant) b[0] = std::log(mean);
    const OptProblem problem{&c, value, gradient, information};
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
    const bool invertible = information(&c, b.data(), p, rows.data()) && MatInvertSpd(rows.data(), p) == 1;
    report->names.clear(), report->se.clear();
    if (constant) report->names.push_back("Constant");
    for (size_t j = 1; j < data.names.size(); ++j) report->names.push_back(data.names[j]);
    if (negbin) report->names.push_back("log(alpha)");
    report->coef = b;
    for (int j = 0; j < p; ++j) report->se.push_back(invertible ? std::sqrt(rows[j][j]) : NAN);
    report->title = std::string(negbin ? "Negative binomial (NB2)" : "Poisson") + " regression of " + data.names[0];
    report->loglik = res.value, report->nobs = c.n, report->residualDf = 0;
    report->converged = status == OPT_CONVERGED;
    if (negbin) report->stats = {{"alpha", std::exp(b[p - 1])}};
    return true;
}

int RunCountCommand(int argc, char **argv) {
    const ParsedOptions opt = ParseOptions(argc, argv, 1, kOptions, kOptionCount);
    if (!opt.error.empty()) return fail(opt.error);
    if (opt.has("--help")) {
        std::printf("usage: kavrel count --data FILE --y Y --x X1,X2,... [--negbin] [--no-const] [--json]\n\n%s",
                    OptionHelp(kOptions, kOptionCount).c_str());
        return EXIT_CLEAN;
    }
    if (!opt.positional.empty()) return fail("unexpected argument " + opt.positional[0]);
    for (const char *required : {"--data", "--y", "--x"})
        if (!opt.has(required)) return fail(std::string(required) + " is required");
    std::string error;
    Database *db = LoadData(opt.get("--data"), &error);
    if (!db) return fail(error);
    std::vector<std::string> names{opt.get("--y")};
    for (const std::string &x : SplitNames(opt.get("--x"))) names.push_back(x);
    Columns data;
    Report report;
    int status = EXIT_CLEAN;
    if (!SelectColumns(db, names, &data, &error) ||
        !EstimateCount(data, opt.has("--negbin"), !opt.has("--no-const"), &report, &error)) {
        status = fail(error);
    } else {
        report.sample = PeriodText(db, data.first) + " - " + PeriodText(db, data.last);
        if (opt.has("--json"))
            PrintJson(stdout, report);
        else
            PrintReport(stdout, report);
        if (!report.converged) status = EXIT_FAULTS;
    }
    DbFree(db);
    return status;
}
