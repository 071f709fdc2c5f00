// Copying one file. A copy undoes itself on any failure, and on a stop.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "base/destination.h"
#include "base/file_identity.h"
#include "base/handles.h"
#include "base/message.h"
#include "base/open_file.h"
#include "base/shared_values.h"
#include "entry_copy.h"
#include "entry_handle.h"
#include "fileio.h"

namespace korvex::fileio {
namespace {

constexpr const char *kFunction = "Copy_File_At";
constexpr mode_t kPermissions = 0777;

// Whether both names lead to one file, also through links: for a source that can't be opened, whose own destination must
// not be removed for it. `errno` stays.
bool lead_to_same_file(const NameInFolder &source, const struct stat &status, const NameInFolder &dest) {
    const ErrnoKeeper keeper;
    struct stat from = status;
    struct stat to {};
    if (S_ISLNK(status.st_mode) && fstatat(source.folder, source.name, &from, 0) != 0)
        return false;
    return fstatat(dest.folder, dest.name, &to, 0) == 0 && is_same_file(from, to);
}

// A regular file is the one that was looked at, or none: a pipe in its place is not waited for. What is no regular file is
// opened as the caller named it.
UniqueFd open_source(const NameInFolder &source, const struct stat &found) {
    if (!S_ISREG(found.st_mode))
        return UniqueFd(openat(source.folder, source.name, O_RDONLY | O_CLOEXEC | O_NOCTTY));

    UniqueFd file = open_without_hanging(source.folder, source.name, O_RDONLY | O_NOFOLLOW);
    return file && is_entry(file, found) ? std::move(file) : UniqueFd();
}

// The status of the opened file: the one that was found, or, if that is a link, of what it leads to.
struct stat opened_source(const UniqueFd &in, const struct stat &found) {
    struct stat status = found;
    if (!S_ISREG(found.st_mode) && fstat(in.get(), &status) != 0)
        return found;
    return status;
}

// Opens the file to write to, and empties it. kNotThis, and the file is untouched, if it is the source.
int32_t open_dest(const NameInFolder &dest, const struct stat &source, mode_t mode, UniqueFd &file) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NOATIME | O_CLOEXEC;
    if (dest.folder_error != 0)
        return -dest.folder_error;
    return open_destination({dest.folder, dest.name, kFlags, mode, &source}, file);
}

// Closes the file first and sets its times then: nothing can change them afterwards. The system's own call takes an
// absolute name together with any descriptor.
int32_t close_with_times(UniqueFd out, const NameInFolder &dest, const timespec &time) {
    struct stat written {};
    if (dest.shared && fstat(out.get(), &written) != 0)
        return -errno;
    out = UniqueFd();  // cppcheck-suppress uselessAssignmentArg

    if (!dest.shared) {
        const std::array<timespec, 2> times{time, time};
        return syscall(SYS_utimensat, dest.folder, dest.name, times.data(), 0) == 0 ? 0 : -errno;
    }
    const UniqueFd held = hold(dest.folder, dest.name, 0);
    if (!held || !is_entry(held, written))
        return -errno;
    return set_both_times(held.get(), time);
}

// Content, bits, owner and times. 0, a negated errno, or the value of the stop flag.
int32_t fill(const UniqueFd &in, UniqueFd out, const struct stat &status, const NameInFolder &dest, int32_t *stop,
             int64_t *total) {
    int32_t result = Copy_File_Data(in.get(), nullptr, out.get(), nullptr, status.st_size, stop, total);
    if (result != 0)
        return result;

    // Kept: fchmod failing with errno 0 is ignored.
    if (fchmod(out.get(), status.st_mode & kPermissions) != 0 && errno != 0)
        return -errno;
    if (fchown(out.get(), status.st_uid, status.st_gid) != 0)
        return -errno;

    result = close_with_times(std::move(out), dest, status.st_mtim);
    // A stop after the last byte still removes the copy, so the flag's value is the result then, too.
    return result != 0 ? result : StopFlag(stop).value();
}

int32_t undone(const NameInFolder &dest, int32_t result) {
    if (result != 0 && dest.folder_error == 0)
        unlinkat(dest.folder, dest.name, 0);
    return result;
}

}  // namespace

int32_t copy_file(const NameInFolder &source, const struct stat &status, const NameInFolder &dest, int32_t *stop,
                  int64_t *total) {
    const UniqueFd in = open_source(source, status);
    if (!in) {
        const int error = errno;
        if (lead_to_same_file(source, status, dest))
            return -EINVAL;
        LOG_ERROR_AS(kFunction, "Can't open the source file %s error! (%d, %d)\n", source.shown_name, -error, error);
        return undone(dest, -error);
    }

    UniqueFd out;
    const int32_t opened = open_dest(dest, opened_source(in, status), status.st_mode & kPermissions, out);
    if (opened == kNotThis)
        return -EINVAL;
    if (opened < 0) {
        LOG_ERROR_AS(kFunction, "Can't open the destination file %s error! (%d)\n", dest.shown_name, opened);
        return undone(dest, opened);
    }
    return undone(dest, fill(in, std::move(out), status, dest, stop, total));
}

}  // namespace korvex::fileio

using namespace korvex;
using namespace korvex::fileio;

int32_t Copy_File_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest,
                     int32_t *pnStop, int64_t *pllTotal) {
    if (pszSource == nullptr || pszDest == nullptr)
        return -EINVAL;

    struct stat status {};
    if (fstatat(fdSourceDir, pszSource, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        const int32_t code = -errno;
        LOG_ERROR("Can't stat the source file %s error! (%d)\n", pszSource, code);
        return code;
    }
    return copy_file(name_in(fdSourceDir, pszSource), status, name_in(fdDestDir, pszDest), pnStop, pllTotal);
}

int32_t Copy_File(const char *pszSource, const char *pszDest, int32_t *pnStop, int64_t *pllTotal) {
    return Copy_File_At(AT_FDCWD, pszSource, AT_FDCWD, pszDest, pnStop, pllTotal);
}
