/// @file
/// Internal: operators for enum classes whose values are bits.
#ifndef KORVEX_DETAIL_BITS_HPP
#define KORVEX_DETAIL_BITS_HPP

#include <type_traits>

namespace korvex {

/// Says that an enum is one of bits: `template <> inline constexpr bool is_bits<my_bits> = true;`.
template <class Enum>
inline constexpr bool is_bits = false;

template <class Enum>
requires is_bits<Enum>
constexpr Enum operator|(Enum left, Enum right) noexcept {
    using number = std::underlying_type_t<Enum>;
    return static_cast<Enum>(static_cast<number>(left) | static_cast<number>(right));
}

template <class Enum>
requires is_bits<Enum>
constexpr Enum operator&(Enum left, Enum right) noexcept {
    using number = std::underlying_type_t<Enum>;
    return static_cast<Enum>(static_cast<number>(left) & static_cast<number>(right));
}

template <class Enum>
requires is_bits<Enum>
constexpr Enum operator~(Enum bits) noexcept {
    return static_cast<Enum>(~static_cast<std::underlying_type_t<Enum>>(bits));
}

template <class Enum>
requires is_bits<Enum>
constexpr Enum &operator|=(Enum &left, Enum right) noexcept {
    return left = left | right;
}

/// Whether all of `wanted` are among `bits`.
template <class Enum>
requires is_bits<Enum>
constexpr bool has(Enum bits, Enum wanted) noexcept {
    return (bits & wanted) == wanted;
}

}  // namespace korvex

#endif
