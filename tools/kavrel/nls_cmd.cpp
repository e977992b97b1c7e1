// kavrel nls: nonlinear least squares of a model written in Algebra, through the estimation
// bridge as a host program uses it: FnInitAlgebraNls compiles the model over the data file's
// variables, each evaluation writes the parameters and runs it with FnRunAlgebraNls, and
// FnGetAlgebraVar reads the fitted values back. The model names its parameters &0, &1, ... with
// their starting values and assigns the fitted values to a variable (`fitted` unless --fitted
// names another); the residuals are the dependent variable (--y) minus the fitted values.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "command.h"
#include "commands.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "numeric/optimize.h"
#include "options.h"

namespace {

const OptionRule kOptions[] = {
    {"--data", "FILE", "the data file"},
    {"--y", "Y", "the dependent variable"},
    {"--fitted", "NAME", "the variable the model assigns its fitted values to (default fitted)"},
    {"-e", "TEXT", "the model as text instead of a file"},
    {"--json", nullptr, "print the results as one JSON object"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

// The model's residuals at parameter values: run, read the fitted values, subtract.
struct NlsModel {
    std::string fitted;
    Vec y;                // the dependent variable at every observation
    std::vector<int> obs; // where y and the starting fit are both present
    int T = 0;
};

bool fittedValues(const NlsModel &m, const double *b, int n, Vec *fit) {
    ToolCall run;
    run.col(0, Vec(b, b + n)).num(1, 0).num(2, m.T - 1);
    if (!run.invoke(FnRunAlgebraNls) || !run.resultIsInt()) return false;
    ToolCall get;
    get.str(0, m.fitted).num(1, 0).num(2, m.T - 1).num(3, 0);
    if (!get.invoke(FnGetAlgebraVar)) return false;
    *fit = get.values();
    return static_cast<int>(fit->size()) == m.T;
}

int residuals(void *ctx, const double *b, int n, double *r) {
    const NlsModel &m = *static_cast<NlsModel *>(ctx);
    Vec fit;
    if (!fittedValues(m, b, n, &fit)) return 0;
    for (size_t i = 0; i < m.obs.size(); ++i) {
        r[i] = m.y[m.obs[i]] - fit[m.obs[i]];
        if (!std::isfinite(r[i])) return 0;
    }
    return 1;
}

} // namespace

bool EstimateNls(const Database *db, const std::string &model, const std::string &yName, const std::string &fitted,
                 Report *report, std::string *error) {
    const int yVar = DbFindVariableExact(db, yName.c_str());
    if (yVar < 0) {
        *error = "no variable " + yName + " in the data";
        return false;
    }
    const int T = db->obsCount, k = db->varCount;
    Vec data(static_cast<size_t>(T) * k);
    std::vector<std::string> names;
    for (int v = 0; v < k; ++v) {
        names.push_back(db->names[v]);
        for (int t = 0; t < T; ++t) data[static_cast<size_t>(t) * k + v] = db->columns[v][t];
    }
    ToolCall init;
    init.mat(0, T, k, data).strs(1, names).num(2, db->sample.startYear).num(3, db->sample.startPeriod);
    init.num(4, db->sample.frequency).num(5, DbIsDated(db)).str(6, model).ref(7).ref(8);
    if (!init.invoke(FnInitAlgebraNls) || !init.resultText().empty()) {
        *error = "the model does not compile: " + (init.error().empty() ? init.resultText() : init.error());
        ToolCall exit;
        exit.invoke(FnExitAlgebraNls);
        return false;
    }
    Vec b = init.out(7);
    const Vec numbers = init.out(8);
    NlsModel m;
    m.fitted = fitted, m.T = T, m.y.assign(db->columns[yVar], db->columns[yVar] + T);
    Vec fit;
    bool ok = fittedValues(m, b.data(), static_cast<int>(b.size()), &fit);
    if (!ok) *error = "the model gives no variable " + fitted + " at its starting values";
    for (int t = 0; ok && t < T; ++t)
        if (std::isfinite(m.y[t]) && std::isfinite(fit[t])) m.obs.push_back(t);
    const int n = static_cast<int>(b.size()), nobs = static_cast<int>(m.obs.size());
    if (ok && nobs <= n) {
        *error = "fewer observations (" + std::to_string(nobs) + ") than parameters";
        ok = false;
    }
    if (ok) {
        std::vector<double> covBlock(static_cast<size_t>(n) * n);
        std::vector<double *> rows;
        for (int j = 0; j < n; ++j) rows.push_back(&covBlock[static_cast<size_t>(j) * n]);
        OptResult res{};
        const OptResiduals problem{&m, nobs, residuals, nullptr};
        const OptSettings settings = CommandSettings();
        const int status = OptLeastSquares(problem, b.data(), n, settings, &res, rows.data());
        ProgressDone(settings);
        if (status == OPT_FAILED) {
            *error = "the model cannot be evaluated at its starting values";
            ok = false;
        } else {
            report->title = "Nonlinear least squares of " + yName + " (fitted values " + fitted + ")";
            report->names.clear(), report->coef = b, report->se.clear();
            for (int j = 0; j < n; ++j) {
                report->names.push_back("&" + std::to_string(static_cast<int>(numbers[j])));
                report->se.push_back(std::sqrt(rows[j][j] * res.value / (nobs - n)));
            }
            report->nobs = nobs, report->residualDf = nobs - n, report->converged = status == OPT_CONVERGED;
            report->stats = {{"sigma", std::sqrt(res.value / (nobs - n))}, {"RSS", res.value}};
            report->loglik = -0.5 * nobs * (1.0 + std::log(2.0 * M_PI) + std::log(res.value / nobs));
            report->json = {"\"iterations\": " + std::to_string(res.iterations)};
            report->sample = PeriodText(db, m.obs.front()) + " - " + PeriodText(db, m.obs.back());
        }
    }
    ToolCall exit;
    exit.invoke(FnExitAlgebraNls);
    return ok;
}

int RunNlsCommand(int argc, char **argv) {
    const CommandInfo command{"nls",
                              "MODEL --data FILE --y Y [--fitted NAME] [--json]\n"
                              "       kavrel nls -e TEXT --data FILE --y Y ...\n\n"
                              "MODEL: Algebra with parameters &0, &1, ... given starting values (&0 = 1;) that\n"
                              "assigns the fitted values, e.g.  &0 = 500; &1 = 1e-4; fitted = &0 * (1 - exp(-&1 * x));",
                              kOptions,
                              kOptionCount,
                              {"--data", "--y"}};
    ParsedOptions opt;
    const int started = CommandStart(command, argc, argv, &opt, true);
    if (started >= 0) return started;
    std::string model;
    if (opt.has("-e")) {
        model = opt.get("-e");
    } else if (opt.positional.size() != 1) {
        return CommandFail(command.name, "one model file expected (or -e TEXT)");
    } else {
        std::ifstream in(opt.positional[0]);
        if (!in) return CommandFail(command.name, "cannot read model " + opt.positional[0]);
        std::stringstream text;
        text << in.rdbuf();
        model = text.str();
    }
    std::string error;
    Database *db = LoadData(opt.get("--data"), &error);
    if (!db) return CommandFail(command.name, error);
    Report report;
    int status = EXIT_CLEAN;
    if (!EstimateNls(db, model, opt.get("--y"), opt.get("--fitted", "fitted"), &report, &error)) {
        status = CommandFail(command.name, error);
    } else {
        PrintResult(opt, report);
        if (!report.converged) status = EXIT_FAULTS;
    }
    DbFree(db);
    return status;
}
