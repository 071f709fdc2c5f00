/// @file
/// Inner: an open descriptor that is closed in the end.
#ifndef KORVEX_DETAIL_DESCRIPTOR_HPP
#define KORVEX_DETAIL_DESCRIPTOR_HPP

#include <unistd.h>

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

}  // namespace korvex::detail

#endif
