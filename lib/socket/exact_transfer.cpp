// Receiving and sending an exact number of bytes on a plain socket.
#include <sys/socket.h>

#include <cerrno>

#include "base/message.h"
#include "miscfunc.h"
#include "socket.h"

int32_t Exactly_Recv(int32_t fd, void *pBuf, int32_t nLength, int32_t nTimeout) {
    char *bytes = static_cast<char *>(pBuf);
    const uint64_t start = Rough_Tick();
    int32_t received = 0;
    while (received < nLength) {
        const ssize_t count = recv(fd, bytes + received, static_cast<size_t>(nLength - received), 0);
        if (count < 0) {
            const int32_t result = -errno;
            LOG_ERROR("Can't receive error (%d, %d)!\n", result, errno);
            return result;
        }

        // Compared unsigned: a negative time-out never ends.
        if (count == 0 && Rough_Tick_Diff(start) > static_cast<uint64_t>(int64_t{nTimeout})) {
            LOG_ERROR("Exactly_SSL_Recv() timeout! Want %d bytes, got %d bytes! (%d)\n", nLength, received, errno);
            errno = ETIME;
            return -ETIME;
        }
        received += static_cast<int32_t>(count);
    }
    return received;
}

int64_t Exactly_Send(int32_t fd, const void *pBuf, uint64_t cbLength, uint32_t uFlags) {
    const char *bytes = static_cast<const char *>(pBuf);
    uint64_t sent = 0;
    while (sent < cbLength) {
        const ssize_t count = send(fd, bytes + sent, cbLength - sent, static_cast<int>(uFlags));
        if (count < 0) {
            const int32_t result = -errno;
            LOG_ERROR("Can't send error! (%d)\n", result);
            return result;
        }
        sent += static_cast<uint64_t>(count);
    }
    return static_cast<int64_t>(sent);
}
