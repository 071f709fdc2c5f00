// Network interfaces, with calls of the system failing.
#include <net/if.h>

#include <cerrno>

#include "fake_network.h"
#include "messages_sysinfo.h"
#include "sysinfo.h"
#include "sysinfo_scenarios.h"

namespace faults {
namespace {

// Calls and looks at the outputs. `expected`: how many interfaces there should be.
template <typename Expected>
void scan(Trial &trial, Expected expected) {
    Netif_Info untouched{};
    Netif_Info *list = &untouched;
    int32_t count = -1;
    trial.call([&] { return Scan_Network_Interface(&list, &count); });

    int32_t length = 0;
    for (const Netif_Info *one = list; one != nullptr; one = one->pNext)
        length++;
    trial.check(length == count, "the count is the list's");
    trial.check(trial.result() == 0 || list == nullptr, "a failure hands nothing out");
    // Of two failures the second one may hide the first one's effect.
    trial.check(trial.result() != 0 || length == expected() || (trial.second() != nullptr && length <= expected()),
                "the list has the interfaces that could be asked about");
    Free_Network_Interface(list);
}

// Two with addresses, one without that is up, and one without that is down.
void scan_sample(Trial &trial) {
    const support::FakeNetwork network({{"lo"}, {"eth0"}, {"eth1"}, {"eth2", 0}},
                                       {{"lo", "127.0.0.1", "255.0.0.0"},
                                        {"eth0", "10.0.0.5", "255.255.255.0"},
                                        {"lo", "::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
                                        {"eth0", "2001:db8::5", "ffff:ffff::"}});
    scan(trial, [&] {
        if (was_made_to_fail(trial, Call::socket))
            return 0;
        if (!was_made_to_fail(trial, Call::ioctl))
            return 3;
        // The list; the addresses of lo and eth0; the flags and the address of eth1; the flags of eth2.
        constexpr int32_t left[] = {0, 0, 1, 2, 2, 3};
        return left[trial.injection()->nth - 1];
    });
    trial.check(network.lists_in_use() == 0, "the list of addresses is given back");
}

// Those of the private network, as the kernel lists them.
void scan_kernel(Trial &trial) {
    scan(trial, [&] {
        if (was_made_to_fail(trial, Call::socket))
            return 0;
        return was_made_to_fail(trial, Call::ioctl) ? trial.injection()->nth - 2 : 2;
    });
}

}  // namespace

Scenarios interface_scenarios() {
    const Rules common = {
        giving_back(),
        Rule(Call::socket).gives(0),  // an empty list
        Rule(Call::ioctl, 1).says(msg::netif_no_list),
        Rule(Call::ioctl).gives(0).says(msg::netif_no_mac),
        Rule(Call::calloc).gives(0).says(msg::netif_no_addresses),
    };
    const Rules sample = {
        Rule(Call::ioctl, 4).gives(0).says(msg::netif_no_flags),
        Rule(Call::ioctl, 6).gives(0).says(msg::netif_no_flags),
    };
    const Rules kernel = {Rule(Call::calloc, 1)};  // of getifaddrs, for its answer
    // The scan goes on behind a failure.
    const Rules then = {Rule(Call::ioctl).gives(0).says(msg::netif_no_mac)};
    const std::vector<Message> without_addresses = {msg::netif_seen, msg::netif_no_addresses_of_any};
    const Scenarios scenarios = {
        {"Scan_Network_Interface", "", scan_sample, 0, join({sample, common}), without_addresses},
        {"Scan_Network_Interface", "of the kernel", scan_kernel, 0, join({kernel, common}), {msg::netif_seen}},
    };
    return and_then(scenarios, then);
}

}  // namespace faults
