// Lengths of time as people write them.
#pragma once

#include <chrono>
#include <string>

namespace korvex::cli {

// "2s", "500 ms", "1.5min", "1h"; a number without a unit counts milliseconds. Negative: for ever. Throws a Failure for
// wrong usage, which names the option.
std::chrono::milliseconds duration_of(const std::string &option, const std::string &text);

}  // namespace korvex::cli
