// Waiting with `select` for one descriptor, and its time-outs.
#pragma once

#include <fcntl.h>
#include <sys/select.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>

#include "base/descriptor_set.h"

namespace korvex {

inline timeval to_timeval(int32_t milliseconds) {
    return {.tv_sec = milliseconds / 1000, .tv_usec = milliseconds % 1000 * 1000L};
}

enum class Readiness { to_read, to_write };

// 1 when the descriptor is ready, 0 when the time is over, or a negated errno, which `errno` then is, too. No time-out
// waits without limit; a negative one is refused before the descriptor is looked at, as `select` does it.
[[nodiscard]] inline int32_t wait_until_ready(int32_t descriptor, Readiness readiness, timeval *timeout) {
    if (descriptor < 0) {
        const bool is_refused = timeout != nullptr && (timeout->tv_sec < 0 || timeout->tv_usec < 0);
        errno = is_refused ? EINVAL : EBADF;
        return -errno;
    }

    // The set gets as large as the number asks for. So a large number must be an open descriptor before a set is made for it.
    if (descriptor >= FD_SETSIZE && fcntl(descriptor, F_GETFD) < 0)
        return -errno;

    DescriptorSet set;
    if (!set.reserve(descriptor))
        return -ENOMEM;

    set.add(descriptor);
    fd_set *readable = readiness == Readiness::to_read ? set.get() : nullptr;
    fd_set *writable = readiness == Readiness::to_write ? set.get() : nullptr;
    const int ready = select(descriptor + 1, readable, writable, nullptr, timeout);
    return ready >= 0 ? ready : -errno;
}

}  // namespace korvex
