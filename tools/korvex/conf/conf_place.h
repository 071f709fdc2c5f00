// Where in a configuration a command works, and which names and values it takes.
#pragma once

#include <string>
#include <string_view>

#include "korvex/conf.hpp"

namespace korvex::cli {

struct ConfPlace {
    std::string file;
    std::string section = {};  // empty for what stands before the first section
    std::string key = {};
};

// A name that would not be read back as it was written is wrong usage. Blanks around a value are not refused: they were
// never part of it.
void require_section_name(const std::string &section);
void require_pair(const std::string &key, const std::string &value);

// A text without the blanks around it, as the library reads keys and values.
std::string_view trimmed(std::string_view text);

// The place with section and key in the file's own spelling, upper and lower case apart: a name that is there as it
// stands is taken before one in another spelling. What is not there stays as it is.
ConfPlace as_spelled(ConfPlace place, const conf::document &document);

}  // namespace korvex::cli
