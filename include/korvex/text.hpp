/// @file
/// Numbers, amounts and times as texts.
#ifndef KORVEX_TEXT_HPP
#define KORVEX_TEXT_HPP

#include <charconv>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "korvex/log.hpp"
#include "miscfunc.h"
#include "simplog.h"

namespace korvex {

/// An amount of bytes in the unit that people read.
struct sized_amount {
    float amount;           ///< of units
    std::string_view unit;  ///< "byte", "KB", "MB", "GB" or "TB", each 1024 of the one before
};

/// Expresses a size in the unit that people read. The next unit begins above 1024: 1024 bytes stay 1024 "byte".
///
/// @param bytes  the size
/// @return amount and unit
inline sized_amount size_amount(std::uint64_t bytes) noexcept {
    constexpr std::string_view units[] = {"byte", "KB", "MB", "GB", "TB"};
    sized_amount size{};
    char unit[8] = "";
    Size_Unit_Conversion(bytes, &size.amount, unit, sizeof unit);
    for (const std::string_view known : units)
        if (known == unit)
            size.unit = known;
    return size;
}

/// Writes a duration as "2 days 5 seconds": what is 0 is left out, but for the seconds.
///
/// @param duration  0 to 2^32 - 1 seconds; what is outside is taken as the nearest of these
/// @return the text
inline std::string duration_text(std::chrono::seconds duration) {
    constexpr std::int64_t longest = std::numeric_limits<std::uint32_t>::max();
    const std::int64_t count = duration.count() < 0 ? 0 : duration.count() > longest ? longest : duration.count();
    char text[64] = "";
    Time_Unit_Conversion(static_cast<std::uint32_t>(count), nullptr, text, sizeof text);
    return text;
}

/// Reads a decimal number: an optional "-", then digits, and nothing else. Nothing for any other text and for a number
/// that does not fit, both of which the C interface takes in silence.
///
/// @param text  the number and nothing around it
/// @return its value
template <class Integer = std::int64_t>
std::optional<Integer> to_number(std::string_view text) noexcept {
    Integer value{};
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure != std::errc() || end != text.data() + text.size())
        return {};
    return value;
}

/// Writes a number in decimal.
///
/// @param value  any number
/// @return the text
inline std::string number_text(std::int64_t value) {
    char text[24] = "";
    const std::int32_t size = sizeof text;
    Integer_To_Decimal_String(text, &size, value);
    return text;
}

/// Whether the clock's text has seconds.
enum class time_parts : std::uint32_t { with_seconds = 0, without_seconds = 1 };

/// The local date of a time, as "2024-01-31".
///
/// @param time    it is shown in the local time zone
/// @param format  order and separator
/// @return the text
inline std::string date_text(std::chrono::system_clock::time_point time, date_format format = date_format::ymd_dashes) {
    char text[32] = "";
    Change_Date_To_String_By_Format_Ex(std::chrono::system_clock::to_time_t(time), text, sizeof text,
                                       static_cast<std::int32_t>(format));
    return text;
}

/// The local time of day, as "13:04:05" or "01:04:05 pm".
///
/// @param time   it is shown in the local time zone
/// @param clock  of 24 or 12 hours
/// @param parts  with or without seconds
/// @return the text
inline std::string time_text(std::chrono::system_clock::time_point time, hour_clock clock = hour_clock::h24,
                             time_parts parts = time_parts::with_seconds) {
    char text[32] = "";
    Change_Time_To_String_By_Format_Ex(std::chrono::system_clock::to_time_t(time), text, sizeof text,
                                       static_cast<std::uint32_t>(parts), static_cast<std::int32_t>(clock));
    return text;
}

/// The stamp of a log line, "[2024-01-31 13:04:05] ", with its blank.
///
/// @param time           it is shown in the local time zone
/// @param clock, format  as for `time_text` and `date_text`
/// @return the text
inline std::string stamp_text(std::chrono::system_clock::time_point time, hour_clock clock = hour_clock::h24,
                              date_format format = date_format::ymd_dashes) {
    char text[40] = "";
    Log_DateTime_Format(std::chrono::system_clock::to_time_t(time), text, static_cast<std::int32_t>(clock),
                        static_cast<std::int32_t>(format));
    return text;
}

}  // namespace korvex

#endif
