// korvex units: numbers as people read them.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "commands/commands.h"
#include "files/path_text.h"
#include "miscfunc.h"

namespace korvex::cli {
namespace {

struct UnitsArguments {
    std::string number;
};

template <typename Number>
Number whole_number(const std::string &text) {
    Number number{};
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        throw Failure(kUsage, "'" + text + "' is not a whole number from 0 to " +
                                  std::to_string(std::numeric_limits<Number>::max()));
    return number;
}

int run_size(const UnitsArguments &arguments) {
    std::printf("%s\n", size_text(whole_number<uint64_t>(arguments.number)).c_str());
    return kSuccess;
}

int run_time(const UnitsArguments &arguments) {
    char text[64];
    Time_Unit_Conversion(whole_number<uint32_t>(arguments.number), nullptr, text, sizeof text);
    std::printf("%s\n", text);
    return kSuccess;
}

}  // namespace

void add_units_commands(CLI::App &program, Session &session) {
    CLI::App &units = add_group(program, {"units", "Express a size or a duration in the units that people read",
                                          "Example:\n  korvex units size 734003200"});
    units.require_subcommand(1);

    auto [size, size_arguments] =
        add_command(units, session,
                    {"size", "Bytes in byte, KB, MB, GB or TB",
                     "A unit is 1024 of the one before, and is taken above 1024: 1024 bytes are \"1024 byte\".\n\n"
                     "Example:\n  korvex units size 734003200     prints \"700.00 MB\""},
                    run_size);
    add_text(size, "NUMBER", size_arguments.number, "Size in bytes").required();

    auto [time, time_arguments] =
        add_command(units, session,
                    {"time", "Seconds in days, hours, minutes and seconds",
                     "Example:\n  korvex units time 90061         prints \"1 day 1 hour 1 minute 1 second\""},
                    run_time);
    add_text(time, "NUMBER", time_arguments.number, "Duration in seconds").required();
}

}  // namespace korvex::cli
