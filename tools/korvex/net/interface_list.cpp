#include "net/interface_list.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>

#include "cli.h"
#include "korvex/system.hpp"

namespace korvex::cli {
namespace {

// The bits that are set in a mask.
unsigned prefix_of(const void *mask, size_t size) {
    const auto *const bytes = static_cast<const unsigned char *>(mask);
    unsigned bits = 0;
    for (size_t i = 0; mask != nullptr && i < size; ++i)
        bits += static_cast<unsigned>(std::popcount(bytes[i]));
    return bits;
}

template <typename Address>
const Address *as(const sockaddr *any) {
    return reinterpret_cast<const Address *>(any);
}

InterfaceAddress address_of(int family, const void *bytes, unsigned prefix) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    (void)inet_ntop(family, bytes, text.data(), text.size());
    return {text.data(), prefix};
}

InterfaceAddress ipv4_of(const ifaddrs &entry) {
    const void *const mask = entry.ifa_netmask == nullptr ? nullptr : &as<sockaddr_in>(entry.ifa_netmask)->sin_addr;
    return address_of(AF_INET, &as<sockaddr_in>(entry.ifa_addr)->sin_addr, prefix_of(mask, sizeof(in_addr)));
}

InterfaceAddress ipv6_of(const ifaddrs &entry) {
    const void *const mask = entry.ifa_netmask == nullptr ? nullptr : &as<sockaddr_in6>(entry.ifa_netmask)->sin6_addr;
    return address_of(AF_INET6, &as<sockaddr_in6>(entry.ifa_addr)->sin6_addr, prefix_of(mask, sizeof(in6_addr)));
}

// As the library writes them.
std::string mac_of(const ifaddrs &entry) {
    const auto &link = *as<sockaddr_ll>(entry.ifa_addr);
    std::string text;
    for (size_t i = 0; i < std::min<size_t>(link.sll_halen, sizeof link.sll_addr); ++i) {
        std::array<char, 4> byte{};
        std::snprintf(byte.data(), byte.size(), "%s%02X", i == 0 ? "" : ":", link.sll_addr[i]);
        text += byte.data();
    }
    return text;
}

void add(std::vector<InterfaceAddress> &addresses, InterfaceAddress address) {
    if (std::find(addresses.begin(), addresses.end(), address) == addresses.end())
        addresses.push_back(std::move(address));
}

std::vector<InterfaceInfo>::iterator found(std::vector<InterfaceInfo> &list, std::string_view name) {
    return std::find_if(list.begin(), list.end(), [name](const InterfaceInfo &one) { return one.name == name; });
}

// Each interface once, although the library lists it once for each of its addresses.
std::vector<InterfaceInfo> listed_by_library() {
    std::vector<InterfaceInfo> list;
    for (const auto &one : interfaces()) {
        if (found(list, one.name) != list.end())
            continue;
        InterfaceInfo info{.name = std::string(one.name),
                           .is_up = (one.flags & IFF_UP) != 0,
                           .mac = std::string(one.mac),
                           .ipv4 = {},
                           .ipv6 = {}};
        if (!one.ipv4.empty())
            info.ipv4.push_back({std::string(one.ipv4), one.ipv4_prefix});
        for (const ipv6_address &address : one.ipv6)
            info.ipv6.push_back({std::string(address.address), address.prefix});
        list.push_back(std::move(info));
    }
    return list;
}

using Entries = std::unique_ptr<ifaddrs, void (*)(ifaddrs *)>;

Entries entries_of_system() {
    ifaddrs *first = nullptr;
    if (getifaddrs(&first) != 0)
        throw file_failure("interfaces", -errno);
    return {first, freeifaddrs};
}

InterfaceInfo &named(std::vector<InterfaceInfo> &list, const ifaddrs &entry) {
    const auto known = found(list, entry.ifa_name);
    if (known != list.end())
        return *known;
    list.push_back(
        {.name = entry.ifa_name, .is_up = (entry.ifa_flags & IFF_UP) != 0, .mac = {}, .ipv4 = {}, .ipv6 = {}});
    return list.back();
}

Json json_of(const InterfaceAddress &one) {
    return {{"address", one.address}, {"prefix", one.prefix}};
}

Json json_of(const std::vector<InterfaceAddress> &addresses) {
    auto list = Json::array();
    for (const InterfaceAddress &one : addresses)
        list.push_back(json_of(one));
    return list;
}

}  // namespace

std::vector<InterfaceInfo> interfaces_with_all_addresses() {
    std::vector<InterfaceInfo> list = listed_by_library();
    const Entries entries = entries_of_system();
    for (const ifaddrs *entry = entries.get(); entry != nullptr; entry = entry->ifa_next) {
        const int family = entry->ifa_addr == nullptr ? AF_UNSPEC : entry->ifa_addr->sa_family;
        if (family == AF_INET)
            add(named(list, *entry).ipv4, ipv4_of(*entry));
        else if (family == AF_INET6)
            add(named(list, *entry).ipv6, ipv6_of(*entry));
    }

    // A hardware address alone adds no interface to the list.
    for (const ifaddrs *entry = entries.get(); entry != nullptr; entry = entry->ifa_next)
        for (InterfaceInfo &one : list)
            if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_PACKET && one.name == entry->ifa_name &&
                one.mac.empty())
                one.mac = mac_of(*entry);
    return list;
}

// "ipv4" is one address, as ever; "ipv4_all" has the others, too.
Json json_of(const InterfaceInfo &interface) {
    return {{"name", interface.name},
            {"up", interface.is_up},
            {"mac", text_or_null(interface.mac)},
            {"ipv4", interface.ipv4.empty() ? Json() : json_of(interface.ipv4.front())},
            {"ipv4_all", json_of(interface.ipv4)},
            {"ipv6", json_of(interface.ipv6)}};
}

}  // namespace korvex::cli
