// Each entry is opened with O_PATH before it is judged. So what was judged is what is opened to write.
#include "base/destination.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/file_identity.h"
#include "base/link_target.h"
#include "base/open_file.h"
#include "base/path_buffer.h"

namespace korvex {
namespace {

constexpr int kMostSteps = 40;  // through links, as the kernel counts them

// 0 or a negated errno, for what was opened.
int32_t opened(UniqueFd descriptor, UniqueFd &file) {
    file = std::move(descriptor);
    return file ? 0 : -errno;
}

// The file is emptied only once it is known to be the one that was looked at. O_CREAT stays where it was asked for: with it
// the kernel protects root from other users' files in folders that everybody may write to.
int32_t open_regular(const Destination &destination, const char *name, const struct stat &found, UniqueFd &file) {
    const int flags = (destination.flags & ~O_TRUNC) | O_NOFOLLOW;
    file = open_without_hanging(destination.folder, name, flags, destination.mode);
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0)
        return -errno;
    if (!is_same_file(status, found))
        return -ESTALE;
    return (destination.flags & O_TRUNC) == 0 || ftruncate(file.get(), 0) == 0 ? 0 : -errno;
}

// Opens a pipe, a device or a folder as `open` does, which may wait or refuse, but through the held descriptor.
int32_t open_special(const Destination &destination, const char *name, const UniqueFd &held, UniqueFd &file) {
    char held_name[32];
    std::snprintf(held_name, sizeof held_name, "/proc/self/fd/%d", held.get());
    const int flags = (destination.flags & ~O_CREAT) | O_NOCTTY;
    const int32_t result = opened(UniqueFd(open(held_name, flags)), file);
    if (result != -ENOENT)
        return result;
    return opened(UniqueFd(openat(destination.folder, name, flags | O_NOFOLLOW)), file);  // there is no /proc
}

// `again` where the name was a link, which was followed, or is free by now.
int32_t open_existing(const Destination &destination, PathBuffer<kPathSize> &name, UniqueFd &file, bool &again) {
    const UniqueFd held(openat(destination.folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat found {};
    if (!held || fstat(held.get(), &found) != 0) {
        again = errno == ENOENT && (destination.flags & O_CREAT) != 0;
        return -errno;
    }

    const bool is_link = S_ISLNK(found.st_mode);
    const bool is_plain = S_ISREG(found.st_mode) || S_ISDIR(found.st_mode);
    if (!is_plain && is_foreign(found))
        return is_link ? -ELOOP : -ENXIO;
    if (is_link && is_kernels_link(held))
        return opened(
            UniqueFd(openat(destination.folder, name.c_str(), destination.flags | O_NOCTTY, destination.mode)), file);
    if (is_link) {
        again = follow_link(held, &name);
        return again ? 0 : -errno;
    }
    if (destination.not_this != nullptr && is_same_file(found, *destination.not_this))
        return kNotThis;
    if (S_ISREG(found.st_mode))
        return open_regular(destination, name.c_str(), found, file);
    return open_special(destination, name.c_str(), held, file);
}

// -EEXIST where there is something already, and where nothing is to be created.
int32_t create(const Destination &destination, const char *name, UniqueFd &file) {
    if ((destination.flags & O_CREAT) == 0)
        return -EEXIST;
    return opened(UniqueFd(openat(destination.folder, name, destination.flags | O_EXCL | O_NOCTTY, destination.mode)),
                  file);
}

int32_t open_step_by_step(const Destination &destination, UniqueFd &file) {
    PathBuffer<kPathSize> name;
    if (!name.assign({destination.name}))
        return -ENAMETOOLONG;

    for (int step = 0; step <= kMostSteps; step++) {
        int32_t result = create(destination, name.c_str(), file);
        if (result != -EEXIST || (destination.flags & O_EXCL) != 0)
            return result;

        bool again = false;
        result = open_existing(destination, name, file, again);
        if (!again)
            return result;
    }
    return -ELOOP;
}

}  // namespace

int32_t open_destination(const Destination &destination, UniqueFd &file) {
    int32_t result = 0;
    {
        const ErrnoKeeper keeper;
        result = open_step_by_step(destination, file);
    }
    if (result < 0)
        errno = -result;
    return result;
}

int32_t open_destination(const Destination &destination, const char *mode, UniqueFile &stream) {
    Destination unharmed = destination;
    unharmed.flags &= ~O_TRUNC;
    UniqueFd file;
    const int32_t result = open_destination(unharmed, file);
    if (result != 0)
        return result;

    stream.reset(fdopen(file.get(), mode));
    if (!stream)
        return -errno;

    // Only now: if there is no memory for the stream, the old text stays. A pipe or a device has no length to cut.
    const int descriptor = file.release();
    if ((destination.flags & O_TRUNC) == 0 || ftruncate(descriptor, 0) == 0 || errno == EINVAL)
        return 0;
    const int32_t code = -errno;
    stream.reset();
    return code;
}

}  // namespace korvex
