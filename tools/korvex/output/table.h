// Lists as people read them, in aligned columns, and as programs do, in JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace korvex::cli {

using Json = nlohmann::ordered_json;
using Row = std::vector<std::string>;

// Prints rows of equally many texts, the first one being the head. Control characters can't break the lines, and a text
// that is empty stands as "-". The columns from `first_right` to the one before the last are aligned at their right.
void print_table(const std::vector<Row> &rows, size_t first_right = SIZE_MAX);

// Prints it indented, with bytes that are not UTF-8 replaced, and escaped what would steer a terminal.
void print_json(const Json &json);

// A text; null where it is empty.
Json text_or_null(const std::string &text);

}  // namespace korvex::cli
