// The scenarios of the functions on files, by source.
#pragma once

#include "modules.h"

namespace faults {

Scenarios lock_scenarios();
Scenarios path_scenarios();
Scenarios temp_scenarios();
Scenarios transfer_scenarios();
Scenarios copy_scenarios();
Scenarios tree_copy_scenarios();
Scenarios tree_scenarios();

}  // namespace faults
