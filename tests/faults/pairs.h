// Second failures: which of the calls that follow a failure are to fail, too.
#pragma once

#include <vector>

#include "rules.h"

namespace faults {

// Of the calls that follow `first` in a run in which that fails, each that the run without a fault does not make, as a
// second attempt; and, unless the failure is overlooked, so that the run goes on, each that gives back or removes.
std::vector<Injection> seconds(const Injection &first, bool overlooked, const std::vector<Call> &calls,
                               const std::vector<Call> &unharmed);

}  // namespace faults
