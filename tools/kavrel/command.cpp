#include "command.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <unistd.h>

#include "commands.h"
#include "database/database.h"
#include "numeric/optimize.h"

int CommandFail(const char *name, const std::string &what) {
    std::fprintf(stderr, "kavrel %s: %s\n", name, what.c_str());
    return EXIT_BAD_INPUT;
}

void PrintResult(const ParsedOptions &opt, const Report &report) {
    if (opt.has("--json"))
        PrintJson(stdout, report);
    else
        PrintReport(stdout, report);
}

int CommandStart(const CommandInfo &command, int argc, char **argv, ParsedOptions *opt, bool positional) {
    *opt = ParseOptions(argc, argv, 1, command.rules, command.ruleCount);
    if (!opt->error.empty()) return CommandFail(command.name, opt->error);
    if (opt->has("--help")) {
        std::printf("usage: kavrel %s %s\n\n%s", command.name, command.usage,
                    OptionHelp(command.rules, command.ruleCount).c_str());
        return EXIT_CLEAN;
    }
    if (!positional && !opt->positional.empty())
        return CommandFail(command.name, "unexpected argument " + opt->positional[0]);
    for (const char *required : command.required)
        if (!opt->has(required)) return CommandFail(command.name, std::string(required) + " is required");
    return -1;
}

namespace {

// The report's series as CSV: "period,name,..." then one line per observation, missing as ".".
bool writeSeries(const std::string &path, const Report &r, const Database *db, const Columns &data,
                 std::string *error) {
    std::FILE *f = std::fopen(path.c_str(), "w");
    if (!f) {
        *error = "cannot write " + path;
        return false;
    }
    std::fprintf(f, "period");
    for (const std::string &n : r.seriesNames) std::fprintf(f, ",%s", n.c_str());
    std::fprintf(f, "\n");
    size_t rows = 0;
    for (const Vec &v : r.series) rows = std::max(rows, v.size());
    for (size_t t = 0; t < rows; ++t) {
        std::fprintf(f, "%s", PeriodText(db, data.first + r.seriesFirst + static_cast<int>(t)).c_str());
        for (const Vec &v : r.series) {
            if (t < v.size() && std::isfinite(v[t]))
                std::fprintf(f, ",%.17g", v[t]);
            else
                std::fprintf(f, ",.");
        }
        std::fprintf(f, "\n");
    }
    if (std::fclose(f) != 0) {
        *error = "cannot write " + path;
        return false;
    }
    return true;
}

} // namespace

int RunEstimationCommand(const CommandInfo &command, int argc, char **argv, const Estimation &estimate,
                         const Afterwards &after) {
    ParsedOptions opt;
    const int started = CommandStart(command, argc, argv, &opt);
    if (started >= 0) return started;
    std::string error;
    Database *db = LoadData(opt.get("--data"), &error);
    if (!db) return CommandFail(command.name, error);
    std::vector<std::string> names;
    if (opt.has("--x")) names.push_back(opt.get("--y"));
    for (const std::string &n : SplitNames(opt.get(opt.has("--x") ? "--x" : "--y"))) names.push_back(n);
    Columns data;
    Report report;
    int status = EXIT_CLEAN;
    if (!SelectColumns(db, names, &data, &error)) {
        status = CommandFail(command.name, error);
    } else {
        report.sample = PeriodText(db, data.first) + " - " + PeriodText(db, data.last);
        if (!estimate(opt, db, data, &report, &error)) {
            status = CommandFail(command.name, error);
        } else {
            PrintResult(opt, report);
            if (opt.has("--out") && !report.series.empty() && !writeSeries(opt.get("--out"), report, db, data, &error))
                status = CommandFail(command.name, error);
            else if (after && !after(opt, db, data, &error))
                status = CommandFail(command.name, error);
            else if (!report.converged)
                status = EXIT_FAULTS;
        }
    }
    DbFree(db);
    return status;
}

namespace {
bool g_showProgress = true;
} // namespace

void CommandShowProgress(bool on) { g_showProgress = on; }

OptSettings CommandSettings() {
    OptSettings s = OptDefaultSettings();
    if (g_showProgress && isatty(2))
        s.progress = [](void *, int iteration, double f, double relGradient) {
            std::fprintf(stderr, "\riteration %3d  objective %.10g  relative gradient %.2e", iteration, f, relGradient);
        };
    return s;
}

void ProgressDone(const OptSettings &s) {
    if (s.progress) std::fprintf(stderr, "\n");
}

bool KeptLikelihood::at(const double *b, int p) {
    if (static_cast<int>(lastB.size()) == p && std::equal(lastB.begin(), lastB.end(), b)) return ok;
    lastB.assign(b, b + p);
    ok = call(lastB, &ll, &score, &info) && std::isfinite(ll) && static_cast<int>(score.size()) == p &&
         static_cast<int>(info.size()) == p * p;
    return ok;
}

OptProblem KeptLikelihood::problem() {
    auto value = [](void *ctx, const double *b, int p) {
        auto &e = *static_cast<KeptLikelihood *>(ctx);
        return e.at(b, p) ? e.ll : NAN;
    };
    auto gradient = [](void *ctx, const double *b, int p, double *g) {
        auto &e = *static_cast<KeptLikelihood *>(ctx);
        if (!e.at(b, p)) return 0;
        std::copy(e.score.begin(), e.score.end(), g);
        return 1;
    };
    auto information = [](void *ctx, const double *b, int p, MATRIX info) {
        auto &e = *static_cast<KeptLikelihood *>(ctx);
        if (!e.at(b, p)) return 0;
        for (int i = 0; i < p; ++i)
            std::copy(&e.info[static_cast<size_t>(i) * p], &e.info[static_cast<size_t>(i + 1) * p], info[i]);
        return 1;
    };
    return OptProblem{this, value, gradient, information};
}
