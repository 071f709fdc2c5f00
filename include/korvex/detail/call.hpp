/// @file
/// Internal: what calls of the C interface have in common: results, time limits and the stop flag.
#ifndef KORVEX_DETAIL_CALL_HPP
#define KORVEX_DETAIL_CALL_HPP

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>
#include <stop_token>
#include <string_view>

#include "korvex/error.hpp"

namespace korvex::detail {

/// A result of the library: 0 or a count is given back, a negated errno throws.
template <class Integer>
Integer check(Integer result, std::string_view action, std::string_view subject) {
    if (result < 0)
        throw error(static_cast<int>(-result), action, subject);
    return result;
}

/// A call of the system, which answers -1 and sets `errno`.
template <class Integer>
Integer check_system(Integer result, std::string_view action, std::string_view subject) {
    if (result == -1)
        throw error(errno, action, subject);
    return result;
}

/// A limit of time as the library takes it: milliseconds in 32 bits, negative for none.
inline std::int32_t milliseconds_of(std::chrono::milliseconds limit) noexcept {
    constexpr std::chrono::milliseconds longest{std::numeric_limits<std::int32_t>::max()};
    return limit.count() < 0 ? -1 : static_cast<std::int32_t>(std::min(limit, longest).count());
}

/// The library's stop flag, set when a stop is requested; the flag's value is what a stopped call returns, so `check`
/// throws `std::errc::operation_canceled` by itself.
class stop_flag {
  public:
    explicit stop_flag(const std::stop_token &token) : callback_(token, setter{&flag_}) {}
    stop_flag(const stop_flag &) = delete;
    stop_flag &operator=(const stop_flag &) = delete;

    std::int32_t *get() noexcept { return &flag_; }
    bool is_set() const noexcept { return __atomic_load_n(&flag_, __ATOMIC_RELAXED) != 0; }

  private:
    // The library reads it with relaxed atomic loads.
    struct setter {
        std::int32_t *flag;
        void operator()() const noexcept { __atomic_store_n(flag, -ECANCELED, __ATOMIC_RELAXED); }
    };
    std::int32_t flag_ = 0;
    std::stop_callback<setter> callback_;
};

/// Throws `std::errc::operation_canceled` if a stop is requested.
inline void check_stop(const std::stop_token &token, std::string_view action, std::string_view subject) {
    if (token.stop_requested())
        throw error(ECANCELED, action, subject);
}

}  // namespace korvex::detail

#endif
