// A path of bounded length on the stack, checked: what does not fit is refused, never cut.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace korvex {

// Room for a path and its NUL, as the kernel takes it.
constexpr size_t kPathSize = 4096;

template <size_t Size>
class PathBuffer final {
  public:
    // Joins the pieces. False, and an empty path, when they do not fit together with the NUL.
    [[nodiscard]] bool assign(std::initializer_list<std::string_view> pieces) {
        cut(0);
        for (const std::string_view piece : pieces)
            if (!append(piece)) {
                cut(0);
                return false;
            }
        return true;
    }

    // False, and the path as it was, when the piece does not fit.
    [[nodiscard]] bool append(std::string_view piece) {
        if (piece.size() >= Size - length_)
            return false;

        std::memcpy(&text_[length_], piece.data(), piece.size());
        cut(length_ + piece.size());
        return true;
    }

    // Shortens the path to `length` bytes.
    void cut(size_t length) {
        length_ = length;
        text_[length] = '\0';
    }

    const char *c_str() const { return text_.data(); }
    char *data() { return text_.data(); }
    size_t size() const { return length_; }
    char back() const { return length_ > 0 ? text_[length_ - 1] : '\0'; }

  private:
    std::array<char, Size> text_;  // not cleared: 4 KiB for each path would be most of the work
    size_t length_ = 0;
};

}  // namespace korvex
