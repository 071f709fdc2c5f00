#include "process/stop_signals.h"

namespace korvex::cli {

sigset_t those_not_ignored(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN)
            sigaddset(&set, signal);
    }
    return set;
}

// SIGRTMIN is how the thread is told to end.
SignalThread::SignalThread(std::function<void(int signal)> on_signal)
    : on_signal_(std::move(on_signal)), signals_(those_not_ignored({SIGINT, SIGTERM, SIGHUP})) {
    sigaddset(&signals_, SIGRTMIN);
    pthread_sigmask(SIG_BLOCK, &signals_, &mask_before_);
    thread_ = std::thread([this] { fetch(); });
}

SignalThread::~SignalThread() {
    pthread_kill(thread_.native_handle(), SIGRTMIN);
    thread_.join();
    pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
}

void SignalThread::fetch() {
    for (int signal = 0; sigwait(&signals_, &signal) == 0 && signal != SIGRTMIN;)
        on_signal_(signal);
}

// The first signal counts; more of them change nothing.
StopSignals::StopSignals()
    : thread_([this](int signal) {
          int none = 0;
          signal_.compare_exchange_strong(none, signal);
          source_.request_stop();
      }) {}

}  // namespace korvex::cli
