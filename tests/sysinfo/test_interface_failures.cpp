// What a scan of the interfaces makes of a system that fails.
#include <sys/ioctl.h>
#include <sys/resource.h>

#include "fake_network.h"
#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "network.h"
#include "sandbox.h"
#include "scan.h"

using namespace sysinfo_test;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::FakeNetwork;
using support::LogCapture;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A scan whose nth allocation fails.
Scan scan_without_memory(int nth) {
    int failed = 0;
    RawScan raw;
    {
        const FailCall fault(Call::allocation, ENOMEM, nth);
        raw = raw_scan();
        failed = fault.failed();
    }
    EXPECT_EQ(failed, 1);
    return take(raw);
}

// Lets a message be written without an allocation: the system's library copies the name of its default time zone for
// each time that it converts.
void set_time_zone() {
    setenv("TZ", "UTC0", 1);
}

// Three interfaces, the middle one with an address of each kind before and behind another.
class InterfaceFailure : public testing::Test {
  protected:
    InterfaceFailure() {
        set_time_zone();
        interfaces();  // the log and the wrappers have allocated what they keep
    }

    void TearDown() override {
        EXPECT_EQ(network_.lists_in_use(), 0u);
        EXPECT_EQ(support::open_descriptors(), descriptors_);
    }

    const std::map<int, std::string> descriptors_ = support::open_descriptors();
    LogCapture log_;
    FakeNetwork network_{{{"eth0"}, {"eth1", 0x1003}, {"eth2"}},
                         {{"eth0", "10.0.0.1", "255.0.0.0"},
                          {"eth1", "10.1.0.1", "255.255.0.0", 0x41},
                          {"eth1", "fd00::1", "ffff::", 0x42},
                          {"eth1", "10.1.0.2", "255.255.255.0", 0x43},
                          {"eth1", "fd00::2", "ffff:ffff::", 0x44},
                          {"eth1", "10.1.0.3", "255.255.255.252", 0x45},
                          {"eth2", "fd00::3", "ffff:ffff:ffff::"}}};

    const Interface eth0_{"eth0", 0, IFF_UP, "00:16:3E:0A:BC:DF", "10.0.0.1", 8, {}};
    const Interface eth1_{"eth1", 1, 0x45, "00:16:3E:0A:BC:DF", "10.1.0.3", 30, {{"fd00::1", 16}, {"fd00::2", 32}}};
    const Interface eth2_{"eth2", 2, IFF_UP, "00:16:3E:0A:BC:DF", "", 0, {{"fd00::3", 48}}};
};

}  // namespace

TEST_F(InterfaceFailure, none_gives_all) {
    EXPECT_THAT(interfaces(), ElementsAre(eth0_, eth1_, eth2_));
}

TEST_F(InterfaceFailure, of_the_address_list_is_the_result) {
    for (const int error : {EMFILE, ENOMEM, ENOBUFS}) {
        SCOPED_TRACE(error);
        log_.clear();
        const CountCalls sockets(Call::socket);
        const CountCalls frees(Call::freeifaddrs);
        const FailCall fault(Call::getifaddrs, error);

        EXPECT_EQ(scan().result, -error);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(sockets.count(), 0);
        // There is no list to be freed.
        EXPECT_EQ(frees.count(), 0);
        EXPECT_THAT(log_.messages(), IsEmpty());
    }
}

TEST_F(InterfaceFailure, of_the_socket_is_an_empty_list) {
    log_.clear();
    const FailCall fault(Call::socket, EMFILE);

    const Scan done = scan();
    EXPECT_EQ(done.result, 0);
    EXPECT_THAT(done.interfaces, IsEmpty());
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(network_.lists_in_use(), 0u);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(InterfaceFailure, of_the_interface_list_is_the_result) {
    for (const int error : {EPERM, EFAULT}) {
        SCOPED_TRACE(error);
        log_.clear();
        network_.fail_list(error);

        const Scan done = scan();
        EXPECT_EQ(done.result, -error);
        EXPECT_EQ(network_.lists_in_use(), 0u);
        EXPECT_THAT(log_.messages(),
                    ElementsAre(error_message("Can't get the netif name list! (" + std::to_string(-error) + ")")));
    }
}

TEST(InterfaceFailures, of_the_interface_list_reach_a_log_of_errors) {
    LogCapture log(1);
    FakeNetwork network({{"eth0"}}, {});
    network.fail_list(EIO);

    EXPECT_EQ(scan().result, -EIO);
    EXPECT_THAT(log.messages(), ElementsAre(error_message("Can't get the netif name list! (-5)")));
}

TEST(InterfaceFailures, unreadable_flags_leave_the_interface_out) {
    LogCapture log;
    const FakeNetwork network({{"eth0"}, {"eth1", IFF_UP, {}, EPERM}, {"eth2"}}, {});

    EXPECT_THAT(interfaces(), ElementsAre(Interface{"eth0", 0}, Interface{"eth2", 2}));
    EXPECT_THAT(log.messages(), ElementsAre(debug_message("Get the address of 0-th netif: eth0"),
                                            debug_message("Can't get IP addresses of eth0! (-19)"),
                                            debug_message("Get the address of 1-th netif: eth1"),
                                            debug_message("Can't get IP addresses of eth1! (-19)"),
                                            debug_message("Can't get the flags of eth1! (-1)"),
                                            debug_message("Get the address of 2-th netif: eth2"),
                                            debug_message("Can't get IP addresses of eth2! (-19)")));
}

TEST(InterfaceFailures, an_unreadable_hardware_address_ends_the_list) {
    const std::vector<support::FakeAddress> addresses = {{"eth0", "10.0.0.1", "255.0.0.0"},
                                                         {"eth1", "fd00::1", "ffff::"},
                                                         {"eth1", "fd00::2", "ffff::"},
                                                         {"eth2", "fd00::3", "ffff::"}};
    const Interface all[] = {{"eth0", 0, IFF_UP, "00:16:3E:0A:BC:DF", "10.0.0.1", 8, {}},
                             {"eth1", 1, IFF_UP, "00:16:3E:0A:BC:DF", "", 0, {{"fd00::1", 16}, {"fd00::2", 16}}}};
    for (size_t failing = 0; failing < 3; failing++) {
        SCOPED_TRACE(failing);
        std::vector<support::FakeInterface> list = {{"eth0"}, {"eth1"}, {"eth2"}};
        list[failing].mac_error = EOPNOTSUPP;
        const FakeNetwork network(list, addresses);
        LogCapture log(1);

        const Scan done = scan();
        EXPECT_EQ(done.result, 0);
        EXPECT_EQ(done.interfaces, std::vector<Interface>(all, all + failing));
        EXPECT_EQ(network.lists_in_use(), 0u);
        // This message tells the positive number.
        EXPECT_THAT(log.messages(), ElementsAre(error_message("Can't get the MAC address of eth" +
                                                              std::to_string(failing) + "! (95)")));
        // Nothing is asked of the interfaces behind it.
        EXPECT_EQ(network.requests().size(), failing + 2);
    }
}

TEST(InterfaceFailures, a_hardware_address_is_asked_for_where_there_is_no_ip_address_too) {
    LogCapture log;
    const FakeNetwork network({{"eth0", IFF_UP, {}, 0, EINVAL}, {"eth1"}}, {});

    EXPECT_THAT(interfaces(), IsEmpty());
    EXPECT_THAT(log.messages(), ElementsAre(debug_message("Get the address of 0-th netif: eth0"),
                                            debug_message("Can't get IP addresses of eth0! (-19)"),
                                            error_message("Can't get the MAC address of eth0! (22)")));
}

TEST_F(InterfaceFailure, of_memory_for_an_address_makes_the_interface_one_without_addresses) {
    const struct {
        int nth;
        Interface eth1;
    } table[] = {
        // What the record holds by then stays; the flags come from the kernel.
        {2, {"eth1", 1, 0x1003, "00:16:3E:0A:BC:DF", "10.1.0.1", 16, {}}},
        {3, {"eth1", 1, 0x1003, "00:16:3E:0A:BC:DF", "10.1.0.2", 24, {{"fd00::1", 16}}}},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.nth);
        log_.clear();
        // The first allocation is eth0's record.
        const Scan done = scan_without_memory(row.nth);
        EXPECT_EQ(done.result, 0);
        EXPECT_THAT(done.interfaces, ElementsAre(eth0_, row.eth1, eth2_));
        EXPECT_THAT(log_.messages(), ElementsAre(debug_message("Get the address of 0-th netif: eth0"),
                                                 debug_message("Get the address of 1-th netif: eth1"),
                                                 debug_message("Can't get IP addresses of eth1! (-12)"),
                                                 debug_message("Get the address of 2-th netif: eth2")));
    }
}

TEST(InterfaceFailures, memory_for_an_address_lacks_while_the_interface_is_down_or_unknown) {
    const std::vector<support::FakeAddress> addresses = {{"eth0", "10.0.0.1", "255.0.0.0"},
                                                         {"eth0", "fd00::1", "ffff::"},
                                                         {"eth0", "fd00::2", "ffff::"},
                                                         {"eth1", "fd00::3", "ffff::"}};
    const Interface eth1{"eth1", 1, IFF_UP, "00:16:3E:0A:BC:DF", "", 0, {{"fd00::3", 16}}};
    const support::FakeInterface first[] = {{"eth0", 0}, {"eth0", IFF_UP, {}, EIO}};

    set_time_zone();
    for (const auto &eth0 : first)
        for (const int nth : {1, 2}) {
            SCOPED_TRACE(testing::Message() << eth0.flags_error << ' ' << nth);
            const FakeNetwork network({eth0, {"eth1"}}, addresses);
            LogCapture log;
            interfaces();
            log.clear();
            const Scan done = scan_without_memory(nth);
            EXPECT_EQ(done.result, 0);
            EXPECT_THAT(done.interfaces, ElementsAre(eth1));
            EXPECT_THAT(log.messages(), Contains(debug_message("Can't get IP addresses of eth0! (-12)")));
        }
}

TEST_F(InterfaceFailure, of_memory_for_a_record_fails_the_scan) {
    // Allocations in their order: eth0's record, eth1's two addresses and record, eth2's address and record.
    for (const int nth : {1, 4, 6}) {
        SCOPED_TRACE(nth);
        EXPECT_EQ(scan_without_memory(nth).result, -ENOMEM);
        EXPECT_EQ(network_.lists_in_use(), 0u);
    }
}

TEST(InterfaceFailures, lose_no_memory) {
    const support::FakeInterface kinds[] = {{"eth1"},                       // found
                                            {"eth1", 0},                    // left out where an address is missing
                                            {"eth1", IFF_UP, {}, EIO},      // left out
                                            {"eth1", IFF_UP, {}, 0, EIO}};  // the list's end
    for (const auto &eth1 : kinds)
        for (const int nth : {1, 2, 3, 4, 5, 1000}) {
            SCOPED_TRACE(testing::Message() << "flags " << eth1.flags << " errors " << eth1.flags_error << ' '
                                            << eth1.mac_error << " allocation " << nth);
            EXPECT_FALSE(support::loses_memory([&] {
                const FakeNetwork network(
                    {{"eth0"}, eth1},
                    {{"eth0", "fd00::1", "ffff::"}, {"eth1", "fd00::2", "ffff::"}, {"eth1", "fd00::3", "ffff::"}});
                RawScan raw;
                {
                    const FailCall fault(Call::allocation, ENOMEM, nth);
                    raw = raw_scan();
                }
                Free_Network_Interface(raw.list);
            }));
        }
}

TEST(InterfaceFailures, of_any_allocation_leave_a_list_or_nothing) {
    support::enter_network();
    const support::PeerNetwork peer;
    const auto all = interfaces();
    const auto descriptors = support::open_descriptors();

    // The address list itself is allocated by the system's library, of which the same holds.
    bool struck = true;
    for (int nth = 1; struck; nth++) {
        SCOPED_TRACE(nth);
        ASSERT_LT(nth, 1000);
        RawScan raw;
        {
            const FailCall fault(Call::allocation, ENOMEM, nth);
            raw = raw_scan();
            struck = fault.failed() > 0;
        }
        const Scan done = take(raw);
        EXPECT_TRUE(done.result == 0 || done.result == -ENOMEM) << done.result;
        EXPECT_EQ(done.interfaces.size(), done.result == 0 ? all.size() : 0);
    }
    EXPECT_EQ(support::open_descriptors(), descriptors);
    EXPECT_EQ(interfaces(), all);
}

TEST(InterfaceFailures, a_process_without_a_free_descriptor_learns_it) {
    EXPECT_EQ(support::in_child([] {
                  const rlimit none{0, 0};
                  setrlimit(RLIMIT_NOFILE, &none);
                  EXPECT_EQ(scan().result, -EMFILE);
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}
