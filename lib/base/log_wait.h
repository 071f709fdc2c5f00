// Messages that must not wait for the lock of the log that they go to.
#pragma once

namespace korvex {

// How many NoLogWait live in this thread. initial-exec keeps the object free of the dynamic loader's TLS call, and so of a
// dependency besides libc.
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): its start value is a constant
[[gnu::tls_model("initial-exec"), gnu::visibility("hidden")]] extern constinit thread_local int t_no_log_wait;

// While one lives, what this thread writes to a log is written at once, whoever holds the log's lock. The functions that
// wait for locks report under one: their own wait must end in time, and nobody's lock may be kept meanwhile.
class NoLogWait final {
  public:
    NoLogWait() { t_no_log_wait++; }
    ~NoLogWait() { t_no_log_wait--; }
    NoLogWait(const NoLogWait &) = delete;
    NoLogWait &operator=(const NoLogWait &) = delete;

    static bool in_force() { return t_no_log_wait > 0; }
};

}  // namespace korvex
