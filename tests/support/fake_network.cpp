#include "fake_network.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "faults.h"

namespace support {
namespace {

thread_local FakeNetwork *t_network = nullptr;

// A block of its own for every entry and everything in it, so that a tool sees who reads one after it was freed.
sockaddr *make_address(const std::string &text, int family) {
    if (text.empty())
        return nullptr;

    auto *address = static_cast<sockaddr_storage *>(std::calloc(1, sizeof(sockaddr_storage)));
    auto *ipv4 = reinterpret_cast<sockaddr_in *>(address);
    auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(address);
    if (inet_pton(AF_INET, text.c_str(), &ipv4->sin_addr) == 1)
        address->ss_family = AF_INET;
    else if (inet_pton(AF_INET6, text.c_str(), &ipv6->sin6_addr) == 1)
        address->ss_family = AF_INET6;
    else
        std::abort();

    if (family >= 0)
        address->ss_family = static_cast<sa_family_t>(family);
    return reinterpret_cast<sockaddr *>(address);
}

ifaddrs *make_entry(const FakeAddress &address) {
    auto *entry = static_cast<ifaddrs *>(std::calloc(1, sizeof(ifaddrs)));
    entry->ifa_name = strdup(address.name.c_str());
    entry->ifa_flags = address.flags;
    entry->ifa_addr = make_address(address.address, address.family);
    entry->ifa_netmask = make_address(address.netmask, -1);
    return entry;
}

bool is_ipv4_dgram(int descriptor) {
    int domain = 0;
    int type = 0;
    socklen_t size = sizeof domain;
    return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 &&
           getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && domain == AF_INET && type == SOCK_DGRAM;
}

int fail_with(int error) {
    errno = error;
    return -1;
}

void copy_name(const std::string &name, ifreq &request) {
    const size_t length = std::min(name.size(), sizeof request.ifr_name - 1);
    std::memcpy(request.ifr_name, name.data(), length);
    request.ifr_name[length] = '\0';
}

}  // namespace

FakeNetwork::FakeNetwork(std::vector<FakeInterface> interfaces, std::vector<FakeAddress> addresses)
    : interfaces_(std::move(interfaces)), addresses_(std::move(addresses)) {
    t_network = this;
}

FakeNetwork::~FakeNetwork() {
    t_network = nullptr;
}

int FakeNetwork::list_addresses(ifaddrs **list) {
    *list = nullptr;
    for (ifaddrs **end = list; const FakeAddress &address : addresses_) {
        *end = make_entry(address);
        end = &(*end)->ifa_next;
    }

    if (*list != nullptr)
        lists_.insert(*list);
    return 0;
}

bool FakeNetwork::free_addresses(ifaddrs *list) {
    if (lists_.erase(list) == 0)
        return false;

    while (list != nullptr) {
        ifaddrs *entry = std::exchange(list, list->ifa_next);
        std::free(entry->ifa_name);
        std::free(entry->ifa_addr);
        std::free(entry->ifa_netmask);
        std::free(entry);
    }
    return true;
}

int FakeNetwork::request(int descriptor, unsigned long number, void *argument) {
    if (number == SIOCGIFCONF) {
        auto &list = *static_cast<ifconf *>(argument);
        requests_.push_back({number, "", static_cast<size_t>(list.ifc_len), is_ipv4_dgram(descriptor)});
        return fill_list(list);
    }

    auto &request = *static_cast<ifreq *>(argument);
    requests_.push_back({number, request.ifr_name, 0, is_ipv4_dgram(descriptor)});
    if (number == SIOCGIFFLAGS)
        return tell_flags(request);
    if (number == SIOCGIFHWADDR)
        return tell_mac(request);
    return fail_with(ENOTTY);
}

int FakeNetwork::fill_list(ifconf &list) const {
    if (list_error_ != 0)
        return fail_with(list_error_);

    const size_t count = std::min(interfaces_.size(), static_cast<size_t>(list.ifc_len) / sizeof(ifreq));
    for (size_t i = 0; i < count; i++) {
        ifreq request{};
        copy_name(interfaces_[i].name, request);
        request.ifr_addr.sa_family = AF_INET;
        list.ifc_req[i] = request;
    }
    list.ifc_len = list_length_ < 0 ? static_cast<int>(count * sizeof(ifreq)) : list_length_;
    return 0;
}

int FakeNetwork::tell_flags(ifreq &request) const {
    const FakeInterface *interface = find(request);
    if (interface == nullptr || interface->flags_error != 0)
        return fail_with(interface == nullptr ? ENODEV : interface->flags_error);

    request.ifr_flags = interface->flags;
    return 0;
}

int FakeNetwork::tell_mac(ifreq &request) const {
    const FakeInterface *interface = find(request);
    if (interface == nullptr || interface->mac_error != 0)
        return fail_with(interface == nullptr ? ENODEV : interface->mac_error);

    // What lies behind the address is not the address.
    std::memset(request.ifr_hwaddr.sa_data, 0x5a, sizeof request.ifr_hwaddr.sa_data);
    request.ifr_hwaddr.sa_family = 1;
    std::memcpy(request.ifr_hwaddr.sa_data, interface->mac.data(), interface->mac.size());
    return 0;
}

const FakeInterface *FakeNetwork::find(const ifreq &request) const {
    const auto found = std::find_if(interfaces_.begin(), interfaces_.end(),
                                    [&](const FakeInterface &one) { return one.name == request.ifr_name; });
    return found == interfaces_.end() ? nullptr : &*found;
}

}  // namespace support

// The definitions that the library's calls arrive at; see faults.cpp.
extern "C" __attribute__((visibility("default"))) int wrapped_getifaddrs(ifaddrs **list) __asm__("getifaddrs");
extern "C" __attribute__((visibility("default"))) void wrapped_freeifaddrs(ifaddrs *list) __asm__("freeifaddrs");
extern "C" __attribute__((visibility("default"))) int wrapped_ioctl(int descriptor, unsigned long number,
                                                                    void *argument) __asm__("ioctl");

int wrapped_getifaddrs(ifaddrs **list) {
    static const auto real = reinterpret_cast<int (*)(ifaddrs **)>(dlsym(RTLD_NEXT, "getifaddrs"));
    if (support::must_fail(support::Call::getifaddrs))
        return -1;
    if (support::t_network == nullptr)
        return real(list);

    const support::Undisturbed quiet;
    return support::t_network->list_addresses(list);
}

void wrapped_freeifaddrs(ifaddrs *list) {
    static const auto real = reinterpret_cast<void (*)(ifaddrs *)>(dlsym(RTLD_NEXT, "freeifaddrs"));
    support::must_fail(support::Call::freeifaddrs);
    const support::Undisturbed quiet;
    if (support::t_network == nullptr || !support::t_network->free_addresses(list))
        real(list);
}

// The argument is optional; passing one that is not looked at is harmless.
int wrapped_ioctl(int descriptor, unsigned long number, void *argument) {
    static const auto real = reinterpret_cast<int (*)(int, unsigned long, void *)>(dlsym(RTLD_NEXT, "ioctl"));
    if (support::must_fail(support::Call::ioctl))
        return -1;

    const bool faked = number == SIOCGIFCONF || number == SIOCGIFFLAGS || number == SIOCGIFHWADDR;
    if (!faked || support::t_network == nullptr)
        return real(descriptor, number, argument);

    const support::Undisturbed quiet;
    return support::t_network->request(descriptor, number, argument);
}
