#include "conf/conf_text.h"

namespace korvex::cli {
namespace {

LineKind kind_of(std::string_view line) {
    if (line.find('\0') != std::string_view::npos)
        return LineKind::nul_byte;
    if (line.empty() || line.front() == ';' || line.front() == '#')
        return LineKind::nothing;
    if (line.front() == '[')
        return line.find(']') == std::string_view::npos ? LineKind::header_without_bracket : LineKind::header;

    const size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string_view::npos)
        return LineKind::nothing;
    if (line[begin] == '=')
        return LineKind::pair_without_key;
    return line.find('=') == std::string_view::npos ? LineKind::pair_without_equals : LineKind::pair;
}

}  // namespace

std::vector<Line> classified_lines(std::string_view text) {
    std::vector<Line> lines;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        const LineKind kind = kind_of(line);
        lines.push_back({lines.size() + 1, kind, line});
        if (kind == LineKind::nul_byte || line.size() == text.size())
            break;
        text.remove_prefix(line.size() + 1);
    }
    return lines;
}

const char *fault(LineKind kind) {
    switch (kind) {
        case LineKind::header_without_bracket:
            return "section header without ']'";
        case LineKind::pair_without_equals:
            return "no '=' after the key";
        case LineKind::pair_without_key:
            return "no key before '='";
        case LineKind::nul_byte:
            return "NUL byte, nothing from here on is read";
        case LineKind::nothing:
        case LineKind::header:
        case LineKind::pair:
            break;
    }
    return nullptr;
}

}  // namespace korvex::cli
