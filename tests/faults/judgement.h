// Whether a run in which calls failed is as the scenario has it.
#pragma once

#include <string>
#include <vector>

#include "sweep.h"

namespace faults {

// All messages, for a report.
std::string all_texts(const std::vector<Said> &said);

// What does not hold of the result, the messages and the files.
std::vector<std::string> judge(const Scenario &scenario, const Snapshot &unharmed, const Trial &trial, const Harm &harm,
                               Level level);

}  // namespace faults
