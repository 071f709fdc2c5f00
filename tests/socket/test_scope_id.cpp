// The interface that serves an IPv6 address: how the system's list of such addresses is read, and which line answers.
#include <net/if.h>

#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "network.h"
#include "scope_list.h"

using namespace socket_test;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::LogCapture;
using support::ShortCall;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kUnreadable = "[debug] IPv6_Get_Scope_Id(#): Can't open /proc/net/if_inet6 for IPv6 interface!\n";
const std::string kEmpty = "[debug] IPv6_Get_Scope_Id(#): No IPv6 interface available!\n";

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
