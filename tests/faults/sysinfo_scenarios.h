// The scenarios of the system information, by source, and what they share.
#pragma once

#include "modules.h"
#include "sample_appliance.h"

namespace faults {

Scenarios interface_scenarios();
Scenarios mount_scenarios();
Scenarios share_scenarios();
Scenarios block_scenarios();
Scenarios volume_scenarios();

using sysinfo_test::Appliance;

// The first block that libc takes for a stream is the stream itself, the next one its buffer, which it can do without.
inline Rule stream_buffer(int nth) {
    return Rule(Call::malloc, nth).is_overlooked();
}

// The call that is made to fail; none in a run without a fault.
inline bool was_made_to_fail(const Trial &trial, Call call, int nth = 0) {
    const Injection *injection = trial.injection();
    return injection != nullptr && injection->call == call && (nth == 0 || injection->nth == nth);
}

}  // namespace faults
