// kavrel rls: recursive least squares through the library's RlsRecursion, reported as the
// full-sample regression with the recursive statistics users look at: the coefficients with +-2
// standard errors, the one-step residuals with +-2 sigma, and the one-step and break-point Chow
// tests scaled by their 1% critical values (a value above 1 rejects constancy at 1%).
#include <cmath>
#include <cstdio>

#include "command.h"
#include "commands.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "estimators/rls.h"
#include "options.h"
#include "plot.h"
#include "special/distributions.h"

namespace {

const OptionRule kOptions[] = {
    {"--data", "FILE", "the data file"},
    {"--y", "Y", "the dependent variable"},
    {"--x", "X1,X2,...", "the regressors"},
    {"--no-const", nullptr, "no constant term (one is added by default)"},
    {"--plot", "FILE", "the recursive graphics as a panel (.png or .svg)"},
    {"--out", "FILE", "the recursive series as CSV"},
    {"--json", nullptr, "print the results as one JSON object"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

} // namespace

bool EstimateRls(const Columns &data, bool constant, RlsResults *out, std::string *error) {
    const int T = data.nobs(), k = static_cast<int>(data.names.size()) - 1 + (constant ? 1 : 0);
    if (k < 1 || T < k + 2) {
        *error = "too few observations (" + std::to_string(T) + ") for " + std::to_string(k) + " regressors";
        return false;
    }
    const Vec X = data.block(1, data.names.size() - 1, constant);
    if (!CheckDesign(X, T, k, RegressorNames(data, constant), error)) return false;
    // The recursion's outputs, one row per statistic (coefficients: k rows) over the T observations.
    Vec coef(static_cast<size_t>(k) * T, NAN), pdiag(static_cast<size_t>(k) * T, NAN), innov(T, NAN), rss(T, NAN);
    if (RlsRecursion(RowView(data.data[0], T, 1), RowView(X, T, k), 0, T - 1, -1, 1, k, RowView(coef, k, T),
                     RowView(pdiag, k, T), nullptr, RowView(innov, 1, T), RowView(rss, 1, T), nullptr, nullptr) != 1) {
        *error = "the recursive estimation failed";
        return false;
    }
    out->names = RegressorNames(data, constant);
    out->k = k, out->T = T;
    out->coef.assign(k, Vec(T, NAN)), out->se.assign(k, Vec(T, NAN));
    out->innovation.assign(T, NAN), out->sigma.assign(T, NAN), out->chow1.assign(T, NAN), out->chowN.assign(T, NAN);
    for (int i = k; i < T; ++i) {
        const int m = i + 1; // observations up to i
        const double sigma = std::sqrt(rss[i] / (m - k));
        out->sigma[i] = sigma, out->innovation[i] = innov[i];
        for (int j = 0; j < k; ++j) {
            out->coef[j][i] = coef[static_cast<size_t>(j) * T + i];
            out->se[j][i] = sigma * std::sqrt(pdiag[static_cast<size_t>(j) * T + i]);
        }
        if (i >= k + 1 && m - 1 - k >= 1) {
            const double s2 = rss[i - 1] / (m - 1 - k);
            out->chow1[i] = (rss[i] - rss[i - 1]) / s2 / DistFQinv(0.01, 1.0, m - 1 - k);
            out->chowN[i] = (rss[T - 1] - rss[i - 1]) / (T - i) / s2 / DistFQinv(0.01, T - i, m - 1 - k);
        }
    }
    Report &r = out->report;
    r.names = out->names, r.nobs = T, r.residualDf = T - k;
    r.coef.clear(), r.se.clear();
    for (int j = 0; j < k; ++j) r.coef.push_back(out->coef[j][T - 1]), r.se.push_back(out->se[j][T - 1]);
    double mean = 0.0, tss = 0.0;
    for (double y : data.data[0]) mean += y / T;
    for (double y : data.data[0]) tss += (y - mean) * (y - mean);
    const double RSS = rss[T - 1];
    r.stats = {{"sigma", out->sigma[T - 1]}, {"RSS", RSS}, {"R^2", 1.0 - RSS / tss}};
    r.loglik = -0.5 * T * (1.0 + std::log(2.0 * M_PI) + std::log(RSS / T));
    r.title = "Recursive least squares of " + data.names[0];
    return true;
}

int RunRlsCommand(int argc, char **argv) {
    RlsResults res; // filled by the estimation, used by what follows it
    const CommandInfo command{"rls",
                              "--data FILE --y Y --x X1,X2,... [--no-const] [--plot FILE] [--out FILE] [--json]",
                              kOptions,
                              kOptionCount,
                              {"--data", "--y", "--x"}};
    return RunEstimationCommand(
        command, argc, argv,
        [&res](const ParsedOptions &opt, const Database *, const Columns &data, Report *r, std::string *error) {
            if (!EstimateRls(data, !opt.has("--no-const"), &res, error)) return false;
            res.report.sample = r->sample;
            *r = res.report;
            return true;
        },
        [&res](const ParsedOptions &opt, const Database *db, const Columns &data, std::string *error) {
            const std::vector<std::string> periods = PeriodTexts(db, data.first, data.last);
            if (opt.has("--out") && !WriteRlsCsv(opt.get("--out"), res, periods, error)) return false;
            return !opt.has("--plot") || PlotRls(opt.get("--plot"), res, periods, error);
        });
}

bool WriteRlsCsv(const std::string &path, const RlsResults &r, const std::vector<std::string> &periods,
                 std::string *error) {
    std::FILE *f = std::fopen(path.c_str(), "w");
    if (!f) {
        *error = "cannot write " + path;
        return false;
    }
    std::fprintf(f, "period");
    for (const std::string &n : r.names) std::fprintf(f, ",%s,se_%s", n.c_str(), n.c_str());
    std::fprintf(f, ",innovation,sigma,chow_1step,chow_breakpoint\n");
    auto value = [f](double v) {
        if (std::isfinite(v))
            std::fprintf(f, ",%.17g", v);
        else
            std::fprintf(f, ",.");
    };
    for (int t = 0; t < r.T; ++t) {
        std::fprintf(f, "%s", periods[t].c_str());
        for (int j = 0; j < r.k; ++j) value(r.coef[j][t]), value(r.se[j][t]);
        value(r.innovation[t]), value(r.sigma[t]), value(r.chow1[t]), value(r.chowN[t]);
        std::fprintf(f, "\n");
    }
    if (std::fclose(f) != 0) {
        *error = "cannot write " + path;
        return false;
    }
    return true;
}

bool PlotRls(const std::string &path, const RlsResults &r, const std::vector<std::string> &periods,
             std::string *error) {
    std::vector<PlotGraph> graphs;
    auto band = [&r](const Vec &mid, const Vec &half, double sign) {
        Vec b(r.T, NAN);
        for (int t = 0; t < r.T; ++t) b[t] = mid[t] + sign * 2.0 * half[t];
        return b;
    };
    for (int j = 0; j < r.k; ++j)
        graphs.push_back({r.names[j] + " (+-2 se)",
                          {{r.names[j], r.coef[j]},
                           {"+2 se", band(r.coef[j], r.se[j], 1.0), true},
                           {"-2 se", band(r.coef[j], r.se[j], -1.0), true}}});
    const Vec zero(r.T, 0.0), one(r.T, 1.0);
    graphs.push_back({"1-step residuals (+-2 sigma)",
                      {{"residual", r.innovation},
                       {"+2 sigma", band(zero, r.sigma, 1.0), true},
                       {"-2 sigma", band(zero, r.sigma, -1.0), true}}});
    graphs.push_back({"1-step Chow tests (1% critical value = 1)", {{"1-step Chow", r.chow1}, {"1%", one, true}}});
    graphs.push_back({"Break-point Chow tests (1% critical value = 1)", {{"N-down Chow", r.chowN}, {"1%", one, true}}});
    return PlotPanel(path, r.report.title, periods, graphs, error);
}
