/// @file
/// Names and addresses of hosts.
#ifndef KORVEX_NET_ADDRESS_HPP
#define KORVEX_NET_ADDRESS_HPP

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/error.hpp"
#include "socket.h"

namespace korvex {

namespace detail {

/// The bytes of an address; an IPv4 address that is written as an IPv6 one ("::ffff:10.0.0.1") is the IPv4 address.
struct address_bytes {
    std::array<unsigned char, 16> bytes{};
    std::size_t size = 0;

    friend bool operator==(const address_bytes &, const address_bytes &) = default;
};

inline address_bytes bytes_of(const in_addr &address) noexcept {
    address_bytes found{.bytes = {}, .size = sizeof address};
    std::memcpy(found.bytes.data(), &address, sizeof address);
    return found;
}

inline address_bytes bytes_of(const in6_addr &address) noexcept {
    constexpr std::size_t mapped_at = 12;
    address_bytes found{.bytes = {}, .size = sizeof address};
    if (IN6_IS_ADDR_V4MAPPED(&address)) {
        found.size = sizeof(in_addr);
        std::memcpy(found.bytes.data(), address.s6_addr + mapped_at, found.size);
    } else {
        std::memcpy(found.bytes.data(), address.s6_addr, found.size);
    }
    return found;
}

/// Nothing where the text is no address; a scope ("%eth0") is passed over.
inline std::optional<address_bytes> to_bytes(std::string_view text) {
    const c_text<64> plain(text.substr(0, text.find('%')));
    in_addr ipv4{};
    in6_addr ipv6{};
    if (::inet_pton(AF_INET, plain, &ipv4) == 1)
        return bytes_of(ipv4);
    if (::inet_pton(AF_INET6, plain, &ipv6) == 1)
        return bytes_of(ipv6);
    return {};
}

inline std::optional<address_bytes> bytes_of(const sockaddr *address) noexcept {
    if (address == nullptr)
        return {};
    if (address->sa_family == AF_INET) {
        sockaddr_in ipv4{};
        std::memcpy(&ipv4, address, sizeof ipv4);
        return bytes_of(ipv4.sin_addr);
    }
    if (address->sa_family == AF_INET6) {
        sockaddr_in6 ipv6{};
        std::memcpy(&ipv6, address, sizeof ipv6);
        return bytes_of(ipv6.sin6_addr);
    }
    return {};
}

inline address_bytes address_of(std::string_view text) {
    const std::optional<address_bytes> bytes = to_bytes(text);
    if (!bytes)
        throw error(EINVAL, "can't use", text, "it is not an address");
    return *bytes;
}

}  // namespace detail

/// An address of a host.
struct host_address {
    std::string text;      ///< "10.0.0.1" or "fd00::1"
    bool is_ipv6 = false;  ///< else it is an IPv4 address
};

/// Finds the first address of a host.
///
/// @param host  name or address
/// @return its address; throws what the resolver said, `std::errc::host_unreachable` for an unknown name
inline host_address resolve(std::string_view host) {
    char text[INET6_ADDRSTRLEN] = "";
    std::int32_t family = 0;
    detail::check(Domain_To_IP_Addr(detail::c_text<>(host), text, &family), "can't resolve", host);
    return {.text = text, .is_ipv6 = family == AF_INET6};
}

/// Whether a name or an address is one of this host's, compared exactly with those of all interfaces. (The C call takes
/// 10.0.0.1 for this host's where an interface has 10.0.0.12, and knows the first interface's IPv6 addresses alone.)
///
/// @param host  name or address; throws where a name can't be resolved
/// @return whether it is
inline bool is_local(std::string_view host) {
    const detail::address_bytes wanted = detail::address_of(resolve(host).text);
    ifaddrs *all = nullptr;
    detail::check_system(::getifaddrs(&all), "can't list", "network interfaces");
    struct freer {
        void operator()(ifaddrs *list) const noexcept { ::freeifaddrs(list); }
    };
    const std::unique_ptr<ifaddrs, freer> owner(all);
    for (const ifaddrs *one = all; one != nullptr; one = one->ifa_next)
        if (detail::bytes_of(one->ifa_addr) == wanted)
            return true;
    return false;
}

/// Whether two addresses agree in their first bits, all of them. (The C call compares a part of a byte by its lowest
/// bits.) Addresses of two families never do.
///
/// @param one, other  numeric addresses
/// @param prefix      bits: up to 32 for IPv4, to 128 for IPv6; else, and for texts that are no addresses, it throws
///                    `std::errc::invalid_argument`
/// @return whether they agree
inline bool same_subnet(std::string_view one, std::string_view other, unsigned prefix) {
    const detail::address_bytes left = detail::address_of(one);
    const detail::address_bytes right = detail::address_of(other);
    if (prefix > 8 * left.size || prefix > 8 * right.size)
        throw error(EINVAL, "can't compare", one, "the prefix is longer than the address");
    const std::size_t whole = prefix / 8;
    const unsigned rest = (0xFFU << (8 - prefix % 8)) & 0xFFU;
    return left.size == right.size && std::memcmp(left.bytes.data(), right.bytes.data(), whole) == 0 &&
           (rest == 0 || ((left.bytes[whole] ^ right.bytes[whole]) & rest) == 0);
}

/// The scope id, which is an interface's index, to reach a link-local IPv6 address by, as `connect` chooses it: that of
/// the interface that has the address, else of the last one in the first 1023 bytes of the kernel's list.
///
/// @param address  numeric, without a scope
/// @return nothing where the kernel lists no interface; throws `std::errc::invalid_argument` for a text that is no IPv6
///         address
inline std::optional<std::uint32_t> scope_of(std::string_view address) {
    in6_addr bytes{};
    if (::inet_pton(AF_INET6, detail::c_text<64>(address), &bytes) != 1)
        throw error(EINVAL, "can't use", address, "it is not an IPv6 address");
    std::uint32_t scope = 0;
    const std::int32_t result = IPv6_Get_Scope_Id(&bytes, &scope);
    if (result == -ENODEV)
        return {};
    detail::check(result, "can't find the scope of", address);
    return scope;
}

}  // namespace korvex

#endif
