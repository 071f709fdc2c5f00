// Network interfaces as no real kernel lists them: the answers of getifaddrs and ioctl, written down by the test.
#pragma once

#include <ifaddrs.h>
#include <net/if.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace support {

// An interface of SIOCGIFCONF, and what SIOCGIFFLAGS and SIOCGIFHWADDR tell of it: an error other than 0 is what they
// fail with.
struct FakeInterface {
    std::string name;
    int16_t flags = IFF_UP;
    std::array<uint8_t, 6> mac{0x00, 0x16, 0x3e, 0x0a, 0xbc, 0xdf};
    int flags_error = 0;
    int mac_error = 0;
};

// An entry of getifaddrs. The family is the one that the address text belongs to, unless one is given; an empty text is
// a null pointer.
struct FakeAddress {
    std::string name;
    std::string address;
    std::string netmask;
    unsigned int flags = IFF_UP;
    int family = -1;
};

// A call of ioctl that the fake network has answered.
struct FakeRequest {
    unsigned long number;
    std::string name;    // of the interface; empty for SIOCGIFCONF
    size_t room;         // for SIOCGIFCONF: size of the buffer
    bool on_ipv4_dgram;  // whether it came on an IPv4 datagram socket

    friend bool operator==(const FakeRequest &, const FakeRequest &) = default;
};

// Answers getifaddrs and the three requests above for as long as it lives, for the calling thread only. FailCall and
// CountCalls work on these functions with and without it.
class FakeNetwork {
  public:
    FakeNetwork(std::vector<FakeInterface> interfaces, std::vector<FakeAddress> addresses);
    ~FakeNetwork();
    FakeNetwork(const FakeNetwork &) = delete;
    FakeNetwork &operator=(const FakeNetwork &) = delete;

    // Makes SIOCGIFCONF fail, or tell another length than that of the requests it stored.
    void fail_list(int error) { list_error_ = error; }
    void claim_list_length(int length) { list_length_ = length; }

    const std::vector<FakeRequest> &requests() const { return requests_; }
    // Address lists that were handed out and not yet freed.
    size_t lists_in_use() const { return lists_.size(); }

    // For the wrappers.
    int list_addresses(ifaddrs **list);
    bool free_addresses(ifaddrs *list);
    int request(int descriptor, unsigned long number, void *argument);

  private:
    int fill_list(ifconf &list) const;
    int tell_flags(ifreq &request) const;
    int tell_mac(ifreq &request) const;
    const FakeInterface *find(const ifreq &request) const;

    std::vector<FakeInterface> interfaces_;
    std::vector<FakeAddress> addresses_;
    int list_error_ = 0;
    int list_length_ = -1;
    std::vector<FakeRequest> requests_;
    std::set<ifaddrs *> lists_;
};

}  // namespace support
