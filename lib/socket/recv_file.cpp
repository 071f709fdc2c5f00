// From a socket into a file through a pipe, so that the bytes stay in the kernel.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/handles.h"
#include "base/message.h"
#include "miscfunc.h"
#include "socket.h"

namespace korvex::socket {
namespace {

constexpr const char *kRecvFile = "Recv_File";
constexpr int64_t kChunk = 8192;
constexpr int32_t kWaitMs = 1000;

class FileReception final {
  public:
    FileReception(int socket, int file, int64_t *offset) : socket_(socket), file_(file), offset_(offset) {}

    [[nodiscard]] int32_t open() {
        std::array<int, 2> ends;
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            return -errno;

        out_ = UniqueFd(ends[0]);
        in_ = UniqueFd(ends[1]);
        return 0;
    }

    // Until all is moved, however long that takes.
    [[nodiscard]] int32_t move(int64_t count);

    uint64_t moved() const { return moved_; }

  private:
    // What came: 0 where nothing did, or a negated errno.
    [[nodiscard]] ssize_t take(int64_t chunk) const;
    [[nodiscard]] bool put(ssize_t count, int32_t &result) const;

    int socket_;
    int file_;
    int64_t *offset_;
    UniqueFd out_;
    UniqueFd in_;
    uint64_t moved_ = 0;
};

int32_t FileReception::move(int64_t count) {
    while (count > 0) {
        const ssize_t came = take(std::min(count, kChunk));
        if (came < 0)
            return static_cast<int32_t>(came);
        if (came == 0)
            continue;

        int32_t result = 0;
        if (!put(came, result))
            return result;

        count -= came;
        moved_ += static_cast<uint64_t>(came);
    }
    return 0;
}

ssize_t FileReception::take(int64_t chunk) const {
    const int32_t ready = Is_Socket_Ready_To_Recv(socket_, kWaitMs);
    if (ready < 0) {
        LOG_ERROR_AS(kRecvFile, "Can't check the socket is ready %d error! (%ld)\n", socket_, long{ready});
        return ready;
    }

    const ssize_t came = splice(socket_, nullptr, in_.get(), nullptr, static_cast<size_t>(chunk),
                                SPLICE_F_MOVE | SPLICE_F_NONBLOCK | SPLICE_F_MORE);
    if (came > 0)
        return came;

    if (came == 0) {
        // The peer has closed, and the socket is ready at once each time that it is asked.
        Sleep_MSec(kWaitMs);
        return 0;
    }

    const int32_t result = -errno;
    if (result == -EAGAIN)
        return 0;

    LOG_ERROR_AS(kRecvFile, "Can't splice the socket %d error! (%ld, %ld, %d)\n", socket_, long{chunk}, long{result},
                 result);
    return result;
}

bool FileReception::put(ssize_t count, int32_t &result) const {
    errno = 0;
    if (splice(out_.get(), nullptr, file_, offset_, static_cast<size_t>(count), SPLICE_F_MOVE | SPLICE_F_MORE) == count)
        return true;

    result = -errno;
    LOG_ERROR_AS(kRecvFile, "Can't splice the destination file %d error! (%ld, %ld, %d)\n", file_, long{count},
                 long{result}, result);
    return false;
}

}  // namespace
}  // namespace korvex::socket

using namespace korvex::socket;

int32_t Recv_File(int32_t fdSocket, int32_t fdFile, int64_t *pOffset, int64_t nLength, uint64_t *pcbReceived) {
    if (fdSocket < 0 || fdFile < 0 || nLength < 0)
        return -EINVAL;

    FileReception reception(fdSocket, fdFile, pOffset);
    int32_t result = reception.open();
    if (result != 0) {
        LOG_ERROR("Can't create a pipe error! (%d)\n", result);
        return result;
    }

    result = reception.move(nLength);
    if (pcbReceived != nullptr)
        *pcbReceived = reception.moved();
    return result;
}
