// The modules of the library as the sweep sees them.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "sweep.h"

namespace faults {

// An exported function in which nothing can fail, and why. The sweep makes the call to see for itself that none of the calls
// that can fail are made. What the call needs is prepared under `support::Undisturbed`.
struct Unfailing {
    std::string function;
    std::string reason;
    std::function<void()> call;
};

// Every exported function of a module stands in one of the two.
struct Module {
    std::string name;
    std::vector<Scenario> scenarios;
    std::vector<Unfailing> unfailing;
    void (*prepare)() = nullptr;  // makes what all scenarios need and leave; run before the first one
};

using Scenarios = std::vector<Scenario>;

// The scenarios of several sources, one after the other.
inline Scenarios join(const std::vector<Scenarios> &groups) {
    Scenarios all;
    for (const Scenarios &group : groups)
        all.insert(all.end(), group.begin(), group.end());
    return all;
}

// The same with what a second failure changes.
inline Scenario and_then(Scenario scenario, Rules then) {
    scenario.then = std::move(then);
    return scenario;
}
inline Scenarios and_then(Scenarios scenarios, const Rules &then) {
    for (Scenario &scenario : scenarios)
        scenario.then = then;
    return scenarios;
}

// The functions that a module exports: those of its block in lib/exports.map.
std::set<std::string> exported_functions(const std::string &module);
// What is missing, or too much, in a module: empty when all is swept.
std::vector<std::string> gaps_of(const Module &module, const std::set<std::string> &exported);

Module simplog_module();
Module conffile_module();
Module miscfunc_module();
Module fileio_module();
Module socket_module();
Module sysinfo_module();
Module tracer_module();
Module links_module();

// Whether the sweep reports what it is there for: stand-ins with one fault each. The exit status.
int check_the_sweep();

}  // namespace faults
