// Socket options that connections and listeners share. 0 or a negated errno; none reports anything.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>

namespace korvex::socket {

template <class Value>
[[nodiscard]] int32_t set_option(int socket, int level, int option, const Value &value) {
    return setsockopt(socket, level, option, &value, sizeof value) == 0 ? 0 : -errno;
}

[[nodiscard]] inline int32_t switch_on(int socket, int level, int option) {
    return set_option(socket, level, option, int{1});
}

}  // namespace korvex::socket
