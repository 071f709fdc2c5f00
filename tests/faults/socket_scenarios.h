// The scenarios of sockets and TLS, by source, and what they share.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "modules.h"

namespace faults {

Scenarios address_scenarios();
Scenarios tcp_scenarios();
Scenarios local_socket_scenarios();
Scenarios socket_transfer_scenarios();
Scenarios recv_file_scenarios();
Scenarios tls_scenarios();
Scenarios tls_transfer_scenarios();

// Shows whether a descriptor was stored.
constexpr int32_t kUntouched = 12345;

// A socket that a function hands out; closed at the end.
class HandedOut {
  public:
    HandedOut() = default;
    ~HandedOut() {
        if (is_socket())
            close(value_);
    }
    HandedOut(const HandedOut &) = delete;
    HandedOut &operator=(const HandedOut &) = delete;

    int32_t *place() { return &value_; }
    int32_t value() const { return value_; }
    bool is_socket() const { return value_ != -1 && value_ != kUntouched; }

  private:
    int32_t value_ = kUntouched;
};

// The resolver's failures: one that leaves no `errno`, or EINTR, counts as a host that can't be reached.
inline const std::map<Call, std::vector<int>> kResolverErrors = {{Call::getaddrinfo, {EINTR, kNoErrno}}};

inline Rules resolver_rules(const std::vector<Message> &messages) {
    return {
        Rule(Call::getaddrinfo).with(EINTR).with_code(-EHOSTUNREACH).says(messages),
        Rule(Call::getaddrinfo).with(kNoErrno).with_code(-EHOSTUNREACH).says(messages),
        Rule(Call::getaddrinfo).says(messages),
    };
}

}  // namespace faults
