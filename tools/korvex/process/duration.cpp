#include "process/duration.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "cli.h"

namespace korvex::cli {
namespace {

struct Unit {
    std::string_view name;
    double factor;
};
constexpr std::array kUnits{Unit{"", 1}, Unit{"ms", 1}, Unit{"s", 1000}, Unit{"min", 60'000}, Unit{"h", 3'600'000}};

}  // namespace

std::chrono::milliseconds duration_of(const std::string &option, const std::string &text) {
    double number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    std::string_view unit(stop, static_cast<size_t>(end - stop));
    unit.remove_prefix(std::min(unit.find_first_not_of(' '), unit.size()));
    for (const auto &[name, factor] : kUnits) {
        const double wanted = number * factor;
        if (error == std::errc() && unit == name && wanted <= INT32_MAX && wanted >= -INT32_MAX)
            return std::chrono::milliseconds(static_cast<int64_t>(wanted));
    }
    throw Failure(kUsage, option + ": '" + text + "' is not a time of less than 24 days, such as 500ms, 2s or 1min");
}

}  // namespace korvex::cli
