// Calls that can wait: without the interpreter's lock, and ended by Ctrl-C, by a `stop` of the caller, or by a callback that
// raises.
#ifndef KORVEX_PYTHON_SUPERVISION_H
#define KORVEX_PYTHON_SUPERVISION_H

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <stop_token>
#include <thread>
#include <type_traits>
#include <utility>

#include "released_gil.h"

namespace korvex::python {

namespace py = pybind11;

/// What a supervised work may look at and report to.
struct work_control {
    std::stop_token stop{};
    std::atomic<std::int64_t> *progress = nullptr;
};

/// How a caller follows a work. Python runs its handlers of signals in the main thread alone and only between its own
/// steps. So where somebody is to be asked, the work goes to a thread of its own, which gets no signals, and the
/// caller's thread asks every few milliseconds: pending signals, `stop`, `progress`. Whatever raises there ends the work by
/// its stop token; the exception leaves when the work has ended, so nothing of it goes on in the background.
class supervision {
  public:
    /// @param stop      callable without arguments; true ends the work. Or None
    /// @param progress  callable with the bytes moved so far. Or None
    explicit supervision(py::object stop, py::object progress = py::none())
        : stop_(std::move(stop)), progress_(std::move(progress)) {}

    /// Runs a work to its end. Called with the interpreter's lock, which the work does without.
    template <class Work>
    std::invoke_result_t<Work, const work_control &> run(Work work) const {
        std::atomic<std::int64_t> moved = 0;
        if (!is_needed()) {
            const released_gil released;
            return work(work_control{});
        }

        std::stop_source source;
        if (is_stopped())
            source.request_stop();
        const work_control control{.stop = source.get_token(), .progress = &moved};
        std::packaged_task<std::invoke_result_t<Work, const work_control &>()> task([&] { return work(control); });
        auto result = task.get_future();
        {
            const std::jthread worker = started([&task] { task(); });
            watch(source, moved, has_come(result));
        }
        return result.get();
    }

    /// Runs a work that can't be stopped, such as asking for a name. What raises leaves at once, and the work ends by itself;
    /// so it must own all that it uses, and what it answers with must give itself back.
    template <class Work>
    std::invoke_result_t<Work> run_or_abandon(Work work) const {
        if (!is_needed()) {
            const released_gil released;
            return work();
        }
        const auto task = std::make_shared<std::packaged_task<std::invoke_result_t<Work>()>>(std::move(work));
        auto result = task->get_future();
        started([task] { (*task)(); }).detach();
        watch_or_leave(has_come(result));
        return result.get();
    }

  private:
    using wait_slice = std::function<bool(std::chrono::milliseconds)>;

    template <class Result>
    static wait_slice has_come(std::future<Result> &result) {
        return
            [&result](std::chrono::milliseconds slice) { return result.wait_for(slice) == std::future_status::ready; };
    }
    bool is_needed() const;
    static std::jthread started(std::function<void()> body);
    void watch(std::stop_source &source, const std::atomic<std::int64_t> &moved, const wait_slice &is_done) const;
    void watch_or_leave(const wait_slice &is_done) const;
    bool is_stopped() const;
    void report(const std::atomic<std::int64_t> &moved, std::int64_t &reported) const;

    py::object stop_;
    py::object progress_;
};

}  // namespace korvex::python

#endif
