// Locks as people look at them.
#pragma once

#include <string>

#include "korvex/lock.hpp"
#include "output/table.h"

namespace korvex::cli {

// The line that `korvex lock --status` prints.
std::string status_line(const lock_state &state);

// ", held by process 12 (vi) for 31 ms"; empty where nothing is known of what is in the way.
std::string holder_text(const lock_state &state);

// A lock as `korvex lock --list --json` and a snapshot have it.
Json json_of(const named_lock &lock);

// Prints every lock of /var/lock and, where a file is given, the one beside it.
void print_locks(const std::string &file, bool json);

}  // namespace korvex::cli
