// Prefix lengths, which are read from the text of a netmask.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <regex>

#include "fake_network.h"
#include "scan.h"

using namespace sysinfo_test;
using support::FakeAddress;
using support::FakeInterface;
using support::FakeNetwork;

namespace {

constexpr size_t kInterfaces = 18;  // as many as one scan lists

// The prefixes that scans find for IPv4 netmasks.
std::vector<int> scanned_ipv4(const std::vector<std::string> &netmasks) {
    std::vector<int> prefixes;
    for (size_t begin = 0; begin < netmasks.size(); begin += kInterfaces) {
        std::vector<FakeInterface> list;
        std::vector<FakeAddress> addresses;
        for (size_t i = begin; i < std::min(begin + kInterfaces, netmasks.size()); i++) {
            list.push_back({std::to_string(i)});
            addresses.push_back({std::to_string(i), "10.0.0.1", netmasks[i]});
        }
        const FakeNetwork network(list, addresses);
        for (const Interface &one : interfaces())
            prefixes.push_back(one.ipv4_prefix);
    }
    return prefixes;
}

// The prefixes that one scan finds for IPv6 netmasks.
std::vector<int> scanned_ipv6(const std::vector<std::string> &netmasks) {
    std::vector<FakeAddress> addresses;
    for (const std::string &netmask : netmasks)
        addresses.push_back({"eth0", "fd00::1", netmask});
    const FakeNetwork network({{"eth0"}}, addresses);

    std::vector<int> prefixes;
    for (const Interface &one : interfaces())
        for (const auto &[address, prefix] : one.ipv6)
            prefixes.push_back(prefix);
    return prefixes;
}

// What the digits of an IPv4 netmask are worth: of the octets in front at most two pairs of 255 and one more are whole,
// and of the next one as many bits count as it takes to reach its value with bits from the top.
int ipv4_model(const std::array<int, 4> &octets) {
    size_t next = octets[0] == 255 && octets[1] == 255 ? 2 : 0;
    if (octets[next] == 255)
        next++;

    int bits = 0;
    while (256 - (256 >> bits) < octets[next])
        bits++;
    return static_cast<int>(next) * 8 + bits;
}

int ipv6_model(const std::string &text) {
    static const std::regex parts("^(ffff:ffff:ffff:ffff:)?(ffff:ffff:)?(ffff:)?(f{0,4})(.?)");
    std::smatch match;
    std::regex_search(text, match, parts);

    const std::string next = match[5];
    const int rest = next == "e" ? 3 : next == "c" ? 2 : next == "8" ? 1 : 0;
    return (match[1].matched ? 64 : 0) + (match[2].matched ? 32 : 0) + (match[3].matched ? 16 : 0) +
           4 * static_cast<int>(match[4].length()) + rest;
}

std::string dotted(const std::array<int, 4> &octets) {
    std::string text;
    for (const int octet : octets) {
        if (!text.empty())
            text += '.';
        text += std::to_string(octet);
    }
    return text;
}

std::string ipv6_text(const in6_addr &mask) {
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, &mask, text, sizeof text);
}

void expect_ipv4_model(const std::vector<std::array<int, 4>> &masks) {
    std::vector<std::string> texts;
    for (const auto &octets : masks)
        texts.push_back(dotted(octets));

    const std::vector<int> prefixes = scanned_ipv4(texts);
    ASSERT_EQ(prefixes.size(), texts.size());
    for (size_t i = 0; i < texts.size(); i++)
        ASSERT_EQ(prefixes[i], ipv4_model(masks[i])) << texts[i];
}

}  // namespace

TEST(IPv4Prefix, is_the_length_of_a_netmask) {
    std::vector<std::string> texts;
    std::vector<int> expected;
    for (int prefix = 0; prefix <= 32; prefix++) {
        const in_addr mask{htonl(prefix == 0 ? 0 : ~0u << (32 - prefix))};
        char text[INET_ADDRSTRLEN];
        texts.push_back(inet_ntop(AF_INET, &mask, text, sizeof text));
        expected.push_back(prefix);
    }
    EXPECT_EQ(scanned_ipv4(texts), expected);
}

TEST(IPv4Prefix, of_a_mask_with_gaps_comes_from_the_digits_in_front) {
    const struct {
        const char *netmask;
        int prefix;
    } table[] = {
        {"255.255.255.0", 24},   {"255.0.0.0", 8},   {"255.255.255.255", 32}, {"255.255.255.252", 30},
        {"255.254.0.0", 15},     {"0.0.0.0", 0},     {"0.255.255.255", 0},    {"1.0.0.0", 1},
        {"127.0.0.0", 1},        {"128.0.0.0", 1},   {"129.0.0.0", 2},        {"200.0.0.0", 3},
        {"254.255.255.255", 7},  {"255.0.255.0", 8}, {"255.1.255.255", 9},    {"255.255.0.255", 16},
        {"255.255.253.255", 23}, {"25.5.25.5", 1},   {"255.255.255.253", 31}, {"255.255.255.1", 25},
    };
    for (const auto &row : table)
        EXPECT_THAT(scanned_ipv4({row.netmask}), testing::ElementsAre(row.prefix)) << row.netmask;
}

TEST(IPv4Prefix, of_every_first_half) {
    std::vector<std::array<int, 4>> masks;
    for (int first = 0; first < 256; first++)
        for (int second = 0; second < 256; second++)
            masks.push_back({first, second, 170, 255});
    expect_ipv4_model(masks);
}

TEST(IPv4Prefix, of_every_second_half_behind_two_full_octets) {
    std::vector<std::array<int, 4>> masks;
    for (int third = 0; third < 256; third++)
        for (int fourth = 0; fourth < 256; fourth++)
            masks.push_back({255, 255, third, fourth});
    expect_ipv4_model(masks);
}

TEST(IPv6Prefix, is_the_length_of_a_netmask) {
    std::vector<std::string> texts;
    std::vector<int> expected;
    for (int prefix = 0; prefix <= 128; prefix++) {
        in6_addr mask{};
        for (int bit = 0; bit < prefix; bit++)
            mask.s6_addr[bit / 8] |= static_cast<uint8_t>(0x80 >> bit % 8);
        texts.push_back(ipv6_text(mask));
        expected.push_back(prefix);
    }
    EXPECT_EQ(scanned_ipv6(texts), expected);
}

TEST(IPv6Prefix, of_a_mask_with_gaps_comes_from_the_text_in_front) {
    const struct {
        const char *netmask;
        int prefix;
    } table[] = {
        {"ffff:ffff:ffff:ffff::", 64},
        {"ffff:ffff:ffff:ff00::", 56},
        {"::", 0},
        {"::1", 0},
        {"::ffff:255.255.255.255", 0},
        {"0:ffff::", 0},
        {"fe::", 7},  // the missing zeros in front are not seen
        {"ff::", 8},  // nor here
        {"f::", 4},   // nor here
        {"fff:ffff::", 12},
        {"8::", 1},
        {"c::", 2},
        {"e::", 3},
        {"a000::", 0},
        {"fa00::", 4},
        {"f8f8::", 5},
        {"ffff:0:ffff::", 16},
        {"ffff:f0f0::", 20},
        {"ffff:ffff:0:ffff::", 32},
        {"ffff:ffff:ffff:0:ffff::", 48},
        {"ffff:ffff:ffff:fffd:ffff::", 60},
        {"ffff:ffff:ffff:ffff:0:ffff::", 64},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffb", 124},
    };
    for (const auto &row : table)
        EXPECT_THAT(scanned_ipv6({row.netmask}), testing::ElementsAre(row.prefix)) << row.netmask;
}

TEST(IPv6Prefix, of_masks_with_two_odd_groups_anywhere) {
    const uint16_t groups[] = {0x0000, 0x0001, 0x000f, 0x00ff, 0x0ffe, 0x8000, 0xabcd, 0xc000, 0xe000,
                               0xf000, 0xf800, 0xf8ff, 0xff00, 0xffe0, 0xfff0, 0xfffc, 0xfffe, 0xffff};
    for (const uint16_t rest : {0x0000, 0xffff}) {
        std::vector<std::string> texts;
        for (size_t position = 0; position < 7; position++)
            for (const uint16_t first : groups)
                for (const uint16_t second : groups) {
                    in6_addr mask{};
                    for (size_t i = 0; i < 8; i++)
                        mask.s6_addr16[i] = htons(i < position ? 0xffff : rest);
                    mask.s6_addr16[position] = htons(first);
                    mask.s6_addr16[position + 1] = htons(second);
                    texts.push_back(ipv6_text(mask));
                }

        const std::vector<int> prefixes = scanned_ipv6(texts);
        ASSERT_EQ(prefixes.size(), texts.size());
        for (size_t i = 0; i < texts.size(); i++)
            ASSERT_EQ(prefixes[i], ipv6_model(texts[i])) << texts[i];
    }
}

TEST(Prefix, is_0_without_a_netmask) {
    EXPECT_THAT(scanned_ipv4({"255.0.0.0", "", "255.255.0.0"}), testing::ElementsAre(8, 0, 16));
    EXPECT_THAT(scanned_ipv6({"ffff::", "", "ffff:ffff::"}), testing::ElementsAre(16, 0, 32));

    // Not that of the address before.
    const FakeNetwork network({{"eth0"}}, {{"eth0", "10.0.0.1", "255.0.0.0"}, {"eth0", "10.0.0.2", ""}});
    const auto found = interfaces();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].ipv4, "10.0.0.2");
    EXPECT_EQ(found[0].ipv4_prefix, 0);
}
