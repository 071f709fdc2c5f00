// The interface that serves an address, found in any list of IPv6 addresses, is the model's.
//
// Input: a line with the address, as text or else as bytes; the list.
#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "naive_network.h"
#include "socket/interface_list.h"
#include "target.h"

namespace {

in6_addr take_address(std::string_view &input) {
    const std::string line = fuzz::take_argument(input);
    in6_addr address{};
    if (inet_pton(AF_INET6, line.c_str(), &address) != 1)
        std::memcpy(&address, line.data(), std::min(line.size(), sizeof address));
    return address;
}

std::string shown(const std::optional<uint32_t> &scope_id) {
    return scope_id ? std::to_string(*scope_id) : "none";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view input = fuzz::bytes(data, size);
    const in6_addr address = take_address(input);

    // A block of exactly the list's size, so that a look behind it is seen.
    const auto list = std::make_unique<char[]>(input.size());
    input.copy(list.get(), input.size());
    uint32_t scope_id = 0;
    std::optional<uint32_t> got;
    if (korvex::socket::find_scope_id({list.get(), input.size()}, address, scope_id))
        got = scope_id;

    const std::optional<uint32_t> expected = naive::find_scope_id(std::string(input), address);
    if (expected != got)
        fuzz::fail("expected " + shown(expected) + ", got " + shown(got));
    return 0;
}
