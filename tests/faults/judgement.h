// Compares a run in which calls failed with what the scenario expects of it.
#pragma once

#include <string>
#include <vector>

#include "sweep.h"

namespace faults {

// All messages, for a report.
std::string all_texts(const std::vector<Said> &said);

// The complaints about a run's result, messages and files; empty where all is as expected.
std::vector<std::string> judge(const Scenario &scenario, const Snapshot &unharmed, const Trial &trial, const Harm &harm,
                               Level level);

}  // namespace faults
