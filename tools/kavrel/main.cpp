// kavrel: the command-line host of the Kavrel compute library. Each command reads data with the
// library's own reader and does its work through the library; this file only dispatches.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "database/messages.h"

namespace {

const char kVersion[] = "kavrel 0.2.0";

const struct {
    const char *name;
    int (*run)(int, char **);
    const char *help;
} kCommands[] = {
    {"algebra", RunAlgebraCommand, "transform the series of a data file with an Algebra program"},
    {"rls", RunRlsCommand, "recursive least squares with recursive graphics and Chow tests"},
    {"nls", RunNlsCommand, "nonlinear least squares of a model written in Algebra"},
    {"garch", RunGarchCommand, "GARCH and EGARCH by maximum likelihood"},
    {"probit", RunProbitCommand, "binary probit by maximum likelihood"},
    {"logit", RunLogitCommand, "binary or multinomial logit by maximum likelihood"},
    {"ms", RunMsCommand, "Markov-switching mean and variance by maximum likelihood"},
    {"count", RunCountCommand, "Poisson or negative binomial regression by maximum likelihood"},
    {"var", RunVarCommand, "a VAR by least squares, dynamic forecasts and impulse responses"},
    {"demo", RunDemoCommand, "a tour of the commands on the example data, reports and plots in a folder"},
};

void usage(FILE *out) {
    std::fprintf(out, "usage: kavrel COMMAND [OPTIONS]\n\ncommands:\n");
    for (const auto &c : kCommands) std::fprintf(out, "  %-10s %s\n", c.name, c.help);
    std::fprintf(out, "\n  kavrel COMMAND --help   options of a command\n  kavrel --version\n");
}

void messageToStderr(const char *title, const char *text) {
    // Multi-line reports (run-time faults) keep their lines, without the carriage returns of
    // their CR LF ends; trailing line ends are dropped.
    size_t n = std::strlen(text);
    while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r')) --n;
    std::fprintf(stderr, "%s: ", title);
    for (size_t i = 0; i < n; ++i)
        if (text[i] != '\r') std::fputc(text[i], stderr);
    std::fputc('\n', stderr);
}

} // namespace

void SendMessagesToStderr() { SetMessageSink(messageToStderr); }

int main(int argc, char **argv) {
    if (argc < 2) {
        usage(stderr);
        return EXIT_BAD_INPUT;
    }
    if (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
        usage(stdout);
        return EXIT_CLEAN;
    }
    if (!std::strcmp(argv[1], "--version")) {
        std::printf("%s\n", kVersion);
        return EXIT_CLEAN;
    }
    for (const auto &c : kCommands)
        if (!std::strcmp(argv[1], c.name)) {
            SendMessagesToStderr();
            return c.run(argc - 1, argv + 1);
        }
    std::fprintf(stderr, "kavrel: unknown command %s (kavrel --help lists them)\n", argv[1]);
    return EXIT_BAD_INPUT;
}
