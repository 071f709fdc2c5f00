// Comparing the first bits of two IPv6 addresses.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "log_capture.h"
#include "socket.h"

namespace {

constexpr int32_t kMismatch = 113;

in6_addr address(const char *text) {
    in6_addr parsed{};
    EXPECT_EQ(inet_pton(AF_INET6, text, &parsed), 1) << text;
    return parsed;
}

// Which bits of an address count for a prefix: those of the whole bytes, and of a rest the value of its two low bits.
bool counts(int bit, int prefix) {
    const int whole = prefix - prefix % 8;
    return bit < whole + prefix % 4;
}

int32_t model(const in6_addr &left, const in6_addr &right, int prefix) {
    for (int bit = 0; bit < 128; bit++) {
        const auto mask = static_cast<uint8_t>(0x80 >> bit % 8);
        if (counts(bit, prefix) && (left.s6_addr[bit / 8] & mask) != (right.s6_addr[bit / 8] & mask))
            return kMismatch;
    }
    return 0;
}

}  // namespace

TEST(Subnet, a_bad_argument_is_refused_in_silence) {
    support::LogCapture log;
    const in6_addr one = address("fd00::1");

    EXPECT_EQ(IPv6_Check_Subnet(nullptr, &one, 64), -EINVAL);
    EXPECT_EQ(IPv6_Check_Subnet(&one, nullptr, 64), -EINVAL);
    EXPECT_EQ(IPv6_Check_Subnet(nullptr, nullptr, 64), -EINVAL);
    for (const int32_t prefix : {0, -1, 129, 136, 255, INT32_MAX, INT32_MIN})
        EXPECT_EQ(IPv6_Check_Subnet(&one, &one, prefix), -EINVAL) << prefix;

    EXPECT_THAT(log.messages(), testing::IsEmpty());
}

TEST(Subnet, some_prefixes_one_by_one) {
    support::LogCapture log;
    const struct {
        const char *left;
        const char *right;
        int32_t prefix;
        int32_t expected;
    } table[] = {
        {"fd00::1", "fd00::ffff:ffff:ffff:ffff", 64, 0},
        {"fd00::1", "fd00:0:0:1::1", 64, kMismatch},
        {"fd00::1", "fd00::1", 128, 0},
        {"fd00::1", "fd00::2", 128, kMismatch},
        {"fe80::1", "fec0::1", 8, 0},
        {"fe80::1", "fec0::1", 10, kMismatch},
        {"fe80::1", "fea0::1", 10, 0},
        {"fe80::1", "fea0::1", 11, kMismatch},
        {"fe80::1", "ff80::1", 8, kMismatch},
        // Four bits of a rest are not compared.
        {"fe00::1", "feff::1", 12, 0},
        {"8000::", "7fff::", 4, 0},
        // Five, six and seven count as one, two and three.
        {"fe00::", "fe7f::", 13, 0},
        {"fe00::", "fe80::", 13, kMismatch},
        {"fe00::", "fe3f::", 14, 0},
        {"fe00::", "fe40::", 14, kMismatch},
        {"fe00::", "fe1f::", 15, 0},
        {"fe00::", "fe20::", 15, kMismatch},
        {"0000::", "7fff::", 1, 0},
        {"0000::", "8000::", 1, kMismatch},
        {"::", "::1f", 127, 0},
        {"::", "::20", 127, kMismatch},
    };
    for (const auto &row : table) {
        const in6_addr left = address(row.left);
        const in6_addr right = address(row.right);
        EXPECT_EQ(IPv6_Check_Subnet(&left, &right, row.prefix), row.expected)
            << row.left << ' ' << row.right << " /" << row.prefix;
        EXPECT_EQ(IPv6_Check_Subnet(&right, &left, row.prefix), row.expected)
            << row.right << ' ' << row.left << " /" << row.prefix;
    }
    EXPECT_THAT(log.messages(), testing::IsEmpty());
}

TEST(Subnet, equal_addresses_match_under_every_prefix) {
    const in6_addr one = address("2001:db8:1234:5678:9abc:def0:1357:9bdf");
    for (int prefix = 1; prefix <= 128; prefix++) {
        // Blocks of just their size, so that a tool sees a byte too many being read.
        const auto left = std::make_unique<in6_addr>(one);
        const auto right = std::make_unique<in6_addr>(one);
        EXPECT_EQ(IPv6_Check_Subnet(left.get(), right.get(), prefix), 0) << prefix;
        EXPECT_EQ(std::memcmp(left.get(), &one, sizeof one), 0);
        EXPECT_EQ(IPv6_Check_Subnet(left.get(), left.get(), prefix), 0) << prefix;
    }
}

TEST(Subnet, every_single_bit_under_every_prefix) {
    for (const char *base : {"::", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "5555:aaaa:f0f0:1234::cafe"})
        for (int bit = 0; bit < 128; bit++) {
            const in6_addr left = address(base);
            in6_addr right = left;
            right.s6_addr[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
            for (int prefix = 1; prefix <= 128; prefix++)
                ASSERT_EQ(IPv6_Check_Subnet(&left, &right, prefix), counts(bit, prefix) ? kMismatch : 0)
                    << base << " bit " << bit << " prefix " << prefix;
        }
}

TEST(Subnet, addresses_that_share_a_random_beginning) {
    std::mt19937 random(20240607);
    for (int round = 0; round < 3000; round++) {
        in6_addr left{};
        for (uint8_t &byte : left.s6_addr)
            byte = static_cast<uint8_t>(random());
        in6_addr right = left;
        for (auto bit = static_cast<int>(random() % 129); bit < 128; bit++)
            if (random() % 2 == 0)
                right.s6_addr[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);

        for (int prefix = 1; prefix <= 128; prefix++)
            ASSERT_EQ(IPv6_Check_Subnet(&left, &right, prefix), model(left, right, prefix))
                << round << " prefix " << prefix;
    }
}
