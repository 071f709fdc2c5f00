// Signals that would end the tool. A thread takes them while something must be put in order first.
#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <initializer_list>
#include <stop_token>
#include <thread>

namespace korvex::cli {

// The given signals, without those that were ignored when the process was started: nohup starts a process so, and a script
// its background jobs. They must not be blocked, since a blocked signal becomes pending even if it is ignored.
sigset_t those_not_ignored(std::initializer_list<int> signals);

// While it lives, SIGINT, SIGTERM and SIGHUP don't end the process: a thread fetches them and hands each on.
class SignalThread {
  public:
    explicit SignalThread(std::function<void(int signal)> on_signal);
    ~SignalThread();
    SignalThread(const SignalThread &) = delete;
    SignalThread &operator=(const SignalThread &) = delete;

  private:
    void fetch();

    const std::function<void(int signal)> on_signal_;
    sigset_t signals_;
    sigset_t mask_before_{};
    std::thread thread_;
};

// Ends a long operation by way of its stop token, when one of the signals comes.
class StopSignals {
  public:
    StopSignals();

    std::stop_token token() const { return source_.get_token(); }
    // The signal that came; 0 for none.
    int signal() const { return signal_; }

  private:
    std::stop_source source_;
    std::atomic<int> signal_ = 0;
    SignalThread thread_;
};

}  // namespace korvex::cli
