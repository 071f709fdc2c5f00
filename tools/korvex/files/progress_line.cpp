#include "files/progress_line.h"

#include <unistd.h>

#include <algorithm>
#include <string>

#include "files/path_text.h"

namespace korvex::cli {

ProgressLine::ProgressLine(uint64_t whole, Measure measure) : whole_(whole), measure_(std::move(measure)) {
    if (!is_shown())
        return;
    show(0);
    thread_ = std::thread([this] { show_again_and_again(); });
}

ProgressLine::~ProgressLine() {
    if (!thread_.joinable())
        return;

    __atomic_store_n(&stop_measuring_, 1, __ATOMIC_RELAXED);
    {
        const std::lock_guard guard(mutex_);
        ended_ = true;
    }
    end_.notify_one();
    thread_.join();

    int32_t never = 0;
    show(measure_(&never));
    (void)!write(STDERR_FILENO, "\n", 1);
}

bool ProgressLine::is_shown() {
    return isatty(STDERR_FILENO) == 1;
}

// Measuring a large tree takes a while: it gets at most a tenth of the time.
void ProgressLine::show_again_and_again() {
    constexpr Clock::duration kInterval = std::chrono::milliseconds(500);
    Clock::duration pause = kInterval;
    std::unique_lock lock(mutex_);
    while (!end_.wait_for(lock, pause, [this] { return ended_; })) {
        lock.unlock();
        const Clock::time_point before = Clock::now();
        const uint64_t done = measure_(&stop_measuring_);
        pause = std::max(kInterval, 10 * (Clock::now() - before));
        lock.lock();
        if (!ended_)
            show(done);
    }
}

void ProgressLine::show(uint64_t done) const {
    const double seconds = std::max(0.001, std::chrono::duration<double>(Clock::now() - start_).count());
    const double part = whole_ == 0 ? 1 : static_cast<double>(done) / static_cast<double>(whole_);
    const int percent = static_cast<int>(100 * std::min(1.0, part));
    const auto rate = static_cast<uint64_t>(static_cast<double>(done) / seconds);
    const std::string line = "\r" + size_text(done) + " of " + size_text(whole_) + ", " + std::to_string(percent) +
                             "%, " + size_text(rate) + "/s\x1b[K";
    (void)!write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace korvex::cli
