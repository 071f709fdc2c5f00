// Socket options that connections and listeners share. 0 or a negated errno.
#pragma once

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

#include "base/readiness.h"

namespace korvex::socket {

template <class Value>
[[nodiscard]] int32_t set_option(int socket, int level, int option, const Value &value) {
    return setsockopt(socket, level, option, &value, sizeof value) == 0 ? 0 : -errno;
}

[[nodiscard]] inline int32_t switch_on(int socket, int level, int option) {
    return set_option(socket, level, option, int{1});
}

// How long receiving and sending may take. `report(which, result)` is called for the one that can't be set.
template <class Report>
[[nodiscard]] int32_t set_timeouts(int socket, int32_t milliseconds, Report report) {
    const timeval limit = to_timeval(milliseconds);
    int32_t result = set_option(socket, SOL_SOCKET, SO_RCVTIMEO, limit);
    if (result != 0) {
        report("recv", result);
        return result;
    }

    result = set_option(socket, SOL_SOCKET, SO_SNDTIMEO, limit);
    if (result != 0)
        report("send", result);
    return result;
}

}  // namespace korvex::socket
