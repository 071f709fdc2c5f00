#include "text_scan.h"

#include "base/line_scanner.h"
#include "base/message.h"

namespace korvex::conffile {
namespace {

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

    line.remove_prefix(1);
    return line.starts_with(section) && line[section.size()] == ']';
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
    // A "[" line ends the body if a "]" follows anywhere in the text, not only in the line. The answer is the same for
    // all later lines once it was no, so the text is searched once.
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

            LOG_DEBUG_AS(function, "Bad section line: %s!\n", line.data());
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
