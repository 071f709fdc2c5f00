#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>

namespace tls_test {

// A TCP socket with a port of its own on the loopback interface.
class Port {
  public:
    enum Kind { listening, refusing };

    explicit Port(Kind kind) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *general = reinterpret_cast<sockaddr *>(&address);
        if (bind(descriptor_, general, size) != 0 || getsockname(descriptor_, general, &size) != 0 ||
            (kind == listening && listen(descriptor_, 5) != 0))
            throw std::runtime_error("no port");
        number_ = ntohs(address.sin_port);
    }
    ~Port() { close(descriptor_); }
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    int32_t number() const { return number_; }
    bool has_caller() const {
        pollfd entry{descriptor_, POLLIN, 0};
        return poll(&entry, 1, 0) == 1;
    }
    int accept_one() const { return accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC); }

  private:
    int descriptor_;
    int32_t number_;
};

}  // namespace tls_test
