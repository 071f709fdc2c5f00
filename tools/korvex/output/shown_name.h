// Names and other texts of anybody's making, as a person may be shown them.
#pragma once

#include <string>
#include <string_view>

namespace korvex::cli {

// A text on one line that a terminal takes as nothing but text. What would steer the terminal, end the line or turn the
// order of what is read stands escaped: control characters as "\n", "\r", "\t" or "\x1b"; those beyond ASCII (C1) as
// "\u009b", or "\x9b" where the byte is no UTF-8; marks of writing direction and line separators as "\u202e".
std::string shown(std::string_view text);

// The same for JSON, which has its own escapes for what is below a blank: "\u007f" and the others, the value unchanged.
std::string shown_json(std::string_view json);

}  // namespace korvex::cli
