#include "supervision.h"

#include <cxxabi.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "korvex/error.hpp"

namespace korvex::python {
namespace {

constexpr std::chrono::milliseconds kSlice{50};

bool is_main_thread() noexcept {
    return ::syscall(SYS_gettid) == ::getpid();
}

/// While it lives, threads that are made get no signals but those of their own faults.
class signals_for_others {
  public:
    signals_for_others() noexcept {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
            sigdelset(&blocked, fault);
        ::pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    }
    ~signals_for_others() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    signals_for_others(const signals_for_others &) = delete;
    signals_for_others &operator=(const signals_for_others &) = delete;

  private:
    sigset_t before_{};
};

bool without_lock(const std::function<bool(std::chrono::milliseconds)> &is_done) {
    const released_gil released;
    return is_done(kSlice);
}

/// Calls back into Python. The ending interpreter unwinds a daemon thread out of there, too: see `released_gil`.
template <class Call>
std::invoke_result_t<Call> call_python(Call call) try {
    return call();
} catch (const abi::__forced_unwind &) {
    sleep_until_the_end();
}

void check_signals() {
    if (PyErr_CheckSignals() != 0)
        throw py::error_already_set();
}

}  // namespace

bool supervision::is_needed() const {
    return !stop_.is_none() || !progress_.is_none() || is_main_thread();
}

std::jthread supervision::started(std::function<void()> body) {
    const signals_for_others masked;
    return std::jthread(std::move(body));
}

void supervision::watch(std::stop_source &source, const std::atomic<std::int64_t> &moved,
                        const wait_slice &is_done) const {
    std::int64_t reported = 0;
    try {
        while (!without_lock(is_done)) {
            check_signals();
            report(moved, reported);
            if (!source.stop_requested() && is_stopped())
                source.request_stop();
        }
        report(moved, reported);
    } catch (...) {
        source.request_stop();
        while (!without_lock(is_done)) {}
        throw;
    }
}

void supervision::watch_or_leave(const wait_slice &is_done) const {
    while (!without_lock(is_done)) {
        check_signals();
        if (is_stopped())
            throw error(errc::canceled, "can't wait for", "an answer");
    }
}

bool supervision::is_stopped() const {
    return !stop_.is_none() && call_python([this] { return static_cast<bool>(py::bool_(stop_())); });
}

void supervision::report(const std::atomic<std::int64_t> &moved, std::int64_t &reported) const {
    const std::int64_t now = moved.load(std::memory_order_relaxed);
    if (!progress_.is_none() && now != reported)
        call_python([&] { progress_(reported = now); });
}

}  // namespace korvex::python
