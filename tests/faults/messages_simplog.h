// The documented messages of the log facility.
#pragma once

#include "message_log.h"

namespace faults::msg {

inline constexpr Message log_no_memory{"Simp_Log_Create", Level::error, "Can't allocate memory of %d bytes!\n"};
inline constexpr Message log_no_removal{"Simp_Log_Create", Level::error, "Can't remove a file error! (%d, %s)\n", 1};
inline constexpr Message log_no_folder{"Simp_Log_Create", Level::error, "Can't create the folder \"%s\"! (%d)\n", 2};
inline constexpr Message log_not_opened{"Simp_Log_Open", Level::error, "Can't open the log file \"%s\"! (%d)\n", 2};
inline constexpr Message log_not_formatted{"Simp_Log_Write", Level::error,
                                           "Can't generate the log message ! (%d, %d)\n", 1};
inline constexpr Message log_not_written{"Simp_Log_Write", Level::error, "Can't write %d bytes to the log file. (%d)"};

}  // namespace faults::msg
