#include "conf/section_text.h"

#include <algorithm>
#include <vector>

#include "conf/conf_text.h"

namespace korvex::cli {
namespace {

using Lines = std::vector<Line>;

bool is_header_of(const Line &line, std::string_view name) {
    return line.kind == LineKind::header && line.text.substr(1, line.text.find(']') - 1) == name;
}

bool is_empty(const Line &line) {
    return line.text.find_first_not_of(" \t\r") == std::string_view::npos;
}

bool is_content(const Line &line) {
    return line.kind != LineKind::nothing;
}

// Where a line begins; the text's size for the end of the lines.
size_t place_of(std::string_view text, const Lines &lines, Lines::const_iterator line) {
    return line == lines.end() ? text.size() : static_cast<size_t>(line->text.data() - text.data());
}

// The first line behind a section whose pairs begin at `pairs`, where the next header stands at `next`.
Lines::const_iterator end_of(const Lines &lines, Lines::const_iterator pairs, Lines::const_iterator next) {
    auto tail = next;
    while (tail != pairs && !is_content(*(tail - 1)))
        --tail;
    const auto gap = std::find_if(tail, next, is_empty);
    if (gap != next)
        return gap;
    return next == lines.end() ? next : tail;
}

bool ends_with_empty_line(std::string_view text) {
    return text.empty() || text == "\n" || text.ends_with("\n\n");
}

std::string on_lines_of_its_own(std::string_view text) {
    return std::string(text) + (text.empty() || text.ends_with('\n') ? "" : "\n");
}

}  // namespace

std::optional<SectionRange> find_section(std::string_view text, std::string_view name) {
    const Lines lines = classified_lines(text);
    const auto is_header = [](const Line &line) { return line.kind == LineKind::header; };
    auto begin = std::find_if(lines.begin(), lines.end(), is_content);
    auto pairs = begin;
    // To the library "" is also a header "[]" where no pairs stand before the first one.
    if (!name.empty() || begin == lines.end() || is_header(*begin)) {
        begin = std::find_if(lines.begin(), lines.end(), [name](const Line &line) { return is_header_of(line, name); });
        if (begin == lines.end())
            return {};
        pairs = begin + 1;
    }

    const auto end = end_of(lines, pairs, std::find_if(pairs, lines.end(), is_header));
    return SectionRange{place_of(text, lines, begin), place_of(text, lines, pairs), place_of(text, lines, end)};
}

std::string with_section(std::string_view text, std::string_view name, std::string_view lines) {
    if (const std::optional<SectionRange> section = find_section(text, name))
        return on_lines_of_its_own(text.substr(0, section->pairs)).append(lines).append(text.substr(section->end));

    std::string made = on_lines_of_its_own(text);
    if (!ends_with_empty_line(made))
        made += '\n';
    if (!name.empty())
        made.append("[").append(name).append("]\n");
    return made.append(lines);
}

std::string without_section(std::string_view text, const SectionRange &section) {
    std::string_view before = text.substr(0, section.begin);
    const std::string_view after = text.substr(section.end);
    if (ends_with_empty_line(before) && !before.empty() && (after.empty() || after.starts_with('\n')))
        before.remove_suffix(1);
    return std::string(before).append(after);
}

}  // namespace korvex::cli
