// Is a name or an address this host's own?
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "fake_network.h"
#include "fake_resolver.h"
#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "network.h"
#include "own_hosts.h"
#include "sandbox.h"
#include "socket.h"

using socket_test::OwnHosts;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::FakeNetwork;
using support::FakeResolver;
using support::LogCapture;
using support::run_command;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string unresolved(int code) {
    return "[error] Is_IP_Localhost(#): Can't translate donaim to IP! (" + std::to_string(code) + ")\n";
}

std::string unlisted(int code) {
    return "[error] Is_IP_Localhost(#): Can't get network interface! (" + std::to_string(code) + ")\n";
}

// Two interfaces with addresses of both kinds, and one with none.
class FakeHost : public testing::Test {
  protected:
    LogCapture log_{1};
    FakeNetwork network_{{{"eth0"}, {"eth1"}, {"eth2"}},
                         {{"eth0", "192.168.1.20", "255.255.255.0"},
                          {"eth0", "fe80::12", "ffff:ffff:ffff:ffff::"},
                          {"eth0", "fd00::abcd", "ffff:ffff:ffff:ffff::"},
                          {"eth1", "10.0.0.12", "255.0.0.0"},
                          {"eth1", "fd00:1::77", "ffff:ffff:ffff:ffff::"}}};
};

}  // namespace

TEST_F(FakeHost, no_address_is_refused) {
    const CountCalls questions(Call::getaddrinfo);
    EXPECT_EQ(Is_IP_Localhost(nullptr), -EINVAL);
    EXPECT_EQ(Is_IP_Localhost(""), -EINVAL);
    EXPECT_EQ(questions.count(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(FakeHost, an_ipv4_address_is_its_own_where_an_interfaces_address_begins_with_it) {
    const struct {
        const char *address;
        int32_t expected;
    } table[] = {
        {"192.168.1.20", 1},  {"10.0.0.12", 1},  // of the first interface and of the second
        {"192.168.1.2", 1},   {"10.0.0.1", 1},   // the beginning of one
        {"192.168.1.21", 0},  {"10.0.0.13", 0},       {"10.0.0.2", 0},
        {"192.168.1.200", 0}, {"10.0.0.120", 0},  // an interface's address is the beginning
        {"0.0.0.0", 0},       {"127.0.0.1", 0},       {"92.168.1.20", 0},
        {"0.0.0.12", 0},      {"255.255.255.255", 0},
    };
    for (const auto &row : table)
        EXPECT_EQ(Is_IP_Localhost(row.address), row.expected) << row.address;
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(FakeHost, an_ipv6_address_is_compared_with_those_of_the_first_interface_alone) {
    const struct {
        const char *address;
        int32_t expected;
    } table[] = {
        {"fe80::12", 1},
        {"fd00::abcd", 1},
        {"FD00:0::ABCD", 1},
        {"fe80::1", 1},
        {"fd00::a", 1},
        {"fd00::abc", 1},  // the beginning of one
        {"fe80::", 1},
        {"fd00::", 1},
        {"fe80::123", 0},
        {"fe80::2", 0},
        {"fd00::b", 0},
        {"::", 0},
        {"::1", 0},
        {"fd00:1::77", 0},
        {"fd00:1::", 0},  // of the second interface
        {"::ffff:192.168.1.20", 0},
    };
    for (const auto &row : table)
        EXPECT_EQ(Is_IP_Localhost(row.address), row.expected) << row.address;
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST(OwnAddress, no_ipv6_address_is_found_where_the_first_interface_has_none) {
    const FakeNetwork network({{"eth0"}, {"eth1"}}, {{"eth0", "10.0.0.1", "255.0.0.0"}, {"eth1", "fd00::1", "ffff::"}});
    EXPECT_EQ(Is_IP_Localhost("fd00::1"), 0);
    EXPECT_EQ(Is_IP_Localhost("10.0.0.1"), 1);
}

TEST(OwnAddress, interfaces_without_ipv4_addresses_are_passed_over) {
    const FakeNetwork network({{"eth0"}, {"eth1"}, {"eth2"}},
                              {{"eth1", "fd00::1", "ffff::"}, {"eth2", "10.0.0.1", "255.0.0.0"}});
    EXPECT_EQ(Is_IP_Localhost("10.0.0.1"), 1);
    EXPECT_EQ(Is_IP_Localhost("10.0.0.2"), 0);
}

TEST(OwnAddress, a_host_without_interfaces_has_none) {
    LogCapture log;
    const FakeNetwork network({}, {});
    EXPECT_EQ(Is_IP_Localhost("127.0.0.1"), 0);
    EXPECT_EQ(Is_IP_Localhost("::1"), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(FakeHost, a_name_is_what_its_first_address_is) {
    const struct {
        std::vector<support::FakeResult> results;
        int32_t expected;
    } table[] = {
        {{{AF_INET, "10.0.0.12"}}, 1},
        {{{AF_INET, "10.0.0.13"}, {AF_INET, "10.0.0.12"}}, 0},
        {{{AF_INET6, "fe80::12"}, {AF_INET, "1.2.3.4"}}, 1},
        {{{AF_INET6, "fd00:1::77"}, {AF_INET, "10.0.0.12"}}, 0},
    };
    for (const auto &row : table) {
        const FakeResolver resolver(row.results);
        EXPECT_EQ(Is_IP_Localhost("host"), row.expected) << row.results.front().address;
        ASSERT_EQ(resolver.questions().size(), 1u);
        EXPECT_EQ(resolver.questions().front().name, "host");
        EXPECT_EQ(resolver.lists_in_use(), 0u);
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(FakeHost, the_interfaces_are_listed_once_and_freed) {
    for (const char *address : {"10.0.0.12", "10.0.0.2", "fe80::12", "::1"}) {
        const CountCalls lists(Call::getifaddrs);
        const auto descriptors = support::open_descriptors();
        Is_IP_Localhost(address);
        EXPECT_EQ(lists.count(), 1) << address;
        EXPECT_EQ(support::open_descriptors(), descriptors) << address;
        EXPECT_EQ(network_.lists_in_use(), 0u) << address;
    }
}

TEST(OwnAddress, asking_loses_no_memory) {
    for (const char *address : {"10.0.0.12", "10.0.0.2", "fd00::1", "fd00::3", "::1"})
        EXPECT_FALSE(support::loses_memory([&] {
            const FakeNetwork network({{"eth0"}, {"eth1"}, {"eth2"}}, {{"eth0", "10.0.0.12", "255.0.0.0"},
                                                                       {"eth0", "fd00::1", "ffff::"},
                                                                       {"eth0", "fd00::2", "ffff::"},
                                                                       {"eth1", "fd00::3", "ffff::"}});
            Is_IP_Localhost(address);
        })) << address;
}

TEST(OwnAddress, an_unknown_name_is_not_and_is_told) {
    const struct {
        int error;
        int code;
    } table[] = {{0, -EHOSTUNREACH}, {EINTR, -EHOSTUNREACH}, {ENETUNREACH, -ENETUNREACH}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.error);
        const FakeResolver resolver(EAI_NONAME, row.error);
        const CountCalls lists(Call::getifaddrs);
        LogCapture log;

        EXPECT_EQ(Is_IP_Localhost("unknown"), 0);
        EXPECT_THAT(log.messages(), ElementsAre("[debug] Domain_To_IP_Addr(#): Can't getaddrinfo error! (" +
                                                    std::to_string(row.code) + ")\n",
                                                unresolved(row.code)));
        EXPECT_EQ(lists.count(), 0);
    }
}

TEST(OwnAddress, a_name_of_another_family_is_not) {
    const FakeResolver resolver({{AF_UNIX, ""}});
    LogCapture log(1);
    EXPECT_EQ(Is_IP_Localhost("host"), 0);
    EXPECT_THAT(log.messages(), ElementsAre(unresolved(-EFAULT)));
    EXPECT_EQ(resolver.lists_in_use(), 0u);
}

TEST_F(FakeHost, none_is_while_the_interfaces_cannot_be_listed) {
    {
        const FailCall fault(Call::getifaddrs, EMFILE);
        EXPECT_EQ(Is_IP_Localhost("10.0.0.12"), 0);
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_THAT(log_.messages(), ElementsAre(unlisted(-EMFILE)));

    log_.clear();
    network_.fail_list(EIO);
    EXPECT_EQ(Is_IP_Localhost("fe80::12"), 0);
    EXPECT_THAT(log_.messages(), ElementsAre("[error] Scan_Network_Interface(#): Can't get the netif name list! (-5)\n",
                                             unlisted(-EIO)));
    EXPECT_EQ(network_.lists_in_use(), 0u);
}

TEST_F(FakeHost, none_is_without_a_socket_to_ask_with) {
    for (const char *address : {"10.0.0.12", "fe80::12"}) {
        const FailCall fault(Call::socket, EMFILE, 1, 100);
        EXPECT_EQ(Is_IP_Localhost(address), 0);
        EXPECT_GE(fault.failed(), 1);
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST(OwnAddress, of_real_interfaces) {
    support::enter_network();
    const support::PeerNetwork peer;
    const OwnHosts hosts("127.0.0.1 localhost\n10.99.0.1 near\n10.99.0.2 far\n");
    LogCapture log(1);
    const struct {
        const char *address;
        int32_t expected;
    } table[] = {
        {"localhost", 1},
        {"127.0.0.1", 1},
        {"127.1", 1},
        {"::1", 1},
        {"near", 1},
        {support::PeerNetwork::kNearIPv4, 1},
        {"far", 0},
        {support::PeerNetwork::kFarIPv4, 0},
        // The whole of 127.0.0.0/8 leads here, but is no interface's address.
        {"127.0.0.2", 0},
        // The first interface is lo.
        {support::PeerNetwork::kNearIPv6, 0},
        {support::PeerNetwork::kFarIPv6, 0},
    };
    for (const auto &row : table)
        EXPECT_EQ(Is_IP_Localhost(row.address), row.expected) << row.address;
    EXPECT_THAT(log.messages(), IsEmpty());

    EXPECT_EQ(Is_IP_Localhost("unknown"), 0);
    EXPECT_EQ(log.messages().size(), 1u);
    EXPECT_EQ(peer.run([] { return Is_IP_Localhost(support::PeerNetwork::kFarIPv4); }), 1);
}

TEST(OwnAddress, of_a_real_interface_may_be_a_longer_one) {
    support::enter_network();
    run_command("ip link add eth0 type veth peer name eth1; ip addr add 10.5.5.123/24 dev eth0");
    for (const char *address : {"10.5.5.1", "10.5.5.12", "10.5.5.123"})
        EXPECT_EQ(Is_IP_Localhost(address), 1) << address;
    for (const char *address : {"10.5.5.2", "10.5.5.13", "10.5.5.124"})
        EXPECT_EQ(Is_IP_Localhost(address), 0) << address;
}

TEST(OwnAddress, can_be_asked_for_by_many_threads_at_once) {
    support::enter_network();
    const support::PeerNetwork peer;
    std::vector<std::thread> threads;
    for (const char *address : {"127.0.0.1", "::1", "10.99.0.1", "10.99.0.2"})
        threads.emplace_back([address] {
            const int32_t expected = std::string(address) == "10.99.0.2" ? 0 : 1;
            for (int round = 0; round < 20; round++)
                EXPECT_EQ(Is_IP_Localhost(address), expected);
        });
    for (std::thread &thread : threads)
        thread.join();
}
