// Lists of IPv6 addresses of the test's own, and what IPv6_Get_Scope_Id makes of them.
#pragma once

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>

#include "sandbox.h"
#include "socket.h"

namespace socket_test {

constexpr uint32_t kNone = 0xffffffff;

inline in6_addr address(const std::string &text) {
    in6_addr parsed{};
    EXPECT_EQ(inet_pton(AF_INET6, text.c_str(), &parsed), 1) << text;
    return parsed;
}

// A line as the kernel writes it.
inline std::string line(const std::string &text, unsigned int index, unsigned int prefix, const std::string &name) {
    const in6_addr binary = address(text);
    std::string digits;
    for (const uint8_t byte : binary.s6_addr) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        digits += pair;
    }
    char rest[64];
    std::snprintf(rest, sizeof rest, " %02x %02x 20 80 %8s\n", index, prefix, name.c_str());
    return digits + rest;
}

// A line whose fields are texts.
inline std::string raw_line(const std::string &digits, const std::string &index, const std::string &prefix,
                            const std::string &name) {
    return digits + " " + index + " " + prefix + " 20 80 " + name + "\n";
}

struct Answer {
    int32_t result;
    uint32_t scope_id;

    friend bool operator==(const Answer &, const Answer &) = default;
    friend std::ostream &operator<<(std::ostream &out, const Answer &answer) {
        return out << answer.result << ", scope id " << answer.scope_id;
    }
};

constexpr Answer kNotFound{-ENODEV, kNone};

inline Answer found(uint32_t scope_id) {
    return {0, scope_id};
}

inline Answer scope_of(const std::string &text) {
    const in6_addr binary = address(text);
    Answer answer{77, 0x12345678};
    answer.result = IPv6_Get_Scope_Id(&binary, &answer.scope_id);
    return answer;
}

// A /proc/net of its own, with the list that a test writes; in memory, since some write it thousands of times.
class ScopeId : public testing::Test {
  protected:
    void list(const std::string &content) const { folder_.file("if_inet6", content); }

    Answer scope_in(const std::string &content, const std::string &text) const {
        list(content);
        return scope_of(text);
    }

    const support::SmallDisk folder_{1 << 20};
    const support::BindMount mount_{folder_.path("."), "/proc/self/net"};
};

// The last line of a list, which is nobody's wherever it is not the answer of last resort.
inline const std::string kLast = line("2001:db8::1", 0xee, 128, "last");
constexpr uint32_t kLastId = 0xee;

}  // namespace socket_test
