// What keeps sockets from listening over TCP, and what is left then.
#include <gmock/gmock.h>

#include <vector>

#include "tcp_listen_world.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using TcpListenFailure = TcpListen;

}  // namespace

TEST_F(TcpListenFailure, a_name_that_can_not_be_resolved_gives_the_error_of_the_moment) {
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

TEST_F(TcpListenFailure, more_addresses_than_room_are_an_error_and_leave_nothing_open) {
    for (const int32_t size : {1, 0, -1, INT32_MIN}) {
        SCOPED_TRACE(size);
        const CountCalls sockets(Call::socket);
        // Before any socket the array is left alone, and what lies behind its last place always is.
        expect_failure(ENOMEM, nullptr, size, size == 1 ? -1 : kUntouched);
        EXPECT_EQ(sockets.count(), size == 1 ? 1 : 0);
        EXPECT_EQ(sockets_[1], kUntouched);
        EXPECT_THAT(take_messages(), ElementsAre(too_many()));
    }

    const FakeResolver resolver({{AF_INET, "127.0.0.1"}, {AF_INET, "127.0.0.2"}, {AF_INET, "127.0.0.3"}});
    expect_failure(ENOMEM, "three", 2);
    EXPECT_EQ(sockets_[1], -1);
    EXPECT_EQ(sockets_[2], kUntouched);
    EXPECT_EQ(resolver.lists_in_use(), 0u);
    EXPECT_THAT(take_messages(), ElementsAre(too_many()));
    EXPECT_FALSE(connects("127.0.0.1"));
}

TEST_F(TcpListenFailure, only_sockets_that_were_made_take_room) {
    const std::string not_there = listen_error("Can't bind socket! (%d)\n", EADDRNOTAVAIL);
    {
        const FakeResolver resolver({{AF_INET, "192.0.2.1"}, {AF_INET, "127.0.0.1"}});
        ASSERT_EQ(listen_on("both", 1), 0);
        EXPECT_THAT(addresses(), ElementsAre("127.0.0.1"));
        EXPECT_EQ(sockets_[2], kUntouched);
        EXPECT_THAT(take_messages(), ElementsAre(not_there));
    }
    const FakeResolver resolver({{AF_INET, "127.0.0.1"}, {AF_INET, "192.0.2.1"}});
    expect_failure(ENOMEM, "both", 1);
    EXPECT_THAT(take_messages(), ElementsAre(too_many()));
}

TEST_F(TcpListenFailure, passes_over_addresses_that_can_not_be_had) {
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
    EXPECT_THAT(take_messages(), ElementsAre(listen_error("Can't bind socket! (%d)\n", EADDRINUSE),
                                             listen_error("Can't bind socket! (%d)\n", EADDRNOTAVAIL),
                                             listen_debug("Can't create socket! (%d)\n", EPROTONOSUPPORT),
                                             listen_error("Can't bind socket! (%d)\n", EADDRNOTAVAIL)));
}

TEST_F(TcpListenFailure, a_port_in_use_leaves_the_other_family) {
    const Listener in_use("0.0.0.0");
    ASSERT_EQ(listen_on(nullptr), 0);
    EXPECT_THAT(addresses(), ElementsAre("::"));
    EXPECT_THAT(take_messages(), ElementsAre(listen_error("Can't bind socket! (%d)\n", EADDRINUSE)));

    close_all();
    const Listener also_in_use("::");
    expect_failure(EADDRINUSE, nullptr);
    EXPECT_THAT(take_messages(), ElementsAre(listen_error("Can't bind socket! (%d)\n", EADDRINUSE),
                                             listen_error("Can't bind socket! (%d)\n", EADDRINUSE)));
}

TEST_F(TcpListenFailure, without_any_socket_the_last_error_counts) {
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

TEST_F(TcpListenFailure, each_step_before_listening_that_fails_is_passed_over) {
    const struct {
        const char *host;
        Call call;
        int nth;
        std::string text;
    } table[] = {{"127.0.0.1", Call::socket, 1, "Can't create socket! (%d)\n"},
                 {"127.0.0.1", Call::setsockopt, 1, "Can't set socket reuse address! (%d)\n"},
                 {"127.0.0.1", Call::setsockopt, 2, "Can't set TCP socket nodelay! (%d)\n"},
                 {"127.0.0.1", Call::bind, 1, "Can't bind socket! (%d)\n"},
                 {"::1", Call::socket, 1, "Can't create socket! (%d)\n"},
                 {"::1", Call::setsockopt, 1, "Can't set socket reuse address! (%d)\n"},
                 {"::1", Call::setsockopt, 2, "Can't set socket IPv6 only! (%d)\n"},
                 {"::1", Call::setsockopt, 3, "Can't set TCP socket nodelay! (%d)\n"},
                 {"::1", Call::bind, 1, "Can't bind socket! (%d)\n"}};

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.host << ", " << row.text);
        const std::string message =
            row.call == Call::socket ? listen_debug(row.text, EPERM) : listen_error(row.text, EPERM);
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

TEST_F(TcpListenFailure, a_listen_that_fails_ends_it) {
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
        EXPECT_THAT(take_messages(), ElementsAre(listen_error("Can't listen socket! (%d)\n", EADDRINUSE)));
    }
}

TEST_F(TcpListenFailure, a_port_that_another_program_takes_at_the_last_moment_ends_it) {
    const Descriptor rival(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    const Address address("127.0.0.1", kPort);
    ASSERT_EQ(setsockopt(rival, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    ASSERT_EQ(bind(rival, address.get(), address.size()), 0);
    const BeforeCall late(Call::listen, 1, [&] { EXPECT_EQ(listen(rival, 1), 0); });
    expect_failure(EADDRINUSE, "127.0.0.1");
    EXPECT_TRUE(late.ran());
    EXPECT_THAT(take_messages(), ElementsAre(listen_error("Can't listen socket! (%d)\n", EADDRINUSE)));
}

TEST_F(TcpListenFailure, bad_arguments_are_refused) {
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

TEST_F(TcpListenFailure, names_and_sockets_are_for_debugging_and_the_rest_are_errors) {
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
