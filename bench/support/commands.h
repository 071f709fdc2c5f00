// Programs that are started, and what they cost.
#pragma once

#include <string>
#include <vector>

#include "rounds.h"

namespace bench {

using Command = std::vector<std::string>;

struct Spent {
    Cost cost;
    long peak;  // KiB resident
};

// Runs the program to its end, its output going nowhere; throws where it fails. Its start counts, and the fork before it.
Spent run_command(const Command &command);

}  // namespace bench
