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
        size_t length = 0;
        for (const std::string_view piece : pieces) {
            if (piece.size() >= Size - length) {
                text_[0] = '\0';
                return false;
            }
            std::memcpy(&text_[length], piece.data(), piece.size());
            length += piece.size();
        }
        text_[length] = '\0';
        return true;
    }

    const char *c_str() const { return text_.data(); }
    char *data() { return text_.data(); }

  private:
    std::array<char, Size> text_;  // not cleared: 4 KiB for each path would be most of the work
};

}  // namespace korvex
