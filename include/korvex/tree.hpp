/// @file
/// Folder trees: measured, copied, removed; and the truth about what was left out.
///
///     const korvex::tree_report report = korvex::copy_tree("/share/Public", "/share/Backup/Public");
///     for (const korvex::left_out &entry : report.entries)
///         std::cerr << entry.path << ": " << entry.reason << '\n';
#ifndef KORVEX_TREE_HPP
#define KORVEX_TREE_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "fileio.h"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/tree_look.hpp"
#include "korvex/error.hpp"
#include "korvex/path_view.hpp"

namespace korvex {

/// What is in a folder tree.
struct tree_state {
    std::uint32_t files = 0;    ///< regular files and links
    std::uint32_t folders = 0;  ///< the top one included
    std::uint64_t bytes = 0;    ///< sizes of files and links
    std::uint64_t blocks = 0;   ///< of 512 bytes, of files, links and folders: what the disk holds
};

/// Adds up what is in a folder; what can't be looked at does not count.
///
/// @param folder  a link to a folder is followed
/// @param stop    ends it: `std::errc::operation_canceled`. (The C call gives half a sum as if it were the whole.)
/// @return the sums
inline tree_state measure_tree(path_view folder, const std::stop_token &stop = {}) {
    detail::stop_flag flag(stop);
    Folder_Tree_State sum{};
    const std::int32_t result = State_Folder_Tree(detail::c_path(folder), &sum, flag.get());
    detail::check_stop(stop, "can't measure", folder);
    detail::check(result, "can't measure", folder);
    return {.files = sum.cnFiles, .folders = sum.cnFolders, .bytes = sum.ullBytes, .blocks = sum.ullBlocks};
}

/// One entry that an operation on a tree left out.
struct left_out {
    std::string path;      ///< the given top and the way from there
    std::error_code code;  ///< `errc::not_a_regular_file` for what is never copied; else the errno that it met
    std::string reason;    ///< in words
};

/// What an operation on a tree left out; empty when it did the whole.
struct tree_report {
    std::vector<left_out> entries;  ///< what was left out, and why

    /// @return whether nothing was left out
    bool complete() const noexcept { return entries.empty(); }
};

/// How a tree is copied.
struct tree_options {
    std::stop_token stop{};  ///< ends it: `std::errc::operation_canceled`; what was copied stays
    bool durable = false;    ///< on the disk when it is done: the whole file system of the copy is synced
};

namespace detail {

/// Compares a tree with its copy, in the order in which the library walks: all of a folder, then its subfolders from the
/// last one on. So the first entry without a counterpart is the one at which a failed copy ended.
class copy_look {
  public:
    copy_look(std::string_view source, std::string_view copy)
        : source_path_(source), source_(open_top(source)), copy_(open_top(copy)) {}

    /// Looks until it has seen all, or, on request, until something that should have been copied is missing.
    void run(const std::stop_token &stop, bool until_missing) {
        std::vector<std::string> pending{std::string()};
        while (!pending.empty() && !(until_missing && missing_)) {
            check_stop(stop, "can't copy", source_path_);
            const std::string folder = std::move(pending.back());
            pending.pop_back();
            look_into(folder, pending);
        }
    }

    /// What was left out on purpose or because it could not be read.
    std::vector<left_out> &entries() noexcept { return entries_; }
    /// The first entry that should have been copied and was not.
    const std::optional<std::string> &missing() const noexcept { return missing_; }

  private:
    static descriptor open_top(std::string_view path) {
        const c_path name(path);
        return descriptor(::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    void look_into(const std::string &folder, std::vector<std::string> &pending) {
        const descriptor here = open_below(source_.get(), folder);
        int code = here ? 0 : errno;
        const std::vector<std::string> names = here ? names_in(here, code) : std::vector<std::string>();
        if (code != 0)
            add(folder, code);

        const descriptor there = open_below(copy_.get(), folder);
        for (const std::string &name : names)
            look_at(here, there, joined(folder, name), pending);
    }

    void look_at(const descriptor &here, const descriptor &there, const std::string &relative,
                 std::vector<std::string> &pending) {
        const std::string name(split(relative).second);
        struct stat source {};
        if (::fstatat(here.get(), name.c_str(), &source, AT_SYMLINK_NOFOLLOW) != 0)
            return;  // it has gone since
        if (const char *const type = left_out_type(source.st_mode)) {
            entries_.push_back({joined(source_path_, relative), make_error_code(errc::not_a_regular_file), type});
            return;
        }

        struct stat copy {};
        const bool is_there = ::fstatat(there.get(), name.c_str(), &copy, AT_SYMLINK_NOFOLLOW) == 0;
        if (!is_there || (copy.st_mode & S_IFMT) != (source.st_mode & S_IFMT)) {
            if (!missing_)
                missing_ = joined(source_path_, relative);
            entries_.push_back({joined(source_path_, relative), make_error_code(errc::changed_meanwhile),
                                is_there ? "its copy was replaced by something else" : "it came later"});
        } else if (S_ISDIR(source.st_mode)) {
            pending.push_back(relative);
        }
    }

    void add(const std::string &relative, int code) {
        const std::error_code why(code, category());
        entries_.push_back({relative.empty() ? source_path_ : joined(source_path_, relative), why, why.message()});
    }

    std::string source_path_;
    descriptor source_;
    descriptor copy_;
    std::vector<left_out> entries_;
    std::optional<std::string> missing_;
};

/// Folders and links of the same name end the library's copy, after it has begun: better before.
inline void refuse_what_is_in_the_way(std::string_view source, std::string_view copy) {
    const c_path source_name(source);
    const c_path copy_name(copy);
    const descriptor from(::open(source_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const descriptor to(::open(copy_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    int code = 0;
    if (!from || !to)
        return;
    for (const std::string &name : names_in(from, code)) {
        struct stat entry {};
        struct stat present {};
        if (::fstatat(from.get(), name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 &&
            (S_ISDIR(entry.st_mode) || S_ISLNK(entry.st_mode)) &&
            ::fstatat(to.get(), name.c_str(), &present, AT_SYMLINK_NOFOLLOW) == 0)
            throw error(EEXIST, "can't copy", joined(source, name), joined(copy, name) + " is in the way");
    }
}

inline void sync_file_system(std::string_view path) {
    const c_path name(path);
    const descriptor folder(::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || ::syncfs(folder.get()) != 0)
        throw error(errno, "can't bring to the disk", path);
}

}  // namespace detail

/// Copies a folder with all files, links and folders in it, with their bits, owners and times.
///
/// The C call skips devices, pipes, sockets and folders that it can't open in silence, and returns 0 when it is stopped.
/// This one looks through both trees afterwards and reports what the copy has no counterpart of. It compares names and
/// types, not contents.
///
/// @param from     a folder, or a link to one
/// @param to       need not exist; a folder that does is merged into: its files are replaced, others stay. A subfolder or a
///                 link of the same name in it is in the way (`std::errc::file_exists`, nothing copied)
/// @param options  stop, durability
/// @return what was left out, and why; throws the first failure with the entry that it is about. What was copied stays.
inline tree_report copy_tree(path_view from, path_view to, const tree_options &options = {}) {
    detail::refuse_what_is_in_the_way(from, to);
    detail::stop_flag flag(options.stop);
    const std::int32_t result = Copy_Folder_Tree(detail::c_path(from), detail::c_path(to), flag.get());
    detail::check_stop(options.stop, "can't copy", from);
    if (result == -EINVAL || result == -ENOTDIR || result == -ENAMETOOLONG)
        throw error(-result, "can't copy", from,
                    result == -EINVAL ? "the destination lies inside the source" : std::string_view());

    detail::copy_look look(from, to);
    if (result != 0) {
        look.run(options.stop, true);
        throw error(std::abs(result), "can't copy", look.missing() ? std::string_view(*look.missing()) : from.text());
    }
    look.run(options.stop, false);
    if (options.durable)
        detail::sync_file_system(to);
    return {std::move(look.entries())};
}

namespace detail {

/// Names what is left of a tree after a failed removal, and tries each entry once more, to learn why it stayed.
class removal_look {
  public:
    removal_look(std::string_view path, descriptor top) : path_(path), top_(std::move(top)) {}

    std::vector<left_out> run(const std::stop_token &stop) {
        std::vector<folder_on_the_way> pending{{std::string(), false, 0}};
        while (!pending.empty()) {
            check_stop(stop, "can't remove", path_);
            if (!pending.back().is_visited) {
                enter(pending);
                continue;
            }
            const folder_on_the_way folder = std::move(pending.back());
            pending.pop_back();
            leave(folder);
        }
        return std::move(entries_);
    }

  private:
    struct folder_on_the_way {
        std::string relative;
        bool is_visited;
        std::size_t reported;  ///< entries when it was entered
        int code = 0;          ///< why it could not be read
    };

    void enter(std::vector<folder_on_the_way> &pending) {
        folder_on_the_way &folder = pending.back();
        folder.is_visited = true;
        folder.reported = entries_.size();
        const std::string relative = folder.relative;
        const descriptor here = open_below(top_.get(), relative);
        folder.code = here ? 0 : errno;
        if (!here)
            return;

        for (const std::string &name : names_in(here, folder.code)) {
            struct stat status {};
            if (::fstatat(here.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            if (S_ISDIR(status.st_mode))
                pending.push_back({joined(relative, name), false, 0});
            else if (::unlinkat(here.get(), name.c_str(), 0) != 0 && errno != ENOENT)
                add(joined(relative, name), errno);
        }
    }

    // A folder that is not empty is no reason of its own where what is in it is told.
    void leave(const folder_on_the_way &folder) {
        if (folder.relative.empty())
            return;
        const auto [parent, name] = split(folder.relative);
        const descriptor above = open_below(top_.get(), parent);
        const std::string text(name);
        if (above && (::unlinkat(above.get(), text.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT))
            return;
        const int code = errno;
        if (code == ENOTEMPTY && folder.code == 0 && entries_.size() > folder.reported)
            return;
        add(folder.relative, folder.code != 0 ? folder.code : code);
    }

    void add(const std::string &relative, int code) {
        const std::error_code why(code, category());
        entries_.push_back({joined(path_, relative), why, why.message()});
    }

    std::string path_;
    descriptor top_;
    std::vector<left_out> entries_;
};

/// A name without the "/" behind it, so that a link to a folder is the link; what is no name is refused, as `rm` does.
inline std::string_view removable_name(std::string_view path) {
    std::string_view name = path;
    while (name.size() > 1 && name.back() == '/')
        name.remove_suffix(1);
    const std::string_view last = split(name).second;
    if (name.empty() || last.empty() || last == "." || last == "..")
        throw error(EINVAL, "can't remove", path, "it is not a name in a folder");
    return name;
}

}  // namespace detail

/// Removes a folder with all that is in it, or a name that is no folder. A link is removed itself, also with a "/" behind
/// it; "/", "." and ".." are refused.
///
/// @param path  throws where there is none (`std::errc::no_such_file_or_directory`)
/// @param stop  ends it: `std::errc::operation_canceled`; what was removed is gone
/// @return what is still there, and why: empty when all is gone. (The C call tells no more than that the top folder is
///         not empty.)
inline tree_report remove_tree(path_view path, const std::stop_token &stop = {}) {
    const std::string_view name = detail::removable_name(path);
    const detail::c_path text(name);
    detail::stop_flag flag(stop);
    const std::int32_t result = Remove_Folder_Tree(text, flag.get());
    detail::check_stop(stop, "can't remove", path);
    if (result == 0)
        return {};

    detail::descriptor top(::open(text, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!top)
        throw error(errno == EACCES ? EACCES : -result, "can't remove", path);
    tree_report report{detail::removal_look(name, std::move(top)).run(stop)};
    if (report.complete() && ::rmdir(text) != 0) {
        const std::error_code why(errno, category());
        report.entries.push_back({std::string(name), why, why.message()});
    }
    return report;
}

}  // namespace korvex

#endif
