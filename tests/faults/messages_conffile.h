// The documented messages of the functions on configurations.
#pragma once

#include "message_log.h"

namespace faults::msg {

inline constexpr Message cache_no_status{"Cache_Conf_File", Level::debug,
                                         "Can't stat the conf file \"%s\" error! (%d)\n", 2};
inline constexpr Message cache_not_opened{"Cache_Conf_File", Level::debug,
                                          "Can't open the conf file \"%s\" error! (%d)\n", 2};
inline constexpr Message cache_no_memory{"Cache_Conf_File", Level::debug,
                                         "Can't allocate %lld byte to cache the conf file \"%s\" error!\n"};
inline constexpr Message cache_not_read{"Cache_Conf_File", Level::debug,
                                        "Read \"%s\" %lld bytes but got %d bytes error! (%d)\n", 4};
inline constexpr Message read_not_cached{"Read_Conf_File", Level::debug,
                                         "Can't cache the specified conf file \"%s\" error (%d)!\n", 2};

// The parsers': of a cached text and of a stream.
constexpr Message parse_no_memory(const char *function) {
    return {function, Level::error, "Can't allocate buffer for section node error!\n"};
}
constexpr Message parse_no_section(const char *function) {
    return {function, Level::error, "Can't allocate %d bytes buffer for section node error!\n"};
}
constexpr Message parse_no_pair(const char *function) {
    return {function, Level::error, "Can't allocate %d bytes buffer for string pair node error!\n"};
}

inline constexpr Message write_not_opened{"Write_Conf_File", Level::error, "Can't open file %s error! (%d)\n", 2};
inline constexpr Message update_not_written{"Update_Conf_File", Level::error,
                                            "Can't write conf file \"%s\" error! (%d)\n", 2};
inline constexpr Message update_not_renamed{"Update_Conf_File", Level::error,
                                            "Can't rename conf file \"%s\" error! (%d)\n", 2};
inline constexpr Message update_no_mode{"Update_Conf_File", Level::error, "Can't chmod to %s! (%d)\n", 2};

// What the setters of a file have in common.
constexpr Message conf_no_lock(const char *function) {
    return {function, Level::debug, "Can't get file lock of %s error!\n"};
}
constexpr Message conf_not_parsed(const char *function) {
    return {function, Level::debug, "Can't parse the conf file %s error! (%d)\n", 2};
}
constexpr Message conf_not_updated(const char *function) {
    return {function, Level::debug, "Can't update the conf file \"%s\" error! (%d)\n", 2};
}
constexpr Message conf_not_cached(const char *function) {
    return {function, Level::debug, "Can't cache file \"%s\" error! (%d)\n", 2};
}

inline constexpr Message key_no_temporary{"Set_Conf_File_String_Value", Level::debug,
                                          "Can't open tmp file \"%s\" error! (%d)\n", 2};
inline constexpr Message key_not_renamed{"Set_Conf_File_String_Value", Level::error,
                                         "Can't rename from %s to %s! (%d)\n", 3};
inline constexpr Message key_no_mode{"Set_Conf_File_String_Value", Level::error, "Can't chmod to %s! (%d)\n", 2};

inline constexpr Message merge_no_pair{"Update_Conf_File_Section", Level::error, "Can't set pair string %s %s! (%d)\n",
                                       3};
inline constexpr Message pairs_not_set{"Set_Conf_File_Pair_Values", Level::debug,
                                       "Can't set conf string %p/%s/%s/%s error! (%d)\n", 5};

// The nodes': "Can'r" is how it has always been written.
constexpr Message node_no_pair(const char *function) {
    return {function, Level::debug, "Can't create a pair node error! (%d, %s, %s)\n", 1};
}
constexpr Message node_no_section(const char *function) {
    return {function, Level::debug, "Can'r create a sect node error! (%d, %s)\n", 1};
}

}  // namespace faults::msg
