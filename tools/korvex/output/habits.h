// Options that people know from other programs.
#pragma once

#include <string>
#include <string_view>

namespace korvex::cli {

// What to do instead of giving an option that a command does not have; empty where there is nothing to say.
std::string_view habit_hint(std::string_view command, const std::string &option);

}  // namespace korvex::cli
