// test_faults MODULE: sweeps the module's functions and prints what it did. "itself" checks the sweep.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "modules.h"
#include "sandbox.h"

using namespace faults;

namespace {

constexpr Module (*kModules[])() = {simplog_module, miscfunc_module, conffile_module, fileio_module,
                                    socket_module,  sysinfo_module,  tracer_module,   links_module};

// The number of violations.
size_t run_module(const Module &module) {
    if (module.prepare != nullptr)
        module.prepare();

    size_t width = 0;
    for (const Scenario &scenario : module.scenarios)
        width = std::max(width, scenario.function.size() + scenario.variant.size() + 3);

    size_t calls = 0;
    size_t injections = 0;
    size_t pairs = 0;
    size_t violations = 0;
    for (const Scenario &scenario : module.scenarios) {
        const Report report = sweep(scenario);
        std::printf("%-*s %5zu calls %6zu injections %6zu pairs  %s\n", static_cast<int>(width), report.name.c_str(),
                    report.calls, report.injections, report.pairs,
                    report.violations.empty() ? "holds" : "DOES NOT HOLD");
        for (const std::string &violation : report.violations)
            std::printf("  VIOLATION %s\n", violation.c_str());
        std::fflush(stdout);
        calls += report.calls;
        injections += report.injections;
        pairs += report.pairs;
        violations += report.violations.size();
    }

    for (const Unfailing &unfailing : module.unfailing) {
        std::printf("%-*s cannot fail: %s\n", static_cast<int>(width), unfailing.function.c_str(),
                    unfailing.reason.c_str());
        for (const std::string &call : failing_calls_in(unfailing.call)) {
            std::printf("  VIOLATION %s: calls %s\n", unfailing.function.c_str(), call.c_str());
            violations++;
        }
    }
    for (const std::string &gap : gaps_of(module, exported_functions(module.name))) {
        std::printf("  VIOLATION %s\n", gap.c_str());
        violations++;
    }
    if (testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed()) {
        std::printf("  VIOLATION what a scenario needs could not be made: see above\n");
        violations++;
    }
    std::printf("TOTAL %s: %zu scenarios, %zu calls, %zu injections, %zu pairs, %zu violations\n", module.name.c_str(),
                module.scenarios.size(), calls, injections, pairs, violations);
    return violations;
}

// Without its cache of freed blocks the allocator's figures are exact (see heap.h); it reads this when a program starts.
void have_exact_heap(char **arguments) {
    constexpr const char *name = "GLIBC_TUNABLES";
    if (getenv(name) != nullptr)
        return;

    setenv(name, "glibc.malloc.tcache_count=0", 1);
    execv("/proc/self/exe", arguments);
    std::perror("start once more");
    std::exit(EXIT_FAILURE);
}

}  // namespace

int main(int argc, char **argv) {
    have_exact_heap(argv);
    support::enter_sandbox();
    umask(022);  // which decides the bits of what is left half made
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
