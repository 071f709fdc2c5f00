#include "output/table.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "output/shown_name.h"

namespace korvex::cli {
namespace {

// In characters: the bytes of UTF-8 that continue one don't count.
size_t width_of(std::string_view text) {
    return static_cast<size_t>(std::count_if(
        text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; }));
}

std::string cell(const std::string &text) {
    return text.empty() ? "-" : shown(text);
}

}  // namespace

void print_table(const std::vector<Row> &rows, size_t first_right) {
    std::vector<size_t> widths;
    for (const Row &row : rows) {
        widths.resize(row.size());
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], width_of(cell(row[i])));
    }

    for (const Row &row : rows) {
        std::string line;
        for (size_t i = 0; i + 1 < row.size(); ++i) {
            const std::string text = cell(row[i]);
            const std::string blanks(widths[i] - width_of(text), ' ');
            line += (i < first_right ? text + blanks : blanks + text) + "  ";
        }
        std::printf("%s%s\n", line.c_str(), cell(row.back()).c_str());
    }
}

void print_json(const Json &json) {
    std::printf("%s\n", shown_json(json.dump(2, ' ', false, Json::error_handler_t::replace)).c_str());
}

Json text_or_null(const std::string &text) {
    return text.empty() ? Json() : Json(text);
}

}  // namespace korvex::cli
