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

// Those that the library lists, each with its addresses first, and then what the system knows besides: further addresses,
// and interfaces that have IPv6 addresses alone or are more than the library lists.
std::vector<InterfaceInfo> interfaces_with_all_addresses();

// One as `korvex net interfaces --json` and a snapshot have it.
Json json_of(const InterfaceInfo &interface);

}  // namespace korvex::cli
