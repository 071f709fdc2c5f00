// Second failures: which of the calls that follow a failure are to fail, too.
#pragma once

#include <vector>

#include "rules.h"

namespace faults {

// Chooses among the calls that follow `first` when that has failed. First, each call that the run without a fault does not
// make, such as a second attempt. Second, each call that gives back or removes something; but not where the failure of `first`
// is overlooked, since the run goes on then.
std::vector<Injection> seconds(const Injection &first, bool overlooked, const std::vector<Call> &calls,
                               const std::vector<Call> &unharmed);

}  // namespace faults
