// A second reading of netmasks, IPv6 subnets and the system's list of IPv6 addresses, made to be compared with the
// library: it knows nothing of the library's code, copies texts freely, and puts clarity before speed.
#pragma once

#include <netinet/in.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace naive {

// Takes `piece` off the front of a text that begins with it, and says whether it did.
inline bool take(std::string &text, const std::string &piece) {
    if (!text.starts_with(piece))
        return false;
    text = text.substr(piece.size());
    return true;
}

// None where the octet that counts is not a plain number: a mask has no signs and no blanks.
inline std::optional<int32_t> ipv4_prefix(std::string text) {
    int32_t prefix = take(text, "255.255.") ? 16 : 0;
    prefix += take(text, "255.") ? 8 : 0;
    if (!text.empty() && std::string("+- \t\n\v\f\r").find(text[0]) != std::string::npos)
        return std::nullopt;

    int32_t octet = 0;
    for (size_t i = 0; i < text.size() && text[i] >= '0' && text[i] <= '9' && octet < 256; ++i)
        octet = octet * 10 + (text[i] - '0');
    const std::vector<int32_t> reached = {0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE, 0xFF};
    int32_t bits = 0;
    while (bits < 8 && reached[static_cast<size_t>(bits)] < octet)
        ++bits;
    return prefix + bits;
}

inline int32_t ipv6_prefix(std::string text) {
    int32_t prefix = take(text, "ffff:ffff:ffff:ffff:") ? 64 : 0;
    prefix += take(text, "ffff:ffff:") ? 32 : 0;
    prefix += take(text, "ffff:") ? 16 : 0;
    for (int32_t digit = 0; digit < 4; ++digit)
        prefix += take(text, "f") ? 4 : 0;
    if (text.starts_with("e"))
        prefix += 3;
    if (text.starts_with("c"))
        prefix += 2;
    if (text.starts_with("8"))
        prefix += 1;
    return prefix;
}

inline bool bit(const in6_addr &address, int32_t place) {
    const auto at = static_cast<size_t>(place);
    return (address.s6_addr[at / 8] >> (7 - at % 8) & 1) != 0;
}

// Of the bits behind the last whole byte, no more than the prefix's remainder by four counts.
inline int32_t check_subnet(const in6_addr &first, const in6_addr &second, int32_t prefix) {
    if (prefix < 1 || prefix > 128)
        return -EINVAL;
    const int32_t compared = prefix / 8 * 8 + prefix % 4;
    for (int32_t place = 0; place < compared; ++place)
        if (bit(first, place) != bit(second, place))
            return EHOSTUNREACH;
    return 0;
}

inline uint32_t hex_byte(const std::string &text, size_t column) {
    const std::string lower = "0123456789abcdef";
    const std::string upper = "0123456789ABCDEF";
    uint32_t value = 0;
    for (const char digit : text.substr(column, 2)) {
        const size_t place = lower.find(digit) != std::string::npos ? lower.find(digit) : upper.find(digit);
        value = value * 16 + (place != std::string::npos ? static_cast<uint32_t>(place) : 0);
    }
    return value;
}

inline bool is_served(const std::string &line, const in6_addr &address) {
    in6_addr own{};
    for (size_t i = 0; i < 16; ++i)
        own.s6_addr[i] = static_cast<uint8_t>(hex_byte(line, 2 * i));
    return check_subnet(address, own, static_cast<int32_t>(hex_byte(line, 36))) == 0;
}

// What follows the last line feed is no line; the last line, unless it is passed over, serves every address.
inline std::optional<uint32_t> find_scope_id(const std::string &list, const in6_addr &address) {
    size_t begin = 0;
    for (size_t end = list.find('\n'); end != std::string::npos; end = list.find('\n', begin)) {
        const std::string line = list.substr(begin, end - begin);
        const bool last = end + 1 == list.size();
        begin = end + 1;

        const std::string name = line.substr(line.find_last_of(" \t") + 1);
        if (line.size() <= 44 || name == "lo")
            continue;
        if (last || is_served(line, address))
            return hex_byte(line, 33);
    }
    return std::nullopt;
}

}  // namespace naive
