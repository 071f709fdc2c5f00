// Signals that end a long operation by way of its stop flag.
#pragma once

#include <csignal>
#include <cstdint>
#include <initializer_list>
#include <thread>

namespace korvex::cli {

// The given signals, without those that were ignored when the process was started, as nohup and the background jobs
// of a script start theirs. A signal that is blocked would become pending all the same.
sigset_t those_not_ignored(std::initializer_list<int> signals);

// While it lives, SIGINT, SIGTERM and SIGHUP don't end the process: a thread fetches them and sets the stop flag.
class StopSignals {
  public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals &) = delete;
    StopSignals &operator=(const StopSignals &) = delete;

    // For the library, which reads it while it works.
    int32_t *flag() { return &flag_; }
    // The signal that came; 0 for none.
    int32_t signal() const { return __atomic_load_n(&flag_, __ATOMIC_RELAXED); }

  private:
    void fetch();

    int32_t flag_ = 0;
    sigset_t signals_;
    sigset_t mask_before_{};
    std::thread thread_;
};

}  // namespace korvex::cli
