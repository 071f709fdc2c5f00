/// @file
/// How a path is handed to this library.
#ifndef KORVEX_PATH_VIEW_HPP
#define KORVEX_PATH_VIEW_HPP

#include <concepts>
#include <filesystem>
#include <string_view>

namespace korvex {

/// A path as a parameter: a `std::string_view` to which a `std::filesystem::path` converts, too. A path made from a text
/// would allocate each time; this does not. It owns nothing: use it for parameters alone.
class path_view {
  public:
    /// @param text  literal, `std::string` or `std::string_view`
    template <class Text>
    requires std::convertible_to<const Text &, std::string_view> path_view(const Text &text)
    noexcept : text_(text) {}
    /// @param path  it must live as long as this
    path_view(const std::filesystem::path &path) noexcept : text_(path.native()) {}

    operator std::string_view() const noexcept { return text_; }
    /// @return the text
    std::string_view text() const noexcept { return text_; }

  private:
    std::string_view text_;
};

}  // namespace korvex

#endif
