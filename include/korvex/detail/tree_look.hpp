/// @file
/// Internal: looks through folder trees by held descriptors, to see what an operation left out.
#ifndef KORVEX_DETAIL_TREE_LOOK_HPP
#define KORVEX_DETAIL_TREE_LOOK_HPP

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/file_place.hpp"

namespace korvex::detail {

/// Opens a folder below a held one, name by name, so that no link on the way is followed. Empty: the held one itself.
///
/// @return not open where it can't be; `errno` says why
inline descriptor open_below(int top, std::string_view relative) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    constexpr int way = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    if (relative.empty())
        return descriptor(::openat(top, ".", flags));

    descriptor at;
    while (!relative.empty()) {
        const std::size_t end = relative.find('/');
        const std::string name(relative.substr(0, end));
        const bool is_last = end == std::string_view::npos;
        descriptor next(::openat(at ? at.get() : top, name.c_str(), is_last ? flags : way));
        if (!next)
            return next;
        at = std::move(next);
        relative = is_last ? std::string_view() : relative.substr(end + 1);
    }
    return at;
}

/// Who a file or folder is, whatever it is called.
struct file_id {
    dev_t device = 0;
    ino_t inode = 0;

    file_id() = default;
    explicit file_id(const struct stat &status) noexcept : device(status.st_dev), inode(status.st_ino) {}
    bool operator==(const file_id &) const = default;
    bool operator<(const file_id &other) const noexcept {
        return device != other.device ? device < other.device : inode < other.inode;
    }
};

/// The one that a descriptor has; of no file where there is none.
inline file_id id_of(const descriptor &file) noexcept {
    struct stat status {};
    return file && ::fstat(file.get(), &status) == 0 ? file_id(status) : file_id();
}

/// Whether a path leads into a folder, or will when its last name is there. Names are not compared: the way is climbed.
inline bool lies_inside(std::string_view path, const file_id &folder) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    constexpr int flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    descriptor at(::open(c_path(path), flags));
    if (!at)
        at = descriptor(::open(folder_name(path).c_str(), flags));
    while (at) {
        if (id_of(at) == folder)
            return true;
        descriptor above(::openat(at.get(), "..", flags));
        if (id_of(above) == id_of(at))
            return false;
        at = std::move(above);
    }
    return false;
}

/// The names in a folder, in the order in which the system gives them.
///
/// @param code  receives 0, or why the list is not whole
inline std::vector<std::string> names_in(const descriptor &folder, int &code) {
    struct closer {
        void operator()(DIR *open) const noexcept { ::closedir(open); }
    };
    std::vector<std::string> names;
    descriptor own(::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, closer> reader(own ? ::fdopendir(own.get()) : nullptr);
    code = reader ? 0 : errno;
    if (!reader)
        return names;

    (void)own.release();
    ::rewinddir(reader.get());  // the copy of the descriptor shares its place
    for (;;) {
        errno = 0;
        const dirent *const entry = ::readdir(reader.get());
        if (entry == nullptr)
            break;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    code = errno;
    return names;
}

inline std::string joined(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (!path.empty() && path.back() != '/')
        path += '/';
    return path.append(name);
}

/// The folder of a relative path, and its last name.
inline std::pair<std::string_view, std::string_view> split(std::string_view relative) {
    const std::size_t slash = relative.find_last_of('/');
    return slash == std::string_view::npos ? std::pair(std::string_view(), relative)
                                           : std::pair(relative.substr(0, slash), relative.substr(slash + 1));
}

/// What a type of entry that copies leave out is called; null for one that they take.
inline const char *left_out_type(mode_t mode) noexcept {
    switch (mode & S_IFMT) {
        case S_IFCHR:
        case S_IFBLK:
            return "it is a device";
        case S_IFIFO:
            return "it is a pipe";
        case S_IFSOCK:
            return "it is a socket";
        default:
            return nullptr;
    }
}

}  // namespace korvex::detail

#endif
