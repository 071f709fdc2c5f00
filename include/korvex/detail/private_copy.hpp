/// @file
/// Internal: the file that a change is made in until it takes the old one's place.
#ifndef KORVEX_DETAIL_PRIVATE_COPY_HPP
#define KORVEX_DETAIL_PRIVATE_COPY_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "fileio.h"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/file_place.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// Writes all of a text at the start of a file, which then has nothing else.
inline void write_content(int file, std::string_view text, std::string_view path) {
    check_system(::ftruncate(file, 0), "can't write", path);
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t put = ::pwrite(file, text.data() + written, text.size() - written, static_cast<off_t>(written));
        if (put < 0 && errno == EINTR)
            continue;
        check_system(put, "can't write", path);
        written += static_cast<std::size_t>(put);
    }
}

/// Not all file systems can bring a folder to the disk; there is nothing more to do then.
inline void sync_folder(const file_place &place) {
    if (::fsync(place.folder()) != 0 && errno != EINVAL && errno != EOPNOTSUPP)
        throw error(errno, "the new text is in place, and can't bring its name to the disk:", place.path());
}

/// A file beside another that its owner alone can open, under a name that marks it as temporary, so that one that a
/// killed process left behind is found. It is removed in the end unless it took the other's place.
class private_copy {
  public:
    private_copy(const file_place &place, std::string_view text) : place_(place) {
        std::array<char, 64> name{};
        std::int32_t file = -1;
        const std::int32_t result =
            Open_Unique_Temp_File_At(place.folder(), place.name().c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600,
                                     static_cast<std::int32_t>(name.size()), name.data(), &file);
        check(result, "can't make a file beside", place.path());
        file_ = descriptor(file);
        name_ = name.data();
        try {
            check_system(::fchmod(file_.get(), 0600), "can't make a private file beside", place.path());
            write_content(file_.get(), text, path());
        } catch (...) {
            remove();
            throw;
        }
    }
    private_copy(const private_copy &) = delete;
    private_copy &operator=(const private_copy &) = delete;
    ~private_copy() { remove(); }

    const std::string &name() const noexcept { return name_; }
    std::string path() const { return folder_name(place_.path()) + name_; }
    int file() const noexcept { return file_.get(); }

    /// The way to it for a call that takes a path and replaces the file. Call `reopen` afterwards.
    std::string way() const { return place_.way_to(name_); }

    /// Opens what now has its name, and gives back what it was. It must be a file as the library makes it here; the
    /// folder may belong to somebody who would rather have another one edited.
    descriptor reopen() {
        descriptor now(
            ::openat(place_.folder(), name_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
        if (!now)
            throw error(errno, "can't open", path());

        struct stat status {};
        check_system(::fstat(now.get(), &status), "can't look at", path());
        if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid() || (status.st_mode & 077U) != 0)
            throw error(errc::changed_meanwhile, "can't go on with", path(), "somebody put another file there");
        std::swap(file_, now);
        return now;
    }

    /// Whether its name still leads to it.
    bool is_in_place() const noexcept {
        struct stat own {};
        struct stat named {};
        return ::fstat(file_.get(), &own) == 0 &&
               ::fstatat(place_.folder(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
               own.st_dev == named.st_dev && own.st_ino == named.st_ino;
    }

    /// It has another name now: there is nothing to remove.
    void keep() noexcept { name_.clear(); }

  private:
    void remove() noexcept {
        if (!name_.empty())
            ::unlinkat(place_.folder(), name_.c_str(), 0);
        name_.clear();
    }

    const file_place &place_;
    std::string name_;
    descriptor file_;
};

/// Makes one more name of a file, a temporary one in the folder of a place. Returns it.
inline std::string link_beside(const file_place &place, int folder, const std::string &file) {
    std::array<char, 64> name{};
    do {
        check(Generate_Temp_Filename(place.folder(), place.name().c_str(), name.data(),
                                     static_cast<std::int32_t>(name.size())),
              "can't make a link beside", place.path());
        if (::linkat(folder, file.c_str(), place.folder(), name.data(), 0) == 0)
            return name.data();
    } while (errno == EEXIST);
    throw error(errno, "can't make a link beside", place.path());
}

/// Puts one more name of a file in a place; what had it before is gone.
inline void replace_by_link(const file_place &place, int folder, const std::string &file) {
    const std::string link = link_beside(place, folder, file);
    const int code = ::renameat(place.folder(), link.c_str(), place.folder(), place.name().c_str()) == 0 ? 0 : errno;
    ::unlinkat(place.folder(), link.c_str(), 0);  // of two names of one file a rename leaves both
    if (code != 0)
        throw error(code, "can't replace", place.path());
}

/// Gives a copy the name that it was made for; what had it before is gone.
inline void put_in_place(const file_place &place, private_copy &copy, bool is_durable) {
    if (is_durable)
        check_system(::fsync(copy.file()), "can't bring to the disk", copy.path());
    if (!copy.is_in_place())
        throw error(errc::changed_meanwhile, "can't replace", place.path(), "somebody took the new file away");
    check_system(::renameat(place.folder(), copy.name().c_str(), place.folder(), place.name().c_str()), "can't replace",
                 place.path());
    copy.keep();
    if (is_durable)
        sync_folder(place);
}

}  // namespace korvex::detail

#endif
