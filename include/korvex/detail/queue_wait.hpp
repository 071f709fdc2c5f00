/// @file
/// Internal: the mutex and the condition of a queue.
#ifndef KORVEX_DETAIL_QUEUE_WAIT_HPP
#define KORVEX_DETAIL_QUEUE_WAIT_HPP

#include <pthread.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <stop_token>

namespace korvex::detail {

/// POSIX's own, since the C queue broadcasts a `pthread_cond_t`.
class queue_wait {
  public:
    queue_wait() = default;
    ~queue_wait() {
        pthread_cond_destroy(&condition_);
        pthread_mutex_destroy(&mutex_);
    }
    queue_wait(const queue_wait &) = delete;
    queue_wait &operator=(const queue_wait &) = delete;

    /// Holds the mutex as long as it lives.
    class lock {
      public:
        explicit lock(queue_wait &wait) noexcept : mutex_(wait.mutex_) { pthread_mutex_lock(&mutex_); }
        ~lock() { pthread_mutex_unlock(&mutex_); }
        lock(const lock &) = delete;
        lock &operator=(const lock &) = delete;

      private:
        pthread_mutex_t &mutex_;
    };

    /// Wakes all who wait when a stop is requested. Make it before a `lock`, which it takes itself.
    class stop_waker {
      public:
        stop_waker(queue_wait &wait, const std::stop_token &token) : callback_(token, waker{&wait}) {}

      private:
        struct waker {
            queue_wait *wait;
            void operator()() const noexcept {
                const lock held(*wait);
                wait->wake_all();
            }
        };
        std::stop_callback<waker> callback_;
    };

    pthread_cond_t *condition() noexcept { return &condition_; }
    void wake_all() noexcept { pthread_cond_broadcast(&condition_); }

    /// Waits with the mutex held, until woken or, where there is one, until `end`; false when that is over.
    bool sleep(std::optional<std::chrono::steady_clock::time_point> end) noexcept {
        if (!end)
            return pthread_cond_wait(&condition_, &mutex_) == 0;

        using std::chrono::duration_cast;
        const auto seconds = duration_cast<std::chrono::seconds>(end->time_since_epoch());
        const std::chrono::nanoseconds rest = end->time_since_epoch() - seconds;
        const timespec at{.tv_sec = seconds.count(), .tv_nsec = rest.count()};
        return pthread_cond_clockwait(&condition_, &mutex_, CLOCK_MONOTONIC, &at) == 0;
    }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
};

}  // namespace korvex::detail

#endif
