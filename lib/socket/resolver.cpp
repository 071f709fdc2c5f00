#include "resolver.h"

#include <netinet/in.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "base/message.h"

namespace korvex::socket {

int32_t resolve(const char *host, const char *service, int flags, AddressList &list, const char *function) {
    addrinfo hints{};
    hints.ai_flags = flags;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;

    // The code is made of `errno` alone, which the resolver may leave untouched.
    errno = 0;
    addrinfo *first = nullptr;
    if (getaddrinfo(host, service, &hints, &first) == 0) {
        list.reset(first);
        return 0;
    }

    const int32_t result = errno == 0 || errno == EINTR ? -EHOSTUNREACH : -errno;
    LOG_DEBUG_AS(function, "Can't getaddrinfo error! (%d)\n", result);
    return result;
}

int32_t resolve(const char *host, int32_t port, int flags, AddressList &list, const char *function) {
    std::array<char, 16> service;
    std::snprintf(service.data(), service.size(), "%d", port);
    return resolve(host, service.data(), flags, list, function);
}

}  // namespace korvex::socket
