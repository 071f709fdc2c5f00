// The lock of a configuration file, held while a change goes from the read to the write.
#pragma once

#include "base/lock_time.h"
#include "base/message.h"
#include "fileio.h"

namespace korvex::conffile {

class FileLock final {
  public:
    // Waits for the lock; a failure is reported as a message of `function`.
    FileLock(const char *path, const char *function) : path_(path), held_(Get_File_Lock(path, kLockWaitMs) == 1) {
        if (!held_)
            LOG_DEBUG_AS(function, "Can't get file lock of %s error!\n", path);
    }
    ~FileLock() {
        if (held_)
            Release_File_Lock(path_);
    }
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    bool held() const { return held_; }

  private:
    const char *path_;
    bool held_;
};

}  // namespace korvex::conffile
