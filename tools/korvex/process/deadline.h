// The end of what a peer may take altogether.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "files/descriptor.h"

namespace korvex::cli {

// Shuts a connection down when its time is over, in whatever call it is then: each time-out of a socket begins anew with
// a single byte, and a peer can send those for years.
class Deadline {
  public:
    // Of the time from now on, in milliseconds; 0 for no end.
    Deadline(int socket, int32_t limit_ms);
    ~Deadline();
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;

    bool is_over() const { return is_over_; }
    // What the failures that this leads to are called.
    std::string text() const;

  private:
    void wait_for_end();

    const int32_t limit_ms_;
    const Descriptor socket_;  // of its own: the connection's number may be another's by then
    std::atomic<bool> is_over_ = false;
    bool ended_ = false;
    std::mutex mutex_;
    std::condition_variable end_;
    std::thread thread_;
};

}  // namespace korvex::cli
