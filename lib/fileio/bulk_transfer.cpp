// Moving a known number of bytes however short the single transfers are.
#include <sys/sendfile.h>
#include <unistd.h>

#include <cerrno>

#include "base/message.h"
#include "fileio.h"
#include "path_status.h"

namespace korvex::fileio {
namespace {

// How a series of transfers ended.
struct Progress {
    int64_t moved;
    int64_t last;  // what the last transfer returned
};

// Repeats `transfer(moved, left)` until `count` bytes are moved or one moves nothing. A signal ends it as well.
template <class Transfer>
Progress move_all(int64_t count, Transfer transfer) {
    Progress progress{.moved = 0, .last = 0};
    while (progress.moved < count) {
        progress.last = transfer(progress.moved, static_cast<size_t>(count - progress.moved));
        if (progress.last < 1)
            break;
        progress.moved += progress.last;
    }
    return progress;
}

void store_count(uint64_t *target, int64_t count) {
    if (target != nullptr)
        *target = static_cast<uint64_t>(count);
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex::fileio;

int32_t File_Write_Bulk(int32_t fdFile, const void *pBuf, int64_t llCount, uint64_t *pullWritten) {
    store_count(pullWritten, 0);
    if (pBuf == nullptr || llCount < 0 || fdFile < 0)
        return -EINVAL;

    const char *bytes = static_cast<const char *>(pBuf);
    const Progress progress =
        move_all(llCount, [=](int64_t moved, size_t left) -> int64_t { return write(fdFile, bytes + moved, left); });
    store_count(pullWritten, progress.moved);
    if (progress.moved == llCount)
        return 0;

    const int32_t result = -errno;
    LOG_ERROR("Can't write file error! (%s, %d, %lld,%lld/%lld)\n", shown_path(fdFile), result,
              static_cast<long long>(progress.last), static_cast<long long>(progress.moved),
              static_cast<long long>(llCount));
    return result;
}

int32_t File_Send_Bulk(int32_t fdIn, int32_t fdOut, int64_t llCount, int64_t *pllOffset, uint64_t *pullSent) {
    store_count(pullSent, 0);
    if (fdIn < 0 || fdOut < 0 || llCount < 0)
        return -EINVAL;

    const Progress progress = move_all(
        llCount, [=](int64_t /*moved*/, size_t left) -> int64_t { return sendfile(fdOut, fdIn, pllOffset, left); });
    store_count(pullSent, progress.moved);
    if (progress.moved == llCount)
        return 0;

    const int32_t result = -errno;
    LOG_ERROR("Can't sendfile error! (%s, %d, %lld,%lld/%lld, %lld)\n", shown_path(fdIn), result,
              static_cast<long long>(progress.last), static_cast<long long>(progress.moved),
              static_cast<long long>(llCount), static_cast<long long>(pllOffset != nullptr ? *pllOffset : 0));
    return result;
}
