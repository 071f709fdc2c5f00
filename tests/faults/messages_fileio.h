// The documented messages of the functions on files.
#pragma once

#include "message_log.h"

namespace faults::msg {

// The messages of the wait for a lock, which three functions share.
constexpr Message lock_of_dead(const char *function) {
    return {function, Level::debug, "Remove \"%s\" because proc %d is not existed!\n"};
}
constexpr Message lock_too_old(const char *function) {
    return {function, Level::debug, "Remove \"%s\" because time expired (%lld)!\n"};
}
constexpr Message lock_never_filled(const char *function) {
    return {function, Level::debug, "Remove \"%s\" because invalid content and timeout (%lld)!\n"};
}
constexpr Message lock_timeout(const char *function) {
    return {function, Level::error, "Get lock file \"%s\" timeout! (%lld < %d)\n"};
}
constexpr Message lock_not_filled(const char *function) {
    return {function, Level::error, "Can't write lock file \"%s\" content error!\n"};
}
inline constexpr Message shared_no_lock{"Open_Shared_File", Level::debug, "Can't get file lock of %s error!\n"};

inline constexpr Message write_bulk{"File_Write_Bulk", Level::error,
                                    "Can't write file error! (%s, %d, %lld,%lld/%lld)\n", 2};
inline constexpr Message send_bulk{"File_Send_Bulk", Level::error,
                                   "Can't sendfile error! (%s, %d, %lld,%lld/%lld, %lld)\n", 2};

// The messages of a splice. That of a time-out has two forms, the second for a caller that gave an offset.
inline constexpr Message splice_failed{"Splice_Ext", Level::error,
                                       "Can't splice %lld bytes from the socket error! (%d, %lld)\n", 2};
inline constexpr Message splice_again{
    "Splice_Ext", Level::debug,
    "Splice can't receive %lld bytes at once, it will retry later. (bytes left: %lld; time elapsed: %llu ms; timeout: "
    "%d ms)\n"};
inline constexpr Message splice_timeout{"Splice_Ext", Level::error,
                                        "Can't finish the 'splice' of %lld bytes in %d milliseconds. (%d, %lld)\n", 3};
inline constexpr Message splice_timeout_at{
    "Splice_Ext", Level::error, "Can't finish the 'splice' of %lld bytes in %d milliseconds. (%d, %lld, %lld)\n", 3};
inline constexpr Message splice_data{"Splice_File_Data", Level::error,
                                     "Can't splice the file '%s' into '%s' error! (%d, %d)\n", 4};

// Those of the copy of data, which has two forms: for a finished source and for one that grows.
constexpr Message data_seek_in(const char *function) {
    return {function, Level::error, "Can't seek the source file to offset %lld error!\n"};
}
constexpr Message data_seek_out(const char *function) {
    return {function, Level::error, "Can't seek the destination file to offset %lld error!\n"};
}
constexpr Message data_no_memory(const char *function) {
    return {function, Level::error, "Can't allocate %ld byte buffer for copying data error!\n"};
}
constexpr Message data_not_written(const char *function) {
    return {function, Level::error, "Can't write %lld byte to the destination file error! (%d, %lld)\n", 2};
}
inline constexpr Message data_not_read{"Copy_File_Data", Level::error,
                                       "Can't read %lld byte from the source file error! (%d, %lld)\n", 2};
inline constexpr Message growing_not_read{"Copy_File_Data_MROV", Level::error,
                                          "Can't read %lld byte from the source file error! \n"};

inline constexpr Message file_no_source_status{"Copy_File_At", Level::error,
                                               "Can't stat the source file %s error! (%d)\n", 2};
inline constexpr Message file_no_source{"Copy_File_At", Level::error, "Can't open the source file %s error! (%d, %d)\n",
                                        2};
inline constexpr Message file_no_dest{"Copy_File_At", Level::error, "Can't open the destination file %s error! (%d)\n",
                                      2};

inline constexpr Message link_no_status{"Copy_Symlink_At", Level::debug,
                                        "Can't stat a symbolic link (%d,%s) error! (%d)\n", 3};
inline constexpr Message link_not_read{"Copy_Symlink_At", Level::debug,
                                       "Can't read a symbolic link (%d,%s) error! (%d)\n", 3};
inline constexpr Message link_not_made{"Copy_Symlink_At", Level::error, "symlinkat(%s, %d, %s) error! (%d)\n", 4};
inline constexpr Message link_no_time{"Copy_Symlink_At", Level::error, "Can't utimensat(%d, %s) error! (%d)\n", 3};
inline constexpr Message link_no_owner{"Copy_Symlink_At", Level::error, "Can't fchownat(%d, %s, %d, %d) error! (%d)\n",
                                       5};

inline constexpr Message folder_no_status{"Copy_Folder_At", Level::debug, "Can't stat a folder (%d,%s) error! (%d)\n",
                                          3};
inline constexpr Message folder_not_made{"Copy_Folder_At", Level::error,
                                         "Can't mkdirat the folder (%d, %s, %o) error! (%d)\n", 4};
inline constexpr Message folder_no_mode{"Copy_Folder_At", Level::error,
                                        "Can't fchmodat the folder (%d, %s, %o) error! (%d)\n", 4,
                                        Message::Code::plain_errno};
inline constexpr Message folder_no_owner{"Copy_Folder_At", Level::error,
                                         "Can't fchownat the folder (%d, %s, %d, %d) error! (%d)\n", 5,
                                         Message::Code::plain_errno};
inline constexpr Message folder_no_time{"Copy_Folder_At", Level::error,
                                        "Can't chtime the folder (%d, %s) error! (%d)\n", 3};

}  // namespace faults::msg
