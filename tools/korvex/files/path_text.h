// Paths and sizes as text.
#pragma once

#include <cstdint>
#include <string>

namespace korvex::cli {

// A size in the unit that people read: "1024 byte", "1.50 KB".
std::string size_text(uint64_t bytes);

// A path without the slashes at its end, but for the root's own: with one, a link to a folder would be followed.
std::string without_end_slashes(const std::string &path);

// FOLDER/NAME.
std::string inside(const std::string &folder, const std::string &name);

// The last component; empty for the root.
std::string last_name(const std::string &path);

}  // namespace korvex::cli
