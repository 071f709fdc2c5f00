// A limit for all the time that a peer may take.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "files/descriptor.h"

namespace korvex::cli {

// Shuts a connection down when its time is over, whatever call is waiting on it. The time-outs of a socket are no such
// limit: they begin anew with each byte, and a peer may send single bytes for years.
class Deadline {
  public:
    // `limit_ms` counts from now; 0 is no limit.
    Deadline(int socket, int32_t limit_ms);
    ~Deadline();
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;

    bool is_over() const { return is_over_; }
    // What to tell the user when it is over.
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
