// Host names to address texts, and the test whether one is this host's.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <cerrno>

#include "base/message.h"
#include "base/texts.h"
#include "resolver.h"
#include "socket.h"
#include "sysinfo.h"

namespace korvex::socket {
namespace {

struct InterfaceFreer {
    void operator()(Netif_Info *list) const { Free_Network_Interface(list); }
};
using InterfaceList = std::unique_ptr<Netif_Info, InterfaceFreer>;

// Kept: for both tests an address that only begins with the text counts, too.
bool has_ipv4(const Netif_Info *interfaces, const char *text) {
    for (const Netif_Info *interface = interfaces; interface != nullptr; interface = interface->pNext)
        if (begins_with(interface->szIPv4, text))
            return true;
    return false;
}

// Kept: only the first interface counts.
bool first_has_ipv6(const Netif_Info *interfaces, const char *text) {
    if (interfaces == nullptr)
        return false;

    for (const Netif_IPv6 *address = interfaces->pIPv6List; address != nullptr; address = address->pNext)
        if (begins_with(address->szAddress, text))
            return true;
    return false;
}

}  // namespace
}  // namespace korvex::socket

using namespace korvex;
using namespace korvex::socket;

int32_t Domain_To_IP_Addr(const char *pszDomain, char *pszIP, int32_t *pidFamily) {
    if (pszDomain == nullptr || pszIP == nullptr || pidFamily == nullptr)
        return -EINVAL;

    AddressList addresses;
    const int32_t result = resolve(pszDomain, "0", AI_ALL, addresses, __func__);
    if (result != 0)
        return result;

    const sockaddr *address = addresses->ai_addr;
    *pidFamily = addresses->ai_family;
    if (addresses->ai_family == AF_INET) {
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, pszIP, INET6_ADDRSTRLEN);
        return 0;
    }
    if (addresses->ai_family == AF_INET6) {
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr, pszIP, INET6_ADDRSTRLEN);
        return 0;
    }

    *pszIP = '\0';
    LOG_DEBUG("Unsupported family: %d\n", addresses->ai_family);
    return -EFAULT;
}

int32_t Is_IP_Localhost(const char *pszAddr) {
    if (pszAddr == nullptr || *pszAddr == '\0')
        return -EINVAL;

    std::array<char, INET6_ADDRSTRLEN> text;
    int32_t family = 0;
    int32_t result = Domain_To_IP_Addr(pszAddr, text.data(), &family);
    if (result != 0) {
        LOG_ERROR("Can't translate donaim to IP! (%d)\n", result);
        return 0;
    }

    Netif_Info *first = nullptr;
    int32_t count = 0;
    result = Scan_Network_Interface(&first, &count);
    const InterfaceList interfaces(first);
    if (result < 0) {
        LOG_ERROR("Can't get network interface! (%d)\n", result);
        return interfaces ? result : 0;
    }

    return family == AF_INET ? has_ipv4(first, text.data()) : first_has_ipv6(first, text.data());
}
