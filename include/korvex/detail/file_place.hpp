/// @file
/// Internal: where a file really lies, and what it is at one moment.
#ifndef KORVEX_DETAIL_FILE_PLACE_HPP
#define KORVEX_DETAIL_FILE_PLACE_HPP

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "korvex/detail/call.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/lock_file.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// The largest configuration that is read whole. Somebody's file may announce any size, and memory is taken for it.
inline constexpr std::size_t largest_content = std::size_t{64} << 20U;

/// For files that are no configurations: as long as memory lasts.
inline constexpr std::size_t any_size = std::size_t{1} << 62U;

/// All of a file, by its descriptor, from its start.
inline std::string content_of(int file, std::string_view path, std::size_t most = largest_content) {
    struct stat status {};
    check_system(::fstat(file, &status), "can't look at", path);
    std::string text;
    std::size_t filled = 0;
    for (auto room = static_cast<unsigned long long>(status.st_size) + 1;;
         room *= 2) {  // one more, to see that it has ended
        if (room > most)
            throw error(EFBIG, "can't read", path, "a configuration has at most 64 MiB");
        text.resize(static_cast<std::size_t>(room));
        while (filled < text.size()) {
            const ssize_t got = ::pread(file, text.data() + filled, text.size() - filled, static_cast<off_t>(filled));
            if (got < 0 && errno == EINTR)
                continue;
            if (check_system(got, "can't read", path) == 0) {
                text.resize(filled);
                return text;
            }
            filled += static_cast<std::size_t>(got);
        }
    }
}

/// Opens a regular file for reading; nothing where there is none. A pipe in its place is not waited for.
inline descriptor open_regular(int folder, const char *name, int flags, std::string_view path) {
    descriptor file = open_without_hanging(folder, name, flags);
    if (!file && errno == ENOENT)
        return {};
    if (!file)
        throw error(errno, "can't open", path);

    struct stat status {};
    check_system(::fstat(file.get(), &status), "can't look at", path);
    if (!S_ISREG(status.st_mode))
        throw error(errc::not_a_regular_file, "can't open", path);
    return file;
}

inline std::string folder_name(std::string_view path) {
    const std::size_t slash = path.find_last_of('/');
    return std::string(slash == std::string_view::npos ? "." : path.substr(0, slash + 1));
}

/// A folder that is held, and a name in it. Names are looked up in the folder itself, so it does not matter if somebody
/// moves it or puts another one in its place.
class file_place {
  public:
    /// Finds the file that a path leads to; it need not be there yet, also where it is a link that leads there. A link
    /// of another user, root's excepted, is not followed (ELOOP): he could have planted it, to have another file
    /// changed. Nor is one of /proc, as /dev/stdout is: a new file under that name would not be the one that the
    /// process has open.
    ///
    /// @param access  how folders are opened: O_RDONLY, or O_PATH, which asks for no more than a search
    explicit file_place(std::string_view given, int access = O_RDONLY)
        : name_(base_name(given)), access_(access), folder_(open_folder(AT_FDCWD, folder_name(given), given)) {
        follow_links(given);
    }

    /// The same for a name in a folder that is held already.
    file_place(descriptor folder, std::string_view name, std::string_view given)
        : name_(name), access_(O_PATH), folder_(std::move(folder)) {
        follow_links(given);
    }

    /// Its path without links, as it was when it was found.
    const std::string &path() const noexcept { return path_; }
    const std::string &name() const noexcept { return name_; }
    int folder() const noexcept { return folder_.get(); }

    /// The way to a name in the held folder for a call that takes paths alone.
    std::string way_to(std::string_view name) const {
        return std::string("/proc/self/fd/").append(std::to_string(folder())).append("/").append(name);
    }

    /// Opens the file for reading; nothing where there is none. What took its place since is refused.
    descriptor open_file() const { return open_regular(folder(), name_.c_str(), O_NOFOLLOW, path_); }

  private:
    void follow_links(std::string_view given) {
        constexpr int most_links = 40;  // as the kernel
        int links = 0;
        for (std::optional<std::string> target; (target = link_target(given)); ++links) {
            if (links == most_links)
                throw error(ELOOP, "can't find", given);
            folder_ = open_folder(folder(), folder_name(*target), given);
            name_ = base_name(*target);
        }
        path_ = path_of_folder(given).append("/").append(name_);
    }

    descriptor open_folder(int from, const std::string &folder, std::string_view given) const {
        descriptor opened(::openat(from, folder.c_str(), access_ | O_DIRECTORY | O_CLOEXEC));
        if (!opened)
            throw error(errno, "can't open the folder of", given);
        return opened;
    }

    // What the name leads to where it is a link; relative to the folder. The link itself is held meanwhile.
    std::optional<std::string> link_target(std::string_view given) const {
        if (name_.empty() || name_ == "." || name_ == "..")
            throw error(name_.empty() && given.empty() ? ENOENT : EISDIR, "can't open", given);
        const descriptor link(::openat(folder(), name_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (!link && errno == ENOENT)
            return {};
        struct stat status {};
        if (!link || ::fstat(link.get(), &status) != 0)
            throw error(errno, "can't find", given);
        if (!S_ISLNK(status.st_mode))
            return {};
        if (status.st_uid != 0 && status.st_uid != ::geteuid())
            throw error(ELOOP, "can't open", given, "it is a link that belongs to another user");
        struct statfs system {};
        if (::fstatfs(link.get(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC)
            throw error(errc::not_a_regular_file, "can't open", given, "it leads to what a process has open");

        std::string target(PATH_MAX, '\0');
        const ssize_t size = ::readlinkat(link.get(), "", target.data(), target.size());
        target.resize(static_cast<std::size_t>(check_system(size, "can't find", given)));
        return target;
    }

    std::string path_of_folder(std::string_view given) const {
        std::string path(PATH_MAX, '\0');
        const std::string way = "/proc/self/fd/" + std::to_string(folder());
        path.resize(static_cast<std::size_t>(
            check_system(::readlink(way.c_str(), path.data(), path.size()), "can't find the folder of", given)));
        return path == "/" ? std::string() : path;
    }

    std::string path_;
    std::string name_;
    int access_;
    descriptor folder_;
};

/// What a snapshot holds of a file: its status alone, whatever its size, or its content, too.
enum class snapshot_depth { status, content };

/// What a file was at one moment, to be seen again later.
class file_snapshot {
  public:
    /// Nothing where there is no file.
    explicit file_snapshot(const file_place &place, snapshot_depth depth = snapshot_depth::content)
        : file_(place.open_file()), depth_(depth) {
        if (!file_)
            return;
        check_system(::fstat(file_.get(), &status_), "can't look at", place.path());
        if (depth == snapshot_depth::content)
            text_ = content_of(file_.get(), place.path());
    }

    snapshot_depth depth() const noexcept { return depth_; }
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
    snapshot_depth depth_;
    struct stat status_ {};
    std::string text_;
};

}  // namespace korvex::detail

#endif
