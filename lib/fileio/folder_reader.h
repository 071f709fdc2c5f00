// Reading the entries of folders, one folder after the other, through one buffer.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/handles.h"
#include "base/shared_values.h"
#include "path_status.h"

namespace korvex::fileio {

// Not a stream of libc: each of those takes a descriptor of its own, a block of memory and two more calls.
class FolderReader final {
  public:
    // Begins to read an open folder, which stays the caller's. False without memory, and `errno` says so.
    [[nodiscard]] bool start(int folder) {
        folder_ = folder;
        at_ = filled_ = 0;
        failure_ = 0;
        if (!buffer_)
            buffer_.reset(static_cast<char *>(std::malloc(kBufferSize)));
        return buffer_ != nullptr;
    }

    // The next entry but "." and "..", valid until the next call; null at the end, where the folder can't be read on, and
    // as soon as the stop flag is set. `errno` stays, for it tells of a file's source that ends early.
    const dirent *next(const StopFlag &stop) {
        while (!stop.set()) {
            if (at_ == filled_ && !fill())
                return nullptr;

            const auto *entry = reinterpret_cast<const dirent *>(&buffer_.get()[at_]);
            at_ += entry->d_reclen;
            if (!is_self_or_parent(entry->d_name))
                return entry;
        }
        return nullptr;
    }

    // Why the folder could not be read to its end: a negated errno. 0 where it could.
    int32_t failure() const { return failure_; }

    // Looks at an entry itself, not at what it may link to. 0, or a negated errno.
    int32_t look_at(const char *name, struct stat &status) const {
        return fstatat(folder_, name, &status, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : -errno;
    }

  private:
    static constexpr size_t kBufferSize = 32'768;

    // False at the end and on failure. A folder that was removed meanwhile has come to its end.
    bool fill() {
        const ErrnoKeeper keeper;
        const ssize_t count = getdents64(folder_, buffer_.get(), kBufferSize);
        if (count < 0 && errno != ENOENT)
            failure_ = -errno;
        at_ = 0;
        filled_ = count > 0 ? static_cast<size_t>(count) : 0;
        return count > 0;
    }

    MallocPtr<char> buffer_;
    size_t at_ = 0;
    size_t filled_ = 0;
    int folder_ = -1;
    int32_t failure_ = 0;
};

}  // namespace korvex::fileio
