// Takes a text apart into its lines, looking at each byte once.
#pragma once

#include <cstddef>
#include <string_view>

namespace korvex {

class LineScanner final {
  public:
    explicit LineScanner(std::string_view text, size_t start = 0) : text_(text), next_(start) {}

    // Moves on to the next line; false when no line feed is left. What follows the last one is no line.
    [[nodiscard]] bool next() {
        const size_t end = text_.find('\n', next_);
        if (end == std::string_view::npos)
            return false;

        begin_ = next_;
        next_ = end + 1;
        return true;
    }

    // The line without its line feed, and where it stands in the text.
    std::string_view line() const { return {text_.data() + begin_, next_ - begin_ - 1}; }
    size_t begin() const { return begin_; }
    size_t end() const { return next_; }

  private:
    std::string_view text_;
    size_t begin_ = 0;
    size_t next_;
};

}  // namespace korvex
