// test_faults MODULE... [--trace]: sweeps the modules' functions and prints what it did. "itself" checks the sweep.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "modules.h"
#include "sandbox.h"

using namespace faults;

namespace {

constexpr Module (*kModules[])() = {simplog_module, conffile_module, socket_module,
                                    sysinfo_module, tracer_module,   links_module};

// The functions that a module exports: those of its block in the list of exports.
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

// The number of functions that are missing from the sweep, or swept though they are not exported.
size_t report_gaps(const Module &module) {
    std::set<std::string> known;
    for (const Scenario &scenario : module.scenarios)
        known.insert(scenario.function);
    size_t gaps = 0;
    for (const Unfailing &unfailing : module.unfailing)
        if (!known.insert(unfailing.function).second) {
            std::printf("VIOLATION %s: swept, and named as one that can't fail\n", unfailing.function.c_str());
            gaps++;
        }

    const auto exported = exported_functions(module.name);
    for (const std::string &function : exported)
        if (!known.contains(function)) {
            std::printf("VIOLATION %s: no scenario\n", function.c_str());
            gaps++;
        }
    for (const std::string &function : known)
        if (!exported.contains(function)) {
            std::printf("VIOLATION %s: not exported\n", function.c_str());
            gaps++;
        }
    return gaps;
}

// The number of violations.
size_t run_module(const Module &module) {
    if (module.prepare != nullptr)
        module.prepare();

    size_t width = 0;
    for (const Scenario &scenario : module.scenarios)
        width = std::max(width, scenario.function.size() + scenario.variant.size() + 3);

    size_t calls = 0;
    size_t injections = 0;
    size_t violations = 0;
    for (const Scenario &scenario : module.scenarios) {
        const Report report = sweep(scenario);
        std::printf("%-*s %5zu calls %6zu injections  %s\n", static_cast<int>(width), report.name.c_str(), report.calls,
                    report.injections, report.violations.empty() ? "holds" : "DOES NOT HOLD");
        for (const std::string &violation : report.violations)
            std::printf("  VIOLATION %s\n", violation.c_str());
        std::fflush(stdout);
        calls += report.calls;
        injections += report.injections;
        violations += report.violations.size();
    }

    for (const Unfailing &unfailing : module.unfailing)
        std::printf("%-*s cannot fail: %s\n", static_cast<int>(width), unfailing.function.c_str(),
                    unfailing.reason.c_str());
    violations += report_gaps(module);
    if (testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed()) {
        std::printf("VIOLATION what a scenario needs could not be made: see above\n");
        violations++;
    }
    std::printf("TOTAL %s: %zu scenarios, %zu calls, %zu injections, %zu violations\n", module.name.c_str(),
                module.scenarios.size(), calls, injections, violations);
    return violations;
}

}  // namespace

int main(int argc, char **argv) {
    support::enter_sandbox();
    const std::string wanted = argc == 2 ? argv[1] : "";
    if (wanted == "itself")
        return check_the_sweep();

    for (const auto &make : kModules) {
        const Module module = make();
        if (module.name == wanted)
            return run_module(module) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    std::fprintf(stderr, "usage: test_faults itself|MODULE, a module of lib/ with scenarios\n");
    return 2;
}
