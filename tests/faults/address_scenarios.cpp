// Addresses and local sockets, with calls of the system failing.
#include <arpa/inet.h>

#include <array>
#include <cstring>
#include <string>

#include "fake_network.h"
#include "fake_resolver.h"
#include "messages_socket.h"
#include "messages_sysinfo.h"
#include "private_network.h"
#include "socket.h"
#include "socket_scenarios.h"

namespace faults {
namespace {

using support::FakeNetwork;
using support::FakeResolver;

Scenario resolving(const char *variant, int family, const std::string &address) {
    const auto body = [family, address](Trial &trial) {
        const FakeResolver resolver({{family, address}});
        std::array<char, INET6_ADDRSTRLEN> text = {"untouched"};
        int32_t found = -1;
        trial.call([&] { return Domain_To_IP_Addr("nas.test", text.data(), &found); });
        const bool done = trial.result() == 0;
        trial.check(std::strcmp(text.data(), done ? address.c_str() : "untouched") == 0, "the text goes with success");
        trial.check(found == (done ? family : -1), "the family goes with success");
        trial.check(resolver.lists_in_use() == 0, "the resolver's list is given back");
    };
    return {"Domain_To_IP_Addr", variant, body, 0, resolver_rules({msg::not_resolved("Domain_To_IP_Addr")}), {},
            kResolverErrors};
}

// With the system's own resolver, which takes memory for its answer.
Scenario resolving_number() {
    const auto body = [](Trial &trial) {
        std::array<char, INET6_ADDRSTRLEN> text = {"untouched"};
        int32_t found = -1;
        trial.call([&] { return Domain_To_IP_Addr("192.0.2.7", text.data(), &found); });
        const bool done = trial.result() == 0;
        trial.check(std::strcmp(text.data(), done ? "192.0.2.7" : "untouched") == 0, "the text goes with success");
        trial.check(found == (done ? AF_INET : -1), "the family goes with success");
    };
    const Message not_resolved = msg::not_resolved("Domain_To_IP_Addr");
    const Rules rules = join({resolver_rules({not_resolved}), {Rule(Call::malloc).says(not_resolved)}});
    return {"Domain_To_IP_Addr", "a number, by the system", body, 0, rules, {}, kResolverErrors};
}

Scenario localhost(const char *variant, const char *asked, int family,
                   const std::vector<support::FakeInterface> &interfaces,
                   const std::vector<support::FakeAddress> &addresses) {
    const auto body = [=](Trial &trial) {
        const FakeResolver resolver({{family, asked}});
        const FakeNetwork network(interfaces, addresses);
        trial.call([&] { return Is_IP_Localhost(asked); });
        trial.check(resolver.lists_in_use() == 0, "the resolver's list is given back");
        trial.check(network.lists_in_use() == 0, "the list of addresses is given back");
    };
    Rules rules = resolver_rules({msg::not_resolved("Domain_To_IP_Addr"), msg::localhost_no_name});
    for (Rule &rule : rules)
        rule.gives(0);
    const Rules scan = {
        giving_back(),
        Rule(Call::getifaddrs).gives(0).says(msg::localhost_no_interfaces),
        Rule(Call::socket).gives(0),  // which is an empty list
        Rule(Call::ioctl, 1).gives(0).says({msg::netif_no_list, msg::localhost_no_interfaces}),
        Rule(Call::ioctl).gives(0).says(msg::netif_no_mac),  // which ends the list before the one that is asked for
        Rule(Call::malloc).gives(0).says(msg::localhost_no_interfaces),
        Rule(Call::calloc).gives(0).says(msg::netif_no_addresses),
    };
    return and_then(
        Scenario{"Is_IP_Localhost", variant, body, 1, join({rules, scan}), {msg::netif_seen}, kResolverErrors},
        {Rule(Call::ioctl).says(msg::netif_no_mac)});
}

Scenario scope() {
    const auto body = [](Trial &trial) {
        in6_addr address{};
        inet_pton(AF_INET6, support::PeerNetwork::kFarLinkLocal, &address);
        uint32_t id = 0;
        trial.call([&] { return IPv6_Get_Scope_Id(&address, &id); });
        trial.check(id == (trial.result() == 0 ? near_interface() : 0xFFFFFFFF), "the scope id goes with success");
    };
    return {
        "IPv6_Get_Scope_Id",
        "",
        body,
        0,
        {giving_back(), Rule(Call::open).gives(-ENODEV).says(msg::scope_no_list),
         Rule(Call::read).when_short().gives(-ENODEV), Rule(Call::read).gives(-ENODEV).says(msg::scope_empty_list)}};
}

}  // namespace

Scenarios address_scenarios() {
    return {
        resolving("IPv4", AF_INET, "192.0.2.7"),
        resolving("IPv6", AF_INET6, "2001:db8::7"),
        resolving_number(),
        localhost("IPv4", "10.0.0.5", AF_INET, {{"lo"}, {"eth0"}},
                  {{"lo", "127.0.0.1", "255.0.0.0"}, {"eth0", "10.0.0.5", "255.255.255.0"}}),
        localhost("IPv6", "2001:db8::5", AF_INET6, {{"eth0"}}, {{"eth0", "2001:db8::5", "ffff:ffff::"}}),
        scope(),
    };
}

}  // namespace faults
