// Scan_Network_Interface's list as values that can be compared and printed.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <cerrno>
#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "sysinfo.h"

namespace sysinfo_test {

struct Interface {
    std::string name;
    int index = 0;
    uint32_t flags = IFF_UP;
    std::string mac = "00:16:3E:0A:BC:DF";  // what a FakeInterface has where nothing else is said
    std::string ipv4 = "";
    int ipv4_prefix = 0;
    std::vector<std::pair<std::string, int>> ipv6 = {};

    friend bool operator==(const Interface &, const Interface &) = default;
    friend std::ostream &operator<<(std::ostream &out, const Interface &one) {
        out << '\n'
            << one.index << ' ' << one.name << " flags 0x" << std::hex << one.flags << std::dec << " mac " << one.mac
            << ' ' << one.ipv4 << '/' << one.ipv4_prefix;
        for (const auto &[address, prefix] : one.ipv6)
            out << ' ' << address << '/' << prefix;
        return out;
    }
};

inline Interface to_value(const Netif_Info &record) {
    Interface one{record.szName, record.idIndex, record.uFlags, record.szMac, record.szIPv4, record.nIPv4Prefix, {}};
    for (const Netif_IPv6 *node = record.pIPv6List; node != nullptr; node = node->pNext)
        one.ipv6.emplace_back(node->szAddress, node->nPrefixLen);
    return one;
}

struct Scan {
    int32_t result;
    std::vector<Interface> interfaces;
};

// What the outputs hold before a scan, which does not matter to it.
inline Netif_Info g_garbage;

struct RawScan {
    Netif_Info *list = &g_garbage;
    int32_t count = -77;
    int32_t result = 77;
};

inline RawScan raw_scan() {
    RawScan raw;
    raw.result = Scan_Network_Interface(&raw.list, &raw.count);
    return raw;
}

// Checks what holds for every scan: the count is the list's length, and a failure hands out nothing. Frees the list.
inline Scan take(const RawScan &raw) {
    Scan scan{raw.result, {}};
    EXPECT_LE(raw.result, 0);
    EXPECT_NE(raw.list, &g_garbage);
    EXPECT_TRUE(raw.result == 0 || raw.list == nullptr);
    if (raw.list == &g_garbage)
        return scan;

    for (const Netif_Info *record = raw.list; record != nullptr; record = record->pNext)
        scan.interfaces.push_back(to_value(*record));
    EXPECT_EQ(raw.count, static_cast<int32_t>(scan.interfaces.size()));
    Free_Network_Interface(raw.list);
    return scan;
}

inline Scan scan() {
    return take(raw_scan());
}

// Scans and expects success.
inline std::vector<Interface> interfaces() {
    const Scan done = scan();
    EXPECT_EQ(done.result, 0);
    return done.interfaces;
}

inline std::string debug_message(const std::string &text) {
    return "[debug] Scan_Network_Interface(#): " + text + "\n";
}

inline std::string error_message(const std::string &text) {
    return "[error] Scan_Network_Interface(#): " + text + "\n";
}

}  // namespace sysinfo_test
