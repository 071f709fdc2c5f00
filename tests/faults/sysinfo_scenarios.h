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

// The blocks of a read of the mount table, in the order in which they are taken, where it is the first that is read.
namespace table {
constexpr int stream = 1;
constexpr int line = 2;
constexpr int buffer = 3;  // of the stream
constexpr int first_mount = 4;
}  // namespace table

// The same of the output of the tool that lists block devices.
namespace tool {
constexpr int stream = 1;
constexpr int buffer = 2;
constexpr int first_block = 3;
}  // namespace tool

// libc can do without a buffer for a stream.
inline Rule stream_buffer(int nth) {
    return Rule(Call::malloc, nth).is_overlooked();
}

// The call that is made to fail; none in a run without a fault.
inline bool was_made_to_fail(const Trial &trial, Call call, int nth = 0) {
    const Injection *injection = trial.injection();
    return injection != nullptr && injection->call == call && (nth == 0 || injection->nth == nth);
}

}  // namespace faults
