// Finding a section and a key in a configuration's text, for the reader and the editor of single keys. The rules
// differ a little from the parsers': see conffile.h. Texts end in a line feed.
#pragma once

#include <cstddef>
#include <string_view>

namespace korvex::conffile {

constexpr size_t kNowhere = std::string_view::npos;

// Where the body of a section begins, after its header; kNowhere if there is no such header. The empty name is the
// global section's, whose body begins with the text.
[[nodiscard]] size_t find_body(std::string_view text, std::string_view section);

// A key's line, or where its section ends without it.
struct KeyPlace {
    bool found;
    size_t begin;            // found: of the key's line. Else: of the header that ends the body, or the text's end
    size_t end;              // found: after the key's line. Else the same as `begin`
    std::string_view value;  // found: trimmed
};

// Looks for a key in the body that begins at `body`. Bad lines are reported as messages of `function`.
[[nodiscard]] KeyPlace find_key(std::string_view text, size_t body, std::string_view key, const char *function);

}  // namespace korvex::conffile
