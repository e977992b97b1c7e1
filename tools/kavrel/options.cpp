// Option parsing for kavrel's commands.
#include "options.h"

#include <cstring>

namespace {

const OptionRule *findRule(const OptionRule *rules, int count, const std::string &name) {
    for (int i = 0; i < count; ++i)
        if (name == rules[i].name) return &rules[i];
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

ParsedOptions ParseOptions(int argc, char **argv, int first, const OptionRule *rules, int count) {
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
        const OptionRule *rule = findRule(rules, count, word);
        if (!rule) {
            out.error = "unknown option " + word;
            return out;
        }
        if (!rule->value) {
            if (inlineValue) {
                out.error = "option " + word + " takes no value";
                return out;
            }
        } else if (!inlineValue) {
            if (i + 1 >= argc) {
                out.error = "option " + word + " needs a value (" + rule->value + ")";
                return out;
            }
            value = argv[++i];
        }
        out.given.emplace_back(word, value);
    }
    return out;
}

std::string OptionHelp(const OptionRule *rules, int count) {
    size_t width = 0;
    for (int i = 0; i < count; ++i)
        width = std::max(width, std::strlen(rules[i].name) + (rules[i].value ? std::strlen(rules[i].value) + 1 : 0));
    std::string text;
    for (int i = 0; i < count; ++i) {
        std::string left = rules[i].name;
        if (rules[i].value) left += std::string(" ") + rules[i].value;
        text += "  " + left + std::string(width - left.size() + 3, ' ') + rules[i].help + "\n";
    }
    return text;
}
