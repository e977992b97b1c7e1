// Option parsing for kavrel's commands.
#include "options.h"

#include <cstring>

namespace {

const OptionSpec *findSpec(const OptionSpec *specs, int count, const std::string &name) {
    for (int i = 0; i < count; ++i)
        if (name == specs[i].name) return &specs[i];
    return nullptr;
}

} // namespace

bool ParsedOptions::has(const char *name) const {
    for (const auto &g : given)
        if (g.first == name) return true;
    return false;
}

std::string ParsedOptions::get(const char *name, const char *fallback) const {
    std::string value = fallback;
    for (const auto &g : given)
        if (g.first == name) value = g.second;
    return value;
}

ParsedOptions ParseOptions(int argc, char **argv, int first, const OptionSpec *specs, int count) {
    ParsedOptions out;
    for (int i = first; i < argc; ++i) {
        std::string word = argv[i];
        if (word.size() < 2 || word[0] != '-') {
            out.positional.push_back(word);
            continue;
        }
        std::string value;
        bool inlineValue = false;
        const size_t eq = word.find('=');
        if (word.compare(0, 2, "--") == 0 && eq != std::string::npos) {
            value = word.substr(eq + 1);
            word = word.substr(0, eq);
            inlineValue = true;
        }
        const OptionSpec *spec = findSpec(specs, count, word);
        if (!spec) {
            out.error = "unknown option " + word;
            return out;
        }
        if (!spec->value) {
            if (inlineValue) {
                out.error = "option " + word + " takes no value";
                return out;
            }
        } else if (!inlineValue) {
            if (i + 1 >= argc) {
                out.error = "option " + word + " needs a value (" + spec->value + ")";
                return out;
            }
            value = argv[++i];
        }
        out.given.emplace_back(word, value);
    }
    return out;
}

std::string OptionHelp(const OptionSpec *specs, int count) {
    size_t width = 0;
    for (int i = 0; i < count; ++i)
        width = std::max(width, std::strlen(specs[i].name) + (specs[i].value ? std::strlen(specs[i].value) + 1 : 0));
    std::string text;
    for (int i = 0; i < count; ++i) {
        std::string left = specs[i].name;
        if (specs[i].value) left += std::string(" ") + specs[i].value;
        text += "  " + left + std::string(width - left.size() + 3, ' ') + specs[i].help + "\n";
    }
    return text;
}
