// Waiting for sockets.
#include "base/readiness.h"

#include <poll.h>

#include <array>
#include <cerrno>

#include "socket.h"

using namespace korvex;

namespace {

constexpr size_t kMostSockets = 16;

}  // namespace

int32_t Is_Socket_Ready_To_Recv(int32_t fd, int32_t nTimeout) {
    timeval timeout = to_timeval(nTimeout);
    return wait_until_ready(fd, Readiness::to_read, nTimeout >= 0 ? &timeout : nullptr);
}

int32_t Is_Socket_Ready_To_Send(int32_t fd, int32_t nTimeout) {
    timeval timeout = to_timeval(nTimeout);  // a negative one, too: the system refuses it
    return wait_until_ready(fd, Readiness::to_write, &timeout);
}

int32_t Is_Any_Socket_Ready(const int32_t *pfdList, int32_t nCount, int32_t nTimeout, int32_t *pfdReady,
                            int32_t *pnIndex) {
    if (pfdList == nullptr || pfdReady == nullptr || nCount < 1 || nCount > static_cast<int32_t>(kMostSockets))
        return -EINVAL;

    const auto count = static_cast<size_t>(nCount);
    std::array<pollfd, kMostSockets> sockets;
    for (size_t i = 0; i < count; i++)
        sockets[i] = {.fd = pfdList[i], .events = POLLIN | POLLRDNORM, .revents = 0};

    const int ready = poll(sockets.data(), count, nTimeout);
    if (ready <= 0)
        return ready == 0 ? 0 : -errno;

    for (size_t i = 0; i < count; i++)
        if (sockets[i].revents != 0) {
            *pfdReady = sockets[i].fd;
            if (pnIndex != nullptr)
                *pnIndex = static_cast<int32_t>(i);
            return 1;
        }
    return 0;
}
