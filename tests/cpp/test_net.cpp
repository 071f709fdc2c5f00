// Addresses, connections and waiting.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <stop_token>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "failure_of.h"
#include "fake_network.h"
#include "faults.h"
#include "korvex/net.hpp"
#include "network.h"
#include "sandbox.h"

namespace {

using namespace std::chrono_literals;
using korvex::errc;
using support::failure_of;

static_assert(!std::is_copy_constructible_v<korvex::socket> && std::is_nothrow_move_constructible_v<korvex::socket>);
static_assert(std::is_nothrow_move_assignable_v<korvex::socket>);

constexpr std::uint16_t kPort = 4000;

class Net : public testing::Test {
  protected:
    Net() { support::enter_network(); }
};

TEST(Address, of_this_host_is_compared_exactly) {
    const support::FakeNetwork network({{.name = "eth0"}}, {{"eth0", "10.0.0.12", "255.255.255.0"},
                                                            {"eth0", "fd00::1", "ffff:ffff:ffff:ffff::"},
                                                            {"eth1", "fd00::12", "ffff:ffff:ffff:ffff::"},
                                                            {"tun0", "", ""}});
    for (const char *own : {"10.0.0.12", "fd00::1", "fd00::12", "fd00:0::12", "::ffff:10.0.0.12"})
        EXPECT_TRUE(korvex::is_local(own)) << own;
    for (const char *other : {"10.0.0.1", "10.0.0.120", "fd00::", "fd00::123"})
        EXPECT_FALSE(korvex::is_local(other)) << other;
    EXPECT_EQ(network.lists_in_use(), 0U);
}

TEST(Address, that_can_not_be_told_is_a_failure) {
    EXPECT_THROW((void)korvex::is_local("no.such.host.invalid"), korvex::error);
    EXPECT_THROW((void)korvex::resolve("no.such.host.invalid"), korvex::error);
    const support::FailCall fault(support::Call::getifaddrs, ENOMEM);
    EXPECT_EQ(failure_of([] { (void)korvex::is_local("10.0.0.1"); }).code(), std::errc::not_enough_memory);
}

TEST(Address, is_resolved) {
    EXPECT_EQ(korvex::resolve("127.0.0.1").text, "127.0.0.1");
    EXPECT_FALSE(korvex::resolve("127.0.0.1").is_ipv6);
    EXPECT_EQ(korvex::resolve("fd00:0:0::1").text, "fd00::1");
    EXPECT_TRUE(korvex::resolve("fd00::1").is_ipv6);
}

TEST(Address, shares_a_subnet_by_each_of_its_bits) {
    struct sample {
        const char *one;
        const char *other;
        unsigned longest;  // the longest prefix by which they agree
    };
    for (const sample &pair : {sample{"10.0.0.1", "10.0.0.2", 30},
                               {"10.0.0.1", "10.0.0.1", 32},
                               {"128.0.0.0", "0.0.0.0", 0},
                               {"10.1.0.0", "10.0.0.0", 15},
                               {"fd00::1", "fd00::2", 126},
                               {"fd00::", "fd08::", 12},
                               {"fd00::1", "fd00::1", 128},
                               {"::ffff:10.0.0.1", "10.0.0.2", 30}}) {
        const unsigned most = korvex::resolve(pair.one).is_ipv6 && pair.one[0] == 'f' ? 128 : 32;
        for (unsigned prefix = 0; prefix <= most; prefix++)
            EXPECT_EQ(korvex::same_subnet(pair.one, pair.other, prefix), prefix <= pair.longest)
                << pair.one << ' ' << pair.other << '/' << prefix;
    }
    EXPECT_FALSE(korvex::same_subnet("10.0.0.1", "fd00::1", 0));
    EXPECT_EQ(failure_of([] { (void)korvex::same_subnet("10.0.0.1", "10.0.0.1", 33); }).code(),
              std::errc::invalid_argument);
    EXPECT_EQ(failure_of([] { (void)korvex::same_subnet("nas", "10.0.0.1", 8); }).subject(), "nas");
}

TEST_F(Net, tells_the_scope_of_a_link_local_address) {
    const support::PeerNetwork peer;
    const auto near = std::stoul(support::run_command("cat /sys/class/net/near0/ifindex"));
    EXPECT_EQ(korvex::scope_of(support::PeerNetwork::kNearLinkLocal), near);
    EXPECT_EQ(failure_of([] { (void)korvex::scope_of("10.0.0.1"); }).code(), std::errc::invalid_argument);
}

TEST_F(Net, connects_and_accepts_on_all_addresses) {
    const std::vector<korvex::socket> listeners = korvex::listen({}, kPort);
    ASSERT_EQ(listeners.size(), 2U);
    for (const char *host : {"127.0.0.1", "::1"}) {
        const korvex::socket client = korvex::connect(host, kPort, 5s);
        const auto ready = korvex::first_ready(listeners, 5s);
        ASSERT_TRUE(ready);
        const auto server = korvex::accept(listeners[*ready], 5s);
        ASSERT_TRUE(server);
        korvex::send_all(client, korvex::bytes_of("x"));
        EXPECT_TRUE(korvex::wait_readable(*server, 5s));
    }
    EXPECT_EQ(korvex::first_ready(listeners, 0ms), std::nullopt);
}

TEST_F(Net, connects_from_an_address_and_refuses_what_is_none) {
    const auto listeners = korvex::listen("127.0.0.1", kPort);
    EXPECT_TRUE(korvex::connect("127.0.0.1", kPort, 5s, "127.0.0.1"));
    EXPECT_EQ(failure_of([] { (void)korvex::connect("127.0.0.1", kPort, 5s, "here"); }).code(),
              std::errc::invalid_argument);
    EXPECT_EQ(failure_of([] { (void)korvex::connect("127.0.0.1", 0); }).code(), std::errc::invalid_argument);
    EXPECT_EQ(failure_of([] { (void)korvex::listen("127.0.0.1", 0); }).code(), std::errc::invalid_argument);
    EXPECT_EQ(failure_of([] { (void)korvex::listen("127.0.0.1", kPort); }).code(), std::errc::address_in_use);
    EXPECT_EQ(failure_of([] { (void)korvex::connect("127.0.0.1", kPort + 1, 5s); }).code(),
              std::errc::connection_refused);
}

TEST_F(Net, gives_a_connection_up_in_time) {
    const support::PeerNetwork peer;
    support::run_command("ip neigh add 10.99.0.77 lladdr 02:00:00:00:00:77 dev near0");  // who never answers
    EXPECT_EQ(failure_of([] { (void)korvex::connect("10.99.0.77", kPort, 30ms); }).code(), errc::time_is_over);
}

TEST_F(Net, closes_what_it_owns_and_no_more) {
    const auto before = support::open_descriptors();
    {
        const auto listeners = korvex::listen("127.0.0.1", kPort);
        korvex::socket client = korvex::connect("127.0.0.1", kPort, 5s);
        const auto server = korvex::accept(listeners[0], 5s);
        const int kept = client.release();
        EXPECT_FALSE(client);
        EXPECT_EQ(close(kept), 0);
        EXPECT_THROW((void)korvex::connect("127.0.0.1", kPort + 1, 5s), korvex::error);
    }
    EXPECT_EQ(support::open_descriptors(), before);
}

class LocalNet : public testing::Test {
  protected:
    support::TempFolder folder_;
    const std::string path_ = folder_.path("socket");
};

TEST_F(LocalNet, connects_and_replaces_an_old_socket) {
    { const korvex::socket old = korvex::listen_local(path_); }
    const korvex::socket listener = korvex::listen_local(path_);
    const korvex::socket client = korvex::connect_local(path_, 5s);
    EXPECT_TRUE(korvex::accept(listener, 5s));
}

TEST_F(LocalNet, removes_nothing_but_a_socket) {
    support::write_file(path_, "precious");
    EXPECT_EQ(failure_of([&] { (void)korvex::listen_local(path_); }).code(), std::errc::file_exists);
    EXPECT_EQ(support::read_file(path_), "precious");
    unlink(path_.c_str());
    ASSERT_EQ(symlink("nowhere", path_.c_str()), 0);
    EXPECT_EQ(failure_of([&] { (void)korvex::listen_local(path_); }).code(), std::errc::file_exists);
    EXPECT_EQ(failure_of([&] { (void)korvex::connect_local(folder_.path("none")); }).code(),
              std::errc::no_such_file_or_directory);
    const std::string long_path = folder_.path(std::string(120, 'x'));
    EXPECT_EQ(failure_of([&] { (void)korvex::connect_local(long_path); }).code(), std::errc::filename_too_long);
    EXPECT_EQ(failure_of([&] { (void)korvex::listen_local(long_path); }).code(), std::errc::filename_too_long);
}

TEST_F(LocalNet, waits_for_a_connection_no_longer_than_it_is_told) {
    const korvex::socket listener = korvex::listen_local(path_);
    EXPECT_FALSE(korvex::accept(listener, 0ms));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(korvex::accept(listener, 20ms));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
}

TEST_F(LocalNet, stops_waiting_on_request) {
    const korvex::socket listener = korvex::listen_local(path_);
    std::stop_source source;
    const support::BeforeCall stopping(support::Call::poll, 1, [&] { source.request_stop(); });
    EXPECT_EQ(failure_of([&] { (void)korvex::accept(listener, korvex::forever, source.get_token()); }).code(),
              std::errc::operation_canceled);
    EXPECT_TRUE(stopping.ran());
    EXPECT_EQ(failure_of([&] { (void)korvex::wait_readable(listener, 1h, source.get_token()); }).code(),
              std::errc::operation_canceled);
}

TEST_F(LocalNet, goes_on_after_a_signal_and_after_a_caller_that_has_gone) {
    const korvex::socket listener = korvex::listen_local(path_);
    const korvex::socket client = korvex::connect_local(path_);
    {
        const support::FailCall interrupted(support::Call::poll, EINTR, 1, 3);
        EXPECT_TRUE(korvex::wait_readable(listener, 5s));
        EXPECT_EQ(interrupted.failed(), 3);
    }
    EXPECT_TRUE(korvex::wait_writable(client, 5s));
}

TEST_F(LocalNet, does_not_wait_for_a_socket_that_is_closed) {
    korvex::socket listener = korvex::listen_local(path_);
    close(listener.native_handle());
    EXPECT_EQ(failure_of([&] { (void)korvex::wait_readable(listener, 1h); }).code(), std::errc::bad_file_descriptor);
    (void)listener.release();
}

}  // namespace
