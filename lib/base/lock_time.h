// How long the library itself waits for a file's lock.
#pragma once

#include <cstdint>

namespace korvex {

constexpr int32_t kLockWaitMs = 10'000;

}  // namespace korvex
