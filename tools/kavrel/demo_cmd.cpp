// kavrel demo: a tour of the commands on the example data (examples/ of the source tree, or
// --examples DIR): transformations in Algebra, recursive and nonlinear least squares, a probit,
// a Markov-switching model, a VAR with forecasts and impulse responses, GARCH, written as reports
// and plots into one folder (--out DIR,
// default kavrel-demo) whose name it prints at the end.
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "algebra/algebra.h"
#include "commands.h"
#include "csv.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "options.h"

namespace {

const OptionRule kOptions[] = {
    {"--out", "DIR", "the folder for reports and plots (default kavrel-demo)"},
    {"--examples", "DIR", "where macrodata.csv and dem2gbp.csv are (default the source tree's examples/)"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

int fail(const std::string &what) {
    std::fprintf(stderr, "kavrel demo: %s\n", what.c_str());
    return EXIT_BAD_INPUT;
}

std::string defaultExamples() {
    const std::string here = __FILE__; // tools/kavrel/demo_cmd.cpp of the source tree
    const size_t cut = here.rfind("/tools/");
    return cut == std::string::npos ? "examples" : here.substr(0, cut) + "/examples";
}

// Runs an Algebra program over db (the demo's transformations); false after a fault.
bool transform(Database *db, const char *program, std::string *error) {
    AlgebraCompiler *c = AlgebraCreate(db, 0);
    const bool ok = c && AlgebraLoad(c, program, nullptr) && AlgebraCompile(c, db) &&
                    AlgebraRun(c, 0, db->obsCount - 1, db->obsCount, 1);
    if (!ok) *error = std::string("the transformation failed: ") + (c ? AlgebraMessage(c) : "out of memory");
    AlgebraFree(c);
    return ok;
}

struct Tour {
    std::string dir;
    std::vector<std::string> written;
    bool report(const std::string &name, const Report &r) {
        const std::string path = dir + "/" + name + ".txt";
        std::FILE *f = std::fopen(path.c_str(), "w");
        if (!f) return false;
        PrintReport(f, r);
        std::fclose(f);
        std::printf("\n== %s\n", name.c_str());
        PrintReport(stdout, r);
        written.push_back(path);
        return true;
    }
};

std::string sampleOf(const Database *db, const Columns &c, int skip = 0) {
    return PeriodText(db, c.first + skip) + " - " + PeriodText(db, c.last);
}

} // namespace

int RunDemoCommand(int argc, char **argv) {
    const ParsedOptions opt = ParseOptions(argc, argv, 1, kOptions, kOptionCount);
    if (!opt.error.empty()) return fail(opt.error);
    if (opt.has("--help")) {
        std::printf("usage: kavrel demo [--out DIR] [--examples DIR]\n\n%s",
                    OptionHelp(kOptions, kOptionCount).c_str());
        return EXIT_CLEAN;
    }
    Tour tour;
    tour.dir = opt.get("--out", "kavrel-demo");
    const std::string examples = opt.get("--examples", defaultExamples().c_str());
    mkdir(tour.dir.c_str(), 0777);
    struct stat st;
    if (stat(tour.dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return fail("cannot make the folder " + tour.dir);
    std::string error;
    Database *macro = LoadData(examples + "/macrodata.csv", &error);
    if (!macro) return fail(error + " (--examples DIR names the folder of the example data)");
    int status = EXIT_CLEAN;
    auto step = [&](bool ok) {
        if (!ok) {
            std::fprintf(stderr, "kavrel demo: %s\n", error.c_str());
            status = EXIT_FAULTS;
        }
        return ok;
    };
    // Growth rates and a high-unemployment indicator, in Algebra; the data as it now stands.
    if (step(transform(macro,
                       "gdpgrowth = 400 * dlog(realgdp); consgrowth = 400 * dlog(realcons);\n"
                       "highunemp = unemp > 6;",
                       &error))) {
        std::FILE *f = std::fopen((tour.dir + "/macrodata-transformed.csv").c_str(), "w");
        if (f)
            WriteDatabaseCsv(macro, f), std::fclose(f), tour.written.push_back(tour.dir + "/macrodata-transformed.csv");
    }

    // 1. Recursive least squares of consumption on income, with the recursive graphics.
    Columns c;
    RlsResults rls;
    if (step(SelectColumns(macro, {"realcons", "realdpi"}, &c, &error) && EstimateRls(c, true, &rls, &error))) {
        rls.report.sample = sampleOf(macro, c);
        tour.report("rls-consumption", rls.report);
        const std::vector<std::string> periods = PeriodTexts(macro, c.first, c.last);
        if (step(PlotRls(tour.dir + "/rls-consumption.png", rls, periods, &error)))
            tour.written.push_back(tour.dir + "/rls-consumption.png");
    }

    // 2. A nonlinear consumption function, c = a + b y^g, through the estimation bridge.
    Report nls;
    if (step(EstimateNls(macro, "&0 = -240; &1 = 0.95; &2 = 1; fitted = &0 + &1 * realdpi ^ &2;", "realcons", "fitted",
                         &nls, &error)))
        tour.report("nls-consumption", nls);

    // 3. A probit of high unemployment on inflation and the real interest rate.
    Report probit;
    if (step(SelectColumns(macro, {"highunemp", "infl", "realint"}, &c, &error) &&
             EstimateDiscrete(c, false, true, &probit, &error))) {
        probit.sample = sampleOf(macro, c);
        tour.report("probit-unemployment", probit);
    }

    // 4. Two regimes of GDP growth (the volatility of the 1970s against the calm after 1984).
    MsResults ms;
    if (step(SelectColumns(macro, {"gdpgrowth"}, &c, &error) && EstimateMs(c, 2, 1, &ms, &error))) {
        ms.report.sample = sampleOf(macro, c, 1);
        tour.report("ms-gdpgrowth", ms.report);
        const std::vector<std::string> periods = PeriodTexts(macro, c.first + 1, c.last);
        if (step(PlotMs(tour.dir + "/ms-gdpgrowth.png", ms, c, periods, &error)))
            tour.written.push_back(tour.dir + "/ms-gdpgrowth.png");
    }
    // 5. A VAR(2) of inflation, the T-bill rate and unemployment: forecasts and responses.
    VarResults var;
    if (step(SelectColumns(macro, {"infl", "tbilrate", "unemp"}, &c, &error) && EstimateVar(c, 2, 12, &var, &error))) {
        const std::vector<std::string> periods = PeriodTexts(macro, c.first, c.last);
        var.report.sample = periods[2] + " - " + periods.back();
        tour.report("var-macro", var.report);
        if (step(PlotVar(tour.dir + "/var-macro.png", var, c, periods, &error))) {
            tour.written.push_back(tour.dir + "/var-macro.png");
            tour.written.push_back(tour.dir + "/var-macro-responses.png");
        }
    }
    DbFree(macro);

    // 6. GARCH(1,1) of the Deutschmark/Pound returns.
    Database *fx = LoadData(examples + "/dem2gbp.csv", &error);
    Report garch;
    if (step(fx && SelectColumns(fx, {"dem2gbp"}, &c, &error) && EstimateGarch(c, GarchOptions{}, &garch, &error))) {
        garch.sample = sampleOf(fx, c);
        tour.report("garch-dem2gbp", garch);
    }
    DbFree(fx);

    std::printf("\nThe reports and plots are in %s:\n", tour.dir.c_str());
    for (const std::string &w : tour.written) std::printf("  %s\n", w.c_str());
    return status;
}
