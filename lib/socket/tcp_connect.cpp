// TCP connections as the client.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/handles.h"
#include "base/message.h"
#include "options.h"
#include "resolver.h"
#include "socket.h"

namespace korvex::socket {
namespace {

constexpr const char *kConnect = "TCP_Socket_Connect";
constexpr int32_t kDefaultTimeoutMs = 120'000;
constexpr std::string_view kMappedPrefix = "::ffff:";

// Whether the name leaves open which interface an IPv6 address is reached by.
bool leaves_scope_open(const char *host) {
    return std::strcmp(host, "::1") != 0 && strncasecmp(host, kMappedPrefix.data(), kMappedPrefix.size()) != 0 &&
           std::strchr(host, '%') == nullptr;
}

void add_scope_id(const char *host, addrinfo &peer) {
    if (peer.ai_family != AF_INET6 || !leaves_scope_open(host))
        return;

    auto *address = reinterpret_cast<sockaddr_in6 *>(peer.ai_addr);
    uint32_t scope_id = 0;
    if (IPv6_Get_Scope_Id(&address->sin6_addr, &scope_id) == 0)
        address->sin6_scope_id = scope_id;
}

int32_t set_options(int socket, int32_t timeout) {
    const int32_t result = switch_on(socket, IPPROTO_TCP, TCP_NODELAY);
    if (result != 0) {
        LOG_ERROR_AS(kConnect, "Can't set TCP socket nodelay error! (%d)\n", -result);
        return result;
    }

    return set_timeouts(socket, timeout > 0 ? timeout : kDefaultTimeoutMs, [](const char *which, int32_t code) {
        LOG_ERROR_AS(kConnect, "Can't set TCP %s timeout error: %d\n", which, code);
    });
}

int32_t bind_to(int socket, const char *local_ip) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(local_ip);
    if (bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return 0;

    const int32_t result = -errno;
    LOG_DEBUG_AS(kConnect, "Can't bind socket error! (%d)\n", result);
    return result;
}

int32_t connect_to(int socket, const addrinfo &peer) {
    if (connect(socket, peer.ai_addr, peer.ai_addrlen) == 0)
        return 0;

    const int32_t result = -errno;
    LOG_DEBUG_AS(kConnect, "Can't connect socket error! (%d)\n", result);
    return result;
}

}  // namespace
}  // namespace korvex::socket

using namespace korvex;
using namespace korvex::socket;

int32_t TCP_Socket_Connect(const char *pszLocalIP, const char *pszHost, int32_t nPort, int32_t nTimeout,
                           int32_t *pfdSocket) {
    if (nPort < 1 || pszHost == nullptr || pfdSocket == nullptr)
        return -EINVAL;

    *pfdSocket = -1;
    AddressList peers;
    int32_t result = resolve(pszHost, nPort, AI_ALL, peers, __func__);
    if (result != 0)
        return result;

    addrinfo &peer = *peers;
    add_scope_id(pszHost, peer);
    UniqueFd socket(::socket(peer.ai_family, peer.ai_socktype, peer.ai_protocol));
    if (!socket) {
        result = -errno;
        LOG_DEBUG("Can't create socket error! (%d)\n", result);
        return result;
    }

    result = set_options(socket.get(), nTimeout);
    if (result == 0 && pszLocalIP != nullptr)
        result = bind_to(socket.get(), pszLocalIP);
    if (result == 0)
        result = connect_to(socket.get(), peer);
    if (result == 0)
        *pfdSocket = socket.release();
    return result;
}
