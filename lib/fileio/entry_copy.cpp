// Copying one file, one symbolic link, or one folder without what is in it. Three policies, each kept as users know it:
// a file copy undoes itself on any failure, a link copy stops at the first failure but keeps the link, a folder copy
// ignores that mode or owner can't be set.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/file_identity.h"
#include "base/handles.h"
#include "base/message.h"
#include "base/path_buffer.h"
#include "base/shared_values.h"
#include "fileio.h"

namespace korvex::fileio {
namespace {

constexpr mode_t kPermissions = 0777;

// A name in a folder.
struct Place {
    int32_t folder;
    const char *name;
};

// Whether both names lead to one file, which opening the destination would empty: also through links, since opening
// follows them. `errno` stays, for it tells of a source that ends early.
bool leads_to_same_file(const Place &source, const struct stat &status, const Place &dest) {
    const ErrnoKeeper keeper;
    struct stat from = status;
    struct stat to {};
    if (S_ISLNK(status.st_mode) && fstatat(source.folder, source.name, &from, 0) != 0)
        return false;
    return fstatat(dest.folder, dest.name, &to, 0) == 0 && is_same_file(from, to);
}

int32_t set_modified_time(const Place &place, const struct stat &source) {
    return Set_File_Modified_Time_At(place.folder, place.name, static_cast<uint32_t>(source.st_mtim.tv_nsec),
                                     static_cast<uint32_t>(source.st_mtim.tv_sec), AT_SYMLINK_NOFOLLOW);
}

// The copy itself, up to the point where a failure is undone.
int32_t copy_content(const Place &source, const struct stat &status, const Place &dest, int32_t *stop, int64_t *total,
                     const char *function) {
    const UniqueFd in(openat(source.folder, source.name, O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!in) {
        const int error = errno;
        LOG_ERROR_AS(function, "Can't open the source file %s error! (%d, %d)\n", source.name, -error, error);
        return -error;
    }

    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NOATIME | O_CLOEXEC | O_NOCTTY;
    const UniqueFd out(openat(dest.folder, dest.name, kFlags, status.st_mode & kPermissions));
    if (!out) {
        const int32_t code = -errno;
        LOG_ERROR_AS(function, "Can't open the destination file %s error! (%d)\n", dest.name, code);
        return code;
    }

    const int32_t result = Copy_File_Data(in.get(), nullptr, out.get(), nullptr, status.st_size, stop, total);
    if (result != 0)
        return result;

    // A failure is known by its errno: without one it is none.
    if (fchmod(out.get(), status.st_mode & kPermissions) != 0 && errno != 0)
        return -errno;
    return fchown(out.get(), status.st_uid, status.st_gid) == 0 ? 0 : -errno;
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Copy_File_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest,
                     int32_t *pnStop, int64_t *pllTotal) {
    if (pszSource == nullptr || pszDest == nullptr)
        return -EINVAL;

    const Place source{.folder = fdSourceDir, .name = pszSource};
    const Place dest{.folder = fdDestDir, .name = pszDest};
    struct stat status {};
    if (fstatat(fdSourceDir, pszSource, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        const int32_t code = -errno;
        LOG_ERROR("Can't stat the source file %s error! (%d)\n", pszSource, code);
        return code;
    }
    if (leads_to_same_file(source, status, dest))
        return -EINVAL;

    int32_t result = copy_content(source, status, dest, pnStop, pllTotal, __func__);
    if (result == 0) {
        // By name, once the file is closed: nothing that follows can change the time again. The system's own call takes an
        // absolute name beside any descriptor.
        const std::array<timespec, 2> times{status.st_mtim, status.st_mtim};
        result = syscall(SYS_utimensat, fdDestDir, pszDest, times.data(), 0) == 0 ? 0 : -errno;
    }

    // A stop that came after the last byte still undoes the copy, so it is the result then as well.
    if (result == 0)
        result = StopFlag(pnStop).value();
    if (result != 0)
        unlinkat(fdDestDir, pszDest, 0);
    return result;
}

int32_t Copy_File(const char *pszSource, const char *pszDest, int32_t *pnStop, int64_t *pllTotal) {
    return Copy_File_At(AT_FDCWD, pszSource, AT_FDCWD, pszDest, pnStop, pllTotal);
}

int32_t Copy_Symlink_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest) {
    if (pszSource == nullptr || pszDest == nullptr)
        return -EINVAL;

    struct stat status {};
    if (fstatat(fdSourceDir, pszSource, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        const int32_t code = -errno;
        LOG_DEBUG("Can't stat a symbolic link (%d,%s) error! (%d)\n", fdSourceDir, pszSource, code);
        return code;
    }

    std::array<char, kPathSize + 1> target;
    const ssize_t length = readlinkat(fdSourceDir, pszSource, target.data(), kPathSize);
    if (length < 0) {
        const int32_t code = -errno;
        LOG_DEBUG("Can't read a symbolic link (%d,%s) error! (%d)\n", fdSourceDir, pszSource, code);
        return code;
    }

    target[static_cast<size_t>(length)] = '\0';
    if (symlinkat(target.data(), fdDestDir, pszDest) != 0) {
        const int32_t code = -errno;
        LOG_ERROR("symlinkat(%s, %d, %s) error! (%d)\n", target.data(), fdDestDir, pszDest, code);
        return code;
    }

    const int32_t result = set_modified_time({.folder = fdDestDir, .name = pszDest}, status);
    if (result < 0)
        LOG_ERROR("Can't utimensat(%d, %s) error! (%d)\n", fdDestDir, pszDest, result);

    if (fchownat(fdDestDir, pszDest, status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) != 0) {
        const int32_t code = -errno;
        LOG_ERROR("Can't fchownat(%d, %s, %d, %d) error! (%d)\n", fdDestDir, pszDest, static_cast<int>(status.st_uid),
                  static_cast<int>(status.st_gid), code);
        return code;
    }
    return result;
}

int32_t Copy_Symlink(const char *pszSource, const char *pszDest) {
    return Copy_Symlink_At(AT_FDCWD, pszSource, AT_FDCWD, pszDest);
}

int32_t Remove_File_At(int32_t fdDir, const char *pszName) {
    return unlinkat(fdDir, pszName, 0) == 0 ? 0 : -errno;
}

int32_t Remove_File(const char *pszPath) {
    return Remove_File_At(AT_FDCWD, pszPath);
}

int32_t Copy_Folder_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest) {
    if (pszSource == nullptr || pszDest == nullptr)
        return -EINVAL;

    struct stat status {};
    if (fstatat(fdSourceDir, pszSource, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        const int32_t code = -errno;
        LOG_DEBUG("Can't stat a folder (%d,%s) error! (%d)\n", fdSourceDir, pszSource, code);
        return code;
    }

    const mode_t mode = status.st_mode;
    if (mkdirat(fdDestDir, pszDest, mode) != 0) {
        const int32_t code = -errno;
        LOG_ERROR("Can't mkdirat the folder (%d, %s, %o) error! (%d)\n", fdDestDir, pszDest, mode, code);
        return code;
    }

    // Once more, since the umask narrowed the mode.
    if (fchmodat(fdDestDir, pszDest, mode, 0) != 0)
        LOG_ERROR("Can't fchmodat the folder (%d, %s, %o) error! (%d)\n", fdDestDir, pszDest, mode, errno);
    if (fchownat(fdDestDir, pszDest, status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) != 0)
        LOG_ERROR("Can't fchownat the folder (%d, %s, %d, %d) error! (%d)\n", fdDestDir, pszDest,
                  static_cast<int>(status.st_uid), static_cast<int>(status.st_gid), errno);

    const int32_t result = set_modified_time({.folder = fdDestDir, .name = pszDest}, status);
    if (result < 0)
        LOG_ERROR("Can't chtime the folder (%d, %s) error! (%d)\n", fdDestDir, pszDest, result);
    return result;
}

int32_t Copy_Folder(const char *pszSource, const char *pszDest) {
    return Copy_Folder_At(AT_FDCWD, pszSource, AT_FDCWD, pszDest);
}
