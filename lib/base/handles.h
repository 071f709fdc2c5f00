// Owners of what must be given back: descriptors, streams, folders, memory. All are move-only. An empty one is legal and gives
// nothing back. Giving back keeps `errno` and reports no error: whoever writes checks for errors before the owner goes.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace korvex {

// Puts `errno` back to what it was.
class ErrnoKeeper final {
  public:
    ErrnoKeeper() : errno_(errno) {}
    ~ErrnoKeeper() { errno = errno_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

  private:
    int errno_;
};

class UniqueFd final {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : descriptor_(descriptor) {}
    UniqueFd(UniqueFd &&other) noexcept : descriptor_(std::exchange(other.descriptor_, kNone)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    // Never repeated after EINTR: on Linux the descriptor is gone by then.
    ~UniqueFd() {
        if (descriptor_ == kNone)
            return;

        const ErrnoKeeper keeper;
        ::close(descriptor_);
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }
    [[nodiscard]] int release() { return std::exchange(descriptor_, kNone); }

  private:
    static constexpr int kNone = -1;
    int descriptor_ = kNone;
};

struct StreamCloser {
    void operator()(FILE *stream) const {
        const ErrnoKeeper keeper;
        std::fclose(stream);
    }
};

using UniqueFile = std::unique_ptr<FILE, StreamCloser>;

// The output of a command that `popen` started.
struct PipeCloser {
    void operator()(FILE *stream) const {
        const ErrnoKeeper keeper;
        ::pclose(stream);
    }
};

using UniquePipe = std::unique_ptr<FILE, PipeCloser>;

struct FolderCloser {
    void operator()(DIR *folder) const {
        const ErrnoKeeper keeper;
        ::closedir(folder);
    }
};

using UniqueDir = std::unique_ptr<DIR, FolderCloser>;

struct MemoryFreer {
    void operator()(void *block) const { std::free(block); }
};

// Memory from malloc, as it is handed to a caller by `release()`.
template <class T>
using MallocPtr = std::unique_ptr<T, MemoryFreer>;

}  // namespace korvex
