// A snapshot of the network interfaces: the kernel's list of names, joined with the system's list of addresses.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/handles.h"
#include "base/message.h"
#include "netmask.h"
#include "sysinfo.h"

namespace korvex::sysinfo {
namespace {

constexpr const char *kScan = "Scan_Network_Interface";
constexpr size_t kMostInterfaces = 18;

struct AddressFreer {
    void operator()(ifaddrs *list) const { freeifaddrs(list); }
};
using SystemAddresses = std::unique_ptr<ifaddrs, AddressFreer>;

struct InterfaceFreer {
    void operator()(Netif_Info *list) const { Free_Network_Interface(list); }
};
using InterfaceList = std::unique_ptr<Netif_Info, InterfaceFreer>;

// The record that is being filled; what it holds is freed unless it is handed on.
class Interface final {
  public:
    Interface(const char *name, size_t index) {
        record_.idIndex = static_cast<uint16_t>(index);
        std::snprintf(record_.szName, sizeof record_.szName, "%s", name);
    }
    Interface(const Interface &) = delete;
    Interface &operator=(const Interface &) = delete;
    ~Interface() { free_addresses(record_.pIPv6List); }

    static void free_addresses(Netif_IPv6 *list) {
        while (list != nullptr)
            list = MallocPtr<Netif_IPv6>(list)->pNext;
    }

    Netif_Info &record() { return record_; }
    const char *name() const { return record_.szName; }

    // Takes every address of this interface. 0; -ENODEV where it has none; -ENOMEM.
    [[nodiscard]] int32_t take_addresses(const ifaddrs *addresses);

    // A heap copy, which owns the addresses from now on; null without memory.
    [[nodiscard]] Netif_Info *release() {
        auto *copy = static_cast<Netif_Info *>(std::malloc(sizeof(Netif_Info)));
        if (copy != nullptr) {
            *copy = record_;
            record_.pIPv6List = nullptr;
        }
        return copy;
    }

  private:
    void take_ipv4(const ifaddrs &entry);
    [[nodiscard]] bool take_ipv6(const ifaddrs &entry);

    Netif_Info record_{};
    Netif_IPv6 **end_ = &record_.pIPv6List;
};

int32_t Interface::take_addresses(const ifaddrs *addresses) {
    int32_t result = -ENODEV;
    for (const ifaddrs *entry = addresses; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || std::strcmp(entry->ifa_name, name()) != 0)
            continue;

        if (entry->ifa_addr->sa_family == AF_INET)
            take_ipv4(*entry);
        else if (entry->ifa_addr->sa_family != AF_INET6)
            continue;
        else if (!take_ipv6(*entry))
            return -ENOMEM;

        record_.uFlags = entry->ifa_flags;
        result = 0;
    }
    return result;
}

void Interface::take_ipv4(const ifaddrs &entry) {
    const auto *address = reinterpret_cast<const sockaddr_in *>(entry.ifa_addr);
    inet_ntop(AF_INET, &address->sin_addr, record_.szIPv4, sizeof record_.szIPv4);

    std::array<char, INET_ADDRSTRLEN> mask_text{};
    if (const auto *mask = reinterpret_cast<const sockaddr_in *>(entry.ifa_netmask); mask != nullptr)
        inet_ntop(AF_INET, &mask->sin_addr, mask_text.data(), mask_text.size());
    record_.nIPv4Prefix = static_cast<uint16_t>(ipv4_prefix(mask_text.data()));
}

bool Interface::take_ipv6(const ifaddrs &entry) {
    auto *node = static_cast<Netif_IPv6 *>(std::calloc(1, sizeof(Netif_IPv6)));
    if (node == nullptr)
        return false;

    const auto *address = reinterpret_cast<const sockaddr_in6 *>(entry.ifa_addr);
    inet_ntop(AF_INET6, &address->sin6_addr, node->szAddress, sizeof node->szAddress);

    std::array<char, INET6_ADDRSTRLEN> mask_text{};
    if (const auto *mask = reinterpret_cast<const sockaddr_in6 *>(entry.ifa_netmask); mask != nullptr)
        inet_ntop(AF_INET6, &mask->sin6_addr, mask_text.data(), mask_text.size());
    node->nPrefixLen = static_cast<uint16_t>(ipv6_prefix(mask_text.data()));

    *end_ = node;
    end_ = &node->pNext;
    return true;
}

// Whether an interface whose addresses can't be read is listed anyway: it is if it is up.
bool is_up_without_address(int socket, ifreq request, Interface &interface, int32_t result) {
    LOG_DEBUG_AS(kScan, "Can't get IP addresses of %s! (%d)\n", interface.name(), result);
    if (ioctl(socket, SIOCGIFFLAGS, &request) != 0) {
        const int32_t flags_result = -errno;
        LOG_DEBUG_AS(kScan, "Can't get the flags of %s! (%d)\n", interface.name(), flags_result);
        return false;
    }

    // Kept: the kernel's 16 bits are read as a signed number.
    interface.record().uFlags = static_cast<uint32_t>(int32_t{request.ifr_flags});
    return (request.ifr_flags & IFF_UP) != 0;
}

bool read_hardware_address(int socket, ifreq request, Interface &interface) {
    if (ioctl(socket, SIOCGIFHWADDR, &request) != 0) {
        const int code = errno;
        LOG_ERROR_AS(kScan, "Can't get the MAC address of %s! (%d)\n", interface.name(), code);
        return false;
    }

    std::array<unsigned char, 6> mac{};
    std::memcpy(mac.data(), request.ifr_hwaddr.sa_data, mac.size());
    Netif_Info &record = interface.record();
    std::snprintf(record.szMac, sizeof record.szMac, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3],
                  mac[4], mac[5]);
    return true;
}

// The names that the kernel lists.
class KernelList final {
  public:
    [[nodiscard]] int32_t read(int socket) {
        ifconf list{};
        list.ifc_len = sizeof requests_;
        list.ifc_req = requests_.data();
        if (ioctl(socket, SIOCGIFCONF, &list) != 0)
            return -errno;

        count_ = static_cast<size_t>(list.ifc_len) / sizeof(ifreq);
        return 0;
    }

    size_t size() const { return count_; }
    const ifreq &operator[](size_t index) const { return requests_[index]; }

  private:
    std::array<ifreq, kMostInterfaces> requests_{};
    size_t count_ = 0;
};

// Adds a record for each name to the list. A hardware address that can't be read ends the list; that is not an error.
int32_t list_interfaces(int socket, const KernelList &names, const ifaddrs *addresses, InterfaceList &list,
                        int32_t &count) {
    Netif_Info *last = nullptr;
    for (size_t i = 0; i < names.size(); i++) {
        Interface interface(names[i].ifr_name, i);
        LOG_DEBUG_AS(kScan, "Get the address of %d-th netif: %s\n", static_cast<int>(i), interface.name());

        const int32_t result = interface.take_addresses(addresses);
        if (result != 0 && !is_up_without_address(socket, names[i], interface, result))
            continue;
        if (!read_hardware_address(socket, names[i], interface))
            return 0;

        Netif_Info *record = interface.release();
        if (record == nullptr)
            return -ENOMEM;

        if (last == nullptr)
            list.reset(record);
        else
            last->pNext = record;
        last = record;
        count++;
    }
    return 0;
}

}  // namespace
}  // namespace korvex::sysinfo

using namespace korvex;
using namespace korvex::sysinfo;

int32_t Scan_Network_Interface(Netif_Info **ppList, int32_t *pnCount) {
    if (ppList == nullptr || pnCount == nullptr)
        return -EINVAL;

    *ppList = nullptr;
    *pnCount = 0;
    ifaddrs *first_address = nullptr;
    if (getifaddrs(&first_address) != 0)
        return -errno;

    const SystemAddresses addresses(first_address);
    const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket)
        return 0;

    KernelList names;
    int32_t result = names.read(socket.get());
    if (result != 0) {
        LOG_ERROR("Can't get the netif name list! (%d)\n", result);
        return result;
    }

    InterfaceList list;
    int32_t count = 0;
    result = list_interfaces(socket.get(), names, addresses.get(), list, count);
    if (result != 0)
        return result;

    *ppList = list.release();
    *pnCount = count;
    return 0;
}

void Free_Network_Interface(Netif_Info *pList) {
    while (pList != nullptr) {
        const MallocPtr<Netif_Info> record(pList);
        Interface::free_addresses(record->pIPv6List);
        pList = record->pNext;
    }
}
