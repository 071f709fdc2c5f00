// The umask under which lock files are made.
#pragma once

#include <sys/stat.h>

namespace korvex::cli {

// While it lives, what this process makes can't be written to by others, however open the user's umask is: whoever may
// write to a lock can make it look stale, and so take it away. The umask is the whole process's.
class LockUmask {
  public:
    LockUmask() : before_(umask(S_IWGRP | S_IWOTH)) { umask(before_ | S_IWGRP | S_IWOTH); }
    ~LockUmask() { umask(before_); }
    LockUmask(const LockUmask &) = delete;
    LockUmask &operator=(const LockUmask &) = delete;

    // The user's own.
    mode_t before() const { return before_; }

  private:
    const mode_t before_;
};

}  // namespace korvex::cli
