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
#include "korvex/copying.hpp"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/tree_copy.hpp"
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

/// Copies a folder with all files, links and folders in it: contents with their holes, links as links, permission bits,
/// owners and modification times; with `preserve::all` also access lists, extended attributes, set-id bits and hard
/// links.
///
/// What is in the source and can't be read is left out, and the copy goes on. Each file is complete under its name or
/// not there; a file that is replaced stays as it was until then. (The C call fills files in their place, knows no
/// holes, skips devices, pipes, sockets and folders that it can't open in silence, and returns 0 when it is stopped.)
///
/// @param from     a folder, or a link to one
/// @param to       need not exist; a folder that does is merged into: its files are replaced, others stay. A subfolder
///                 or a link of the same name in it is in the way (`std::errc::file_exists`, nothing copied)
/// @param options  stop, durability, what is carried, progress (holes count as bytes)
/// @return what was left out, and why, and what was not carried; throws the first failure to write, with the entry that
///         it is about. What was copied stays.
inline tree_report copy_tree(path_view from, path_view to, const tree_options &options = {}) {
    return detail::tree_copy(from, to, options).run();
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

/// Removes a folder with all that is in it, or a name that is no folder. A link is removed itself, also with a "/"
/// behind it; "/", "." and ".." are refused.
///
/// @param path  throws where there is none (`std::errc::no_such_file_or_directory`)
/// @param stop  ends it: `std::errc::operation_canceled`; what was removed is gone
/// @return what is still there, and why: empty when all is gone. (The C call says no more than that the top folder is
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
    tree_report report;
    detail::removal_look rest(name, std::move(top));
    report.entries = rest.run(stop);
    if (report.complete() && ::rmdir(text) != 0) {
        const std::error_code why(errno, category());
        report.entries.push_back({std::string(name), why, why.message()});
    }
    return report;
}

}  // namespace korvex

#endif
