/// @file
/// Internal: a text as C wants it, with a NUL at its end.
#ifndef KORVEX_DETAIL_C_TEXT_HPP
#define KORVEX_DETAIL_C_TEXT_HPP

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string_view>

#include "korvex/error.hpp"

namespace korvex::detail {

/// A copy with a NUL, on the stack as long as it fits: for a call's own time. A text that has a NUL inside would be cut
/// by C without a word, so it is refused (`std::errc::invalid_argument`).
template <std::size_t Room = 256>
class c_text {
  public:
    explicit c_text(std::string_view text) {
        if (const std::size_t nul = text.find('\0'); nul != std::string_view::npos)
            throw error(EINVAL, "can't use", text.substr(0, nul), "a NUL follows it");

        char *place = small_;
        if (text.size() >= Room) {
            large_.reset(new char[text.size() + 1]);
            place = large_.get();
        }
        text.copy(place, text.size());
        place[text.size()] = '\0';
    }
    c_text(const c_text &) = delete;
    c_text &operator=(const c_text &) = delete;

    const char *get() const noexcept { return large_ ? large_.get() : small_; }
    operator const char *() const noexcept { return get(); }

  private:
    std::unique_ptr<char[]> large_;
    char small_[Room];
};

/// For paths, which are seldom longer.
using c_path = c_text<512>;

}  // namespace korvex::detail

#endif
