/// @file
/// Inner: where a file really lies, and what it is at one moment.
#ifndef KORVEX_DETAIL_FILE_PLACE_HPP
#define KORVEX_DETAIL_FILE_PLACE_HPP

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/lock_file.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

inline std::string real_path(const std::string &path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), std::free);
    return real ? real.get() : std::string();
}

inline std::string folder_name(std::string_view path) {
    const std::size_t slash = path.find_last_of('/');
    return std::string(slash == std::string_view::npos ? "." : path.substr(0, slash + 1));
}

/// The path without links, also where the file is not there yet: a link that leads to nothing yet is followed, too.
inline std::string resolved_path(std::string_view given) {
    constexpr int most_links = 40;  // as the kernel
    std::string path(given);
    for (int links = 0; links <= most_links; ++links) {
        if (std::string real = real_path(path); !real.empty())
            return real;
        if (errno != ENOENT)
            break;

        char target[PATH_MAX];
        const ssize_t size = ::readlink(path.c_str(), target, sizeof target);
        if (size < 0) {
            std::string folder = real_path(folder_name(path));
            if (folder.empty() || base_name(path).empty())
                break;
            return folder.append(folder.ends_with('/') ? "" : "/").append(base_name(path));
        }
        const std::string_view link(target, static_cast<std::size_t>(size));
        path = link.starts_with('/') ? std::string(link) : folder_name(path) + "/" + std::string(link);
    }
    throw error(errno == EINVAL ? ENOENT : errno, "can't find", given);
}

/// All of a file, by its descriptor, from its start.
inline std::string content_of(int file, std::string_view path) {
    struct stat status {};
    check_system(::fstat(file, &status), "can't look at", path);
    std::string text(static_cast<std::size_t>(status.st_size) + 1, '\0');  // one more, to see that it has ended
    std::size_t filled = 0;
    for (;;) {
        const ssize_t got = ::pread(file, text.data() + filled, text.size() - filled, static_cast<off_t>(filled));
        if (got < 0 && errno == EINTR)
            continue;
        check_system(got, "can't read", path);
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
        if (filled == text.size())
            text.resize(text.size() * 2);
    }
    text.resize(filled);
    return text;
}

/// A folder that is held, and a name in it. Names are looked up in the folder itself, so it does not matter if somebody
/// moves it or puts another one in its place.
class file_place {
  public:
    explicit file_place(std::string path)
        : path_(std::move(path)),
          name_(base_name(path_)),
          folder_(::open(folder_name(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (!folder_)
            throw error(errno, "can't open the folder of", path_);
    }

    const std::string &path() const noexcept { return path_; }
    const std::string &name() const noexcept { return name_; }
    int folder() const noexcept { return folder_.get(); }

    /// The way to a name in the held folder for a call that takes paths alone.
    std::string way_to(std::string_view name) const {
        return std::string("/proc/self/fd/").append(std::to_string(folder())).append("/").append(name);
    }

    /// Opens the file for reading; nothing where there is none. A link or a pipe that took its place is refused.
    descriptor open_file() const {
        descriptor file(::openat(folder(), name_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
        if (!file && errno == ENOENT)
            return {};
        if (!file)
            throw error(errno, "can't open", path_);

        struct stat status {};
        check_system(::fstat(file.get(), &status), "can't look at", path_);
        if (!S_ISREG(status.st_mode))
            throw error(errc::not_a_regular_file, "can't open", path_);
        return file;
    }

  private:
    std::string path_;
    std::string name_;
    descriptor folder_;
};

/// What a file was at one moment, to be seen again later.
class file_snapshot {
  public:
    /// Nothing where there is no file.
    explicit file_snapshot(const file_place &place) : file_(place.open_file()) {
        if (!file_)
            return;
        check_system(::fstat(file_.get(), &status_), "can't look at", place.path());
        text_ = content_of(file_.get(), place.path());
    }

    bool existed() const noexcept { return static_cast<bool>(file_); }
    int file() const noexcept { return file_.get(); }
    const std::string &text() const noexcept { return text_; }

    // The content, too: a change within one tick of the file system's clock shows in nothing else.
    bool is_same_as(const file_snapshot &later) const noexcept {
        return existed() == later.existed() && status_.st_dev == later.status_.st_dev &&
               status_.st_ino == later.status_.st_ino && status_.st_size == later.status_.st_size &&
               status_.st_mtim.tv_sec == later.status_.st_mtim.tv_sec &&
               status_.st_mtim.tv_nsec == later.status_.st_mtim.tv_nsec && text_ == later.text_;
    }

  private:
    descriptor file_;  // stays open, so that no other file can get its number
    struct stat status_ {};
    std::string text_;
};

}  // namespace korvex::detail

#endif
