// Opening a file at a name where somebody else may have put a pipe, or of which somebody else may hold a lease.
#pragma once

#include <fcntl.h>

#include <cerrno>
#include <ctime>

#include "base/handles.h"

namespace korvex {

// As `openat`, close-on-exec. A pipe without a peer is not waited for; another process's lease is, as a plain `openat`
// waits for it. O_NONBLOCK alone would fail there with EAGAIN. The kernel breaks a lease after its lease-break time, so the
// wait ends. Empty on failure, and `errno` says why.
[[nodiscard]] inline UniqueFd open_without_hanging(int folder, const char *name, int flags, mode_t mode = 0) {
    constexpr timespec kPause{.tv_sec = 0, .tv_nsec = 1'000'000};
    while (true) {
        UniqueFd file(openat(folder, name, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
        if (file || errno != EWOULDBLOCK)
            return file;

        nanosleep(&kPause, nullptr);
    }
}

}  // namespace korvex
