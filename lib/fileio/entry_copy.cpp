// Copying one symbolic link, or one folder without its content. Both treat failures as users know it: a link copy stops at
// the first one but keeps the link; a folder copy ignores a mode or owner that can't be set.
#include "entry_copy.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "base/handles.h"
#include "base/message.h"
#include "base/path_buffer.h"
#include "entry_handle.h"
#include "fileio.h"
#include "path_status.h"

namespace korvex::fileio {
namespace {

constexpr const char *kCopyLink = "Copy_Symlink_At";
constexpr const char *kCopyFolder = "Copy_Folder_At";

// 0, or a negated errno.
int32_t make_link(const char *target, const NameInFolder &dest) {
    if (dest.folder_error != 0)
        return -dest.folder_error;
    return symlinkat(target, dest.folder, dest.name) == 0 ? 0 : -errno;
}

// Opens the new link itself (O_PATH). Empty on failure, or if something else is there by now; `errno` says why.
UniqueFd hold_new_link(const NameInFolder &dest) {
    UniqueFd link = hold(dest.folder, dest.name, O_NOFOLLOW);
    struct stat made {};
    if (!link || fstat(link.get(), &made) != 0)
        return UniqueFd();
    if (S_ISLNK(made.st_mode))
        return link;

    errno = ESTALE;
    return UniqueFd();
}

// Whether a folder is empty. One that this user may not read counts as empty: he gains nothing by that.
bool is_empty_folder(const UniqueFd &folder) {
    const UniqueFd readable(openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!readable)
        return errno == EACCES;

    std::array<uint64_t, 64> records;  // aligned for them; more than "." and ".." need
    const ssize_t count = getdents64(readable.get(), records.data(), sizeof records);
    const char *bytes = reinterpret_cast<const char *>(records.data());
    for (ssize_t at = 0; at < count;) {
        const auto *entry = reinterpret_cast<const dirent *>(bytes + at);
        if (!is_self_or_parent(entry->d_name)) {
            errno = ESTALE;
            return false;
        }
        at += entry->d_reclen;
    }
    return count >= 0;
}

// 0, or a negated errno.
int32_t make_folder(const NameInFolder &dest, mode_t mode) {
    if (dest.folder_error != 0)
        return -dest.folder_error;
    return mkdirat(dest.folder, dest.name, mode) == 0 ? 0 : -errno;
}

}  // namespace

UniqueFd hold_new_folder(const NameInFolder &dest, struct stat &made) {
    UniqueFd folder = hold(dest.folder, dest.name, O_NOFOLLOW | O_DIRECTORY);
    if (!folder || fstat(folder.get(), &made) != 0)
        return UniqueFd();

    // Somebody may have put another folder in its place. An empty one does no harm: he could as well have removed ours and
    // made it anew.
    if (dest.shared && !is_empty_folder(folder))
        return UniqueFd();
    return folder;
}

int32_t copy_symlink(const NameInFolder &source, const struct stat &status, const NameInFolder &dest) {
    std::array<char, kPathSize + 1> target;
    const ssize_t length = readlinkat(source.folder, source.name, target.data(), kPathSize);
    if (length < 0) {
        const int32_t code = -errno;
        LOG_DEBUG_AS(kCopyLink, "Can't read a symbolic link (%d,%s) error! (%d)\n", source.shown_folder,
                     source.shown_name, code);
        return code;
    }

    target[static_cast<size_t>(length)] = '\0';
    const int32_t code = make_link(target.data(), dest);
    if (code < 0) {
        LOG_ERROR_AS(kCopyLink, "symlinkat(%s, %d, %s) error! (%d)\n", target.data(), dest.shown_folder,
                     dest.shown_name, code);
        return code;
    }

    const UniqueFd link = hold_new_link(dest);
    const int32_t unheld = link ? 0 : -errno;
    const int32_t timed = link ? set_both_times(link.get(), narrow_time(status.st_mtim)) : unheld;
    if (timed < 0)
        LOG_ERROR_AS(kCopyLink, "Can't utimensat(%d, %s) error! (%d)\n", dest.shown_folder, dest.shown_name, timed);

    const int32_t owned = link ? set_owner(link.get(), status) : unheld;
    if (owned < 0) {
        LOG_ERROR_AS(kCopyLink, "Can't fchownat(%d, %s, %d, %d) error! (%d)\n", dest.shown_folder, dest.shown_name,
                     static_cast<int>(status.st_uid), static_cast<int>(status.st_gid), owned);
        return owned;
    }
    return timed;
}

int32_t copy_folder(const struct stat &status, const NameInFolder &dest, struct stat &made) {
    const mode_t mode = status.st_mode;
    const int32_t code = make_folder(dest, mode);
    if (code < 0) {
        LOG_ERROR_AS(kCopyFolder, "Can't mkdirat the folder (%d, %s, %o) error! (%d)\n", dest.shown_folder,
                     dest.shown_name, mode, code);
        return code;
    }

    const UniqueFd folder = hold_new_folder(dest, made);
    const int32_t unheld = folder ? 0 : -errno;

    // mkdir applied the umask: set the mode again.
    const int32_t moded = folder ? set_folder_mode(folder.get(), mode) : unheld;
    if (moded < 0)
        LOG_ERROR_AS(kCopyFolder, "Can't fchmodat the folder (%d, %s, %o) error! (%d)\n", dest.shown_folder,
                     dest.shown_name, mode, -moded);
    const int32_t owned = folder ? set_owner(folder.get(), status) : unheld;
    if (owned < 0)
        LOG_ERROR_AS(kCopyFolder, "Can't fchownat the folder (%d, %s, %d, %d) error! (%d)\n", dest.shown_folder,
                     dest.shown_name, static_cast<int>(status.st_uid), static_cast<int>(status.st_gid), -owned);

    const int32_t timed = folder ? set_both_times(folder.get(), narrow_time(status.st_mtim)) : unheld;
    if (timed < 0)
        LOG_ERROR_AS(kCopyFolder, "Can't chtime the folder (%d, %s) error! (%d)\n", dest.shown_folder, dest.shown_name,
                     timed);
    return timed;
}

}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Copy_Symlink_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest) {
    if (pszSource == nullptr || pszDest == nullptr)
        return -EINVAL;

    struct stat status {};
    if (fstatat(fdSourceDir, pszSource, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        const int32_t code = -errno;
        LOG_DEBUG("Can't stat a symbolic link (%d,%s) error! (%d)\n", fdSourceDir, pszSource, code);
        return code;
    }
    return copy_symlink(name_in(fdSourceDir, pszSource), status, name_in(fdDestDir, pszDest));
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
    struct stat made {};
    return copy_folder(status, name_in(fdDestDir, pszDest), made);
}

int32_t Copy_Folder(const char *pszSource, const char *pszDest) {
    return Copy_Folder_At(AT_FDCWD, pszSource, AT_FDCWD, pszDest);
}
