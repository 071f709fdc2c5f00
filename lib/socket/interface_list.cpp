#include "interface_list.h"

#include "base/line_scanner.h"
#include "socket.h"

namespace korvex::socket {
namespace {

constexpr size_t kIndexColumn = 33;
constexpr size_t kPrefixColumn = 36;
constexpr size_t kFixedWidth = 44;

// Any other character counts as 0.
uint32_t hex_digit(char digit) {
    if (digit >= '0' && digit <= '9')
        return static_cast<uint32_t>(digit - '0');
    if (digit >= 'a' && digit <= 'f')
        return static_cast<uint32_t>(digit - 'a') + 10;
    if (digit >= 'A' && digit <= 'F')
        return static_cast<uint32_t>(digit - 'A') + 10;
    return 0;
}

uint32_t hex_byte(std::string_view line, size_t column) {
    return hex_digit(line[column]) << 4 | hex_digit(line[column + 1]);
}

in6_addr address_of(std::string_view line) {
    in6_addr address{};
    for (size_t i = 0; i < sizeof address.s6_addr; i++)
        address.s6_addr[i] = static_cast<uint8_t>(hex_byte(line, 2 * i));
    return address;
}

// The last field.
std::string_view name_of(std::string_view line) {
    const size_t before = line.find_last_of(" \t");
    if (before == std::string_view::npos)
        return line;
    return {line.data() + before + 1, line.size() - before - 1};
}

bool serves(std::string_view line, const in6_addr &address) {
    const in6_addr own = address_of(line);
    return IPv6_Check_Subnet(&address, &own, static_cast<int32_t>(hex_byte(line, kPrefixColumn))) == 0;
}

}  // namespace

bool find_scope_id(std::string_view list, const in6_addr &address, uint32_t &scope_id) {
    for (LineScanner lines(list); lines.next();) {
        const std::string_view line = lines.line();
        if (line.size() <= kFixedWidth || name_of(line) == "lo")
            continue;

        // The last line is what is left when nothing matched before.
        if (lines.end() == list.size() || serves(line, address)) {
            scope_id = hex_byte(line, kIndexColumn);
            return true;
        }
    }
    return false;
}

}  // namespace korvex::socket
