#include "output/shown_name.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace korvex::cli {
namespace {

struct Character {
    char32_t code = 0;
    size_t size = 1;
    bool is_utf8 = false;
};

// How many bytes a character has that begins with this one, and the smallest code that needs so many.
struct Form {
    unsigned char mask, lead;
    size_t size;
    char32_t smallest;
};
constexpr Form kForms[] = {{0x80, 0x00, 1, 0}, {0xe0, 0xc0, 2, 0x80}, {0xf0, 0xe0, 3, 0x800}, {0xf8, 0xf0, 4, 0x10000}};

// Longer forms than needed and halves of pairs are no UTF-8: some terminals would read a control character in them.
Character first_character(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const auto *const form = std::find_if(std::begin(kForms), std::end(kForms),
                                          [lead](const Form &one) { return (lead & one.mask) == one.lead; });
    if (form == std::end(kForms) || form->size > text.size())
        return {.code = lead};

    char32_t code = lead & static_cast<unsigned char>(~form->mask);
    for (const char byte : text.substr(1, form->size - 1)) {
        const auto bits = static_cast<unsigned char>(byte);
        if ((bits & 0xc0) != 0x80)
            return {.code = lead};
        code = code << 6 | (bits & 0x3f);
    }
    const bool is_half = code >= 0xd800 && code <= 0xdfff;
    if (code < form->smallest || code > 0x10ffff || is_half)
        return {.code = lead};
    return {code, form->size, true};
}

bool is_control(char32_t code) {
    return code < 0x20 || (code >= 0x7f && code <= 0x9f);
}

// Marks that turn the order in which the rest is shown, and what ends a line besides the line feed.
bool is_mark(char32_t code) {
    return code == 0x061c || code == 0x200e || code == 0x200f || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

// "\x1b", "\u202e": so many hexadecimal digits.
std::string number(char letter, int digits, char32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "\\%c%0*x", letter, digits, static_cast<unsigned>(code));
    return text;
}

std::string escape(const Character &character) {
    switch (character.code) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return character.is_utf8 && character.code > 0x7f ? number('u', 4, character.code)
                                                              : number('x', 2, character.code);
    }
}

}  // namespace

std::string shown(std::string_view text) {
    std::string line;
    while (!text.empty()) {
        const Character character = first_character(text);
        const bool is_plain = !is_control(character.code) && !(character.is_utf8 && is_mark(character.code));
        line += is_plain ? std::string(text.substr(0, character.size)) : escape(character);
        text.remove_prefix(character.size);
    }
    return line;
}

std::string shown_json(std::string_view json) {
    std::string text;
    while (!json.empty()) {
        const Character character = first_character(json);
        const bool is_plain = character.code < 0x20 || !(is_control(character.code) || is_mark(character.code));
        text += is_plain ? std::string(json.substr(0, character.size)) : number('u', 4, character.code);
        json.remove_prefix(character.size);
    }
    return text;
}

}  // namespace korvex::cli
