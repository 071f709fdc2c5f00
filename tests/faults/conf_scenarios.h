// The scenarios of the configurations, by source.
#pragma once

#include "modules.h"

namespace faults {

Scenarios conf_node_scenarios();
Scenarios conf_text_scenarios();
Scenarios conf_section_scenarios();
Scenarios conf_key_scenarios();

}  // namespace faults
