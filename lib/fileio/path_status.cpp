// Questions about descriptors and paths, and setting times. None of them logs.
#include "path_status.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "base/path_buffer.h"
#include "base/readiness.h"
#include "fileio.h"

namespace korvex::fileio {

const char *shown_path(int32_t descriptor) {
    const char *path = Fullpath(descriptor);
    return path != nullptr ? path : "(null)";
}

}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Is_FD_Ready_To_Read(int32_t fdFile, int32_t nTimeout) {
    timeval timeout = to_timeval(nTimeout);
    return wait_until_ready(fdFile, Readiness::to_read, &timeout);
}

int32_t Get_FD_Path(int32_t fdFile, char *pszBuf, int32_t cbBuf) {
    if (pszBuf == nullptr || cbBuf < 0 || fdFile < 0)
        return -EINVAL;

    std::array<char, 48> link;
    std::snprintf(link.data(), link.size(), "/proc/%d/fd/%d", getpid(), fdFile);
    const ssize_t length = readlink(link.data(), pszBuf, static_cast<size_t>(cbBuf));
    if (length < 0)
        return errno == ENOENT ? -EINVAL : -errno;
    return static_cast<int32_t>(length);
}

char *Fullpath(int32_t fdFile) {
    static std::array<char, kPathSize> path;  // shared by all threads, by contract

    const int32_t length = Get_FD_Path(fdFile, path.data(), static_cast<int32_t>(path.size()) - 1);
    if (length < 0)
        return nullptr;

    path[static_cast<size_t>(length)] = '\0';
    return path.data();
}

int32_t Set_File_Time_At(int32_t fdDir, const char *pszPath, const struct timespec *ptsTimes, int32_t nFlags) {
    if (!is_directory_descriptor(fdDir))
        return -EINVAL;

    // Not through libc, which refuses the null path that means the descriptor itself.
    return syscall(SYS_utimensat, fdDir, pszPath, ptsTimes, nFlags) == 0 ? 0 : -errno;
}

int32_t Set_File_Modified_Time_At(int32_t fdDir, const char *pszPath, uint32_t uNanoseconds, uint32_t uSeconds,
                                  int32_t nFlags) {
    const timespec instant{.tv_sec = uSeconds, .tv_nsec = uNanoseconds};
    const std::array<timespec, 2> times{instant, instant};
    return Set_File_Time_At(fdDir, pszPath, times.data(), nFlags);
}

int32_t Is_Folder(const char *pszPath) {
    if (pszPath == nullptr)
        return -EINVAL;

    struct stat status {};
    if (stat(pszPath, &status) != 0)
        return -errno;
    return S_ISDIR(status.st_mode) ? 1 : 0;
}

int32_t Check_Folder_At(int32_t fdDir, const char *pszPath, uint32_t *puFolder) {
    if (!is_directory_descriptor(fdDir) || pszPath == nullptr || puFolder == nullptr)
        return -EINVAL;

    struct stat status {};
    if (fstatat(fdDir, pszPath, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return -errno;

    *puFolder = S_ISDIR(status.st_mode) ? 1 : 0;
    return 0;
}

int32_t Check_Folder(const char *pszPath, uint32_t *puFolder) {
    return Check_Folder_At(AT_FDCWD, pszPath, puFolder);
}

int32_t Check_File_At(int32_t fdDir, const char *pszPath) {
    if (!is_directory_descriptor(fdDir) || pszPath == nullptr)
        return -EINVAL;

    struct stat status {};
    if (fstatat(fdDir, pszPath, &status, AT_SYMLINK_NOFOLLOW) == 0)
        return 1;
    return errno == ENOENT ? 0 : -errno;
}

int32_t Check_File(const char *pszPath) {
    return Check_File_At(AT_FDCWD, pszPath);
}

int32_t Get_File_Size(const char *pszPath, uint64_t *pullSize) {
    if (pszPath == nullptr || pullSize == nullptr)
        return -EINVAL;

    struct stat status {};
    if (stat(pszPath, &status) != 0)
        return -errno;

    *pullSize = static_cast<uint64_t>(status.st_size);
    return 0;
}
