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

// One series of splices until its count is moved.
class Splicing final {
  public:
    Splicing(int64_t count, int32_t timeout, const int64_t *out_offset, StopFlag stop, const char *function)
        : count_(count), left_(count), timeout_(timeout), out_offset_(out_offset), stop_(stop), function_(function) {}

    int64_t left() const { return left_; }

    // Handles a splice that failed or moved less than was asked for. False when the series is over, with `result()`.
    [[nodiscard]] bool go_on_after(ssize_t moved);
    int32_t result() const { return result_; }

  private:
    void fail(ssize_t moved);
    bool wait_in_silence(ssize_t moved);
    void report_timeout(ssize_t moved) const;

    int64_t count_;
    int64_t left_;
    int32_t timeout_;
    const int64_t *out_offset_;
    StopFlag stop_;
    const char *function_;
    uint64_t silent_since_ = Rough_Tick_Diff(0);
    uint64_t silence_ = 0;  // as it was last looked at
    int32_t result_ = 0;
};

bool Splicing::go_on_after(ssize_t moved) {
    if (moved < 0 && errno != EAGAIN) {
        fail(moved);
        return false;
    }

    if (moved > 0) {
        left_ -= moved;
        silent_since_ = Rough_Tick_Diff(0);
    } else if (!wait_in_silence(moved)) {
        return false;
    }

    LOG_DEBUG_AS(function_,
                 "Splice can't receive %lld bytes at once, it will retry later. (bytes left: %lld; time elapsed: %llu "
                 "ms; timeout: %d ms)\n",
                 static_cast<long long>(count_), static_cast<long long>(left_),
                 static_cast<unsigned long long>(silence_), timeout_);
    return true;
}

void Splicing::fail(ssize_t moved) {
    result_ = errno != 0 ? -errno : stop_.value();
    LOG_ERROR_AS(function_, "Can't splice %lld bytes from the socket error! (%d, %lld)\n",
                 static_cast<long long>(left_), result_, static_cast<long long>(moved));
}

bool Splicing::wait_in_silence(ssize_t moved) {
    if (stop_.set()) {
        result_ = stop_.value();
        LOG_ERROR_AS(function_, "Break 'splice' with iRet: %d.\n", result_);
        return false;
    }

    // Compared unsigned: a negative time-out never ends.
    silence_ = Rough_Tick_Diff(silent_since_);
    if (silence_ > static_cast<uint64_t>(int64_t{timeout_})) {
        result_ = -ETIME;
        report_timeout(moved);
        return false;
    }

    Sleep_MSec(kIdlePauseMs);
    return true;
}

void Splicing::report_timeout(ssize_t moved) const {
    const auto bytes = static_cast<long long>(left_);
    const auto last = static_cast<long long>(moved);
    if (out_offset_ == nullptr)
        LOG_ERROR_AS(function_, "Can't finish the 'splice' of %lld bytes in %d milliseconds. (%d, %lld)\n", bytes,
                     timeout_, result_, last);
    else
        LOG_ERROR_AS(function_, "Can't finish the 'splice' of %lld bytes in %d milliseconds. (%d, %lld, %lld)\n", bytes,
                     timeout_, result_, last, static_cast<long long>(*out_offset_));
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Splice_Ext(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset, int64_t llCount,
                   uint32_t uFlags, int32_t nTimeout, int32_t *pnStop) {
    Splicing splicing(llCount, nTimeout, pllOutOffset, StopFlag(pnStop), __func__);
    for (;;) {
        const auto left = static_cast<size_t>(splicing.left());
        const ssize_t moved = splice(fdIn, pllInOffset, fdOut, pllOutOffset, left, uFlags);
        if (moved == splicing.left())
            return 0;

        if (!splicing.go_on_after(moved))
            return splicing.result();
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
            // Kept: both names share one buffer, so the message shows the second one twice.
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
