// The prefix length of a netmask, counted in its text. A mask with gaps gets the length that these rules give it, which
// callers have come to expect.
#pragma once

#include <cstdint>

namespace korvex::sysinfo {

// Of a dotted decimal mask: leading octets of 255 count in full, then the bits from the top that the next octet needs to
// be reached. What follows that octet is ignored.
[[nodiscard]] int32_t ipv4_prefix(const char *mask);

// Of a mask as `inet_ntop` writes it: leading groups of "ffff", then up to four digits "f", then the digit that ends it.
[[nodiscard]] int32_t ipv6_prefix(const char *mask);

}  // namespace korvex::sysinfo
