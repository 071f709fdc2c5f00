/// @file
/// Internal: an end for a handshake, whose steps are limited one by one.
#ifndef KORVEX_DETAIL_HANDSHAKE_LIMIT_HPP
#define KORVEX_DETAIL_HANDSHAKE_LIMIT_HPP

#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>
#include <stop_token>
#include <system_error>
#include <thread>

#include "korvex/detail/wait.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// Shuts a socket down when the time is over or a stop is requested. A peer that sends a byte now and then never makes
/// a step of the handshake late; shut down, the socket has nothing more to give, and the handshake ends.
class handshake_limit {
  public:
    handshake_limit(int link, std::chrono::milliseconds limit, const std::stop_token &stop)
        : link_(link), finished_event_(finished_.get_token()), end_(limit) {
        on_stop_.emplace(stop, hang_up{this, ECANCELED});
        if (limit.count() < 0)
            return;
        try {
            timer_ = std::thread(&handshake_limit::wait, this);
        } catch (const std::system_error &failure) {
            throw error(failure.code().value(), "can't limit the handshake with", "peer");
        }
    }
    ~handshake_limit() { finish(); }
    handshake_limit(const handshake_limit &) = delete;
    handshake_limit &operator=(const handshake_limit &) = delete;

    /// From here on it leaves the socket alone. Why it shut it down: ECANCELED or ETIME; 0 where it did not.
    int finish() {
        on_stop_.reset();
        finished_.request_stop();
        if (timer_.joinable())
            timer_.join();
        return reason_;
    }

  private:
    struct hang_up {
        handshake_limit *limit;
        int reason;
        void operator()() const noexcept {
            limit->reason_ = reason;
            ::shutdown(limit->link_, SHUT_RDWR);
        }
    };

    void wait() noexcept try {
        if (!wait_for(-1, 0, end_, finished_event_, "can't wait for", "peer"))
            hang_up{this, ETIME}();
    } catch (const error &) {
        // The handshake is finished.
    }

    int link_;
    std::atomic<int> reason_ = 0;
    std::stop_source finished_;
    stop_event finished_event_;
    deadline end_;
    std::optional<std::stop_callback<hang_up>> on_stop_;
    std::thread timer_;
};

}  // namespace korvex::detail

#endif
