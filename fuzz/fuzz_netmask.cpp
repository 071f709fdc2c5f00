// The prefix length of any netmask text is the model's, and that of a mask without gaps is its length.
//
// Input: a mask as text, and once more its first 16 bytes as the bits of a mask.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <memory>

#include "naive_network.h"
#include "sysinfo/netmask.h"
#include "target.h"

namespace {

using Mask = std::array<unsigned char, 16>;

void check(const std::string &text, const char *kind, int32_t expected, int32_t got) {
    if (expected != got)
        fuzz::fail(std::string(kind) + " mask " + fuzz::shown(text) + ": expected " + std::to_string(expected) +
                   ", got " + std::to_string(got));
}

void check_text(const std::string &text) {
    // A block of exactly the text's size, so that a look behind its end is seen.
    const auto block = std::make_unique<char[]>(text.size() + 1);
    text.copy(block.get(), text.size());

    const int32_t ipv4 = korvex::sysinfo::ipv4_prefix(block.get());
    check(text, "IPv4", naive::ipv4_prefix(text).value_or(std::clamp(ipv4, 0, 32)), ipv4);
    check(text, "IPv6", naive::ipv6_prefix(text), korvex::sysinfo::ipv6_prefix(block.get()));
}

std::string text_of(int family, const Mask &mask) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family, mask.data(), text.data(), text.size());
    return text.data();
}

void check_without_gaps(int32_t length) {
    Mask mask{};
    for (size_t place = 0; place < static_cast<size_t>(length); ++place)
        mask[place / 8] = static_cast<unsigned char>(mask[place / 8] | 0x80 >> place % 8);

    const std::string ipv6 = text_of(AF_INET6, mask);
    check(ipv6, "IPv6", length, korvex::sysinfo::ipv6_prefix(ipv6.c_str()));
    const std::string ipv4 = text_of(AF_INET, mask);
    check(ipv4, "IPv4", std::min(length, 32), korvex::sysinfo::ipv4_prefix(ipv4.c_str()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string input(fuzz::bytes(data, size));
    check_text(naive::up_to_nul(input));

    Mask mask{};
    std::copy_n(data, std::min(size, mask.size()), mask.begin());
    check_text(text_of(AF_INET, mask));
    check_text(text_of(AF_INET6, mask));
    check_without_gaps(mask[0] % 129);
    return 0;
}
