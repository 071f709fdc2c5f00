// A lock file, seen from the outside.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace korvex::cli {

struct LockState {
    enum class Kind {
        free,        // no lock file
        held,        // by a live process, for less than ten minutes
        stale,       // whoever waits for the lock may take it over
        incomplete,  // created, but not filled; taken over after two seconds
        blocked,     // what stands in its place is no lock; nobody gets it while that is there
    };
    Kind kind = Kind::free;
    pid_t holder = 0;
    int64_t age_ms = 0;
    std::string reason = {};   // why the lock is stale; what blocks it
    bool is_followed = false;  // it is a link that the library follows: root's or one's own
};

// The lock of a file: the library's calls for it, and its state.
class LockFile {
  public:
    // `beside` chooses the side lock FILE.lck instead of /var/lock/_NAME.lck.
    LockFile(std::string file, bool beside);

    const std::string &path() const { return path_; }
    // Reads the lock and judges it as a waiter does. Throws a Failure where it can't be read.
    LockState state() const;
    // True when this call took the lock. Throws a Failure where that can never succeed.
    bool take(int32_t wait_ms) const;
    void release() const;

  private:
    std::string file_;
    bool beside_;
    std::string path_;
};

}  // namespace korvex::cli
