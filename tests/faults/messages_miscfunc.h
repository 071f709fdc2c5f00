// The documented messages of the general helpers.
#pragma once

#include "message_log.h"

namespace faults::msg {

inline constexpr Message clone_no_memory{"Clone_String", Level::debug, "Can't allocate memory error!\n"};
inline constexpr Message pids_no_memory{"Get_All_Pids", Level::error, "Can't allocate memory of %d bytes!\n"};
inline constexpr Message pids_no_folder{"Get_All_Pids", Level::error, "Can't open the folder \"/proc\"! (%d)\n", 1};
inline constexpr Message pids_no_descriptor{"Get_All_Pids", Level::error,
                                            "Can't get the fd of \"/proc\" folder. (%d)\n", 1};
inline constexpr Message pids_no_status{"Get_All_Pids", Level::debug,
                                        "WARNING: Can't stat the file \"/proc/%s\". (%d)\n", 2};
inline constexpr Message pids_not_opened{"Get_All_Pids", Level::debug,
                                         "WARNING: Can't open the file \"%s\" for reading. (%d)\n", 2};
inline constexpr Message pids_larger{"Get_All_Pids", Level::debug,
                                     "Array is not big enough, it will be re-allocated. (%d=>%d)\n"};
inline constexpr Message pids_found{"Get_All_Pids", Level::debug, "%d is a \"%s\" process.\n"};

}  // namespace faults::msg
