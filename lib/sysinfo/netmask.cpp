#include "netmask.h"

#include <cstdlib>
#include <string_view>

#include "base/texts.h"

namespace korvex::sysinfo {
namespace {

// Moves past `piece` where the text begins with it.
bool skip(const char *&text, std::string_view piece) {
    if (!begins_with(text, piece))
        return false;

    text += piece.size();
    return true;
}

// How many bits, set from the top of an octet, reach its value.
int32_t leading_bits(long octet) {
    int32_t bits = 0;
    for (long reached = 0; reached < octet && bits < 8; bits++)
        reached |= 0x80 >> bits;
    return bits;
}

int32_t bits_of_last_digit(char digit) {
    switch (digit) {
        case 'e':
            return 3;
        case 'c':
            return 2;
        case '8':
            return 1;
        default:
            return 0;
    }
}

}  // namespace

int32_t ipv4_prefix(const char *mask) {
    int32_t prefix = 0;
    if (skip(mask, "255.255."))
        prefix += 16;
    if (skip(mask, "255."))
        prefix += 8;
    return prefix + leading_bits(std::strtol(mask, nullptr, 10));
}

int32_t ipv6_prefix(const char *mask) {
    int32_t prefix = 0;
    if (skip(mask, "ffff:ffff:ffff:ffff:"))
        prefix += 64;
    if (skip(mask, "ffff:ffff:"))
        prefix += 32;
    if (skip(mask, "ffff:"))
        prefix += 16;
    for (int32_t digits = 0; digits < 4 && *mask == 'f'; digits++, mask++)
        prefix += 4;
    return prefix + bits_of_last_digit(*mask);
}

}  // namespace korvex::sysinfo
