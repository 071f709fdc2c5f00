// The network interfaces of this machine with all their addresses.
#pragma once

#include <string>
#include <vector>

#include "output/table.h"

namespace korvex::cli {

struct InterfaceAddress {
    std::string address;
    unsigned prefix = 0;  // length in bits

    bool operator==(const InterfaceAddress &) const = default;
};

struct InterfaceInfo {
    std::string name;
    bool is_up = false;
    std::string mac;  // empty without one
    std::vector<InterfaceAddress> ipv4;
    std::vector<InterfaceAddress> ipv6;
};

// First the interfaces that the library lists, each with the addresses that it gives. Then what the library leaves out:
// further addresses, interfaces that have IPv6 addresses alone, and those for which its list has no room.
std::vector<InterfaceInfo> interfaces_with_all_addresses();

// One as `korvex net interfaces --json` and a snapshot have it.
Json json_of(const InterfaceInfo &interface);

}  // namespace korvex::cli
