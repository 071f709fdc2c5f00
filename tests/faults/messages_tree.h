// The documented messages of the walks over folder trees, and of temporary files.
#pragma once

#include "message_log.h"

namespace faults::msg {

inline constexpr Message tree_no_source{"Copy_Folder_Tree_At", Level::debug, "Can't fstat folder %s error!, %d\n", 2};
inline constexpr Message tree_no_dest{"Copy_Folder_Tree_At", Level::error,
                                      "Can't mkdirat the dst folder (%d, %s, %o) error! (%d)\n", 4};
inline constexpr Message tree_no_mode{"Copy_Folder_Tree_At", Level::error,
                                      "Can't fchmodat the dest folder (%d, %s, %d) error! (%d)\n", 4};
inline constexpr Message tree_no_owner{"Copy_Folder_Tree_At", Level::error,
                                       "Can't fchownat the dest folder (%d, %s, %d, %d) error! (%d)\n", 5};
inline constexpr Message tree_not_read{"Copy_Folder_Tree_At", Level::debug, "Can't opendir %s (%d)\n", 2,
                                       Message::Code::plain_errno};
inline constexpr Message tree_no_status{"Copy_Folder_Tree_At", Level::debug, "Can't fstat file %s error! (%d)\n", 2};
inline constexpr Message tree_no_file{"Copy_Folder_Tree_At", Level::debug,
                                      "Can't copy file (%s -> %d, %s) error! (%d)\n", 4};
inline constexpr Message tree_no_link{"Copy_Folder_Tree_At", Level::debug,
                                      "Can't create symlink (%d, %s) error! (%d)\n", 3};
inline constexpr Message tree_no_folder{"Copy_Folder_Tree_At", Level::debug,
                                        "Can't create folder (%d, %s) error! (%d)\n", 3};
inline constexpr Message tree_no_time{"Copy_Folder_Tree_At", Level::debug,
                                      "Can't chtime the folder (%d, %s) error! (%d)\n", 3};

inline constexpr Message state_no_top{"State_Folder_Tree_At", Level::debug, "Can't fstat folder %s error!, %d\n", 2};
inline constexpr Message state_no_status{"State_Folder_Tree_At", Level::debug, "Can't fstat file %s error!, %d\n", 2,
                                         Message::Code::plain_errno};
inline constexpr Message state_not_read{"State_Folder_Tree_At", Level::debug, "Can't opendir %s (%d)\n", 2,
                                        Message::Code::plain_errno};

inline constexpr Message removal_not_read{"Remove_Folder_Tree_At", Level::error, "Can't opendir %s error! (%d)\n", 2};
inline constexpr Message removal_no_status{"Remove_Folder_Tree_At", Level::error, "Can't fstat file: %s/%s\n"};
inline constexpr Message removal_no_file{"Remove_Folder_Tree_At", Level::error, "Can't unlink file %s/%s error! (%d)\n",
                                         3};
inline constexpr Message removal_no_folder{"Remove_Folder_Tree_At", Level::error, "Can't rmdir %s error! (%d)\n", 2};

inline constexpr Message temp_not_opened_at{"Open_Unique_Temp_File_At", Level::debug,
                                            "Can't open the destination file %s error! (%d)\n", 2};
inline constexpr Message temp_not_opened{"Open_Unique_Temp_File", Level::debug,
                                         "Can't open the destination file %s! (%d)\n", 2};

}  // namespace faults::msg
