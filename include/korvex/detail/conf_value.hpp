/// @file
/// Internal: values of configuration files as C++ types, and which names and values the format can hold.
#ifndef KORVEX_DETAIL_CONF_VALUE_HPP
#define KORVEX_DETAIL_CONF_VALUE_HPP

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>

#include "korvex/error.hpp"

namespace korvex::conf {

/// What a value may be read and written as: truth values, integers of all sizes, double. A character is no number.
template <class Type>
concept value_type = std::same_as<Type, double> ||
    (std::integral<Type> && !std::same_as<Type, char> && !std::same_as<Type, wchar_t> && !std::same_as<Type, char8_t> &&
     !std::same_as<Type, char16_t> && !std::same_as<Type, char32_t>);

/// The numbers that a value may be, both ends included.
template <value_type Number>
struct range {
    Number least = std::numeric_limits<Number>::lowest();
    Number most = std::numeric_limits<Number>::max();
};

}  // namespace korvex::conf

namespace korvex::detail {

/// How far a value could be read.
enum class reading { good, malformed, out_of_range };

inline bool equals_in_any_case(std::string_view text, std::string_view lower) noexcept {
    if (text.size() != lower.size())
        return false;
    for (std::size_t place = 0; place < text.size(); ++place) {
        const char byte = text[place];
        if ((byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte) != lower[place])
            return false;
    }
    return true;
}

inline reading read_value(std::string_view text, bool &value, const conf::range<bool> &) noexcept {
    for (const std::string_view word : {"yes", "on", "1", "true"})
        if (equals_in_any_case(text, word))
            return value = true, reading::good;
    for (const std::string_view word : {"no", "off", "0", "false"})
        if (equals_in_any_case(text, word))
            return value = false, reading::good;
    return reading::malformed;
}

/// The whole text must be the number, in decimal.
template <conf::value_type Number>
reading read_value(std::string_view text, Number &value, const conf::range<Number> &range) noexcept {
    const char *const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, value);
    if (failure == std::errc::result_out_of_range && stop == end)
        return reading::out_of_range;
    if (failure != std::errc() || stop != end)
        return reading::malformed;
    if constexpr (std::floating_point<Number>)
        if (!std::isfinite(value))
            return reading::malformed;
    return value >= range.least && value <= range.most ? reading::good : reading::out_of_range;
}

inline std::string text_of(bool value) {
    return value ? "yes" : "no";
}

template <conf::value_type Number>
std::string text_of(Number value) {
    std::array<char, 32> text;
    const auto [end, failure] = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), end};
}

/// "'workgroup' of [global]", as failures name a key.
inline std::string key_name(std::string_view section, std::string_view key) {
    return std::string("'").append(key).append("' of [").append(section).append("]");
}

/// Reads a value or throws, with words that name it.
template <conf::value_type Type>
Type value_or_throw(std::string_view text, std::string_view path, std::string_view section, std::string_view key,
                    const conf::range<Type> &range) {
    Type value{};
    const reading result = read_value(text, value, range);
    if (result == reading::good)
        return value;

    const std::string action = "can't use " + key_name(section, key) + " in";
    const std::string shown = "'" + std::string(text.substr(0, 64)) + "' is ";
    if (result == reading::malformed)
        throw error(
            errc::not_a_number, action, path,
            shown + (std::same_as<Type, bool> ? "neither yes, on, 1, true nor no, off, 0, false" : "no number"));
    throw error(ERANGE, action, path, shown + "not from " + text_of(range.least) + " to " + text_of(range.most));
}

/// Why a name or value would not read back as it is written; empty where it would.
inline std::string_view section_flaw(std::string_view section) noexcept {
    if (section.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos)
        return "a section's name has no line feed, carriage return or NUL";
    return section.find(']') != std::string_view::npos ? "a section's name ends at its first ']'" : "";
}

inline bool has_blank_ends(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t";
    return !text.empty() &&
           (blanks.find(text.front()) != std::string_view::npos || blanks.find(text.back()) != std::string_view::npos);
}

inline std::string_view key_flaw(std::string_view key) noexcept {
    if (key.empty())
        return "a key is not empty";
    if (key.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos)
        return "a key has no line feed, carriage return or NUL";
    if (key.find('=') != std::string_view::npos)
        return "a key ends at its first '='";
    if (key.front() == '[')
        return "a line that begins with '[' opens a section";
    if (key.front() == '#' || key.front() == ';')
        return "a line that begins with '#' or ';' is a comment";
    return has_blank_ends(key) ? "blanks around a key are not part of it" : "";
}

inline std::string_view value_flaw(std::string_view value) noexcept {
    if (value.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos)
        return "a value has no line feed, carriage return or NUL";
    return has_blank_ends(value) ? "blanks around a value are not part of it" : "";
}

/// Throws `errc::would_not_read_back` for what the format can't hold.
inline void refuse_unwritable(std::string_view path, std::string_view section, std::string_view key,
                              std::string_view value) {
    for (const std::string_view flaw : {section_flaw(section), key_flaw(key), value_flaw(value)})
        if (!flaw.empty())
            throw error(errc::would_not_read_back, "can't set " + key_name(section, key) + " in", path, flaw);
}

}  // namespace korvex::detail

#endif
