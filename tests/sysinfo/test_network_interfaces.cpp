// What becomes of the kernel's list of interfaces and the system's list of addresses.
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>

#include "fake_network.h"
#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "sandbox.h"
#include "scan.h"

using namespace sysinfo_test;
using support::Call;
using support::CountCalls;
using support::FakeNetwork;
using support::FakeRequest;
using support::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(InterfaceScan, null_arguments_are_refused_and_nothing_is_stored) {
    LogCapture log;
    Netif_Info kept{};
    Netif_Info *list = &kept;
    int32_t count = -77;
    const CountCalls lists(Call::getifaddrs);
    const CountCalls sockets(Call::socket);

    EXPECT_EQ(Scan_Network_Interface(nullptr, nullptr), -EINVAL);
    EXPECT_EQ(Scan_Network_Interface(nullptr, &count), -EINVAL);
    EXPECT_EQ(Scan_Network_Interface(&list, nullptr), -EINVAL);

    EXPECT_EQ(list, &kept);
    EXPECT_EQ(count, -77);
    EXPECT_EQ(lists.count(), 0);
    EXPECT_EQ(sockets.count(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(InterfaceScan, gathers_all_that_is_known_of_each_interface_in_the_kernels_order) {
    const FakeNetwork network({{"zeta"}, {"lo", IFF_UP, {}}, {"eth0:1"}, {"alpha", IFF_UP, {255, 254, 1, 10, 160, 15}}},
                              {{"lo", "127.0.0.1", "255.0.0.0", 0x10049},
                               {"eth0:1", "10.1.2.3", "255.255.254.0", 0x11043},
                               {"zeta", "192.168.100.200", "255.255.255.252", 0x1002},
                               {"lo", "::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 0x10049},
                               {"zeta", "fe80::16", "ffff:ffff:ffff:ffff::", 0x1002},
                               {"zeta", "2001:db8:1:2:3:4:5:6", "ffff:ffff:ffff:ff00::", 0x1002},
                               {"alpha", "fd00::a", "ffff:ffff::", 0x1003}});

    EXPECT_THAT(interfaces(),
                ElementsAre(Interface{"zeta",
                                      0,
                                      0x1002,
                                      "00:16:3E:0A:BC:DF",
                                      "192.168.100.200",
                                      30,
                                      {{"fe80::16", 64}, {"2001:db8:1:2:3:4:5:6", 56}}},
                            Interface{"lo", 1, 0x10049, "00:00:00:00:00:00", "127.0.0.1", 8, {{"::1", 128}}},
                            Interface{"eth0:1", 2, 0x11043, "00:16:3E:0A:BC:DF", "10.1.2.3", 23, {}},
                            Interface{"alpha", 3, 0x1003, "FF:FE:01:0A:A0:0F", "", 0, {{"fd00::a", 32}}}));
}

TEST(InterfaceScan, asks_once_for_each_thing) {
    const FakeNetwork network(
        {{"eth0"}, {"eth1"}, {"eth2", 0}, {"eth3"}},
        {{"eth0", "10.0.0.1", "255.0.0.0"}, {"eth0", "fd00::1", "ffff::"}, {"eth3", "fd00::3", "ffff::"}});
    const CountCalls lists(Call::getifaddrs);
    const CountCalls frees(Call::freeifaddrs);
    const CountCalls sockets(Call::socket);

    EXPECT_EQ(interfaces().size(), 3u);

    EXPECT_EQ(lists.count(), 1);
    EXPECT_EQ(frees.count(), 1);
    EXPECT_EQ(network.lists_in_use(), 0u);
    EXPECT_EQ(sockets.count(), 1);
    EXPECT_THAT(network.requests(),
                ElementsAre(FakeRequest{SIOCGIFCONF, "", 720, true}, FakeRequest{SIOCGIFHWADDR, "eth0", 0, true},
                            FakeRequest{SIOCGIFFLAGS, "eth1", 0, true}, FakeRequest{SIOCGIFHWADDR, "eth1", 0, true},
                            FakeRequest{SIOCGIFFLAGS, "eth2", 0, true}, FakeRequest{SIOCGIFHWADDR, "eth3", 0, true}));
}

TEST(InterfaceScan, the_last_of_several_ipv4_addresses_counts) {
    const FakeNetwork network({{"eth0"}}, {{"eth0", "10.0.0.1", "255.0.0.0", 1},
                                           {"eth0", "192.168.111.222", "255.255.255.0", 2},
                                           {"other", "10.0.0.3", "255.255.255.255", 3},
                                           {"eth0", "10.0.0.2", "255.255.0.0", 4}});

    EXPECT_THAT(interfaces(), ElementsAre(Interface{"eth0", 0, 4, "00:16:3E:0A:BC:DF", "10.0.0.2", 16, {}}));
}

TEST(InterfaceScan, the_flags_are_those_of_the_last_address_of_either_kind) {
    const FakeNetwork network({{"four"}, {"six"}}, {{"four", "fd00::1", "ffff::", 0x80000001},
                                                    {"six", "10.0.0.1", "255.0.0.0", 0x80000002},
                                                    {"four", "10.0.0.2", "255.0.0.0", 0x40000003},
                                                    {"six", "fd00::2", "ffff::", 0}});

    const auto found = interfaces();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].flags, 0x40000003u);
    // Found by its addresses: that it is down does not matter.
    EXPECT_EQ(found[1].flags, 0u);
}

TEST(InterfaceScan, all_ipv6_addresses_are_kept_in_the_order_of_the_system) {
    std::vector<support::FakeAddress> addresses;
    std::vector<std::pair<std::string, int>> expected;
    for (int i = 40; i > 0; i--) {
        addresses.push_back({"eth0", "fd00::" + std::to_string(i), "ffff:ffff:ffff::"});
        addresses.push_back({"eth1", "fe80::" + std::to_string(i), "ffff:ffff:ffff:ffff::"});
        expected.emplace_back("fd00::" + std::to_string(i), 48);
    }
    const FakeNetwork network({{"eth0"}, {"eth1"}}, addresses);

    const auto found = interfaces();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].ipv6, expected);
    EXPECT_EQ(found[1].ipv6.size(), 40u);
    EXPECT_EQ(found[1].ipv6.front().first, "fe80::40");
}

TEST(InterfaceScan, only_ip_addresses_of_just_that_name_belong_to_an_interface) {
    const FakeNetwork network({{"eth0"}, {"eth0:1"}, {"ETH1"}, {"eth2"}, {"eth3"}},
                              {{"eth", "10.0.0.1", "255.0.0.0"},
                               {"eth00", "10.0.0.2", "255.0.0.0"},
                               {"eth0:1", "10.0.0.3", "255.0.0.0"},
                               {"eth0:12", "fd00::1", "ffff::"},
                               {"eth1", "10.0.0.4", "255.0.0.0"},
                               {"", "10.0.0.5", "255.0.0.0"},
                               {"eth2", "", "255.0.0.0"},
                               {"eth2", "10.0.0.6", "255.0.0.0", 0x1003, AF_PACKET},
                               {"eth2", "10.0.0.7", "255.0.0.0", 0x1003, AF_UNSPEC},
                               {"eth3", "fd00::8", "ffff::", IFF_UP, AF_PACKET},
                               {"eth3", "10.0.0.9", "255.255.255.0"}});

    EXPECT_THAT(interfaces(), ElementsAre(Interface{"eth0", 0},
                                          Interface{"eth0:1", 1, IFF_UP, "00:16:3E:0A:BC:DF", "10.0.0.3", 8, {}},
                                          Interface{"ETH1", 2}, Interface{"eth2", 3},
                                          Interface{"eth3", 4, IFF_UP, "00:16:3E:0A:BC:DF", "10.0.0.9", 24, {}}));
}

TEST(InterfaceScan, a_name_that_the_kernel_lists_twice_stays_twice) {
    const FakeNetwork network({{"eth0"}, {"eth1"}, {"eth0"}},
                              {{"eth0", "10.0.0.1", "255.0.0.0"}, {"eth0", "fd00::1", "ffff::"}});

    const Interface twice{"eth0", 0, IFF_UP, "00:16:3E:0A:BC:DF", "10.0.0.1", 8, {{"fd00::1", 16}}};
    Interface second = twice;
    second.index = 2;
    EXPECT_THAT(interfaces(), ElementsAre(twice, Interface{"eth1", 1}, second));
}

TEST(InterfaceScan, an_interface_without_addresses_is_kept_while_it_is_up) {
    LogCapture log;
    const FakeNetwork network({{"up", 0x1043}, {"down", 0x1002}, {"odd", static_cast<int16_t>(0x9043)}, {"none", 0}},
                              {});

    // The kernel gives 16 bits with a sign.
    EXPECT_THAT(interfaces(), ElementsAre(Interface{"up", 0, 0x1043}, Interface{"odd", 2, 0xffff9043}));

    EXPECT_THAT(log.messages(), ElementsAre(debug_message("Get the address of 0-th netif: up"),
                                            debug_message("Can't get IP addresses of up! (-19)"),
                                            debug_message("Get the address of 1-th netif: down"),
                                            debug_message("Can't get IP addresses of down! (-19)"),
                                            debug_message("Get the address of 2-th netif: odd"),
                                            debug_message("Can't get IP addresses of odd! (-19)"),
                                            debug_message("Get the address of 3-th netif: none"),
                                            debug_message("Can't get IP addresses of none! (-19)")));
}

TEST(InterfaceScan, an_interface_with_addresses_gives_one_message) {
    LogCapture log;
    const FakeNetwork network({{"eth0"}, {"eth1"}}, {{"eth0", "10.0.0.1", "255.0.0.0"}, {"eth1", "fd00::1", "ffff::"}});

    EXPECT_EQ(interfaces().size(), 2u);

    EXPECT_THAT(log.messages(), ElementsAre(debug_message("Get the address of 0-th netif: eth0"),
                                            debug_message("Get the address of 1-th netif: eth1")));
}

TEST(InterfaceScan, debug_messages_stay_out_of_a_log_of_errors) {
    LogCapture log(1);
    const FakeNetwork network({{"eth0"}, {"eth1", 0}, {"eth2", 0, {}, EPERM}}, {{"eth0", "10.0.0.1", "255.0.0.0"}});

    EXPECT_EQ(interfaces().size(), 1u);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(InterfaceScan, no_interface_is_an_empty_list) {
    LogCapture log;
    const FakeNetwork network({}, {{"eth0", "10.0.0.1", "255.0.0.0"}});

    EXPECT_THAT(interfaces(), IsEmpty());
    EXPECT_EQ(network.requests().size(), 1u);
    EXPECT_EQ(network.lists_in_use(), 0u);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(InterfaceScan, the_length_of_the_list_tells_how_many_interfaces_there_are) {
    const struct {
        int length;
        size_t count;
    } table[] = {{0, 0}, {39, 0}, {40, 1}, {79, 1}, {80, 2}, {119, 2}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.length);
        FakeNetwork network({{"eth0"}, {"eth1"}, {"eth2"}}, {});
        network.claim_list_length(row.length);
        EXPECT_EQ(interfaces().size(), row.count);
    }
}

TEST(InterfaceScan, eighteen_interfaces_at_most_are_listed) {
    std::vector<support::FakeInterface> many;
    for (int i = 0; i < 25; i++)
        many.push_back({"eth" + std::to_string(i)});
    const FakeNetwork network(many, {});

    const auto found = interfaces();
    ASSERT_EQ(found.size(), 18u);
    for (int i = 0; i < 18; i++)
        EXPECT_EQ(found[i], (Interface{"eth" + std::to_string(i), i}));
}

TEST(InterfaceScan, the_longest_names_and_addresses_have_room) {
    const std::string name(15, 'n');
    const FakeNetwork network(
        {{name}}, {{name, "255.255.255.255", "255.255.255.255"},
                   {name, "ffff:eeee:dddd:cccc:bbbb:aaaa:9999:8888", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
                   {name, "::ffff:255.255.255.255", "ffff::"}});

    EXPECT_THAT(interfaces(), ElementsAre(Interface{
                                  name,
                                  0,
                                  IFF_UP,
                                  "00:16:3E:0A:BC:DF",
                                  "255.255.255.255",
                                  32,
                                  {{"ffff:eeee:dddd:cccc:bbbb:aaaa:9999:8888", 128}, {"::ffff:255.255.255.255", 16}}}));
}

TEST(InterfaceScan, nothing_of_one_interface_is_left_in_the_next_record) {
    const std::string name(15, 'n');
    const FakeNetwork network({{name}, {"e"}}, {{name, "192.168.111.222", "255.255.255.255", ~0u},
                                                {name, "ffff:eeee:dddd:cccc:bbbb:aaaa:9999:8888", "ffff::"},
                                                {"e", "1.2.3.4", "255.0.0.0"},
                                                {"e", "::1", "ffff::"}});
    Netif_Info *list = nullptr;
    int32_t count = 0;
    ASSERT_EQ(Scan_Network_Interface(&list, &count), 0);
    ASSERT_EQ(count, 2);

    Netif_Info expected{};
    std::strcpy(expected.szName, "e");
    std::strcpy(expected.szIPv4, "1.2.3.4");
    const Netif_Info &second = *list->pNext;
    EXPECT_EQ(std::memcmp(second.szName, expected.szName, sizeof expected.szName), 0);
    EXPECT_EQ(std::memcmp(second.szIPv4, expected.szIPv4, sizeof expected.szIPv4), 0);
    EXPECT_EQ(second.szMac[17], '\0');

    ASSERT_NE(second.pIPv6List, nullptr);
    char address[sizeof second.pIPv6List->szAddress] = "::1";
    EXPECT_EQ(std::memcmp(second.pIPv6List->szAddress, address, sizeof address), 0);
    Free_Network_Interface(list);
}

TEST(InterfaceList, every_record_and_address_is_a_block_of_its_own) {
    const auto scan_and_free = [] {
        const FakeNetwork network({{"eth0"}, {"eth1"}, {"eth2"}}, {{"eth0", "fd00::1", "ffff::"},
                                                                   {"eth1", "10.0.0.1", "255.0.0.0"},
                                                                   {"eth0", "fd00::2", "ffff::"},
                                                                   {"eth2", "fd00::3", "ffff::"}});
        Netif_Info *list = nullptr;
        int32_t count = 0;
        ASSERT_EQ(Scan_Network_Interface(&list, &count), 0);
        ASSERT_EQ(count, 3);
        while (list != nullptr) {
            while (list->pIPv6List != nullptr)
                std::free(std::exchange(list->pIPv6List, list->pIPv6List->pNext));
            std::free(std::exchange(list, list->pNext));
        }
    };
    EXPECT_FALSE(support::loses_memory(scan_and_free));
}

TEST(InterfaceList, is_freed_with_all_addresses) {
    const auto make_and_free = [] {
        Netif_Info *list = nullptr;
        for (int records = 0; records < 3; records++) {
            auto *record = static_cast<Netif_Info *>(std::calloc(1, sizeof(Netif_Info)));
            record->pNext = std::exchange(list, record);
            for (int nodes = 0; nodes < records; nodes++) {
                auto *node = static_cast<Netif_IPv6 *>(std::calloc(1, sizeof(Netif_IPv6)));
                node->pNext = std::exchange(record->pIPv6List, node);
            }
        }
        Free_Network_Interface(list);
    };
    EXPECT_FALSE(support::loses_memory(make_and_free));
}

TEST(InterfaceList, null_is_ignored) {
    LogCapture log;
    Free_Network_Interface(nullptr);
    EXPECT_THAT(log.messages(), IsEmpty());
}
