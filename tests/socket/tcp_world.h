// What the tests of TCP share: a private network, names, listeners, and a look at what the library asks the system for.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "fake_resolver.h"
#include "network.h"
#include "own_hosts.h"
#include "socket_world.h"

namespace socket_test {

// Ports are free in a private network.
constexpr int32_t kPort = 4000;

// In tests where the time-out plays no part.
constexpr int32_t kPatient = 60'000;

struct PrivateNetwork {
    PrivateNetwork() { enter_network(); }
};

// A network in which nothing stands but "lo", with 127.0.0.1 and ::1.
class NetworkTest : private PrivateNetwork, public SocketTest {};

// An IPv4 or IPv6 address as the system's calls take it.
class Address {
  public:
    Address(const std::string &text, int32_t port) {
        auto *ipv4 = reinterpret_cast<sockaddr_in *>(&storage_);
        auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(&storage_);
        if (inet_pton(AF_INET, text.c_str(), &ipv4->sin_addr) == 1)
            storage_.ss_family = AF_INET;
        else if (inet_pton(AF_INET6, text.c_str(), &ipv6->sin6_addr) == 1)
            storage_.ss_family = AF_INET6;
        else
            throw std::runtime_error("no address: " + text);
        // The port is at the same place in both.
        ipv4->sin_port = htons(static_cast<in_port_t>(port));
    }
    Address(const sockaddr *address, socklen_t size) { std::memcpy(&storage_, address, size); }

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&storage_); }
    socklen_t size() const { return storage_.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6); }
    int32_t port() const { return ntohs(reinterpret_cast<const sockaddr_in *>(&storage_)->sin_port); }
    uint32_t scope() const {
        return storage_.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6 *>(&storage_)->sin6_scope_id : 0;
    }
    std::string text() const {
        char text[INET6_ADDRSTRLEN] = "?";
        const auto *ipv4 = reinterpret_cast<const sockaddr_in *>(&storage_);
        const auto *ipv6 = reinterpret_cast<const sockaddr_in6 *>(&storage_);
        if (storage_.ss_family == AF_INET)
            inet_ntop(AF_INET, &ipv4->sin_addr, text, sizeof text);
        else if (storage_.ss_family == AF_INET6)
            inet_ntop(AF_INET6, &ipv6->sin6_addr, text, sizeof text);
        return text;
    }

  private:
    sockaddr_storage storage_{};
};

inline Address own_address(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size), 0);
    return {reinterpret_cast<sockaddr *>(&address), size};
}

inline Address peer_address(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(getpeername(socket, reinterpret_cast<sockaddr *>(&address), &size), 0);
    return {reinterpret_cast<sockaddr *>(&address), size};
}

// A listening socket of the test.
class Listener {
  public:
    explicit Listener(const std::string &address, int backlog = 16, int32_t port = kPort)
        : socket_(::socket(Address(address, port).get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const Address own(address, port);
        const int on = 1;
        if (own.get()->sa_family == AF_INET6)
            setsockopt(socket_, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
        if (bind(socket_, own.get(), own.size()) != 0 || ::listen(socket_, backlog) != 0)
            throw std::runtime_error("can't listen on " + address);
    }

    // Takes the next connection.
    int accept() const { return accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC); }
    // Waits until a connection is in the queue.
    void wait() const {
        pollfd entry{socket_, POLLIN, 0};
        EXPECT_EQ(poll(&entry, 1, kPatient), 1);
    }

  private:
    const Descriptor socket_;
};

// A listener whose queue is full, so that the system drops what more clients send.
class BusyListener {
  public:
    explicit BusyListener(const std::string &address)
        : listener_(address, 0),
          client_(::socket(Address(address, kPort).get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const Address peer(address, kPort);
        EXPECT_EQ(connect(client_, peer.get(), peer.size()), 0);
        listener_.wait();
    }

  private:
    const Listener listener_;
    const Descriptor client_;
};

// Notes what this thread asks the system for, a text for each call.
class Steps {
  public:
    const std::vector<std::string> &taken() const { return taken_; }

  private:
    void add(const std::string &step) { taken_.push_back(step); }
    static std::string text_of(const Arguments &arguments) {
        const Address address(arguments.at<const sockaddr *>(1), arguments.at<socklen_t>(2));
        const std::string scope = address.scope() == 0 ? "" : " scope " + std::to_string(address.scope());
        return address.text() + scope + " port " + std::to_string(address.port());
    }
    static std::string option_of(const Arguments &arguments) {
        const struct {
            int level;
            int option;
            const char *name;
        } names[] = {{IPPROTO_TCP, TCP_NODELAY, "TCP_NODELAY"},
                     {SOL_SOCKET, SO_RCVTIMEO, "SO_RCVTIMEO"},
                     {SOL_SOCKET, SO_SNDTIMEO, "SO_SNDTIMEO"},
                     {SOL_SOCKET, SO_REUSEADDR, "SO_REUSEADDR"},
                     {IPPROTO_IPV6, IPV6_V6ONLY, "IPV6_V6ONLY"}};
        std::string text =
            "option " + std::to_string(arguments.at<int>(1)) + " " + std::to_string(arguments.at<int>(2));
        for (const auto &row : names)
            if (arguments.at<int>(1) == row.level && arguments.at<int>(2) == row.option)
                text = row.name;
        if (arguments.at<socklen_t>(4) == sizeof(int))
            return text + " " + std::to_string(*arguments.at<const int *>(3));

        const auto *time = arguments.at<const timeval *>(3);
        return text + " " + std::to_string(time->tv_sec) + " s " + std::to_string(time->tv_usec) + " us";
    }

    std::vector<std::string> taken_;
    const BeforeCall socket_{Call::socket, 0, [this](const Arguments &arguments) {
                                 add("socket " + std::to_string(arguments.at<int>(0)) + " " +
                                     std::to_string(arguments.at<int>(1)) + " " + std::to_string(arguments.at<int>(2)));
                             }};
    const BeforeCall setsockopt_{Call::setsockopt, 0,
                                 [this](const Arguments &arguments) { add(option_of(arguments)); }};
    const BeforeCall bind_{Call::bind, 0, [this](const Arguments &arguments) { add("bind " + text_of(arguments)); }};
    const BeforeCall listen_{
        Call::listen, 0, [this](const Arguments &arguments) { add("listen " + std::to_string(arguments.at<int>(1))); }};
    const BeforeCall connect_{Call::connect, 0,
                              [this](const Arguments &arguments) { add("connect " + text_of(arguments)); }};
};

// How many lists of the resolver were not freed.
class ResultLists {
  public:
    int64_t kept() const { return asked_.count() - freed_.count(); }

  private:
    const CountCalls asked_{Call::getaddrinfo};
    const CountCalls freed_{Call::freeaddrinfo};
};

}  // namespace socket_test
