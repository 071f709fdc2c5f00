// A text buffer amid guard bytes, for functions that are told a size that is not the buffer's own.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace support {

class GuardedBuffer {
  public:
    GuardedBuffer() { area_.fill(kGuard); }

    char *data() { return area_.data() + kBegin; }
    std::string text() const { return area_.data() + kBegin; }

    // How many bytes of the buffer have been written, up to the last one that was changed; `std::string::npos` where
    // a byte in front of it was changed.
    size_t written() const {
        for (size_t i = 0; i < kBegin; i++)
            if (area_[i] != kGuard)
                return std::string::npos;

        size_t end = area_.size();
        while (end > kBegin && area_[end - 1] == kGuard)
            end--;
        return end - kBegin;
    }

  private:
    static constexpr char kGuard = '\x5a';
    static constexpr size_t kBegin = 64;
    std::array<char, 512> area_;
};

}  // namespace support
