// Copying a count of bytes between descriptors through one buffer, from a finished source or from one that grows.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "base/handles.h"
#include "base/message.h"
#include "base/shared_values.h"
#include "fileio.h"

namespace korvex::fileio {
namespace {

constexpr int64_t kBufferSize = 32'768;

// One call's arguments, in their order.
struct DataCopy {
    int32_t in;
    int64_t *in_offset;
    int32_t out;
    int64_t *out_offset;
    int64_t count;
    StopFlag stop;
    ByteTotal total;
    const char *function;  // whose messages these are
};

bool is_valid(const DataCopy &copy) {
    return copy.in >= 0 && copy.out >= 0 && copy.count >= 0 && (copy.in_offset == nullptr || *copy.in_offset >= 0) &&
           (copy.out_offset == nullptr || *copy.out_offset >= 0);
}

// The rule for short reads: a finished source must give what it promised.
struct FinishedSource {
    static bool is_failure(int64_t got, int64_t chunk) { return got != chunk; }
    static void report(const DataCopy &copy, int64_t chunk, int32_t result, int64_t got) {
        LOG_ERROR_AS(copy.function, "Can't read %lld byte from the source file error! (%d, %lld)\n",
                     static_cast<long long>(chunk), result, static_cast<long long>(got));
    }
};

// A growing source is read again at its end, at once, until the count is reached.
struct GrowingSource {
    static bool is_failure(int64_t got, int64_t /*chunk*/) { return got < 0; }
    static void report(const DataCopy &copy, int64_t /*chunk*/, int32_t /*result*/, int64_t got) {
        LOG_ERROR_AS(copy.function, "Can't read %lld byte from the source file error! \n", static_cast<long long>(got));
    }
};

// Reads and writes one chunk and counts it in `copied`. False when the copy ends here, with `result`.
template <class Source>
bool copy_chunk(const DataCopy &copy, char *buffer, int64_t chunk, int64_t &copied, int32_t &result) {
    const ssize_t got = read(copy.in, buffer, static_cast<size_t>(chunk));
    if (Source::is_failure(got, chunk)) {
        result = -errno;
        Source::report(copy, chunk, result, got);
        return false;
    }

    uint64_t written = 0;
    result = File_Write_Bulk(copy.out, buffer, got, &written);
    if (result < 0) {
        LOG_ERROR_AS(copy.function, "Can't write %lld byte to the destination file error! (%d, %lld)\n",
                     static_cast<long long>(chunk), result, static_cast<long long>(written));
        return false;
    }

    copied += got;
    copy.total.add(got);
    return true;
}

// Moves to `offset` where the caller gave one. False after a failure: `result` is set, and `report` got the offset.
template <class Report>
bool seek(int32_t fd, const int64_t *offset, int32_t &result, Report report) {
    if (offset == nullptr || lseek(fd, *offset, SEEK_SET) >= 0)
        return true;

    result = -errno;
    report(static_cast<long long>(*offset));
    return false;
}

// Moves both ends to where the caller said; like `seek`.
bool seek_ends(const DataCopy &copy, int32_t &result) {
    const auto source = [&](long long offset) {
        LOG_ERROR_AS(copy.function, "Can't seek the source file to offset %lld error!\n", offset);
    };
    const auto destination = [&](long long offset) {
        LOG_ERROR_AS(copy.function, "Can't seek the destination file to offset %lld error!\n", offset);
    };
    return seek(copy.in, copy.in_offset, result, source) && seek(copy.out, copy.out_offset, result, destination);
}

template <class Source>
int32_t copy_data(const DataCopy &copy) {
    if (!is_valid(copy))
        return -EINVAL;

    int32_t result = 0;
    if (!seek_ends(copy, result))
        return result != 0 ? result : copy.stop.value();

    const MallocPtr<char> buffer(static_cast<char *>(std::malloc(kBufferSize)));
    if (!buffer) {
        LOG_ERROR_AS(copy.function, "Can't allocate %ld byte buffer for copying data error!\n", kBufferSize);
        return -ENOMEM;
    }

    int64_t copied = 0;
    while (copied < copy.count && !copy.stop.set())
        if (!copy_chunk<Source>(copy, buffer.get(), std::min(copy.count - copied, kBufferSize), copied, result))
            break;

    if (copy.in_offset != nullptr)
        *copy.in_offset += copied;
    if (copy.out_offset != nullptr)
        *copy.out_offset += copied;
    return result != 0 ? result : copy.stop.value();
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Copy_File_Data(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset, int64_t llCount,
                       int32_t *pnStop, int64_t *pllTotal) {
    return copy_data<FinishedSource>(
        {fdIn, pllInOffset, fdOut, pllOutOffset, llCount, StopFlag(pnStop), ByteTotal(pllTotal), __func__});
}

int32_t Copy_File_Data_MROV(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset, int64_t llCount,
                            int32_t *pnStop, int64_t *pllTotal) {
    return copy_data<GrowingSource>(
        {fdIn, pllInOffset, fdOut, pllOutOffset, llCount, StopFlag(pnStop), ByteTotal(pllTotal), __func__});
}
