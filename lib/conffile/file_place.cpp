#include "file_place.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "base/destination.h"
#include "base/file_identity.h"
#include "base/link_target.h"
#include "base/open_file.h"
#include "base/path_buffer.h"
#include "base/really_unlink.h"

namespace korvex::conffile {
namespace {

bool is_own_link(const UniqueFd &link) {
    struct stat status {};
    return link && fstat(link.get(), &status) == 0 && S_ISLNK(status.st_mode) && !is_foreign(status);
}

}  // namespace

FilePlace::FilePlace(const char *path) : path_(path), name_(path), folder_(AT_FDCWD) {
    // A path that ends in a slash has no name to look for in a folder: it is taken as it is, and found to be no file.
    const char *const slash = std::strrchr(path, '/');
    if (slash == nullptr || slash[1] == '\0')
        return;

    name_ = slash + 1;
    PathBuffer<kPathSize> folder;
    if (!folder.assign({{path, static_cast<size_t>(name_ - path)}})) {
        error_ = ENAMETOOLONG;
        return;
    }
    opened_folder_ = UniqueFd(openat(AT_FDCWD, folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    error_ = opened_folder_ ? 0 : errno;
    folder_ = opened_folder_.get();
}

bool FilePlace::usable() const {
    if (error_ != 0)
        errno = error_;
    return error_ == 0;
}

int FilePlace::look(struct stat *status) const {
    return usable() ? fstatat(folder_, name_, status, AT_SYMLINK_NOFOLLOW) : -1;
}

int FilePlace::look_through_link(struct stat *status) const {
    return usable() ? fstatat(folder_, name_, status, 0) : -1;
}

FilePlace::Opened FilePlace::open(int flags, mode_t mode) const {
    constexpr int kMostLinks = 40;  // as the kernel follows them
    PathBuffer<kPathSize> name;
    if (!usable() || !name.assign({name_}))
        return {};

    for (int links = 0; links < kMostLinks; links++) {
        UniqueFd file = open_without_hanging(folder_, name.c_str(), flags | O_NOFOLLOW, mode);
        if (file || errno != ELOOP)
            return {.file = std::move(file), .through_link = links > 0};

        const UniqueFd link(openat(folder_, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (!is_own_link(link))
            break;
        if (is_kernels_link(link))
            return {.file = open_without_hanging(folder_, name.c_str(), flags, mode), .through_link = true};
        if (!follow_link(link, &name))
            return {};
    }
    errno = ELOOP;
    return {};
}

int32_t FilePlace::open_to_write_over(UniqueFile *stream) const {
    if (!usable())
        return -errno;
    return open_destination({folder_, name_, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666}, "w", *stream);
}

UniqueFd FilePlace::create(const char *name, mode_t mode) const {
    return UniqueFd(usable() ? openat(folder_, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode) : -1);
}

int FilePlace::move_here(const char *name) const {
    return usable() ? renameat(folder_, name, folder_, name_) : -1;
}

int FilePlace::remove(const char *name) const {
    return usable() ? really_unlink_at(folder_, name) : -1;
}

}  // namespace korvex::conffile
