// The documented messages of the tracing allocator that do not depend on damage.
#pragma once

#include "message_log.h"

namespace faults::msg {

inline constexpr Message tracer_unbalanced{"Trace_Mem_Destroy", Level::error,
                                           "Mem Usage:  BAD, Alloc: %d times, Free: %d times\n"};
inline constexpr Message tracer_not_freed{"Trace_Mem_Destroy", Level::error,
                                          "%s (%d) allocate %d byte but not freed%s!\n"};

}  // namespace faults::msg
