// Exact transfer on connections of either kind.
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/message.h"
#include "miscfunc.h"
#include "socket.h"

namespace korvex::socket {
namespace {

// How long a call has been going on.
class Patience final {
  public:
    explicit Patience(int32_t timeout) : timeout_(static_cast<uint64_t>(int64_t{timeout})) {}

    uint64_t elapsed() const { return Tick_Diff(start_); }
    // Compared unsigned: a negative time-out never ends.
    bool is_over(uint64_t elapsed) const { return elapsed > timeout_; }

  private:
    uint64_t timeout_;
    uint64_t start_ = Tick_Diff(0);
};

constexpr size_t kScratchSize = 4096;
constexpr size_t kMostScratches = 64;  // 256 KiB: more than a record of a local socket holds

// Receives, on a plain connection, `before` bytes that nobody wants and the buffer behind them at once, so that a record
// which reaches from the one into the other is not cut.
int64_t receive_across(int socket, char *buffer, int32_t length, uint64_t before) {
    std::array<char, kScratchSize> scratch;
    std::array<iovec, kMostScratches + 1> pieces;
    size_t count = 0;
    while (before > 0 && count < kMostScratches) {
        const size_t size = std::min<uint64_t>(before, scratch.size());
        pieces[count++] = {.iov_base = scratch.data(), .iov_len = size};
        before -= size;
    }
    if (before == 0)
        pieces[count++] = {.iov_base = buffer, .iov_len = static_cast<size_t>(length)};

    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = count;
    return recvmsg(socket, &message, 0);
}

// Receives what is missing of `length` bytes when `received` have come. The count may be below 0; what would land before
// the buffer is thrown away then.
int64_t receive_rest(SSL_Socket_Info *connection, char *buffer, int32_t length, int32_t received) {
    if (received >= 0)
        return SSL_Recv(connection, buffer + received, static_cast<uint64_t>(length - received), 0);

    const auto before = static_cast<uint64_t>(-int64_t{received});
    if (connection->pCtx == nullptr)
        return receive_across(connection->fdSocket, buffer, length, before);

    std::array<char, kScratchSize> scratch;  // what a session has decrypted and not handed out, it keeps
    return SSL_Recv(connection, scratch.data(), std::min<uint64_t>(before, scratch.size()), 0);
}

int32_t receive_exactly(SSL_Socket_Info *connection, void *buffer, int32_t length, int32_t timeout, int32_t &received,
                        const char *function) {
    const Patience patience(timeout);
    received = 0;
    if (length < 1)
        return 0;

    for (;;) {
        const int64_t count = receive_rest(connection, static_cast<char *>(buffer), length, received);
        if (count < 0 && errno != EAGAIN) {
            const int32_t result = -errno;
            LOG_ERROR_AS(function, "Can't receive error (%d, %d)!\n", result, errno);
            return result;
        }

        const uint64_t elapsed = count <= 0 ? patience.elapsed() : 0;
        if (count <= 0 && patience.is_over(elapsed)) {
            LOG_ERROR_AS(function, "%s() timeout! Want %d bytes, got %d bytes! (%d, %lld)\n", function, length,
                         received, errno, static_cast<long long>(elapsed));
            errno = ETIME;
            return -ETIME;
        }

        // Kept: the -1 of an EAGAIN is added, too, so the count falls.
        received += static_cast<int32_t>(count);
        if (received >= length)
            return received;
    }
}

}  // namespace
}  // namespace korvex::socket

using namespace korvex::socket;

int32_t Exactly_SSL_Peek(SSL_Socket_Info *pSock, void *pBuf, int32_t nLength, int32_t nTimeout) {
    if (nLength < 0) {
        errno = EINVAL;
        LOG_ERROR("Can't receive error (%d, %d)!\n", -errno, errno);
        return -EINVAL;
    }

    const Patience patience(nTimeout);
    for (;;) {
        const int64_t count = SSL_Recv(pSock, pBuf, static_cast<uint64_t>(nLength), MSG_PEEK);
        if (count == nLength)
            return nLength;

        // A failed peek does not end the wait.
        if (patience.is_over(patience.elapsed())) {
            LOG_ERROR("Exactly_Peek() timeout! Want %d bytes, got %d bytes!\n", nLength, static_cast<int32_t>(count));
            errno = ETIME;
            return -ETIME;
        }
    }
}

int32_t Exactly_SSL_Recv(SSL_Socket_Info *pSock, void *pBuf, int32_t nLength, int32_t nTimeout) {
    int32_t received = 0;
    return receive_exactly(pSock, pBuf, nLength, nTimeout, received, __func__);
}

int32_t Exactly_SSL_Recv_Ex(SSL_Socket_Info *pSock, void *pBuf, int32_t nLength, int32_t nTimeout,
                            int32_t *pnReceived) {
    return receive_exactly(pSock, pBuf, nLength, nTimeout, *pnReceived, __func__);
}

int64_t Exactly_SSL_Send(SSL_Socket_Info *pSock, const void *pBuf, uint64_t cbLength, uint32_t uFlags) {
    const char *bytes = static_cast<const char *>(pBuf);
    uint64_t sent = 0;
    while (sent < cbLength) {
        const uint64_t left = cbLength - sent;
        const int64_t count = SSL_Send(pSock, bytes + sent, left, uFlags);
        if (count < 0) {
            const int32_t result = errno == EAGAIN ? -ETIME : -errno;
            LOG_ERROR("Can't send error! (%d, %d)\n", result, errno);
            return result;
        }

        sent += static_cast<uint64_t>(count);
        if (sent < cbLength)
            LOG_DEBUG("Not exactly send: %d, %d! Send again!\n", static_cast<int32_t>(left),
                      static_cast<int32_t>(count));
    }
    return static_cast<int64_t>(sent);
}
