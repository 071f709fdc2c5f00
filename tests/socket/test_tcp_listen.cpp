// Listening over TCP.
#include <gmock/gmock.h>

#include <array>
#include <thread>
#include <vector>

#include "tcp_listen_world.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

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

TEST_F(TcpListen, a_host_without_ipv6_listens_on_ipv4) {
    const OwnHosts names("127.0.0.1 here\n::1 here\n");
    write_file("/proc/sys/net/ipv6/conf/all/disable_ipv6", "1");
    ASSERT_EQ(listen_on("here"), 0);
    EXPECT_THAT(addresses(), ElementsAre("127.0.0.1"));
    EXPECT_THAT(take_messages(), ElementsAre(listen_error("Can't bind socket! (%d)\n", EADDRNOTAVAIL)));

    // A kernel without IPv6 makes no such socket.
    const FakeResolver resolver({{AF_INET6, "::"}, {AF_INET, "0.0.0.0"}});
    const FailCall fault(Call::socket, EAFNOSUPPORT);
    ASSERT_EQ(listen_on(nullptr), 0);
    EXPECT_THAT(addresses(), ElementsAre("0.0.0.0"));
    EXPECT_THAT(take_messages(), ElementsAre(listen_debug("Can't create socket! (%d)\n", EAFNOSUPPORT)));
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
