// The stamps of log lines, of which a thread keeps the last.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simplog.h"

namespace korvex::simplog {

// Room for a stamp and its NUL, as `Log_DateTime_Format` wants it.
constexpr size_t kStampSize = 26;

// Writes the stamp of this second and a NUL into `kStampSize` bytes, and returns its length. `errno` stays.
size_t put_stamp(char *text, int32_t hour_clock, int32_t date_format);

}  // namespace korvex::simplog
