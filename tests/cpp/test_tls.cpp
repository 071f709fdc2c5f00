// TLS sessions of the C++ layer, and who is trusted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "../tls/openssl_process.h"
#include "failure_of.h"
#include "faults.h"
#include "korvex/tls.hpp"
#include "network.h"
#include "sandbox.h"

namespace {

using namespace std::chrono_literals;
using korvex::bytes_of;
using korvex::errc;
using korvex::tls::credentials;
using korvex::tls::session;
using support::failure_of;
using testing::HasSubstr;

static_assert(!std::is_copy_constructible_v<session> && std::is_nothrow_move_constructible_v<session>);
static_assert(std::is_nothrow_move_assignable_v<session>);
static_assert(!std::is_copy_constructible_v<korvex::tls::context>);

// Made once a program.
class Certificates {
  public:
    Certificates() {
        support::run_command(std::string(KORVEX_CERTIFICATE_SCRIPT) + " " + folder_.path() + " || cat " +
                             folder_.path("make.log"));
    }
    std::string file(const std::string &name) const { return folder_.path(name); }

  private:
    support::TempFolder folder_;
};

const Certificates &certificates() {
    static const Certificates made;
    return made;
}

credentials of(const std::string &name, const std::string &authority = "root") {
    return {certificates().file(name + ".pem"), "", certificates().file(authority + ".crt")};
}

// Both ends of one session, inside this process.
struct Pair {
    explicit Pair(const std::string &server_certificate, const std::string &authority = "root")
        : Pair(server_certificate, authority, connected()) {}
    Pair(const std::string &server_certificate, const std::string &authority,
         std::pair<korvex::socket, korvex::socket> ends)
        : accepting(std::async(std::launch::async,
                               [&] { return session::server(std::move(ends.second), of(server_certificate), 60s); })),
          client(session::client(std::move(ends.first), of("good", authority), 60s)),
          server(accepting.get()) {}

    static std::pair<korvex::socket, korvex::socket> connected() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        return {korvex::socket(ends[0]), korvex::socket(ends[1])};
    }

    std::future<session> accepting;
    session client;
    session server;
};

// What `verify_peer` makes of a server; a default code where it trusts it.
std::error_code verdict(const Pair &pair, const std::string &host) {
    try {
        pair.client.verify_peer(host);
    } catch (const korvex::error &failure) {
        EXPECT_EQ(failure.subject(), host);
        return failure.code();
    }
    return {};
}

TEST(TlsPeer, with_a_good_certificate_is_trusted_by_each_of_its_names) {
    const Pair pair("good");
    for (const char *name : {"nas.test", "NAS.TEST", "one.wild.test", "127.0.0.1", "fd00::1", "fd00:0::1"})
        EXPECT_EQ(verdict(pair, name), std::error_code()) << name;
    for (const char *name : {"good", "other.test", "sub.nas.test", "nas", "wild.test", "a.b.wild.test", "127.0.0.2",
                             "fd00::2", "nas.test.evil.test"})
        EXPECT_EQ(verdict(pair, name), errc::name_mismatch) << name;
}

TEST(TlsPeer, without_alternative_names_is_known_by_its_common_name) {
    const Pair pair("nas.test");
    EXPECT_EQ(verdict(pair, "nas.test"), std::error_code());
    EXPECT_EQ(verdict(pair, "other.test"), errc::name_mismatch);
    EXPECT_EQ(verdict(pair, "127.0.0.1"), errc::name_mismatch);
}

TEST(TlsPeer, with_a_chain_is_trusted_and_without_it_not) {
    EXPECT_EQ(verdict(Pair("chain"), "nas.test"), std::error_code());
    EXPECT_EQ(verdict(Pair("below"), "nas.test"), errc::not_trusted);
}

TEST(TlsPeer, is_refused_for_each_reason_by_a_code_of_its_own) {
    EXPECT_EQ(verdict(Pair("expired"), "nas.test"), errc::certificate_expired);
    EXPECT_EQ(verdict(Pair("early"), "nas.test"), errc::certificate_not_yet_valid);
    EXPECT_EQ(verdict(Pair("self"), "nas.test"), errc::not_trusted);
    EXPECT_EQ(verdict(Pair("good", "other"), "nas.test"), errc::not_trusted);
    EXPECT_EQ(verdict(Pair("client_only"), "nas.test"), errc::not_verified);
    EXPECT_THAT(failure_of([] { Pair("client_only").client.verify_peer("nas.test"); }).reason(), HasSubstr("purpose"));
}

TEST(TlsPeer, that_shows_no_certificate_is_not_trusted) {
    const Pair pair("good");
    EXPECT_EQ(failure_of([&] { pair.server.verify_peer("nas.test"); }).code(), errc::no_certificate);
}

TEST(TlsPeer, is_not_asked_for_by_what_is_no_name) {
    const Pair pair("good");
    EXPECT_EQ(verdict(pair, ""), std::errc::invalid_argument);
    EXPECT_EQ(verdict(pair, ".test"), std::errc::invalid_argument);
    EXPECT_EQ(failure_of([&] { pair.client.verify_peer(std::string_view("nas.test\0.evil", 14)); }).code(),
              std::errc::invalid_argument);
}

TEST(TlsPeer, of_another_make_is_verified_and_spoken_to) {
    const tls_test::OpensslServer good(
        {"-cert", certificates().file("good.crt"), "-key", certificates().file("good.key"), "-rev"});
    auto link = session::connect("127.0.0.1", static_cast<std::uint16_t>(good.port()), 60s, of("good"));
    link.verify_peer("127.0.0.1");
    link.send_all(bytes_of("olleh\n"));
    std::array<std::byte, 6> answer{};
    link.receive_exactly(answer, 60s);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(answer.data()), 6), "hello\n");

    const tls_test::OpensslServer old(
        {"-cert", certificates().file("expired.crt"), "-key", certificates().file("expired.key")});
    const auto other = session::connect("127.0.0.1", static_cast<std::uint16_t>(old.port()), 60s, of("good"));
    EXPECT_EQ(failure_of([&] { other.verify_peer("nas.test"); }).code(), errc::certificate_expired);
}

class TlsTransfer : public testing::Test {
  protected:
    std::string text() const { return {reinterpret_cast<const char *>(buffer_.data()), buffer_.size()}; }

    Pair pair_{"good"};
    std::array<std::byte, 10> buffer_{};
};

TEST_F(TlsTransfer, moves_all_in_any_pieces) {
    const std::string large(3'000'000, 'x');
    std::vector<std::byte> received(large.size());
    std::jthread sender([&] { pair_.server.send_all(bytes_of(large), 60s); });
    pair_.client.receive_exactly(received, 60s);
    EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(received.data()), received.size()), large);
}

TEST_F(TlsTransfer, peeks_and_receives_what_has_come) {
    pair_.server.send_all(bytes_of("0123456789"));
    pair_.client.peek_exactly(buffer_, 60s);
    EXPECT_EQ(text(), "0123456789");
    buffer_ = {};
    EXPECT_EQ(pair_.client.receive(buffer_, 60s), 10U);
    EXPECT_EQ(text(), "0123456789");
    EXPECT_EQ(pair_.client.receive(buffer_, 0ms), std::nullopt);
    EXPECT_EQ(pair_.client.receive({}, korvex::forever), 0U);
}

TEST_F(TlsTransfer, of_a_part_ends_in_time) {
    pair_.server.send_all(bytes_of("123"));
    EXPECT_EQ(failure_of([&] { pair_.client.peek_exactly(buffer_, 30ms); }).code(), errc::time_is_over);
    try {
        pair_.client.receive_exactly(buffer_, 30ms);
        FAIL() << "nothing was thrown";
    } catch (const korvex::transfer_error &failure) {
        EXPECT_EQ(failure.code(), errc::time_is_over);
        EXPECT_EQ(failure.moved(), 3U);
    }
}

TEST_F(TlsTransfer, tells_an_end_from_a_cut) {
    pair_.server.close();
    EXPECT_EQ(pair_.client.receive(buffer_, 60s), 0U);
    EXPECT_EQ(failure_of([&] { pair_.client.receive_exactly(buffer_, 60s); }).code(), errc::peer_closed);

    Pair other("good");
    shutdown(other.server.native_handle()->fdSocket, SHUT_RDWR);
    EXPECT_EQ(failure_of([&] { (void)other.client.receive(buffer_, 60s); }).code(), errc::peer_closed);
}

TEST_F(TlsTransfer, to_a_peer_that_is_gone_raises_no_signal) {
    shutdown(pair_.server.native_handle()->fdSocket, SHUT_RDWR);
    signal(SIGPIPE, SIG_DFL);
    EXPECT_THROW(pair_.client.send_all(bytes_of("text")), korvex::transfer_error);
    pair_.client.close();
    pair_.client.close();
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST_F(TlsTransfer, stops_on_request) {
    std::stop_source source;
    {
        const support::BeforeCall stopping(support::Call::poll, 1, [&] { source.request_stop(); });
        EXPECT_EQ(failure_of([&] { pair_.client.receive_exactly(buffer_, 1h, source.get_token()); }).code(),
                  std::errc::operation_canceled);
    }
    EXPECT_EQ(failure_of([&] { pair_.client.peek_exactly(buffer_, 1h, source.get_token()); }).code(),
              std::errc::operation_canceled);
    const std::string large(10'000'000, 'x');
    std::stop_source later;
    const support::BeforeCall stopping(support::Call::poll, 1, [&] { later.request_stop(); });
    EXPECT_EQ(failure_of([&] { pair_.client.send_all(bytes_of(large), 1h, later.get_token()); }).code(),
              std::errc::operation_canceled);
}

TEST(TlsSession, closes_what_it_owns) {
    { const Pair warm_up("good"); }
    const auto before = support::open_descriptors();
    {
        Pair pair("good");
        const session moved = std::move(pair.client);
        EXPECT_EQ(pair.client.native_handle()->fdSocket, -1);  // NOLINT(bugprone-use-after-move): what it is then
    }
    EXPECT_EQ(support::open_descriptors(), before);
}

TEST(TlsSession, that_can_not_be_opened_says_why) {
    auto ends = Pair::connected();
    const auto before = support::open_descriptors().size();
    EXPECT_EQ(failure_of([&] { (void)session::client(std::move(ends.first), of("none")); }).code(),
              std::errc::no_such_file_or_directory);
    EXPECT_LE(support::open_descriptors().size(), before);

    auto silent = Pair::connected();
    EXPECT_EQ(failure_of([&] { (void)session::client(std::move(silent.first), of("good"), 20ms); }).code(),
              errc::time_is_over);
    auto rude = Pair::connected();
    korvex::send_all(rude.second, bytes_of("this is no TLS at all, this is no TLS at all"));
    EXPECT_EQ(failure_of([&] { (void)session::client(std::move(rude.first), of("good"), 60s); }).code(),
              std::errc::protocol_error);
}

TEST(TlsContext, is_made_of_credentials_that_fit) {
    const korvex::tls::context whole(of("good"));
    EXPECT_NE(whole.native_handle(), nullptr);
    credentials locked = of("locked");
    locked.pass_phrase = "secret";
    EXPECT_NO_THROW(korvex::tls::context{locked});
    locked.pass_phrase = "wrong";
    const korvex::error failure = failure_of([&] { const korvex::tls::context none(locked); });
    EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure.subject(), locked.certificate_file);
}

// What it feels like to be served by a peer that keeps the handshake going: a byte of a hello every now and then.
class DrippingPeer {
  public:
    explicit DrippingPeer(korvex::socket link)
        : link_(std::move(link)), dripping_([this](const std::stop_token &stop) { drip(stop); }) {}

  private:
    void drip(const std::stop_token &stop) const {
        constexpr std::string_view start("\x16\x03\x01\x40\x00\x01\x00\x3f\xfc\x03\x03", 11);
        std::string hello(start);
        hello.resize(16'000, 'x');
        for (const char &byte : hello) {
            if (stop.stop_requested() || ::send(link_.native_handle(), &byte, 1, MSG_NOSIGNAL) != 1)
                return;
            std::this_thread::sleep_for(5ms);  // far below the limit, which each byte would start anew
        }
    }

    korvex::socket link_;
    std::jthread dripping_;
};

TEST(TlsHandshake, is_limited_as_a_whole_and_not_step_by_step) {
    auto [client, server] = Pair::connected();
    const DrippingPeer peer(std::move(client));
    EXPECT_EQ(failure_of([&, link = &server] { session::server(std::move(*link), of("good"), 200ms); }).code(),
              errc::time_is_over);
}

TEST(TlsHandshake, ends_when_a_stop_is_requested) {
    for (const auto &[timeout, is_server] : {std::pair(korvex::forever, true), {60'000ms, true}, {60'000ms, false}}) {
        auto [client, server] = Pair::connected();
        std::stop_source stop;
        korvex::socket &own = is_server ? server : client;
        const korvex::socket &other = is_server ? client : server;
        auto open =
            std::async(std::launch::async, [&, link = std::move(own), limit = timeout, serves = is_server]() mutable {
                return failure_of([&] {
                    serves ? session::server(std::move(link), of("good"), limit, stop.get_token())
                           : session::client(std::move(link), of("good"), limit, stop.get_token());
                });
            });
        if (!is_server) {
            EXPECT_TRUE(korvex::wait_readable(other));  // its hello is there, so it waits for ours
        }
        stop.request_stop();
        EXPECT_EQ(open.get().code(), std::errc::operation_canceled);
        std::array<std::byte, 1024> rest{};
        while (korvex::receive_some(other, rest, 60s).value_or(0) != 0) {}  // until it is closed
    }
}

}  // namespace
