// The text of a configuration file, line by line, each with what the library's parser takes it for.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace korvex::cli {

enum class LineKind {
    nothing,  // empty, a comment, or white space alone
    header,
    pair,
    header_without_bracket,
    pair_without_equals,
    pair_without_key,
    nul_byte,  // ends the text: what follows is never read
};

struct Line {
    size_t number;  // from 1
    LineKind kind;
    std::string_view text;  // into the text that was given, without the line feed
};

std::vector<Line> classified_lines(std::string_view text);

// What is wrong with a line; null where nothing is.
const char *fault(LineKind kind);

}  // namespace korvex::cli
