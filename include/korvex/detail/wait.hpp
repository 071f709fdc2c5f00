/// @file
/// Internal: waiting for descriptors with a limit by the steady clock and a stop token.
#ifndef KORVEX_DETAIL_WAIT_HPP
#define KORVEX_DETAIL_WAIT_HPP

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <stop_token>
#include <string_view>
#include <vector>

#include "korvex/detail/call.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// The end of a limited time; a negative limit has none.
class deadline {
  public:
    explicit deadline(std::chrono::milliseconds limit) {
        const auto now = std::chrono::steady_clock::now();
        if (limit.count() >= 0 && limit < std::chrono::duration_cast<std::chrono::milliseconds>(
                                              std::chrono::steady_clock::time_point::max() - now))
            end_ = now + limit;
    }

    /// What is left for `poll`, rounded up, so that nobody wakes too early; -1 without an end.
    int left() const noexcept {
        if (!end_)
            return -1;
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(*end_ - std::chrono::steady_clock::now());
        return static_cast<int>(std::clamp<std::int64_t>(rest.count(), 0, std::numeric_limits<int>::max()));
    }

  private:
    std::optional<std::chrono::steady_clock::time_point> end_;
};

/// Becomes readable when a stop is requested; where that can't happen it costs nothing.
class stop_event {
  public:
    explicit stop_event(const std::stop_token &token)
        : event_(token.stop_possible() ? ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK) : -1),
          callback_(token, setter{event_.get()}) {
        if (token.stop_possible() && !event_)
            throw error(errno, "can't wait for", "a stop");
    }

    /// -1, which `poll` passes over, without a token.
    int get() const noexcept { return event_.get(); }

  private:
    struct setter {
        int event;
        void operator()() const noexcept {
            const std::uint64_t one = 1;
            [[maybe_unused]] const ssize_t put = ::write(event, &one, sizeof one);
        }
    };
    descriptor event_;
    std::stop_callback<setter> callback_;
};

/// Waits until one of some descriptors is ready, which includes one that has hung up.
///
/// @param wanted  what to wait for; room for one more entry at the end, which is the stop's
/// @return false when the time is over; throws `std::errc::operation_canceled` when stopped
inline bool wait_for(std::span<pollfd> wanted, const deadline &end, const stop_event &stop, std::string_view action,
                     std::string_view subject) {
    wanted.back() = {.fd = stop.get(), .events = POLLIN, .revents = 0};
    for (;;) {
        const int ready = ::poll(wanted.data(), wanted.size(), end.left());
        if (ready < 0 && errno == EINTR)
            continue;
        if (check_system(ready, action, subject) == 0) {
            if (end.left() != 0)  // `poll` takes less time at once than there may be
                continue;
            return false;
        }
        if (wanted.back().revents != 0)
            throw error(ECANCELED, action, subject);
        for (const pollfd &one : wanted)
            if ((one.revents & POLLNVAL) != 0)
                throw error(EBADF, action, subject);
        return true;
    }
}

inline bool wait_for(int file, short events, const deadline &end, const stop_event &stop, std::string_view action,
                     std::string_view subject) {
    pollfd wanted[] = {{.fd = file, .events = events, .revents = 0}, {}};
    return wait_for(std::span<pollfd>(wanted), end, stop, action, subject);
}

}  // namespace korvex::detail

#endif
