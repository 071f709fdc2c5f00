// Connecting over TCP.
#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "stream_pair.h"
#include "tcp_world.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string debug(const std::string &text, int error) {
    return "[debug] TCP_Socket_Connect(#): " + with_code(text, error);
}

class TcpConnect : public NetworkTest {
  protected:
    int32_t connect_to(const std::string &host, int32_t timeout = kPatient, const char *local = nullptr,
                       int32_t port = kPort) {
        socket_ = kUntouched;
        return TCP_Socket_Connect(local, host.c_str(), port, timeout, &socket_);
    }
    // Connects in vain, and checks all that a failure promises but its message.
    void expect_failure(int error, const std::string &host, int32_t timeout = kPatient, const char *local = nullptr) {
        const auto before = open_descriptors();
        EXPECT_EQ(connect_to(host, timeout, local), -error);
        EXPECT_EQ(socket_, -1);
        EXPECT_EQ(open_descriptors(), before);
    }
    std::vector<std::string> take_messages() {
        const auto messages = log_.messages();
        log_.clear();
        return messages;
    }

    int32_t socket_ = kUntouched;
    LogCapture log_;
};

}  // namespace

TEST_F(TcpConnect, reaches_addresses_and_names) {
    const OwnHosts names("127.0.0.1 four\n::1 six\n");
    const Listener ipv4("127.0.0.1");
    const Listener ipv6("::1");
    const struct {
        std::string host;
        const Listener &listener;
        std::string address;
    } table[] = {{"127.0.0.1", ipv4, "127.0.0.1"},
                 {"four", ipv4, "127.0.0.1"},
                 {"::1", ipv6, "::1"},
                 {"six", ipv6, "::1"},
                 {"::ffff:127.0.0.1", ipv4, "::ffff:127.0.0.1"}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.host);
        const ResultLists lists;
        ASSERT_EQ(connect_to(row.host), 0);
        EXPECT_EQ(lists.kept(), 0);
        const Descriptor client(socket_);
        const Descriptor server(row.listener.accept());
        EXPECT_EQ(peer_address(client).text(), row.address);
        EXPECT_EQ(peer_address(client).port(), kPort);
        EXPECT_EQ(write(server, "text", 4), 4);
        char text[5] = {};
        EXPECT_EQ(Exactly_Recv(client, text, 4, kPatient), 4);
        EXPECT_STREQ(text, "text");
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpConnect, sets_the_options_of_the_socket) {
    const Listener listener("127.0.0.1");
    const struct {
        int32_t timeout;
        Time time;
    } table[] = {{2500, {2, 500'000}}, {1000, {1, 0}}, {0, {120, 0}}, {-1, {120, 0}}, {INT32_MIN, {120, 0}}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.timeout);
        ASSERT_EQ(connect_to("127.0.0.1", row.timeout), 0);
        const Descriptor client(socket_);
        EXPECT_EQ(time_option(client, SO_RCVTIMEO), row.time);
        EXPECT_EQ(time_option(client, SO_SNDTIMEO), row.time);
        EXPECT_EQ(option(client, IPPROTO_TCP, TCP_NODELAY), 1);
        EXPECT_TRUE(is_blocking(client));
        EXPECT_TRUE(is_inherited(client));
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpConnect, goes_through_its_steps_in_this_order) {
    const Listener ipv4("127.0.0.1");
    const Listener ipv6("::1");
    {
        const Steps steps;
        ASSERT_EQ(connect_to("127.0.0.1", 2500, "127.0.0.5"), 0);
        const Descriptor client(socket_);
        EXPECT_THAT(steps.taken(),
                    ElementsAre("socket 2 1 6", "TCP_NODELAY 1", "SO_RCVTIMEO 2 s 500000 us",
                                "SO_SNDTIMEO 2 s 500000 us", "bind 127.0.0.5 port 0", "connect 127.0.0.1 port 4000"));
    }
    const Steps steps;
    ASSERT_EQ(connect_to("::1", INT32_MAX), 0);
    const Descriptor client(socket_);
    EXPECT_THAT(steps.taken(), ElementsAre("socket 10 1 6", "TCP_NODELAY 1", "SO_RCVTIMEO 2147483 s 647000 us",
                                           "SO_SNDTIMEO 2147483 s 647000 us", "connect ::1 port 4000"));
}

TEST_F(TcpConnect, asks_the_resolver_for_streams_of_any_family) {
    for (const int32_t port : {1, 4000, 65535, INT32_MAX}) {
        const FakeResolver resolver(EAI_NONAME, 0);
        EXPECT_EQ(connect_to("some.host", kPatient, nullptr, port), -113);
        EXPECT_THAT(resolver.questions(),
                    ElementsAre(FakeQuestion{"some.host", std::to_string(port), AF_UNSPEC, SOCK_STREAM, 6, AI_ALL}));
    }
}

TEST_F(TcpConnect, a_name_that_can_not_be_resolved_gives_the_error_of_the_moment) {
    // A negative error leaves what the resolver found in `errno`.
    const struct {
        int error;
        int32_t result;
    } table[] = {{0, 113}, {EINTR, 113}, {-1, 113}, {ENOMEM, 12}, {EAGAIN, 11}, {ENETUNREACH, 101}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.error);
        const FakeResolver resolver(EAI_SYSTEM, row.error);
        const CountCalls sockets(Call::socket);
        errno = ENOENT;
        expect_failure(row.result, "some.host");
        EXPECT_EQ(sockets.count(), 0);
        EXPECT_THAT(take_messages(), ElementsAre(debug("Can't getaddrinfo error! (%d)\n", row.result)));
    }
}

TEST_F(TcpConnect, an_unknown_name_is_an_error) {
    const OwnHosts names("127.0.0.1 four\n");
    errno = 0;
    EXPECT_LT(connect_to("unknown"), 0);
    EXPECT_EQ(socket_, -1);
    EXPECT_THAT(take_messages(), SizeIs(1));
}

TEST_F(TcpConnect, tries_the_first_address_alone) {
    const Listener second("127.0.0.2");
    {
        const FakeResolver resolver({{AF_INET, "127.0.0.1"}, {AF_INET, "127.0.0.2"}});
        expect_failure(ECONNREFUSED, "both");
        EXPECT_EQ(resolver.lists_in_use(), 0u);
    }
    EXPECT_THAT(take_messages(), ElementsAre(debug("Can't connect socket error! (%d)\n", ECONNREFUSED)));

    const FakeResolver resolver({{AF_INET, "127.0.0.2"}, {AF_INET, "127.0.0.1"}});
    ASSERT_EQ(connect_to("both"), 0);
    EXPECT_EQ(resolver.lists_in_use(), 0u);
    const Descriptor client(socket_);
    EXPECT_EQ(peer_address(client).text(), "127.0.0.2");
}

TEST_F(TcpConnect, a_family_without_tcp_is_an_error) {
    const FakeResolver resolver({{AF_UNIX, ""}});
    expect_failure(EPROTONOSUPPORT, "local");
    EXPECT_EQ(resolver.lists_in_use(), 0u);
    EXPECT_THAT(take_messages(), ElementsAre(debug("Can't create socket error! (%d)\n", EPROTONOSUPPORT)));
}

TEST_F(TcpConnect, comes_from_the_local_address_that_it_is_given) {
    const Listener listener("127.0.0.1");
    for (const char *local : {"127.0.0.5", "127.1.2.3", "127.0.0.1", "0.0.0.0"}) {
        SCOPED_TRACE(local);
        ASSERT_EQ(connect_to("127.0.0.1", kPatient, local), 0);
        const Descriptor client(socket_);
        const Descriptor server(listener.accept());
        const std::string expected = std::string(local) == "0.0.0.0" ? "127.0.0.1" : local;
        EXPECT_EQ(peer_address(server).text(), expected);
        EXPECT_EQ(own_address(client).text(), expected);
        EXPECT_NE(own_address(client).port(), 0);
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpConnect, a_local_address_that_is_not_local_is_an_error) {
    const Listener listener("127.0.0.1");
    for (const char *local : {"10.1.2.3", "192.0.2.1"}) {
        SCOPED_TRACE(local);
        const ResultLists lists;
        expect_failure(EADDRNOTAVAIL, "127.0.0.1", kPatient, local);
        EXPECT_EQ(lists.kept(), 0);
        EXPECT_THAT(take_messages(), ElementsAre(debug("Can't bind socket error! (%d)\n", EADDRNOTAVAIL)));
    }
}

TEST_F(TcpConnect, a_local_text_is_read_as_inet_addr_does) {
    const Listener listener("127.0.0.1");
    // What is no IPv4 address becomes the broadcast address, which the system takes for any.
    const struct {
        const char *local;
        std::string bound;
        std::string address;
    } table[] = {{"127.9", "127.0.0.9", "127.0.0.9"},          {"0x7f000008", "127.0.0.8", "127.0.0.8"},
                 {"nonsense", "255.255.255.255", "127.0.0.1"}, {"300.1.1.1", "255.255.255.255", "127.0.0.1"},
                 {"::1", "255.255.255.255", "127.0.0.1"},      {"", "255.255.255.255", "127.0.0.1"}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.local);
        const Steps steps;
        ASSERT_EQ(connect_to("127.0.0.1", kPatient, row.local), 0);
        const Descriptor client(socket_);
        const Descriptor server(listener.accept());
        EXPECT_THAT(steps.taken(), testing::Contains("bind " + row.bound + " port 0"));
        EXPECT_EQ(peer_address(server).text(), row.address);
    }
}

TEST_F(TcpConnect, a_local_address_does_not_go_with_an_ipv6_peer) {
    const Listener listener("::1");
    for (const char *host : {"::1", "::ffff:127.0.0.1"}) {
        SCOPED_TRACE(host);
        expect_failure(EINVAL, host, kPatient, "127.0.0.1");
        EXPECT_THAT(take_messages(), ElementsAre(debug("Can't bind socket error! (%d)\n", EINVAL)));
    }
}

TEST_F(TcpConnect, peers_that_are_not_there_are_errors) {
    const struct {
        std::string host;
        int error;
    } table[] = {{"127.0.0.1", ECONNREFUSED},
                 {"::1", ECONNREFUSED},
                 {"::ffff:127.0.0.1", ECONNREFUSED},
                 {"10.1.2.3", ENETUNREACH},
                 {"fd12::1", ENETUNREACH}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.host);
        const ResultLists lists;
        expect_failure(row.error, row.host);
        EXPECT_EQ(lists.kept(), 0);
        EXPECT_THAT(take_messages(), ElementsAre(debug("Can't connect socket error! (%d)\n", row.error)));
    }
}

TEST_F(TcpConnect, a_peer_that_does_not_answer_is_waited_for_until_the_time_is_over) {
    const BusyListener ipv4("127.0.0.1");
    const BusyListener ipv6("::1");
    const PeerNetwork peer;
    for (const char *host : {"127.0.0.1", "::1", "10.99.0.77", "fd99::77"}) {
        SCOPED_TRACE(host);
        EXPECT_GE(time_of([&] { expect_failure(EINPROGRESS, host, 100); }).count(), 99);
        EXPECT_THAT(take_messages(), ElementsAre(debug("Can't connect socket error! (%d)\n", EINPROGRESS)));
    }
}

TEST_F(TcpConnect, a_signal_ends_the_wait) {
    const BusyListener listener("127.0.0.1");
    const Interruptions interruptions;
    EXPECT_EQ(connect_to("127.0.0.1"), -4);
    EXPECT_EQ(socket_, -1);
    EXPECT_THAT(take_messages(), ElementsAre(debug("Can't connect socket error! (%d)\n", EINTR)));
}

TEST_F(TcpConnect, each_step_that_fails_ends_it) {
    const std::string error = "[error] TCP_Socket_Connect(#): ";
    // The message of the first option tells the error as it is, not negated.
    const struct {
        Call call;
        int nth;
        int error;
        std::string message;
    } table[] = {{Call::socket, 1, EMFILE, debug("Can't create socket error! (%d)\n", EMFILE)},
                 {Call::setsockopt, 1, ENOPROTOOPT, error + "Can't set TCP socket nodelay error! (92)\n"},
                 {Call::setsockopt, 2, EDOM, error + "Can't set TCP recv timeout error: -33\n"},
                 {Call::setsockopt, 3, ENOMEM, error + "Can't set TCP send timeout error: -12\n"},
                 {Call::bind, 1, EACCES, debug("Can't bind socket error! (%d)\n", EACCES)},
                 {Call::connect, 1, EINTR, debug("Can't connect socket error! (%d)\n", EINTR)}};
    const Listener listener("127.0.0.1");

    for (const auto &row : table) {
        SCOPED_TRACE(row.message);
        const ResultLists lists;
        const FailCall fault(row.call, row.error, row.nth);
        expect_failure(row.error, "127.0.0.1", kPatient, "127.0.0.1");
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(lists.kept(), 0);
        EXPECT_THAT(take_messages(), ElementsAre(row.message));
    }
}

TEST_F(TcpConnect, options_are_errors_and_the_rest_is_for_debugging) {
    const struct {
        Call call;
        int nth;
        bool is_error;
    } table[] = {{Call::getaddrinfo, 1, false}, {Call::socket, 1, false},    {Call::setsockopt, 1, true},
                 {Call::setsockopt, 2, true},   {Call::setsockopt, 3, true}, {Call::bind, 1, false},
                 {Call::connect, 1, false}};

    for (const auto &row : table)
        for (const int32_t level : {0, 1, 2, 3}) {
            LogCapture log(level);
            const FailCall fault(row.call, EIO, row.nth);
            EXPECT_EQ(connect_to("127.0.0.1", kPatient, "127.0.0.1"), -EIO);
            EXPECT_THAT(log.messages(), SizeIs(level >= (row.is_error ? 1 : 3) ? 1 : 0));
        }
}

TEST_F(TcpConnect, bad_arguments_are_refused) {
    const FakeResolver resolver(EAI_NONAME, 0);
    for (const int32_t port : {0, -1, INT32_MIN})
        EXPECT_EQ(connect_to("127.0.0.1", kPatient, nullptr, port), -22);
    socket_ = kUntouched;
    EXPECT_EQ(TCP_Socket_Connect(nullptr, nullptr, kPort, kPatient, &socket_), -22);
    EXPECT_EQ(TCP_Socket_Connect(nullptr, "127.0.0.1", kPort, kPatient, nullptr), -22);
    EXPECT_EQ(socket_, kUntouched);
    EXPECT_THAT(resolver.questions(), IsEmpty());
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpConnect, threads_connect_at_once) {
    constexpr int threads = 8;
    constexpr int rounds = 20;
    // Without messages: ThreadSanitizer does not see the lock under which libc reads the time zone for their stamps.
    const LogCapture silent(0);
    const Listener ipv4("127.0.0.1", 4096);
    const Listener ipv6("::1", 4096);
    std::vector<std::thread> clients;
    for (int i = 0; i < threads; i++)
        clients.emplace_back([i] {
            for (int round = 0; round < rounds; round++) {
                const bool refused = (i + round) % 3 == 0;
                const char *host = i % 2 == 0 ? "127.0.0.1" : "::1";
                int32_t client = kUntouched;
                EXPECT_EQ(TCP_Socket_Connect(nullptr, host, refused ? kPort + 1 : kPort, 5000 + i * 1000, &client),
                          refused ? -ECONNREFUSED : 0);
                if (refused) {
                    EXPECT_EQ(client, -1);
                    continue;
                }
                EXPECT_EQ(peer_address(client).text(), host);
                EXPECT_EQ(time_option(client, SO_SNDTIMEO), Time(5 + i, 0));
                close(client);
            }
        });
    for (std::thread &client : clients)
        client.join();
}
