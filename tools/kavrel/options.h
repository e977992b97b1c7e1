// Command-line options of kavrel: "--name value", "--name=value", flags and positional words,
// checked against the list of options a command accepts so that a misspelt option is an error
// naming it, not a silently ignored word.
#ifndef KAVREL_TOOLS_OPTIONS_H
#define KAVREL_TOOLS_OPTIONS_H

#include <string>
#include <vector>

struct OptionRule {
    const char *name;  // "--data", "-e"
    const char *value; // placeholder shown in help ("FILE"); null for a flag
    const char *help;
};

struct ParsedOptions {
    std::vector<std::string> positional;
    std::vector<std::pair<std::string, std::string>> given; // name, value ("" for flags)
    std::string error;                                      // empty when the words parsed

    bool has(const char *name) const;
    // The value of the last occurrence, or fallback.
    std::string get(const char *name, const char *fallback = "") const;
};

ParsedOptions ParseOptions(int argc, char **argv, int first, const OptionRule *rules, int count);
// "  --data FILE   help" lines, aligned.
std::string OptionHelp(const OptionRule *rules, int count);

#endif
