// Texts: how they begin; in the heap block of the record that points at them; in fields of a fixed size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace korvex {

inline bool begins_with(const char *text, std::string_view beginning) {
    return std::strncmp(text, beginning.data(), beginning.size()) == 0;
}

// Copies a text and its NUL; returns the place after the NUL.
inline char *put_text(char *place, std::string_view text) {
    if (!text.empty())  // an empty view may be of nothing
        std::memcpy(place, text.data(), text.size());
    place[text.size()] = '\0';
    return place + text.size() + 1;
}

// Copies as much of a text as the field holds, always with its NUL.
template <size_t Size>
void set_field(char (&field)[Size], std::string_view text) {
    const size_t length = std::min(text.size(), Size - 1);
    put_text(field, {text.data(), length});
}

}  // namespace korvex
