/// @file
/// Inner: a file made under a temporary name beside the one whose place it takes.
#ifndef KORVEX_DETAIL_NEW_NAME_HPP
#define KORVEX_DETAIL_NEW_NAME_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "fileio.h"
#include "korvex/detail/call.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/file_place.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// A free temporary name. What is made under it is removed in the end, unless it took its place.
class new_name {
  public:
    // The name is made, not only found free, so that two copies do not take the same one.
    explicit new_name(const file_place &place) : place_(place) {
        std::array<char, 64> name{};
        std::int32_t file = -1;
        check(Open_Unique_Temp_File_At(place.folder(), place.name().c_str(), O_WRONLY | O_CLOEXEC, 0600,
                                       static_cast<std::int32_t>(name.size()), name.data(), &file),
              "can't make a file beside", place.path());
        const descriptor made(file);
        name_ = name.data();
    }
    new_name(const new_name &) = delete;
    new_name &operator=(const new_name &) = delete;
    ~new_name() {
        if (!name_.empty())
            ::unlinkat(place_.folder(), name_.c_str(), 0);
    }

    const std::string &name() const noexcept { return name_; }

    /// A folder is not replaced, nor a file by itself.
    void refuse_unreplaceable(const struct stat &source, std::string_view source_path) const {
        struct stat present {};
        if (::fstatat(place_.folder(), place_.name().c_str(), &present, AT_SYMLINK_NOFOLLOW) != 0)
            return;
        if (S_ISDIR(present.st_mode))
            throw error(EISDIR, "can't replace", place_.path());
        if (present.st_dev == source.st_dev && present.st_ino == source.st_ino)
            throw error(EINVAL, "can't copy", source_path, "source and destination are the same file");
    }

    /// A source that became shorter while it was copied may pass for a success.
    void refuse_short(off_t wanted, std::string_view source_path) const {
        struct stat made {};
        check_system(::fstatat(place_.folder(), name_.c_str(), &made, AT_SYMLINK_NOFOLLOW), "can't look at",
                     place_.path());
        if (made.st_size < wanted)
            throw error(EIO, "can't copy", source_path, "it became shorter meanwhile");
    }

    void put_in_place(bool is_durable) {
        if (is_durable)
            sync(name_, O_RDONLY | O_NOFOLLOW);
        check_system(::renameat(place_.folder(), name_.c_str(), place_.folder(), place_.name().c_str()),
                     "can't replace", place_.path());
        name_.clear();
        if (is_durable)
            sync(".", O_RDONLY | O_DIRECTORY);
    }

  private:
    // Not all file systems can bring a folder to the disk; there is nothing more to do then.
    void sync(const std::string &name, int flags) const {
        const descriptor file(::openat(place_.folder(), name.c_str(), flags | O_CLOEXEC));
        if (!file || (::fsync(file.get()) != 0 && errno != EINVAL && errno != EOPNOTSUPP))
            throw error(errno, "can't bring to the disk", place_.path());
    }

    const file_place &place_;
    std::string name_;
};

}  // namespace korvex::detail

#endif
