// The interface that serves an IPv6 address, by the system's list of such addresses.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "network.h"
#include "sandbox.h"
#include "socket.h"

using support::BindMount;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::LogCapture;
using support::ShortCall;
using support::SmallDisk;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kNone = 0xffffffff;
constexpr size_t kReadable = 1023;

const std::string kUnreadable = "[debug] IPv6_Get_Scope_Id(#): Can't open /proc/net/if_inet6 for IPv6 interface!\n";
const std::string kEmpty = "[debug] IPv6_Get_Scope_Id(#): No IPv6 interface available!\n";

in6_addr address(const std::string &text) {
    in6_addr parsed{};
    EXPECT_EQ(inet_pton(AF_INET6, text.c_str(), &parsed), 1) << text;
    return parsed;
}

// A line as the kernel writes it.
std::string line(const std::string &text, unsigned int index, unsigned int prefix, const std::string &name) {
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
std::string raw_line(const std::string &digits, const std::string &index, const std::string &prefix,
                     const std::string &name) {
    return digits + " " + index + " " + prefix + " 20 80 " + name + "\n";
}

std::string upper_case(std::string text) {
    for (char &letter : text)
        letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    return text;
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

Answer found(uint32_t scope_id) {
    return {0, scope_id};
}

Answer scope_of(const std::string &text) {
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

    const SmallDisk folder_{1 << 20};
    const BindMount mount_{folder_.path("."), "/proc/self/net"};
};

// The last line of a list, which is nobody's wherever it is not the answer of last resort.
const std::string kLast = line("2001:db8::1", 0xee, 128, "last");
constexpr uint32_t kLastId = 0xee;

}  // namespace

TEST_F(ScopeId, null_arguments_are_refused) {
    list(kLast);
    LogCapture log;
    const CountCalls opens(Call::open);
    const in6_addr one = address("fe80::1");
    uint32_t scope_id = 0;

    EXPECT_EQ(IPv6_Get_Scope_Id(nullptr, &scope_id), -EINVAL);
    EXPECT_EQ(IPv6_Get_Scope_Id(&one, nullptr), -EINVAL);
    EXPECT_EQ(IPv6_Get_Scope_Id(nullptr, nullptr), -EINVAL);
    EXPECT_EQ(opens.count(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(ScopeId, a_list_that_cannot_be_opened_is_told) {
    LogCapture log;
    EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    EXPECT_THAT(log.messages(), ElementsAre(kUnreadable));

    log.clear();
    list(kLast);
    const FailCall fault(Call::open, EMFILE);
    EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_THAT(log.messages(), ElementsAre(kUnreadable));
}

TEST_F(ScopeId, a_list_that_is_empty_or_cannot_be_read_is_told) {
    LogCapture log;
    list("");
    EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    EXPECT_THAT(log.messages(), ElementsAre(kEmpty));

    for (const int error : {EIO, EINTR}) {
        log.clear();
        list(kLast);
        const FailCall fault(Call::read, error);
        EXPECT_EQ(scope_of("fe80::1"), kNotFound);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_THAT(log.messages(), ElementsAre(kEmpty));
    }

    log.clear();
    std::filesystem::remove(folder_.path("if_inet6"));
    std::filesystem::create_directory(folder_.path("if_inet6"));
    EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    EXPECT_THAT(log.messages(), ElementsAre(kEmpty));
}

TEST_F(ScopeId, failures_are_debug_messages) {
    LogCapture log(1);
    EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    list("");
    EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(ScopeId, is_that_of_the_first_line_whose_network_the_address_is_in) {
    const std::string content = line("fe80::1", 2, 64, "eth0") + line("fd00:1::1", 3, 48, "eth1") +
                                line("fd00:1:0:5::1", 4, 64, "eth2") + line("fd00:2::9", 0xab, 128, "eth3") + kLast;
    const struct {
        const char *text;
        uint32_t scope_id;
    } table[] = {
        {"fe80::1", 2},      {"fe80::ffff:1", 2},      {"fe80::1:0:0:0", 2},
        {"fd00:1::2", 3},    {"fd00:1:0:5::1", 3},  // of both eth1 and eth2
        {"fd00:2::9", 0xab}, {"fd00:2::8", kLastId},   {"fe80:0:0:1::1", kLastId},
        {"::1", kLastId},    {"fd00:1:1::1", kLastId},
    };
    LogCapture log;
    for (const auto &row : table)
        EXPECT_EQ(scope_in(content, row.text), found(row.scope_id)) << row.text;
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(ScopeId, the_list_is_read_once_and_closed) {
    const std::string lines = line("fe80::1", 2, 64, "eth0") + line("fd00::1", 3, 64, "lo");
    const auto descriptors = support::open_descriptors();
    for (const std::string &content : {lines + kLast, lines, std::string("x"), std::string()})
        for (const char *text : {"fe80::1", "fd00::1"}) {
            SCOPED_TRACE(content);
            list(content);
            const CountCalls opens(Call::open);
            const CountCalls reads(Call::read);
            scope_of(text);
            EXPECT_EQ(opens.count(), 1);
            EXPECT_EQ(reads.count(), 1);
            EXPECT_EQ(support::open_descriptors(), descriptors);
            EXPECT_FALSE(support::loses_memory([&] { scope_of(text); }));
        }
    {
        const FailCall fault(Call::read, EIO);
        scope_of("fe80::1");
    }
    EXPECT_EQ(support::open_descriptors(), descriptors);
}

TEST_F(ScopeId, the_last_line_serves_every_address) {
    EXPECT_EQ(scope_in(kLast, "fe80::1"), found(kLastId));
    EXPECT_EQ(scope_in(line("fe80::1", 2, 64, "eth0") + kLast, "fd00::1"), found(kLastId));
    // Nothing but its index is looked at.
    EXPECT_EQ(scope_in(raw_line(std::string(32, 'z'), "5c", "00", "eth0"), "fd00::1"), found(0x5c));
    EXPECT_EQ(scope_in(raw_line(std::string(32, ' '), "5c", "zz", "eth0"), "fd00::1"), found(0x5c));
}

TEST_F(ScopeId, a_last_line_that_is_passed_over_serves_nobody) {
    const std::string eth0 = line("fe80::1", 2, 64, "eth0");
    const std::string loopback = line("::1", 1, 128, "lo");
    const struct {
        std::string content;
        Answer of_stranger;
    } table[] = {
        {loopback, kNotFound},
        {eth0 + loopback, kNotFound},
        {loopback + eth0, found(2)},
        {loopback + loopback, kNotFound},
        {eth0 + "\n", kNotFound},
        {eth0 + std::string(44, 'x') + "\n", kNotFound},
        {eth0 + "short", kNotFound},
        {eth0.substr(0, eth0.size() - 1), kNotFound},  // no newline at its end
        {loopback + eth0.substr(0, eth0.size() - 1), kNotFound},
        {eth0 + loopback.substr(0, loopback.size() - 1), kNotFound},
        {"\n", kNotFound},
        {"\n\n\n", kNotFound},
        {"x", kNotFound},
        {"\n" + eth0, found(2)},
    };
    LogCapture log;
    for (const auto &row : table)
        EXPECT_EQ(scope_in(row.content, "fd00::1"), row.of_stranger) << row.content;
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(ScopeId, a_line_before_one_without_a_newline_still_counts) {
    const std::string content = line("fe80::1", 2, 64, "eth0") + line("fd00::1", 3, 64, "eth1") + "fe";
    EXPECT_EQ(scope_in(content, "fe80::5"), found(2));
    EXPECT_EQ(scope_in(content, "fd00::5"), found(3));
    EXPECT_EQ(scope_in(content, "fd01::5"), kNotFound);

    // Not even where it would match.
    const std::string eth2 = line("fd01::1", 4, 64, "eth2");
    EXPECT_EQ(scope_in(line("fe80::1", 2, 64, "eth0") + eth2.substr(0, eth2.size() - 1), "fd01::1"), kNotFound);
}

TEST_F(ScopeId, the_loopback_interface_alone_is_passed_over) {
    const struct {
        const char *name;
        uint32_t scope_id;
    } table[] = {
        {"lo", kLastId},
        {"lo0", 7},
        {"l", 7},
        {"o", 7},
        {"LO", 7},
        {"xlo", 7},
        {"lo.", 7},
        {"lo:1", 7},
        {"eth0", 7},
        {"eth0 lo", kLastId},
        {"eth0\tlo", kLastId},
        {"lo eth0", 7},
        {"lo\teth0", 7},
        {"eth0\rlo", 7},
        {"lo ", 7},
        {"lo\t", 7},
        {"123456789012345", 7},
    };
    const std::string digits = "fe800000000000000000000000000001";
    for (const auto &row : table)
        EXPECT_EQ(scope_in(raw_line(digits, "07", "40", row.name) + kLast, "fe80::2"), found(row.scope_id)) << row.name;
    // A tab may stand where blanks do.
    EXPECT_EQ(scope_in(digits + "\t07\t40\t20\t80\tlo\n" + kLast, "fe80::2"), found(kLastId));
    EXPECT_EQ(scope_in(digits + "\t07\t40\t20\t80\teth0\n" + kLast, "fe80::2"), found(7));
}

TEST_F(ScopeId, the_loopback_interface_is_no_answer_to_its_own_address) {
    EXPECT_EQ(scope_in(line("::1", 1, 128, "lo"), "::1"), kNotFound);
    EXPECT_EQ(scope_in(line("::1", 1, 128, "lo") + kLast, "::1"), found(kLastId));
}

TEST_F(ScopeId, a_line_of_44_characters_is_too_short) {
    const std::string long_line = "fe800000000000000000000000000001 07 40 20 80 eth0";
    for (size_t length = 38; length <= long_line.size(); length++) {
        const std::string text = long_line.substr(0, length) + "\n";
        EXPECT_EQ(scope_in(text + kLast, "fe80::2"), found(length <= 44 ? kLastId : 7)) << length;
        EXPECT_EQ(scope_in(text, "fd00::2"), length <= 44 ? kNotFound : found(7)) << length;
    }
}

TEST_F(ScopeId, digits_may_be_upper_case) {
    const std::string content = upper_case(line("fedc:ba98:7654:3210::", 0xaf, 0x40, "eth0"));
    EXPECT_EQ(scope_in(content + kLast, "fedc:ba98:7654:3210::1"), found(0xaf));
    EXPECT_EQ(scope_in(content + kLast, "fedc:ba98:7654:3211::1"), found(kLastId));
    EXPECT_EQ(scope_in(raw_line("FeDcBa9876543210aBcDeF0000000000", "aF", "7c", "eth0") + kLast,
                       "fedc:ba98:7654:3210:abcd:ef00::"),
              found(0xaf));
}

TEST_F(ScopeId, every_index_of_two_digits_is_read) {
    for (unsigned int index = 0; index < 256; index++) {
        const std::string content = line("fe80::1", index, 64, "eth0") + kLast;
        ASSERT_EQ(scope_in(content, "fe80::2"), found(index));
        ASSERT_EQ(scope_in(upper_case(content), "fe80::2"), found(index));
    }
}

TEST_F(ScopeId, a_character_that_is_no_digit_counts_as_0) {
    for (int letter = 1; letter < 256; letter++) {
        if (std::isxdigit(letter) || letter == '\n')
            continue;
        const std::string bad(1, static_cast<char>(letter));
        SCOPED_TRACE(letter);
        const std::string digits = "fe8" + bad + "0000000000000000000000000" + bad + "01";
        EXPECT_EQ(scope_in(raw_line("fe8" + bad + std::string(28, bad[0]), "07", "80", "eth0") + kLast, "fe80::"),
                  found(7));
        EXPECT_EQ(scope_in(raw_line(digits, bad + "7", "40", "eth0") + kLast, "fe80::1"), found(7));
        EXPECT_EQ(scope_in(raw_line(digits, "7" + bad, "40", "eth0") + kLast, "fe80::1"), found(0x70));
        // A prefix of 0 matches nothing.
        EXPECT_EQ(scope_in(raw_line(digits, "07", bad + bad, "eth0") + kLast, "fe80::1"), found(kLastId));
        EXPECT_EQ(scope_in(raw_line(digits, "07", "4" + bad, "eth0") + kLast, "fe80::1:0:0:1"), found(7));
    }
}

TEST_F(ScopeId, every_digit_of_the_address_is_compared) {
    for (size_t digit = 0; digit < 32; digit++) {
        std::string digits = "0123456789abcdef0123456789abcdef";
        digits[digit] = digits[digit] == '1' ? '2' : '1';
        EXPECT_EQ(scope_in(raw_line(digits, "07", "80", "eth0") + kLast, "123:4567:89ab:cdef:123:4567:89ab:cdef"),
                  found(kLastId))
            << digit;
    }
    EXPECT_EQ(scope_in(raw_line("0123456789abcdef0123456789abcdef", "07", "80", "eth0") + kLast,
                       "123:4567:89ab:cdef:123:4567:89ab:cdef"),
              found(7));
}

TEST_F(ScopeId, networks_are_compared_as_subnets_are) {
    const in6_addr asked = address("fd5a:1234:5678:9abc:def0:1357:9bdf:2468");
    for (const char *other : {"fd5a:1234:5678:9abc:def0:1357:9bdf:2469", "fd5a:1234:5678:9abc:5ef0:1357:9bdf:2468",
                              "fd5a:1234:5578:9abc::", "fd7a::", "fd5a:1234:5678:8abc::", "::"})
        for (unsigned int prefix = 0; prefix < 256; prefix++) {
            const in6_addr listed = address(other);
            const bool matches = IPv6_Check_Subnet(&asked, &listed, static_cast<int32_t>(prefix)) == 0;
            ASSERT_EQ(scope_in(line(other, 7, prefix, "eth0") + kLast, "fd5a:1234:5678:9abc:def0:1357:9bdf:2468"),
                      found(matches ? 7 : kLastId))
                << other << " /" << prefix;
        }
}

TEST_F(ScopeId, an_index_of_three_digits_is_read_from_two_and_moves_the_prefix) {
    // " 123 40": the prefix is read from " 4", and four bits are not compared.
    const std::string wide = line("fe80::1", 0x123, 64, "eth0");
    EXPECT_EQ(scope_in(wide + kLast, "fe80::1"), found(0x12));
    EXPECT_EQ(scope_in(wide + kLast, "1234::1"), found(0x12));
    EXPECT_EQ(scope_in(wide, "1234::1"), found(0x12));
    // " 456 80": eight bits.
    EXPECT_EQ(scope_in(line("fe80::1", 0x456, 128, "eth0") + kLast, "feff::"), found(0x45));
    EXPECT_EQ(scope_in(line("fe80::1", 0x456, 128, "eth0") + kLast, "ff80::1"), found(kLastId));
    // " ab01 40": the prefix is read from "1 ", and there are none of 208 bits.
    EXPECT_EQ(scope_in(line("fe80::1", 0xab01, 64, "eth0") + kLast, "fe80:1::"), found(0xab));
    EXPECT_EQ(scope_in(line("fe80::1", 0xab01, 64, "eth0") + kLast, "fe81::1"), found(kLastId));
    EXPECT_EQ(scope_in(line("fe80::1", 0xabcd, 64, "eth0") + kLast, "fe80::1"), found(kLastId));
}

TEST_F(ScopeId, what_lies_behind_1023_bytes_is_never_seen) {
    const std::string eth = line("fd00::1", 2, 64, "eth0");
    std::string begin;
    while (begin.size() + 2 * eth.size() <= kReadable)
        begin += eth;
    // One line more, which ends where it is told.
    const auto with_end_at = [&](size_t end) {
        const size_t name = end - begin.size() - 46;
        return begin + raw_line("fe800000000000000000000000000001", "07", "40", std::string(name, 'n'));
    };
    ASSERT_EQ(with_end_at(kReadable).size(), kReadable);
    const struct {
        std::string content;
        const char *text;
        Answer expected;
    } table[] = {
        {with_end_at(kReadable), "fe80::2", found(7)},
        {with_end_at(kReadable), "2001::", found(7)},
        // The last line that is seen, though another follows.
        {with_end_at(kReadable) + line("2001::1", 9, 64, "eth9"), "2001::1", found(7)},
        {with_end_at(kReadable - 1), "2001::", found(7)},
        // Neither the last nor a match; what follows is cut.
        {with_end_at(kReadable - 1) + line("2001::1", 9, 64, "eth9"), "2001::1", kNotFound},
        {with_end_at(kReadable - 1) + line("2001::1", 9, 64, "eth9"), "fe80::2", found(7)},
        // Its own newline is cut off.
        {with_end_at(kReadable + 1), "fe80::1", kNotFound},
        {with_end_at(kReadable + 1) + kLast, "2001:db8::1", kNotFound},
        {with_end_at(kReadable + 1) + kLast, "fd00::2", found(2)},
    };
    for (size_t i = 0; i < std::size(table); i++)
        EXPECT_EQ(scope_in(table[i].content, table[i].text), table[i].expected) << i;
}

TEST_F(ScopeId, a_read_that_brings_less_is_all_there_is) {
    const std::string eth0 = line("fe80::1", 2, 64, "eth0");
    list(eth0 + line("fd00::1", 3, 64, "eth1") + kLast);
    {
        const ShortCall one_line(Call::read, eth0.size());
        EXPECT_EQ(scope_of("fd00::1"), found(2));
    }
    {
        const ShortCall less(Call::read, eth0.size() - 1);
        EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    }
    const ShortCall more(Call::read, eth0.size() + 1);
    EXPECT_EQ(scope_of("fd00::1"), kNotFound);
}

TEST_F(ScopeId, any_text_is_survived) {
    const std::string texts[] = {std::string(2000, 'x'),
                                 std::string(2000, '\n'),
                                 std::string(2000, ' '),
                                 std::string(2000, '\0'),
                                 std::string(100, '\xff') + "\n",
                                 std::string(60, ' ') + "\n",
                                 std::string(60, '\t') + "\n" + kLast,
                                 std::string(45, 'f') + "\n" + kLast};
    for (const std::string &text : texts) {
        const Answer answer = scope_in(text, "fe80::1");
        EXPECT_TRUE(answer == kNotFound || (answer.result == 0 && answer.scope_id <= 0xff)) << answer;
    }
    // A line without a blank is its own name.
    EXPECT_EQ(scope_in(std::string(45, 'f') + "\n", "fe80::1"), found(0xff));
}

TEST(ScopeIdOfKernel, a_network_with_the_loopback_interface_alone_serves_nobody) {
    support::enter_network();
    EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    EXPECT_EQ(scope_of("::1"), kNotFound);
}

TEST(ScopeIdOfKernel, a_network_without_addresses_is_told) {
    support::enter_network();
    support::run_command("ip addr flush dev lo");
    LogCapture log;
    EXPECT_EQ(scope_of("fe80::1"), kNotFound);
    EXPECT_THAT(log.messages(), ElementsAre(kEmpty));
}

TEST(ScopeIdOfKernel, addresses_of_the_peer_are_served_by_the_interface_that_leads_to_it) {
    support::enter_network();
    const support::PeerNetwork peer;
    const uint32_t near = if_nametoindex(support::PeerNetwork::kNearEnd);
    ASSERT_NE(near, 0u);

    std::istringstream lines(support::read_file("/proc/net/if_inet6"));
    std::string last;
    for (std::string each; std::getline(lines, each);)
        last = each;
    const bool ends_with_loopback = last.ends_with(" lo");

    EXPECT_EQ(scope_of(support::PeerNetwork::kFarLinkLocal), found(near));
    EXPECT_EQ(scope_of(support::PeerNetwork::kFarIPv6), found(near));
    EXPECT_EQ(scope_of("2001:db8::1"), ends_with_loopback ? kNotFound : found(near));
}

TEST(ScopeIdOfKernel, each_interface_serves_its_own_network) {
    support::enter_network();
    support::run_command("ip link add eth0 type bridge; ip link add eth1 index 171 type bridge");
    support::run_command("ip addr add fd00:a::1/64 dev eth0 nodad; ip addr add fd00:b::1/48 dev eth1 nodad");

    EXPECT_EQ(scope_of("fd00:a::2"), found(if_nametoindex("eth0")));
    EXPECT_EQ(scope_of("fd00:b:0:7::2"), found(171));
}

TEST(ScopeIdOfKernel, an_index_above_255_loses_its_last_digit) {
    support::enter_network();
    support::run_command("ip link add eth0 index 291 type bridge; ip addr add fd00:a::1/64 dev eth0 nodad");
    ASSERT_EQ(if_nametoindex("eth0"), 0x123u);
    const std::string content = support::read_file("/proc/net/if_inet6");
    ASSERT_NE(content.find(" 123 40 "), std::string::npos) << content;

    EXPECT_EQ(scope_of("fd00:a::2"), found(0x12));
}

TEST(ScopeIdOfKernel, can_be_asked_for_by_many_threads_at_once) {
    support::enter_network();
    const support::PeerNetwork peer;
    const uint32_t near = if_nametoindex(support::PeerNetwork::kNearEnd);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([near] {
            for (int round = 0; round < 100; round++)
                EXPECT_EQ(scope_of(support::PeerNetwork::kFarLinkLocal), found(near));
        });
    for (std::thread &thread : threads)
        thread.join();
}
