// The progress line of a copy.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace korvex::cli {

// While it lives, a thread writes bytes, percentage and rate over one line of standard error, if that is a terminal:
// at once, twice a second, and when it ends.
class ProgressLine {
  public:
    // Tells how many bytes are there by now. It may take its time, but ends early once the flag is set.
    using Measure = std::function<uint64_t(int32_t *stop)>;

    ProgressLine(uint64_t whole, Measure measure);
    ~ProgressLine();
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    // Whether there is somebody to see it.
    static bool is_shown();

  private:
    using Clock = std::chrono::steady_clock;

    void show_again_and_again();
    void show(uint64_t done) const;

    const uint64_t whole_;
    const Measure measure_;
    const Clock::time_point start_ = Clock::now();
    int32_t stop_measuring_ = 0;
    bool ended_ = false;
    std::mutex mutex_;
    std::condition_variable end_;
    std::thread thread_;
};

}  // namespace korvex::cli
