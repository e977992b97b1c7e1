// What every estimation command does around its estimation, written once: the options and their
// help, the required ones, the data file, the variables named by --y (and --x), the report or its
// JSON form, whatever the command writes afterwards (plots, series), and the exit status.
#ifndef KAVREL_TOOLS_COMMAND_H
#define KAVREL_TOOLS_COMMAND_H

#include <functional>
#include <string>
#include <vector>

#include "dataset.h"
#include "options.h"
#include "report.h"

struct Database;

struct CommandInfo {
    const char *name;  // "count"
    const char *usage; // the options after "kavrel NAME", for --help
    const OptionRule *rules;
    int ruleCount;
    std::vector<const char *> required;
};

// Fills the report from the data (the runner has set report->sample to the data's first and
// last periods; an estimation that drops observations sets it again). False with *error.
using Estimation =
    std::function<bool(const ParsedOptions &, const Database *, const Columns &, Report *, std::string *)>;
// After the report is printed: plots and files. False with *error.
using Afterwards = std::function<bool(const ParsedOptions &, const Database *, const Columns &, std::string *)>;

// One line "kavrel NAME: what" on standard error; the bad-input status.
int CommandFail(const char *name, const std::string &what);
// The report, or its JSON form with --json.
void PrintResult(const ParsedOptions &opt, const Report &report);
// Parses, answers --help, checks the required options; -1 to go on, else the status to return.
int CommandStart(const CommandInfo &command, int argc, char **argv, ParsedOptions *opt, bool positional = false);
// The whole command: the variables are --y followed by the names of --x, or the names of --y
// when the command has no --x.
int RunEstimationCommand(const CommandInfo &command, int argc, char **argv, const Estimation &estimate,
                         const Afterwards &after = nullptr);

// The optimiser's settings for a command's estimation: the defaults, and when standard error is
// a terminal each iteration shown there on one line that rewrites itself; ProgressDone ends it.
struct OptSettings CommandSettings();
void ProgressDone(const struct OptSettings &s);
// Off: no progress line even on a terminal (a library caller such as the Python module).
void CommandShowProgress(bool on);

// The optimiser's view of a likelihood routine that gives the log-likelihood, the score and the
// information in one call: the last call is kept, since the optimiser asks for the three at the
// same point one after the other.
struct KeptLikelihood {
    // One call at b: the log-likelihood, the score (p) and the information (p x p, row-major).
    std::function<bool(const Vec &b, double *ll, Vec *score, Vec *info)> call;
    Vec lastB, score, info;
    double ll = 0.0 / 0.0;
    bool ok = false;
    bool at(const double *b, int p);
    // value, gradient and information over this object (which must outlive the problem).
    struct OptProblem problem();
};

#endif
