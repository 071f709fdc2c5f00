// Many connections in one process: nothing of them is left behind.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <thread>

#include "heap.h"
#include "network.h"
#include "sandbox.h"
#include "socket.h"

namespace {

constexpr int32_t kPort = 4000;
constexpr int kCycles = 10'000;

// Answers each client with what it said, until `cycles` have come.
void echo_many(int listener, int cycles) {
    for (int i = 0; i < cycles; i++) {
        const int peer = accept(listener, nullptr, nullptr);
        std::array<char, 5> said{};
        ASSERT_EQ(Exactly_Recv(peer, said.data(), said.size(), 20'000), 5);
        ASSERT_EQ(Exactly_Send(peer, said.data(), said.size(), MSG_NOSIGNAL), 5);
        close(peer);
    }
}

void connect_many(int cycles) {
    std::array<int32_t, 2> listeners{};
    ASSERT_EQ(TCP_Socket_Listen("127.0.0.1", kPort, 128, listeners.data(), 1), 0);
    std::thread server([&] { echo_many(listeners[0], cycles); });
    for (int i = 0; i < cycles; i++) {
        int32_t socket = -1;
        ASSERT_EQ(TCP_Socket_Connect(nullptr, "127.0.0.1", kPort, 20'000, &socket), 0);
        ASSERT_EQ(Exactly_Send(socket, "hello", 5, MSG_NOSIGNAL), 5);
        std::array<char, 5> answer{};
        ASSERT_EQ(Exactly_Recv(socket, answer.data(), answer.size(), 20'000), 5);
        ASSERT_EQ(std::string(answer.data(), answer.size()), "hello");
        close(socket);
    }
    server.join();
    close(listeners[0]);
}

}  // namespace

TEST(SocketSoak, ten_thousand_connections_leave_nothing_behind) {
    support::enter_network();
    const auto before = support::open_descriptors();
    connect_many(100);
    const size_t full = support::heap_in_use();
    connect_many(kCycles);
    EXPECT_LT(support::heap_in_use(), full + size_t{kCycles});
    EXPECT_EQ(support::open_descriptors(), before);
}
