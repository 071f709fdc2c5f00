// Splicing a known number of bytes through a pipe, with a time-out for silence and a stop flag.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "base/message.h"
#include "base/shared_values.h"
#include "fileio.h"
#include "miscfunc.h"
#include "path_status.h"

namespace korvex::fileio {
namespace {

constexpr int64_t kChunk = 131'072;  // between two looks at the stop flag
constexpr uint32_t kIdlePauseMs = 50;

void report_timeout(int64_t left, int32_t timeout, ssize_t moved, const int64_t *out_offset, const char *function) {
    const auto bytes = static_cast<long long>(left);
    const auto last = static_cast<long long>(moved);
    if (out_offset == nullptr)
        LOG_ERROR_AS(function, "Can't finish the 'splice' of %lld bytes in %d milliseconds. (%d, %lld)\n", bytes,
                     timeout, -ETIME, last);
    else
        LOG_ERROR_AS(function, "Can't finish the 'splice' of %lld bytes in %d milliseconds. (%d, %lld, %lld)\n", bytes,
                     timeout, -ETIME, last, static_cast<long long>(*out_offset));
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Splice_Ext(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset, int64_t llCount,
                   uint32_t uFlags, int32_t nTimeout, int32_t *pnStop) {
    const StopFlag stop(pnStop);
    int64_t left = llCount;
    uint64_t silent_since = Rough_Tick_Diff(0);
    uint64_t silence = 0;

    for (;;) {
        const ssize_t moved = splice(fdIn, pllInOffset, fdOut, pllOutOffset, static_cast<size_t>(left), uFlags);
        if (moved == left)
            return 0;

        if (moved < 0 && errno != EAGAIN) {
            const int32_t result = errno != 0 ? -errno : stop.value();
            LOG_ERROR("Can't splice %lld bytes from the socket error! (%d, %lld)\n", static_cast<long long>(left),
                      result, static_cast<long long>(moved));
            return result;
        }

        if (moved > 0) {
            left -= moved;
            silent_since = Rough_Tick_Diff(0);
        } else if (const int32_t stopped = stop.value(); stopped != 0) {
            LOG_ERROR("Break 'splice' with iRet: %d.\n", stopped);
            return stopped;
        } else {
            // Compared unsigned: a negative time-out never ends.
            silence = Rough_Tick_Diff(silent_since);
            if (silence > static_cast<uint64_t>(int64_t{nTimeout})) {
                report_timeout(left, nTimeout, moved, pllOutOffset, __func__);
                return -ETIME;
            }
            Sleep_MSec(kIdlePauseMs);
        }

        LOG_DEBUG(
            "Splice can't receive %lld bytes at once, it will retry later. (bytes left: %lld; time elapsed: %llu "
            "ms; timeout: %d ms)\n",
            static_cast<long long>(llCount), static_cast<long long>(left), static_cast<unsigned long long>(silence),
            nTimeout);
    }
}

int32_t Splice_File_Data(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset, int64_t llCount,
                         int32_t nTimeout, int32_t *pnStop, int64_t *pllTotal) {
    if (fdIn < 0 || (pllInOffset != nullptr && *pllInOffset < 0) || fdOut < 0 ||
        (pllOutOffset != nullptr && *pllOutOffset < 0) || llCount < 0)
        return -EINVAL;

    const StopFlag stop(pnStop);
    const ByteTotal total(pllTotal);
    for (int64_t left = llCount; left > 0 && !stop.set();) {
        const int64_t chunk = std::min(left, kChunk);
        const int32_t result = Splice_Ext(fdIn, pllInOffset, fdOut, pllOutOffset, chunk, 0, nTimeout, pnStop);
        if (result != 0) {
            // Both names stand in one buffer, so both places show the second: as it has always been.
            const char *out_name = shown_path(fdOut);
            const char *in_name = shown_path(fdIn);
            LOG_ERROR("Can't splice the file '%s' into '%s' error! (%d, %d)\n", in_name, out_name,
                      static_cast<int>(chunk), result);
            return result;
        }

        left -= chunk;
        total.add(chunk);
    }
    return stop.value();
}
