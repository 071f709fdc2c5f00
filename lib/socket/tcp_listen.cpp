// TCP listeners, one socket for each address of a name.
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <utility>

#include "base/handles.h"
#include "base/message.h"
#include "options.h"
#include "resolver.h"
#include "socket.h"

namespace korvex::socket {
namespace {

constexpr const char *kListen = "TCP_Socket_Listen";
constexpr uint32_t kMostBacklog = 128;

// The caller's array: what is in it when the listening fails is closed. A -1 stands behind the sockets from the start; at
// the array's end, which only a caller who is given them all looks at, it is written when they are kept.
class Listeners final {
  public:
    Listeners(int32_t *sockets, int32_t size) : sockets_(sockets), size_(size) {
        if (!full())
            end();
    }
    Listeners(const Listeners &) = delete;
    Listeners &operator=(const Listeners &) = delete;
    ~Listeners() {
        while (count_ > 0) {
            const UniqueFd socket(std::exchange(sockets_[--count_], -1));
        }
    }

    bool empty() const { return count_ == 0; }
    bool full() const { return count_ >= size_; }
    void add(UniqueFd &&socket) {
        sockets_[count_++] = socket.release();
        if (!full())
            end();
    }
    // From here on the sockets are the caller's.
    void keep() {
        end();
        count_ = 0;
    }

  private:
    void end() { sockets_[count_] = -1; }

    int32_t *sockets_;
    int32_t size_;
    int32_t count_ = 0;
};

int32_t set_flag(int socket, int level, int option, const char *name) {
    const int32_t result = switch_on(socket, level, option);
    if (result != 0)
        LOG_ERROR_AS(kListen, "Can't set %s! (%d)\n", name, result);
    return result;
}

// Makes a socket that is bound to the address. 0 or a negated errno.
int32_t bind_socket(const addrinfo &address, UniqueFd &bound) {
    UniqueFd socket(::socket(address.ai_family, address.ai_socktype, address.ai_protocol));
    if (!socket) {
        const int32_t result = -errno;
        LOG_DEBUG_AS(kListen, "Can't create socket! (%d)\n", result);
        return result;
    }

    int32_t result = set_flag(socket.get(), SOL_SOCKET, SO_REUSEADDR, "socket reuse address");
    // So that the IPv4 and the IPv6 wildcard can stand beside each other.
    if (result == 0 && address.ai_family == AF_INET6)
        result = set_flag(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, "socket IPv6 only");
    if (result == 0)
        result = set_flag(socket.get(), IPPROTO_TCP, TCP_NODELAY, "TCP socket nodelay");
    if (result != 0)
        return result;

    if (bind(socket.get(), address.ai_addr, address.ai_addrlen) != 0) {
        result = -errno;
        LOG_ERROR_AS(kListen, "Can't bind socket! (%d)\n", result);
        return result;
    }
    bound = std::move(socket);
    return 0;
}

int32_t listen_on_all(const addrinfo *addresses, int32_t backlog, Listeners &listeners) {
    int32_t last_error = 0;
    for (const addrinfo *address = addresses; address != nullptr; address = address->ai_next) {
        if (listeners.full()) {
            LOG_ERROR_AS(kListen, "Insufficient array buffer for socket! (%d)\n", -ENOMEM);
            return -ENOMEM;
        }

        UniqueFd socket;
        const int32_t result = bind_socket(*address, socket);
        if (result != 0) {
            last_error = result;
            continue;
        }
        if (listen(socket.get(), backlog) != 0) {
            const int32_t listen_result = -errno;
            LOG_ERROR_AS(kListen, "Can't listen socket! (%d)\n", listen_result);
            return listen_result;
        }
        listeners.add(std::move(socket));
    }
    return listeners.empty() ? last_error : 0;
}

}  // namespace
}  // namespace korvex::socket

using namespace korvex::socket;

int32_t TCP_Socket_Listen(const char *pszHost, int32_t nPort, int32_t nBacklog, int32_t *pfdArray, int32_t nArraySize) {
    const auto backlog = static_cast<uint32_t>(nBacklog);
    if (nPort < 1 || backlog == 0 || backlog > kMostBacklog || pfdArray == nullptr)
        return -EINVAL;

    AddressList addresses;
    int32_t result = resolve(pszHost, nPort, AI_PASSIVE, addresses, __func__);
    if (result != 0) {
        pfdArray[0] = -1;
        return result;
    }

    Listeners listeners(pfdArray, nArraySize);
    result = listen_on_all(addresses.get(), nBacklog, listeners);
    if (result == 0)
        listeners.keep();
    return result;
}
