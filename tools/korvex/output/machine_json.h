// What the machine is made of, in the JSON that the commands print and a snapshot holds. docs/snapshot.schema.json
// describes it. Each throws korvex::error where it can't be read.
#pragma once

#include <string>

#include "output/table.h"

namespace korvex::cli {

Json mounts_json();
Json shares_json();
Json blocks_json();
Json interfaces_json();
// The volumes of the mounted devices, in the order of the mount table.
Json volumes_json();
// Every lock of /var/lock.
Json locks_json();

// One of these lists for a command: where it can't be read, the Failure "NAME: REASON".
Json listed(const std::string &name, Json (*read)());

}  // namespace korvex::cli
