/// @file
/// Internal: keeps SIGPIPE away from this thread for a while.
#ifndef KORVEX_DETAIL_PIPE_SIGNAL_HPP
#define KORVEX_DETAIL_PIPE_SIGNAL_HPP

#include <signal.h>

#include <cerrno>
#include <ctime>

namespace korvex::detail {

/// For calls that write to a socket and can't be told not to raise the signal. `errno` stays.
class no_pipe_signal {
  public:
    no_pipe_signal() noexcept {
        sigset_t pending;
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~no_pipe_signal() {
        const int code = errno;
        const timespec at_once{};
        while (!was_pending_ && sigtimedwait(&pipe_, nullptr, &at_once) < 0 && errno == EINTR) {}
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = code;
    }
    no_pipe_signal(const no_pipe_signal &) = delete;
    no_pipe_signal &operator=(const no_pipe_signal &) = delete;

  private:
    sigset_t pipe_;
    sigset_t before_;
    bool was_pending_ = false;
};

}  // namespace korvex::detail

#endif
