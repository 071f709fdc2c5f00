// The system's list of IPv6 addresses, one per line: 32 digits of the address, then its interface's index, prefix
// length, scope and flags in two digits each, all hexadecimal, then the interface's name.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string_view>

namespace korvex::socket {

// Finds the index of the interface that serves an address; false where no line is left to say it.
[[nodiscard]] bool find_scope_id(std::string_view list, const in6_addr &address, uint32_t &scope_id);

}  // namespace korvex::socket
