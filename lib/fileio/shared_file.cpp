// Streams that are opened and used under the lock of their file.
#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/destination.h"
#include "base/handles.h"
#include "base/lock_time.h"
#include "base/log_wait.h"
#include "base/message.h"
#include "fileio.h"

namespace korvex::fileio {
namespace {

constexpr mode_t kNewFileMode = 0666;  // less the umask

bool has(const char *mode, char letter) {
    return std::strchr(mode, letter) != nullptr;
}

// The flags of `open` that a mode of `fopen` stands for; it begins with "r", "w" or "a".
int flags_of(const char *mode) {
    int flags = has(mode, '+') ? O_RDWR : O_WRONLY;
    if (mode[0] != 'r')
        flags |= O_CREAT | (mode[0] == 'w' ? O_TRUNC : O_APPEND) | (has(mode, 'x') ? O_EXCL : 0);
    if (has(mode, 'e'))
        flags |= O_CLOEXEC;
    return flags;
}

// As fopen, but a file to write to is refused if somebody else may have planted it there.
int32_t open_stream(const char *path, const char *mode, UniqueFile &stream) {
    const bool is_known = mode[0] != '\0' && has("rwa", mode[0]);
    if (is_known && (mode[0] != 'r' || has(mode, '+')))
        return open_destination({AT_FDCWD, path, flags_of(mode), kNewFileMode}, mode, stream);

    stream.reset(std::fopen(path, mode));
    return stream ? 0 : -errno;
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Open_Shared_File(const char *pszPath, const char *pszMode, FILE **ppfStream) {
    if (pszPath == nullptr || pszMode == nullptr || ppfStream == nullptr)
        return -EINVAL;

    if (Get_File_Lock(pszPath, kLockWaitMs) != 1) {
        const NoLogWait at_once;
        LOG_DEBUG("Can't get file lock of %s error!\n", pszPath);
        return -ETIME;
    }

    UniqueFile stream;
    int32_t result = open_stream(pszPath, pszMode, stream);
    *ppfStream = stream.release();
    if (result < 0) {
        errno = -result;
        Release_File_Lock(pszPath);
        result = -errno;
    }
    return result;
}

int32_t Close_Shared_File(const char *pszPath, FILE *pfStream) {
    if (pszPath == nullptr || pfStream == nullptr)
        return -EINVAL;

    // Kept: the lock is released before the buffered data is written.
    Release_File_Lock(pszPath);
    return std::fclose(pfStream) == 0 ? 0 : -errno;
}
