// Connected stream sockets that wait, and what disturbs them.
#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "descriptors.h"

namespace socket_test {

using support::Descriptor;
using support::Pair;

enum class Kind { local, tcp };

inline std::string name_of(Kind kind) {
    return kind == Kind::local ? "local" : "tcp";
}

inline std::array<int, 2> tcp_ends() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *generic = reinterpret_cast<sockaddr *>(&address);

    const Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int in = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, generic, size) != 0 || listen(listener, 1) != 0 || getsockname(listener, generic, &size) != 0 ||
        connect(in, generic, size) != 0)
        throw std::runtime_error("no TCP connection");
    return {accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), in};
}

inline std::array<int, 2> local_ends() {
    return support::two_ends([](int *ends) { return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends); });
}

// Both ends wait.
struct Stream : Pair {
    explicit Stream(Kind kind = Kind::local) : Pair(kind == Kind::local ? local_ends() : tcp_ends()) {}
};

// Fills a socket until it takes no more, and returns the number of bytes. What TCP has sent is acknowledged some time
// later, which makes room for more.
inline size_t fill(int socket) {
    int domain = 0;
    socklen_t size = sizeof domain;
    getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &domain, &size);

    const std::string bytes(4096, 'f');
    size_t total = 0;
    pollfd room{socket, POLLOUT, 0};
    do
        for (ssize_t sent = 0; sent >= 0; sent = send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL))
            total += static_cast<size_t>(sent);
    while (poll(&room, 1, domain == AF_UNIX ? 0 : 250) > 0);
    return total;
}

// Interrupts the system calls of the thread that made it for as long as it lives. It does so again and again: a signal
// that comes before the wait begins interrupts nothing. The handler stays, for a signal that is still on its way.
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        thread_ = std::thread([this, target = pthread_self()] {
            while (!done_) {
                pthread_kill(target, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    ~Interruptions() {
        done_ = true;
        thread_.join();
    }
    Interruptions(const Interruptions &) = delete;
    Interruptions &operator=(const Interruptions &) = delete;

  private:
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

}  // namespace socket_test
