// The documented messages of the system information.
#pragma once

#include "message_log.h"

namespace faults::msg {

inline constexpr Message mounts_no_memory{"Scan_Mount_Info", Level::error, "Can't allocate %d bytes memory!\n"};
inline constexpr Message shares_no_folder{"Scan_Share_List", Level::error, "Failed to opendir(%s)! (%d)\n", 2};
inline constexpr Message shares_no_memory{"Scan_Share_List", Level::error,
                                          "ERROR: Failed to allocate memory of %d bytes.\n"};
inline constexpr Message blocks_no_memory{"Scan_Block_Device_Info", Level::error, "Can't allocate %d bytes memory!\n"};

inline constexpr Message netif_seen{"Scan_Network_Interface", Level::debug, "Get the address of %d-th netif: %s\n"};
inline constexpr Message netif_no_list{"Scan_Network_Interface", Level::error, "Can't get the netif name list! (%d)\n",
                                       1};
inline constexpr Message netif_no_addresses{"Scan_Network_Interface", Level::debug,
                                            "Can't get IP addresses of %s! (%d)\n", 2};
// The same, of any interface and for any reason.
inline constexpr Message netif_no_addresses_of_any{"Scan_Network_Interface", Level::debug, netif_no_addresses.format};
inline constexpr Message netif_no_flags{"Scan_Network_Interface", Level::debug, "Can't get the flags of %s! (%d)\n", 2};
inline constexpr Message netif_no_mac{"Scan_Network_Interface", Level::error, "Can't get the MAC address of %s! (%d)\n",
                                      2, Message::Code::plain_errno};

// Of the file with the options of the shares.
inline constexpr Message options_no_stat{"Cache_Conf_File", Level::debug,
                                         "Can't stat the conf file \"%s\" error! (%d)\n", 2};
inline constexpr Message options_not_opened{"Cache_Conf_File", Level::debug,
                                            "Can't open the conf file \"%s\" error! (%d)\n", 2};
inline constexpr Message options_no_memory{"Cache_Conf_File", Level::debug,
                                           "Can't allocate %lld byte to cache the conf file \"%s\" error!\n"};
inline constexpr Message options_not_read{"Cache_Conf_File", Level::debug,
                                          "Read \"%s\" %lld bytes but got %d bytes error! (%d)\n", 4};
inline constexpr Message options_cut{"Cache_Conf_File", Level::debug, options_not_read.format};
inline constexpr Message options_not_cached{"Get_Conf_File_String_Value", Level::debug,
                                            "Can't cache file \"%s\" error! (%d)\n", 2};

}  // namespace faults::msg
