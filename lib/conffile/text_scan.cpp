#include "text_scan.h"

#include <algorithm>

#include "base/line_scanner.h"
#include "base/message.h"

namespace korvex::conffile {
namespace {

// What a message can hold at most. A bad line is shown with all that follows it in the file; counting that for each such
// line of a large file would take quadratic time.
constexpr size_t kLongestShown = 16'464;

constexpr bool is_blank(char byte) {
    return byte == ' ' || byte == '\t';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// A header is "[", the very name, "]", and anything after that.
bool is_header_of(std::string_view line, std::string_view section) {
    if (line.size() < section.size() + 2 || line.front() != '[')
        return false;

    return std::string_view{line.data() + 1, section.size()} == section && line[section.size() + 1] == ']';
}

bool is_skipped(std::string_view line) {
    return line.empty() || line.front() == '#' || line.front() == ';';
}

}  // namespace

size_t find_body(std::string_view text, std::string_view section) {
    if (section.empty())
        return 0;

    LineScanner lines(text);
    while (lines.next())
        if (is_header_of(lines.line(), section))
            return lines.end();
    return kNowhere;
}

KeyPlace find_key(std::string_view text, size_t body, std::string_view key, const char *function) {
    // A "[" line ends the body if a "]" follows anywhere in the text, not only in the line. If none follows one line, none
    // follows a later one: the text is searched once.
    bool bracket_may_follow = true;

    LineScanner lines(text, body);
    while (lines.next()) {
        const std::string_view line = lines.line();
        if (is_skipped(line))
            continue;

        if (line.front() == '[') {
            bracket_may_follow = bracket_may_follow && text.find(']', lines.begin()) != kNowhere;
            if (bracket_may_follow)
                return {.found = false, .begin = lines.begin(), .end = lines.begin(), .value = {}};

            LOG_DEBUG_AS(function, "Bad section line: %.*s!\n",
                         static_cast<int>(std::min(text.size() - lines.begin(), kLongestShown)), line.data());
            continue;
        }

        const size_t equals = line.find('=');
        if (equals == kNowhere || trim({line.data(), equals}) != key)
            continue;

        const std::string_view value{line.data() + equals + 1, line.size() - equals - 1};
        return {.found = true, .begin = lines.begin(), .end = lines.end(), .value = trim(value)};
    }
    return {.found = false, .begin = text.size(), .end = text.size(), .value = {}};
}

}  // namespace korvex::conffile
