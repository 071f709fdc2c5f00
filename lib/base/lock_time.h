// How long the library itself waits for a file's lock, and how long a lock lasts.
#pragma once

#include <cstdint>

namespace korvex {

constexpr int32_t kLockWaitMs = 10'000;
constexpr uint64_t kLockLifetimeMs = 600'000;  // then it is stale, even if its holder lives

}  // namespace korvex
