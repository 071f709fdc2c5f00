// Opening the file that a copy is to write. The folder may be another user's, who puts there what he likes and when he
// likes: so each entry is held before it is judged, and what was judged is what is opened.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/file_identity.h"
#include "base/open_file.h"
#include "base/path_buffer.h"
#include "entry_copy.h"
#include "entry_handle.h"

namespace korvex::fileio {
namespace {

constexpr int kWriteFlags = O_WRONLY | O_NOATIME | O_CLOEXEC | O_NOCTTY;
constexpr int kMostSteps = 40;  // through links, as the system counts them

using Name = PathBuffer<kPathSize>;

// Replaces the last component of `name` with the target of the link that is held there.
int32_t follow(const UniqueFd &link, Name &name) {
    std::array<char, kPathSize> target;
    const ssize_t length = readlinkat(link.get(), "", target.data(), target.size());
    if (length < 0)
        return -errno;
    if (target[0] == '/')
        name.cut(0);

    const char *slash = std::strrchr(name.c_str(), '/');
    name.cut(slash != nullptr ? static_cast<size_t>(slash + 1 - name.c_str()) : 0);
    return name.append({target.data(), static_cast<size_t>(length)}) ? 0 : -ENAMETOOLONG;
}

// Emptied only once it is known to be the file that was looked at.
int32_t open_regular(int folder, const Name &name, const struct stat &found, mode_t mode, UniqueFd &file) {
    file = open_without_hanging(folder, name.c_str(), kWriteFlags | O_CREAT | O_NOFOLLOW, mode);
    if (!file || !is_entry(file, found))
        return -errno;
    return ftruncate(file.get(), 0) == 0 ? 0 : -errno;
}

// A pipe, a device or whatever else belongs to root or to this user is opened and waited for as by a plain open, but
// by way of the hold.
int32_t open_special(int folder, const Name &name, const UniqueFd &held, const struct stat &found, UniqueFd &file) {
    if (is_foreign(found) && !S_ISDIR(found.st_mode))
        return -ENXIO;

    file = UniqueFd(open(HeldName(held.get()).c_str(), kWriteFlags));
    if (!file && errno == ENOENT)  // no /proc
        file = UniqueFd(openat(folder, name.c_str(), kWriteFlags | O_NOFOLLOW));
    return file ? 0 : -errno;
}

// `again` where the name was a link, which was followed, or is free by now.
int32_t open_existing(int folder, Name &name, const struct stat &source, mode_t mode, UniqueFd &file, bool &again) {
    const UniqueFd held = hold(folder, name.c_str(), O_NOFOLLOW);
    struct stat found {};
    if (!held || fstat(held.get(), &found) != 0) {
        again = errno == ENOENT;
        return -errno;
    }

    if (S_ISLNK(found.st_mode)) {
        if (is_foreign(found))
            return -ELOOP;
        const int32_t result = follow(held, name);
        again = result == 0;
        return result;
    }
    if (is_same_file(found, source))
        return kIsSource;
    if (S_ISREG(found.st_mode))
        return open_regular(folder, name, found, mode, file);
    return open_special(folder, name, held, found, file);
}

}  // namespace

int32_t open_destination(const Place &dest, const struct stat &source, mode_t mode, UniqueFd &file) {
    if (dest.folder_error != 0)
        return -dest.folder_error;

    const ErrnoKeeper keeper;  // it tells of a source that ends early
    file = UniqueFd(openat(dest.folder, dest.name, kWriteFlags | O_CREAT | O_EXCL, mode));
    if (file)
        return 0;
    if (errno != EEXIST)
        return -errno;

    Name name;
    if (!name.assign({dest.name}))
        return -ENAMETOOLONG;
    for (int step = 0; step < kMostSteps; step++) {
        bool again = false;
        const int32_t result = open_existing(dest.folder, name, source, mode, file, again);
        if (!again)
            return result;

        file = UniqueFd(openat(dest.folder, name.c_str(), kWriteFlags | O_CREAT | O_EXCL, mode));
        if (file)
            return 0;
        if (errno != EEXIST)
            return -errno;
    }
    return -ELOOP;
}

}  // namespace korvex::fileio
