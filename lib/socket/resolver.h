// Host names to addresses, for the functions that need more of the answer than a text.
#pragma once

#include <netdb.h>

#include <cstdint>
#include <memory>

namespace korvex::socket {

struct AddressFreer {
    void operator()(addrinfo *list) const { freeaddrinfo(list); }
};

using AddressList = std::unique_ptr<addrinfo, AddressFreer>;

// Asks for the stream addresses of a host. 0 with the list; else the code of the failure, which is reported in the name of
// `function`.
[[nodiscard]] int32_t resolve(const char *host, const char *service, int flags, AddressList &list,
                              const char *function);

// The same for a port.
[[nodiscard]] int32_t resolve(const char *host, int32_t port, int flags, AddressList &list, const char *function);

}  // namespace korvex::socket
