// korvex net.
#include <nlohmann/json.hpp>

#include "network.h"
#include "run_korvex.h"

namespace {

using nlohmann::json;

class NetCommand : public KorvexTest {
  protected:
    NetCommand() { support::enter_network(); }

    json interfaces() const { return json::parse(korvex({"net", "interfaces", "--json"}).out); }
};

// A lone interface with addresses, made up of a bridge that nothing is connected to.
void add_interface(const std::string &name, const std::string &mac, const std::vector<std::string> &addresses) {
    support::run_command("ip link add " + name + " address " + mac + " type bridge && ip link set dev " + name +
                         " addrgenmode none up");
    for (const std::string &address : addresses)
        support::run_command("ip addr add " + address + " dev " + name + " noprefixroute" +
                             (address.find(':') == std::string::npos ? "" : " nodad"));
}

TEST_F(NetCommand, interfaces_stand_in_an_aligned_table) {
    add_interface("lan0", "02:00:00:0a:0b:0c", {"192.168.100.200/20", "fd00::1/64", "fe80::abcd/10"});
    add_interface("storage", "02:00:00:00:00:01", {"10.0.0.1/8"});
    support::run_command("ip link set dev storage down");
    EXPECT_EQ(korvex({"net", "interfaces"}),
              Outcome(0,
                      "name     state  mac                ipv4                ipv6\n"
                      "lo       up     00:00:00:00:00:00  127.0.0.1/8         ::1/128\n"
                      "lan0     up     02:00:00:0A:0B:0C  192.168.100.200/20  fd00::1/64 fe80::abcd/10\n"
                      "storage  down   02:00:00:00:00:01  10.0.0.1/8          -\n"));
}

TEST_F(NetCommand, interfaces_are_printed_as_json) {
    add_interface("lan0", "02:00:00:0a:0b:0c", {"10.0.0.1/8", "fd00::1/64", "fd00::2/48"});
    support::run_command("ip link set dev lan0 down; ip addr add fd00::3/64 dev lan0 nodad");
    const json lo = {{"name", "lo"},
                     {"up", true},
                     {"mac", "00:00:00:00:00:00"},
                     {"ipv4", {{"address", "127.0.0.1"}, {"prefix", 8}}},
                     {"ipv4_all", {{{"address", "127.0.0.1"}, {"prefix", 8}}}},
                     {"ipv6", {{{"address", "::1"}, {"prefix", 128}}}}};
    const json lan0 = {{"name", "lan0"},
                       {"up", false},
                       {"mac", "02:00:00:0A:0B:0C"},
                       {"ipv4", {{"address", "10.0.0.1"}, {"prefix", 8}}},
                       {"ipv4_all", {{{"address", "10.0.0.1"}, {"prefix", 8}}}},
                       {"ipv6", {{{"address", "fd00::3"}, {"prefix", 64}}}}};
    EXPECT_EQ(interfaces(), json::array({lo, lan0}));
}

TEST_F(NetCommand, every_address_is_listed_and_the_librarys_first) {
    add_interface("lan0", "02:00:00:0a:0b:0c", {"10.0.0.1/8", "10.0.0.2/8", "192.168.7.7/24", "fd00::1/64"});
    add_interface("six", "02:00:00:00:00:06", {"fd06::6/48"});
    add_interface("none", "02:00:00:00:00:07", {});
    EXPECT_EQ(korvex({"net", "interfaces"}),
              Outcome(0,
                      "name  state  mac                ipv4                                  ipv6\n"
                      "lo    up     00:00:00:00:00:00  127.0.0.1/8                           ::1/128\n"
                      "lan0  up     02:00:00:0A:0B:0C  10.0.0.2/8 10.0.0.1/8 192.168.7.7/24  fd00::1/64\n"
                      "six   up     02:00:00:00:00:06  -                                     fd06::6/48\n"));
    const json list = interfaces();
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[1]["ipv4_all"].size(), 3U);
    EXPECT_EQ(list[2]["ipv4"], nullptr);
    EXPECT_EQ(list[2]["ipv6"], json::array({{{"address", "fd06::6"}, {"prefix", 48}}}));
}

TEST_F(NetCommand, more_interfaces_than_the_library_lists_are_there) {
    for (int i = 0; i < 20; ++i)
        add_interface("lan" + std::to_string(i), "02:00:00:00:00:" + std::to_string(10 + i),
                      {"10.0." + std::to_string(i) + ".1/24"});
    const json list = interfaces();
    ASSERT_EQ(list.size(), 21U);
    EXPECT_EQ(list[20]["name"], "lan19");
    EXPECT_EQ(list[20]["mac"], "02:00:00:00:00:29");
    EXPECT_EQ(list[20]["ipv4"]["address"], "10.0.19.1");
}

TEST_F(NetCommand, without_interfaces_there_is_the_head_alone_and_an_empty_list) {
    support::run_command("ip addr flush dev lo; ip link set dev lo down");
    EXPECT_EQ(korvex({"net", "interfaces"}), Outcome(0, "name  state  mac  ipv4  ipv6\n"));
    EXPECT_EQ(korvex({"net", "interfaces", "--json"}), Outcome(0, "[]\n"));
}

TEST_F(NetCommand, the_address_of_a_host_is_printed) {
    expect({
        {{"net", "resolve", "127.0.0.1"}, {0, "127.0.0.1\n"}},
        {{"net", "resolve", "::1"}, {0, "::1\n"}},
        {{"net", "resolve", "FD00:0:0::7"}, {0, "fd00::7\n"}},
        {{"net", "resolve", "no such host"}, {1, "", "korvex: net resolve: no such host: no address\n"}},
        {{"net", "resolve", ""},
         {2, "", "korvex: net resolve: HOST: an empty name (see 'korvex net resolve --help')\n"}},
    });
}

TEST_F(NetCommand, the_exit_status_tells_whether_a_host_is_this_one) {
    add_interface("lan0", "02:00:00:0a:0b:0c", {"10.0.0.12/8", "fd00::1/64"});
    expect({
        {{"net", "local", "127.0.0.1"}, {0}},
        {{"net", "local", "localhost"}, {0}},
        {{"net", "local", "::1"}, {0}},
        {{"net", "local", "10.0.0.12"}, {0}},
        {{"net", "local", "10.0.0.1"}, {0}},  // the beginning of 10.0.0.12
        {{"net", "local", "10.0.0.2"}, {1}},
        {{"net", "local", "fd00::1"}, {1}},  // not of the first interface
        {{"net", "local", "no such host"}, {1}},
        {{"net", "local"}, {2, "", "korvex: net local: HOST is required (see 'korvex net local --help')\n"}},
    });
    EXPECT_THAT(korvex({"net", "local", "no such host", "--verbose"}).err,
                testing::HasSubstr("[error] Is_IP_Localhost("));
}

TEST_F(NetCommand, the_scope_of_an_address_is_an_index_and_a_name) {
    EXPECT_EQ(korvex({"net", "scope", "fe80::7"}),
              Outcome(1, "", "korvex: net scope: fe80::7: no interface serves it\n"));
    add_interface("lan0", "02:00:00:00:00:01", {"fd00:1::1/64"});
    add_interface("lan1", "02:00:00:00:00:02", {"fd00:2::1/64"});
    add_interface("lan2", "02:00:00:00:00:03", {"fd00:3::1/64"});
    auto line = [](const std::string &name) {
        const std::string link = support::run_command("ip -o link show dev " + name);
        return link.substr(0, link.find(':')) + " " + name + "\n";
    };
    for (const std::string name : {"lan0", "lan1", "lan2"})
        EXPECT_EQ(korvex({"net", "scope", "fd00:" + std::to_string(name.back() - '0' + 1) + "::99"}),
                  Outcome(0, line(name)));
    expect({
        {{"net", "scope", "10.0.0.1"},
         {2, "", "korvex: net scope: ADDRESS: '10.0.0.1' is not an IPv6 address (see 'korvex net scope --help')\n"}},
        {{"net", "scope", "lan0"},
         {2, "", "korvex: net scope: ADDRESS: 'lan0' is not an IPv6 address (see 'korvex net scope --help')\n"}},
    });
}

}  // namespace
