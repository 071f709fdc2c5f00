// The interfaces of a real kernel, which `ip` sets up and lists.
#include <algorithm>
#include <cctype>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "faults.h"
#include "network.h"
#include "sandbox.h"
#include "scan.h"

using namespace sysinfo_test;
using nlohmann::json;
using support::Call;
using support::CountCalls;
using support::enter_network;
using support::run_command;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class KernelInterfaces : public testing::Test {
  protected:
    KernelInterfaces() { enter_network(); }
};

uint32_t flag_bits(const json &names) {
    const std::map<std::string, uint32_t> bits = {
        {"UP", IFF_UP},
        {"BROADCAST", IFF_BROADCAST},
        {"LOOPBACK", IFF_LOOPBACK},
        {"NOARP", IFF_NOARP},
        {"PROMISC", IFF_PROMISC},
        {"MULTICAST", IFF_MULTICAST},
        {"LOWER_UP", 1u << 16},
        {"ALLMULTI", IFF_ALLMULTI},
        {"DYNAMIC", IFF_DYNAMIC},
        {"M-DOWN", 0},
        {"NO-CARRIER", 0},
        {"POINTOPOINT", IFF_POINTOPOINT},
    };
    uint32_t flags = 0;
    for (const json &name : names)
        flags |= bits.at(name);

    // Instead of RUNNING, ip shows where it is missing.
    const bool up = (flags & IFF_UP) != 0;
    const bool carrier = std::find(names.begin(), names.end(), "NO-CARRIER") == names.end();
    return up && carrier ? flags | IFF_RUNNING : flags;
}

// What the scan is to find, made from what ip lists: the kernel names an interface once for each IPv4 address, by the
// label of that address.
std::vector<Interface> listed_by_ip() {
    std::vector<Interface> found;
    for (const json &link : json::parse(run_command("ip -j addr"))) {
        std::vector<Interface> labels;
        std::map<std::string, std::pair<std::string, int>> last_address;
        std::vector<std::pair<std::string, int>> ipv6;
        std::string mac = link.at("address");
        std::transform(mac.begin(), mac.end(), mac.begin(), [](unsigned char c) { return std::toupper(c); });

        for (const json &address : link.at("addr_info")) {
            const std::pair<std::string, int> one(address.at("local"), address.at("prefixlen"));
            if (address.at("family") == "inet6") {
                ipv6.push_back(one);
            } else {
                labels.push_back({address.at("label"), 0, flag_bits(link.at("flags")), mac});
                last_address[address.at("label")] = one;
            }
        }

        for (Interface &one : labels) {
            one.index = static_cast<int>(found.size());
            std::tie(one.ipv4, one.ipv4_prefix) = last_address[one.name];
            if (one.name == link.at("ifname"))
                one.ipv6 = ipv6;
            found.push_back(one);
        }
    }
    found.resize(std::min(found.size(), size_t{18}));
    return found;
}

// The scan's list, which is compared with what ip lists. The kernel may notice some time later that an interface can be
// used, and changes its flags then: what counts is a scan around which ip saw no change.
std::vector<Interface> interfaces_as_by_ip() {
    for (int round = 0; round < 1000; round++) {
        const auto before = listed_by_ip();
        const auto found = interfaces();
        if (listed_by_ip() == before) {
            EXPECT_EQ(found, before);
            return found;
        }
    }
    ADD_FAILURE() << "the network does not come to rest";
    return {};
}

std::vector<std::string> names(const std::vector<Interface> &list) {
    std::vector<std::string> names;
    for (const Interface &one : list)
        names.push_back(one.name);
    return names;
}

const std::string kNoSearch = " nodad";  // the address is there at once

}  // namespace

TEST_F(KernelInterfaces, the_loopback_interface_has_its_address) {
    EXPECT_THAT(interfaces(), ElementsAre(Interface{"lo",
                                                    0,
                                                    IFF_UP | IFF_LOOPBACK | IFF_RUNNING | 1u << 16,
                                                    "00:00:00:00:00:00",
                                                    "127.0.0.1",
                                                    8,
                                                    {{"::1", 128}}}));
}

TEST_F(KernelInterfaces, a_network_without_addresses_is_an_empty_list) {
    run_command("ip addr flush dev lo; ip link add eth0 type veth peer name eth1; ip link set eth0 up");
    EXPECT_THAT(interfaces(), IsEmpty());
}

TEST_F(KernelInterfaces, a_pair_of_interfaces_is_as_it_was_set_up) {
    run_command("ip link add eth0 address 02:00:5e:aa:bb:0c type veth peer name eth1 address 02:00:5e:aa:bb:0d");
    run_command("ip link set eth0 addrgenmode none; ip link set eth0 up; ip link set eth1 up");
    run_command("ip addr add 10.1.2.3/30 dev eth0; ip addr add 172.16.5.6/12 dev eth1");
    run_command("ip addr add fe80::a/64 dev eth0" + kNoSearch + "; ip addr add fd00:1::b/56 dev eth0" + kNoSearch);

    const auto found = interfaces_as_by_ip();
    ASSERT_EQ(found.size(), 3u);
    const auto eth0 = std::find_if(found.begin(), found.end(), [](const auto &one) { return one.name == "eth0"; });
    ASSERT_NE(eth0, found.end());
    EXPECT_EQ(eth0->mac, "02:00:5E:AA:BB:0C");
    EXPECT_EQ(eth0->ipv4, "10.1.2.3");
    EXPECT_EQ(eth0->ipv4_prefix, 30);
    EXPECT_EQ(eth0->flags & IFF_UP, uint32_t{IFF_UP});
    EXPECT_THAT(eth0->ipv6,
                testing::UnorderedElementsAre(testing::Pair("fe80::a", 64), testing::Pair("fd00:1::b", 56)));
}

TEST_F(KernelInterfaces, an_interface_that_is_down_is_listed_with_its_address) {
    run_command("ip link add eth0 type veth peer name eth1; ip addr add 10.1.2.3/24 dev eth0");

    const auto found = interfaces_as_by_ip();
    EXPECT_THAT(names(found), ElementsAre("lo", "eth0"));
    EXPECT_EQ(found.back().flags & IFF_UP, 0u);
    EXPECT_EQ(found.back().ipv4, "10.1.2.3");
}

TEST_F(KernelInterfaces, an_alias_stands_beside_its_interface_with_its_own_address) {
    run_command("ip link add eth0 type bridge; ip link set eth0 addrgenmode none; ip link set eth0 up");
    run_command("ip addr add 10.1.2.3/24 dev eth0; ip addr add 10.1.2.4/28 dev eth0 label eth0:1");
    run_command("ip addr add fd00::1/64 dev eth0" + kNoSearch);

    const auto found = interfaces_as_by_ip();
    ASSERT_THAT(names(found), ElementsAre("lo", "eth0", "eth0:1"));
    EXPECT_EQ(found[1].ipv4 + " " + found[2].ipv4, "10.1.2.3 10.1.2.4");
    EXPECT_EQ(found[2].ipv4_prefix, 28);
    EXPECT_EQ(found[1].ipv6.size(), 1u);
    EXPECT_THAT(found[2].ipv6, IsEmpty());
    EXPECT_EQ(found[1].mac, found[2].mac);
}

TEST_F(KernelInterfaces, an_interface_with_two_addresses_is_listed_twice_with_the_last) {
    run_command("ip link add eth0 type bridge");
    run_command("ip addr add 10.1.2.3/24 dev eth0; ip addr add 10.9.9.9/20 dev eth0");

    const auto found = interfaces_as_by_ip();
    ASSERT_THAT(names(found), ElementsAre("lo", "eth0", "eth0"));
    for (const size_t i : {1, 2})
        EXPECT_EQ(found[i].ipv4 + "/" + std::to_string(found[i].ipv4_prefix), "10.9.9.9/20");
}

TEST_F(KernelInterfaces, every_prefix_length_is_found) {
    for (int first = 1; first <= 128; first += 16) {
        run_command("ip link add eth0 type bridge");
        run_command("ip link set eth0 addrgenmode none");
        std::string commands;
        for (int prefix = first; prefix < first + 16; prefix++) {
            const std::string text = std::to_string(prefix);
            commands += "ip addr add fd00:" + text + "::1/" + text + " dev eth0" + kNoSearch + ";";
            if (prefix <= 32)
                commands += "ip addr add 10." + text + ".0.1/" + text + " dev eth0 label eth0:" + text + ";";
            else if (prefix == first)
                commands += "ip addr add 10.0.0.1/8 dev eth0;";
        }
        run_command(commands);

        EXPECT_EQ(interfaces_as_by_ip().size(), first <= 32 ? 17u : 2u);
        run_command("ip link del eth0");
    }
}

TEST_F(KernelInterfaces, eighteen_at_most_are_listed) {
    std::string commands;
    for (int i = 0; i < 24; i++) {
        const std::string name = "eth" + std::to_string(i);
        commands +=
            "ip link add " + name + " type bridge; ip addr add 10.0." + std::to_string(i) + ".1/24 dev " + name + ";";
    }
    run_command(commands);

    const auto found = interfaces_as_by_ip();
    ASSERT_EQ(found.size(), 18u);
    EXPECT_EQ(found.back().name, "eth16");
}

TEST_F(KernelInterfaces, a_scan_asks_for_the_addresses_once_and_little_of_each_interface) {
    const support::PeerNetwork peer;
    run_command("ip link add eth0 type bridge; ip addr add 10.1.2.3/24 dev eth0");
    const auto descriptors = support::open_descriptors();
    const CountCalls lists(Call::getifaddrs);
    const CountCalls frees(Call::freeifaddrs);
    const CountCalls requests(Call::ioctl);

    const auto found = interfaces();

    EXPECT_EQ(found.size(), 3u);
    EXPECT_EQ(lists.count(), 1);
    EXPECT_EQ(frees.count(), 1);
    EXPECT_LE(requests.count(), 1 + 3 * 3);
    EXPECT_EQ(support::open_descriptors(), descriptors);
}

TEST_F(KernelInterfaces, can_be_listed_by_many_threads_at_once) {
    const support::PeerNetwork peer;
    const auto expected = interfaces();
    ASSERT_EQ(expected.size(), 2u);

    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&] {
            for (int round = 0; round < 20; round++)
                EXPECT_EQ(interfaces(), expected);
        });
    for (std::thread &thread : threads)
        thread.join();
}
