/// @file
/// Internal: an open descriptor that is closed in the end.
#ifndef KORVEX_DETAIL_DESCRIPTOR_HPP
#define KORVEX_DETAIL_DESCRIPTOR_HPP

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

namespace korvex::detail {

/// Owns a descriptor. Who writes and must know syncs before: closing reports nothing.
class descriptor {
  public:
    descriptor() = default;
    explicit descriptor(int number) noexcept : number_(number) {}
    descriptor(descriptor &&other) noexcept : number_(other.release()) {}
    descriptor &operator=(descriptor other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    // Never repeated after EINTR: on Linux the descriptor is gone by then.
    ~descriptor() {
        if (number_ >= 0)
            ::close(number_);
    }

    explicit operator bool() const noexcept { return number_ >= 0; }
    int get() const noexcept { return number_; }
    [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }

  private:
    int number_ = -1;
};

/// Opens for reading, close-on-exec; nothing on failure, and `errno` says why. A pipe without a writer is not waited
/// for; another process's lease is, as by a plain `openat`: the kernel ends it after its lease-break time.
inline descriptor open_without_hanging(int folder, const char *name, int flags) {
    constexpr std::timespec pause{.tv_sec = 0, .tv_nsec = 1'000'000};
    while (true) {
        descriptor file(::openat(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags));
        if (file || errno != EWOULDBLOCK)
            return file;
        ::nanosleep(&pause, nullptr);
    }
}

}  // namespace korvex::detail

#endif
