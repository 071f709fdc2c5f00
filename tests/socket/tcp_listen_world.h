// What the tests of listening over TCP share.
#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "tcp_world.h"

namespace socket_test {

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
    void expect_failure(int error, const char *host, int32_t size = kRoom, int32_t first = -1) {
        close_all();
        const auto before = open_descriptors();
        const ResultLists lists;
        EXPECT_EQ(listen_on(host, size), -error);
        EXPECT_EQ(sockets_[0], first);
        EXPECT_EQ(lists.kept(), 0);
        EXPECT_EQ(open_descriptors(), before);
    }
    // The addresses that the sockets before the -1 are bound to.
    std::vector<std::string> addresses() const {
        std::vector<std::string> texts;
        for (size_t i = 0; i < sockets_.size() && sockets_[i] != -1; i++) {
            EXPECT_EQ(own_address(sockets_[i]).port(), kPort);
            texts.push_back(own_address(sockets_[i]).text());
        }
        return texts;
    }
    static std::string listen_error(const std::string &text, int code) {
        return "[error] TCP_Socket_Listen(#): " + with_code(text, code);
    }
    static std::string listen_debug(const std::string &text, int code) {
        return "[debug] TCP_Socket_Listen(#): " + with_code(text, code);
    }
    static std::string too_many() { return listen_error("Insufficient array buffer for socket! (%d)\n", ENOMEM); }
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

inline bool connects(const char *host) {
    int32_t client = -1;
    const int32_t result = TCP_Socket_Connect(nullptr, host, kPort, kPatient, &client);
    if (result == 0)
        close(client);
    return result == 0;
}

}  // namespace socket_test
