// Listening over TCP.
#include <gmock/gmock.h>

#include <array>
#include <thread>
#include <vector>

#include "tcp_world.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string error(const std::string &text, int code) {
    return "[error] TCP_Socket_Listen(#): " + text + "! (-" + std::to_string(code) + ")\n";
}

std::string debug(const std::string &text, int code) {
    return "[debug] TCP_Socket_Listen(#): " + text + "! (-" + std::to_string(code) + ")\n";
}

const std::string kTooMany = error("Insufficient array buffer for socket", ENOMEM);

class TcpListen : public NetworkTest {
  protected:
    TcpListen() { sockets_.fill(kUntouched); }
    ~TcpListen() override { close_all(); }

    // Listens on `host`, or on everything where that is null.
    int32_t listen_on(const char *host, int32_t size = kRoom, int32_t backlog = 16, int32_t port = kPort) {
        close_all();
        sockets_.fill(kUntouched);
        return TCP_Socket_Listen(host, port, backlog, sockets_.data(), size);
    }
    // Listens in vain, and checks all that a failure promises but its message.
    void expect_failure(int error, const char *host, int32_t size = kRoom) {
        close_all();
        const auto before = open_descriptors();
        const ResultLists lists;
        EXPECT_EQ(listen_on(host, size), -error);
        EXPECT_EQ(sockets_[0], -1);
        EXPECT_EQ(lists.kept(), 0);
        EXPECT_EQ(open_descriptors(), before);
    }
    // The addresses that the sockets before the -1 are bound to.
    std::vector<std::string> addresses() const {
        std::vector<std::string> texts;
        for (size_t i = 0; sockets_[i] != -1; i++) {
            EXPECT_EQ(own_address(sockets_[i]).port(), kPort);
            texts.push_back(own_address(sockets_[i]).text());
        }
        return texts;
    }
    std::vector<std::string> take_messages() {
        const auto messages = log_.messages();
        log_.clear();
        return messages;
    }
    void close_all() {
        for (int32_t &socket : sockets_)
            if (socket != -1 && socket != kUntouched)
                close(std::exchange(socket, -1));
    }

    static constexpr int32_t kRoom = 6;
    std::array<int32_t, 8> sockets_;
    LogCapture log_;
};

// The addresses of a name as the resolver orders them.
std::vector<std::string> resolved(const char *name) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    hints.ai_flags = AI_PASSIVE;
    addrinfo *list = nullptr;
    EXPECT_EQ(getaddrinfo(name, "4000", &hints, &list), 0);
    std::vector<std::string> texts;
    for (const addrinfo *entry = list; entry != nullptr; entry = entry->ai_next)
        texts.push_back(Address(entry->ai_addr, entry->ai_addrlen).text());
    freeaddrinfo(list);
    return texts;
}

bool connects(const char *host) {
    int32_t client = -1;
    const int32_t result = TCP_Socket_Connect(nullptr, host, kPort, kPatient, &client);
    if (result == 0)
        close(client);
    return result == 0;
}

}  // namespace

TEST_F(TcpListen, takes_both_wildcards_beside_each_other) {
    const ResultLists lists;
    ASSERT_EQ(listen_on(nullptr), 0);
    EXPECT_EQ(lists.kept(), 0);
    EXPECT_EQ(addresses(), resolved(nullptr));
    EXPECT_THAT(addresses(), testing::UnorderedElementsAre("0.0.0.0", "::"));
    EXPECT_EQ(sockets_[3], kUntouched);
    EXPECT_TRUE(connects("127.0.0.1"));
    EXPECT_TRUE(connects("::1"));
    for (size_t i = 0; i < 2; i++) {
        const bool ipv6 = own_address(sockets_[i]).text() == "::";
        EXPECT_EQ(option(sockets_[i], SOL_SOCKET, SO_DOMAIN), ipv6 ? AF_INET6 : AF_INET);
        if (ipv6) {
            EXPECT_EQ(option(sockets_[i], IPPROTO_IPV6, IPV6_V6ONLY), 1);
        }
        EXPECT_EQ(option(sockets_[i], SOL_SOCKET, SO_ACCEPTCONN), 1);
        EXPECT_EQ(option(sockets_[i], SOL_SOCKET, SO_REUSEADDR), 1);
        EXPECT_EQ(option(sockets_[i], IPPROTO_TCP, TCP_NODELAY), 1);
        EXPECT_TRUE(is_blocking(sockets_[i]));
        EXPECT_TRUE(is_inherited(sockets_[i]));
        const Descriptor server(accept(sockets_[i], nullptr, nullptr));
        EXPECT_EQ(option(server, IPPROTO_TCP, TCP_NODELAY), 1);
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpListen, goes_through_its_steps_in_this_order) {
    const FakeResolver resolver({{AF_INET, "127.0.0.1"}, {AF_INET6, "::1"}});
    const Steps steps;
    ASSERT_EQ(listen_on("both", kRoom, 100), 0);
    EXPECT_THAT(steps.taken(), ElementsAre("socket 2 1 6", "SO_REUSEADDR 1", "TCP_NODELAY 1",
                                           "bind 127.0.0.1 port 4000", "listen 100", "socket 10 1 6", "SO_REUSEADDR 1",
                                           "IPV6_V6ONLY 1", "TCP_NODELAY 1", "bind ::1 port 4000", "listen 100"));
    EXPECT_EQ(resolver.lists_in_use(), 0u);
}

TEST_F(TcpListen, asks_the_resolver_for_passive_streams_of_any_family) {
    for (const char *host : {static_cast<const char *>(nullptr), "some.host", ""})
        for (const int32_t port : {1, 4000, 65535, INT32_MAX}) {
            const FakeResolver resolver(EAI_NONAME, 0);
            EXPECT_EQ(listen_on(host, kRoom, 16, port), -113);
            EXPECT_THAT(resolver.questions(),
                        ElementsAre(FakeQuestion{host == nullptr ? "(null)" : host, std::to_string(port), AF_UNSPEC,
                                                 SOCK_STREAM, 6, AI_PASSIVE}));
        }
}

TEST_F(TcpListen, takes_every_address_of_a_name_in_the_order_of_the_resolver) {
    const OwnHosts names("127.0.0.3 many\n127.0.0.1 many\n127.0.0.2 many\n::1 many\n::1 six\n");
    ASSERT_EQ(listen_on("many"), 0);
    EXPECT_EQ(addresses(), resolved("many"));
    EXPECT_THAT(addresses(), SizeIs(4));
    ASSERT_EQ(listen_on("six"), 0);
    EXPECT_THAT(addresses(), ElementsAre("::1"));
    EXPECT_FALSE(connects("127.0.0.1"));
    ASSERT_EQ(listen_on("127.0.0.2"), 0);
    EXPECT_THAT(addresses(), ElementsAre("127.0.0.2"));
    EXPECT_FALSE(connects("127.0.0.1"));
    EXPECT_TRUE(connects("127.0.0.2"));
}

TEST_F(TcpListen, a_name_that_can_not_be_resolved_gives_the_error_of_the_moment) {
    // A negative error leaves what the resolver found in `errno`.
    const struct {
        int error;
        int32_t result;
    } table[] = {{0, 113}, {EINTR, 113}, {-1, 113}, {ENOMEM, 12}, {EAGAIN, 11}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.error);
        const FakeResolver resolver(EAI_SYSTEM, row.error);
        errno = ENOENT;
        const int32_t result = listen_on("some.host");
        EXPECT_EQ(result, -row.result);
        EXPECT_EQ(sockets_[0], -1);
        EXPECT_EQ(sockets_[1], kUntouched);
        EXPECT_THAT(take_messages(), ElementsAre("[debug] TCP_Socket_Listen(#): Can't getaddrinfo error! (" +
                                                 std::to_string(result) + ")\n"));
    }
}

TEST_F(TcpListen, a_name_without_addresses_gives_no_sockets) {
    const FakeResolver resolver({});
    for (const int32_t size : {kRoom, 1, 0, -1}) {
        EXPECT_EQ(listen_on("some.host", size), 0);
        EXPECT_EQ(sockets_[0], -1);
        EXPECT_EQ(sockets_[1], kUntouched);
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpListen, fits_an_array_of_exactly_as_many_and_one_more_for_the_end) {
    const FakeResolver resolver({{AF_INET, "127.0.0.1"}, {AF_INET, "127.0.0.2"}, {AF_INET, "127.0.0.3"}});
    ASSERT_EQ(listen_on("three", 3), 0);
    EXPECT_THAT(addresses(), ElementsAre("127.0.0.1", "127.0.0.2", "127.0.0.3"));
    EXPECT_EQ(sockets_[3], -1);
    EXPECT_EQ(sockets_[4], kUntouched);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpListen, more_addresses_than_room_are_an_error_and_leave_nothing_open) {
    for (const int32_t size : {1, 0, -1, INT32_MIN}) {
        SCOPED_TRACE(size);
        const CountCalls sockets(Call::socket);
        expect_failure(ENOMEM, nullptr, size);
        EXPECT_EQ(sockets.count(), size == 1 ? 1 : 0);
        EXPECT_EQ(sockets_[2], kUntouched);
        EXPECT_THAT(take_messages(), ElementsAre(kTooMany));
    }

    const FakeResolver resolver({{AF_INET, "127.0.0.1"}, {AF_INET, "127.0.0.2"}, {AF_INET, "127.0.0.3"}});
    expect_failure(ENOMEM, "three", 2);
    EXPECT_EQ(sockets_[1], -1);
    EXPECT_EQ(sockets_[3], kUntouched);
    EXPECT_EQ(resolver.lists_in_use(), 0u);
    EXPECT_THAT(take_messages(), ElementsAre(kTooMany));
    EXPECT_FALSE(connects("127.0.0.1"));
}

TEST_F(TcpListen, only_sockets_that_were_made_take_room) {
    const std::string not_there = error("Can't bind socket", EADDRNOTAVAIL);
    {
        const FakeResolver resolver({{AF_INET, "192.0.2.1"}, {AF_INET, "127.0.0.1"}});
        ASSERT_EQ(listen_on("both", 1), 0);
        EXPECT_THAT(addresses(), ElementsAre("127.0.0.1"));
        EXPECT_EQ(sockets_[2], kUntouched);
        EXPECT_THAT(take_messages(), ElementsAre(not_there));
    }
    const FakeResolver resolver({{AF_INET, "127.0.0.1"}, {AF_INET, "192.0.2.1"}});
    expect_failure(ENOMEM, "both", 1);
    EXPECT_THAT(take_messages(), ElementsAre(kTooMany));
}

TEST_F(TcpListen, passes_over_addresses_that_can_not_be_had) {
    const Listener in_use("127.0.0.2");
    const FakeResolver resolver({{AF_INET, "127.0.0.2"},
                                 {AF_INET, "127.0.0.1"},
                                 {AF_INET6, "fd12::1"},
                                 {AF_UNIX, ""},
                                 {AF_INET6, "::1"},
                                 {AF_INET, "192.0.2.1"}});
    ASSERT_EQ(listen_on("many"), 0);
    EXPECT_THAT(addresses(), ElementsAre("127.0.0.1", "::1"));
    EXPECT_EQ(resolver.lists_in_use(), 0u);
    EXPECT_THAT(take_messages(),
                ElementsAre(error("Can't bind socket", EADDRINUSE), error("Can't bind socket", EADDRNOTAVAIL),
                            debug("Can't create socket", EPROTONOSUPPORT), error("Can't bind socket", EADDRNOTAVAIL)));
}

TEST_F(TcpListen, a_port_in_use_leaves_the_other_family) {
    const Listener in_use("0.0.0.0");
    ASSERT_EQ(listen_on(nullptr), 0);
    EXPECT_THAT(addresses(), ElementsAre("::"));
    EXPECT_THAT(take_messages(), ElementsAre(error("Can't bind socket", EADDRINUSE)));

    close_all();
    const Listener also_in_use("::");
    expect_failure(EADDRINUSE, nullptr);
    EXPECT_THAT(take_messages(),
                ElementsAre(error("Can't bind socket", EADDRINUSE), error("Can't bind socket", EADDRINUSE)));
}

TEST_F(TcpListen, without_any_socket_the_last_error_counts) {
    const Listener in_use("127.0.0.1");
    const struct {
        std::vector<FakeResult> results;
        int error;
    } table[] = {{{{AF_INET, "192.0.2.1"}}, EADDRNOTAVAIL},
                 {{{AF_INET, "192.0.2.1"}, {AF_INET, "127.0.0.1"}}, EADDRINUSE},
                 {{{AF_INET, "127.0.0.1"}, {AF_INET, "192.0.2.1"}}, EADDRNOTAVAIL},
                 {{{AF_INET, "127.0.0.1"}, {AF_INET, "192.0.2.1"}, {AF_UNIX, ""}}, EPROTONOSUPPORT}};

    for (const auto &row : table) {
        const FakeResolver resolver(row.results);
        // A socket that is not stored takes no room.
        for (const int32_t size : {kRoom, 1}) {
            expect_failure(row.error, "some.host", size);
            EXPECT_THAT(take_messages(), SizeIs(row.results.size()));
            EXPECT_EQ(resolver.lists_in_use(), 0u);
        }
    }
}

TEST_F(TcpListen, a_host_without_ipv6_listens_on_ipv4) {
    const OwnHosts names("127.0.0.1 here\n::1 here\n");
    write_file("/proc/sys/net/ipv6/conf/all/disable_ipv6", "1");
    ASSERT_EQ(listen_on("here"), 0);
    EXPECT_THAT(addresses(), ElementsAre("127.0.0.1"));
    EXPECT_THAT(take_messages(), ElementsAre(error("Can't bind socket", EADDRNOTAVAIL)));

    // A kernel without IPv6 makes no such socket.
    const FakeResolver resolver({{AF_INET6, "::"}, {AF_INET, "0.0.0.0"}});
    const FailCall fault(Call::socket, EAFNOSUPPORT);
    ASSERT_EQ(listen_on(nullptr), 0);
    EXPECT_THAT(addresses(), ElementsAre("0.0.0.0"));
    EXPECT_THAT(take_messages(), ElementsAre(debug("Can't create socket", EAFNOSUPPORT)));
}

TEST_F(TcpListen, each_step_before_listening_that_fails_is_passed_over) {
    const struct {
        const char *host;
        Call call;
        int nth;
        std::string text;
    } table[] = {{"127.0.0.1", Call::socket, 1, "Can't create socket"},
                 {"127.0.0.1", Call::setsockopt, 1, "Can't set socket reuse address"},
                 {"127.0.0.1", Call::setsockopt, 2, "Can't set TCP socket nodelay"},
                 {"127.0.0.1", Call::bind, 1, "Can't bind socket"},
                 {"::1", Call::socket, 1, "Can't create socket"},
                 {"::1", Call::setsockopt, 1, "Can't set socket reuse address"},
                 {"::1", Call::setsockopt, 2, "Can't set socket IPv6 only"},
                 {"::1", Call::setsockopt, 3, "Can't set TCP socket nodelay"},
                 {"::1", Call::bind, 1, "Can't bind socket"}};

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.host << ", " << row.text);
        const std::string message = row.call == Call::socket ? debug(row.text, EPERM) : error(row.text, EPERM);
        {
            const FailCall fault(row.call, EPERM, row.nth);
            expect_failure(EPERM, row.host);
            EXPECT_EQ(fault.failed(), 1);
            EXPECT_THAT(take_messages(), ElementsAre(message));
        }
        const bool ipv6 = std::string(row.host) == "::1";
        const FakeResolver resolver({{ipv6 ? AF_INET6 : AF_INET, row.host}, {AF_INET, "127.0.0.9"}});
        const FailCall fault(row.call, EPERM, row.nth);
        ASSERT_EQ(listen_on("both"), 0);
        EXPECT_THAT(addresses(), ElementsAre("127.0.0.9"));
        EXPECT_THAT(take_messages(), ElementsAre(message));
        const auto before = open_descriptors();
        close_all();
        EXPECT_EQ(open_descriptors().size() + 1, before.size());
    }
}

TEST_F(TcpListen, a_listen_that_fails_ends_it) {
    const FakeResolver resolver({{AF_INET, "127.0.0.1"}, {AF_INET, "127.0.0.2"}, {AF_INET, "127.0.0.3"}});
    for (const int nth : {1, 2, 3}) {
        SCOPED_TRACE(nth);
        const FailCall fault(Call::listen, EADDRINUSE, nth);
        const CountCalls sockets(Call::socket);
        expect_failure(EADDRINUSE, "three");
        EXPECT_EQ(sockets.count(), nth);
        for (int i = 0; i < nth; i++)
            EXPECT_EQ(sockets_[i], -1);
        EXPECT_EQ(sockets_[4], kUntouched);
        EXPECT_EQ(resolver.lists_in_use(), 0u);
        EXPECT_THAT(take_messages(), ElementsAre(error("Can't listen socket", EADDRINUSE)));
    }
}

TEST_F(TcpListen, a_port_that_another_program_takes_at_the_last_moment_ends_it) {
    const Descriptor rival(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    const Address address("127.0.0.1", kPort);
    ASSERT_EQ(setsockopt(rival, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    ASSERT_EQ(bind(rival, address.get(), address.size()), 0);
    const BeforeCall late(Call::listen, 1, [&] { EXPECT_EQ(listen(rival, 1), 0); });
    expect_failure(EADDRINUSE, "127.0.0.1");
    EXPECT_TRUE(late.ran());
    EXPECT_THAT(take_messages(), ElementsAre(error("Can't listen socket", EADDRINUSE)));
}

TEST_F(TcpListen, has_the_backlog_that_it_is_given) {
    for (const int32_t backlog : {1, 2, 127, 128}) {
        SCOPED_TRACE(backlog);
        ASSERT_EQ(listen_on(nullptr, kRoom, backlog), 0);
        for (const int32_t socket : {sockets_[0], sockets_[1]}) {
            tcp_info info{};
            socklen_t size = sizeof info;
            ASSERT_EQ(getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size), 0);
            // Of a listener it tells the length of the queue there.
            EXPECT_EQ(info.tcpi_sacked, static_cast<uint32_t>(backlog));
        }
    }
}

TEST_F(TcpListen, bad_arguments_are_refused) {
    const FakeResolver resolver(EAI_NONAME, 0);
    for (const int32_t port : {0, -1, INT32_MIN})
        EXPECT_EQ(listen_on(nullptr, kRoom, 16, port), -22);
    for (const int32_t backlog : {0, 129, 4096, INT32_MAX, -1, INT32_MIN})
        EXPECT_EQ(listen_on(nullptr, kRoom, backlog), -22);
    EXPECT_EQ(TCP_Socket_Listen(nullptr, kPort, 16, nullptr, kRoom), -22);
    EXPECT_THAT(sockets_, testing::Each(kUntouched));
    EXPECT_THAT(resolver.questions(), IsEmpty());
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpListen, takes_a_port_back_while_old_connections_fade_away) {
    ASSERT_EQ(listen_on("127.0.0.1"), 0);
    int32_t client = -1;
    ASSERT_EQ(TCP_Socket_Connect(nullptr, "127.0.0.1", kPort, kPatient, &client), 0);
    const Descriptor closing(client);
    // The side that closes first is the one that waits.
    close(accept(sockets_[0], nullptr, nullptr));
    ASSERT_EQ(listen_on("127.0.0.1"), 0);
    EXPECT_TRUE(connects("127.0.0.1"));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpListen, names_and_sockets_are_for_debugging_and_the_rest_are_errors) {
    const struct {
        Call call;
        int nth;
        bool is_error;
    } table[] = {{Call::getaddrinfo, 1, false}, {Call::socket, 1, false},    {Call::setsockopt, 1, true},
                 {Call::setsockopt, 2, true},   {Call::setsockopt, 3, true}, {Call::bind, 1, true},
                 {Call::listen, 1, true}};

    for (const auto &row : table)
        for (const int32_t level : {0, 1, 2, 3}) {
            LogCapture log(level);
            const FailCall fault(row.call, EIO, row.nth);
            EXPECT_EQ(listen_on("::1"), -EIO);
            EXPECT_THAT(log.messages(), SizeIs(level >= (row.is_error ? 1 : 3) ? 1 : 0));
        }
    for (const int32_t level : {0, 1, 2}) {
        LogCapture log(level);
        EXPECT_EQ(listen_on(nullptr, 0), -ENOMEM);
        EXPECT_THAT(log.messages(), SizeIs(level == 0 ? 0 : 1));
    }
}

TEST_F(TcpListen, threads_listen_at_once) {
    std::vector<std::thread> threads;
    for (int32_t port = kPort; port < kPort + 8; port++)
        threads.emplace_back([port] {
            for (int round = 0; round < 20; round++) {
                std::array<int32_t, 3> sockets{};
                ASSERT_EQ(TCP_Socket_Listen(nullptr, port, 16, sockets.data(), 2), 0);
                for (size_t i = 0; i < 2; i++) {
                    EXPECT_EQ(own_address(sockets[i]).port(), port);
                    close(sockets[i]);
                }
                EXPECT_EQ(sockets[2], -1);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}
