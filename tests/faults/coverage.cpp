// Whether every exported function is swept.
#include <fstream>
#include <regex>

#include "modules.h"

namespace faults {

std::set<std::string> exported_functions(const std::string &module) {
    std::ifstream list(KORVEX_EXPORTS_MAP);
    static const std::regex heading(R"( +/\* (\w+) \*/)");
    static const std::regex name(R"( +([A-Z]\w+);)");
    std::set<std::string> functions;
    std::string current;
    std::smatch match;
    for (std::string line; std::getline(list, line);) {
        if (std::regex_match(line, match, heading))
            current = match[1];
        else if (current == module && std::regex_match(line, match, name))
            functions.insert(match[1]);
    }
    return functions;
}

std::vector<std::string> gaps_of(const Module &module, const std::set<std::string> &exported) {
    std::vector<std::string> gaps;
    std::set<std::string> known;
    for (const Scenario &scenario : module.scenarios)
        known.insert(scenario.function);
    for (const Unfailing &unfailing : module.unfailing)
        if (!known.insert(unfailing.function).second)
            gaps.push_back(unfailing.function + ": swept, and named as one that can't fail");

    for (const std::string &function : exported)
        if (!known.contains(function))
            gaps.push_back(function + ": no scenario");
    for (const std::string &function : known)
        if (!exported.contains(function))
            gaps.push_back(function + ": not exported");
    return gaps;
}

}  // namespace faults
