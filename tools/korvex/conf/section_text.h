// Whole sections in the text of a configuration file: only their own lines are touched.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace korvex::cli {

// Where the first section of a name lies; "" stands for what comes before the first header.
//
// It ends behind its last pair and the comments that follow it at once. What stands behind the next empty line, and
// comments directly above the next header, belong to what comes next, and so do the comments above a section to nobody
// but the reader: they stay whatever happens to the section.
struct SectionRange {
    size_t begin;  // of its header
    size_t pairs;  // behind its header; the same as `begin` where it has none
    size_t end;
};
std::optional<SectionRange> find_section(std::string_view text, std::string_view name);

// The text with these lines in the place of the section's, behind its header; a section that is not there is appended.
std::string with_section(std::string_view text, std::string_view name, std::string_view lines);

// The text without a section; where that would leave two empty lines one behind the other, one of them goes, too.
std::string without_section(std::string_view text, const SectionRange &section);

}  // namespace korvex::cli
