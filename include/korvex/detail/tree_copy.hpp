/// @file
/// Internal: copies a folder tree by held descriptors, and notes what it leaves out.
#ifndef KORVEX_DETAIL_TREE_COPY_HPP
#define KORVEX_DETAIL_TREE_COPY_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fileio.h"
#include "korvex/copying.hpp"
#include "korvex/detail/attributes.hpp"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/copied_file.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/file_place.hpp"
#include "korvex/detail/private_copy.hpp"
#include "korvex/detail/tree_look.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// Folders are entered again by their names from the held tops, since a tree may be deeper than descriptors reach; one
/// that is not the folder that was found or made is not worked in. A new folder is for its maker alone until all that
/// belongs into it is there: then it gets owner, bits and time.
class tree_copy {
  public:
    tree_copy(std::string_view from, std::string_view to, const tree_options &options)
        : from_(from), to_(to), options_(options) {}

    tree_report run() {
        check_stop(options_.stop, "can't copy", from_);
        open_source();
        if (lies_inside(to_, file_id(top_)))
            refuse_own_copy();
        make_top();
        try {
            while (!pending_.empty())
                take_step();
        } catch (...) {
            leave_all();
            throw;
        }
        if (options_.durable && ::syncfs(copy_.get()) != 0)
            throw error(errno, "can't bring to the disk", to_);
        return std::move(report_);
    }

  private:
    struct folder {
        std::string relative;
        struct stat source;
        file_id copy;
        bool is_visited = false;
    };

    static std::string path_of(const std::string &top, const std::string &relative) {
        return relative.empty() ? top : joined(top, relative);
    }

    // --- the tops ---

    void open_source() {
        const c_path name(from_);
        source_ = descriptor(::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!source_ || ::fstat(source_.get(), &top_) != 0)
            throw error(errno, "can't copy", from_);
    }

    [[noreturn]] void refuse_own_copy() const {
        throw error(EINVAL, "can't copy", from_, "the destination lies inside the source");
    }

    void make_top() {
        const c_path name(to_);
        struct stat present {};
        const bool is_there = ::fstatat(AT_FDCWD, name, &present, AT_SYMLINK_NOFOLLOW) == 0;
        if (is_there && !S_ISDIR(present.st_mode))
            throw error(ENOTDIR, "can't copy to", to_);
        if (!is_there)
            check_system(::mkdir(name, S_IRWXU), "can't make the folder", to_);
        copy_ = descriptor(::open(name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!copy_)
            throw error(errno, "can't copy to", to_);
        if (is_there)
            refuse_what_is_in_the_way();
        pending_.push_back({.relative = {}, .source = top_, .copy = id_of(copy_)});
    }

    // This would end the copy half-way, so it is refused before the copy begins.
    void refuse_what_is_in_the_way() const {
        int code = 0;
        for (const std::string &name : names_in(source_, code)) {
            struct stat entry {};
            struct stat present {};
            if (::fstatat(source_.get(), name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 &&
                (S_ISDIR(entry.st_mode) || S_ISLNK(entry.st_mode)) &&
                ::fstatat(copy_.get(), name.c_str(), &present, AT_SYMLINK_NOFOLLOW) == 0)
                refuse_in_the_way(name);
        }
    }

    [[noreturn]] void refuse_in_the_way(std::string_view relative) const {
        throw error(EEXIST, "can't copy", joined(from_, relative), joined(to_, relative) + " is in the way");
    }

    // --- folders ---

    void take_step() {
        check_stop(options_.stop, "can't copy", from_);
        if (pending_.back().is_visited) {
            leave(pending_.back());
            pending_.pop_back();
            return;
        }
        pending_.back().is_visited = true;
        const folder current = pending_.back();  // entries that are folders come onto the stack
        visit(current);
    }

    void visit(const folder &current) {
        const descriptor here = open_below(source_.get(), current.relative);
        int code = here ? 0 : errno;
        if (here && id_of(here) != file_id(current.source))
            code = static_cast<int>(errc::changed_meanwhile);
        std::vector<std::string> names;
        if (code == 0)
            names = names_in(here, code);
        if (code != 0)
            leave_out(current.relative, code);
        else if (options_.keep == preserve::usual)
            count_extended(here.get(), report_.lost);

        const descriptor there = open_copy(current);
        for (const std::string &name : names) {
            check_stop(options_.stop, "can't copy", from_);
            copy_entry(here, there, joined(current.relative, name), name);
        }
    }

    descriptor open_copy(const folder &made) const {
        descriptor there = open_below(copy_.get(), made.relative);
        if (!there)
            throw error(errno, "can't copy into", path_of(to_, made.relative));
        if (id_of(there) != made.copy)
            throw error(errc::changed_meanwhile, "can't copy into", path_of(to_, made.relative),
                        "somebody put another folder there");
        return there;
    }

    void leave(const folder &made) {
        const descriptor there = open_copy(made);
        const std::string path = path_of(from_, made.relative);
        const descriptor here =
            options_.keep == preserve::all ? open_below(source_.get(), made.relative) : descriptor();
        if (id_of(here) == file_id(made.source)) {
            carry_all(here.get(), there.get(), made.relative);
            copy_time(made.source, there.get(), path);
        } else {
            constexpr mode_t all_bits = 07777;
            copy_status(made.source, there.get(), all_bits, path);
        }
    }

    // After a failure or a stop: what was copied stays, and its folders are as others may see them.
    void leave_all() noexcept {
        for (; !pending_.empty(); pending_.pop_back()) {
            try {
                leave(pending_.back());
            } catch (...) {  // the first failure is the one that is told
            }
        }
    }

    // --- entries ---

    void copy_entry(const descriptor &here, const descriptor &there, const std::string &relative,
                    const std::string &name) {
        struct stat status {};
        if (::fstatat(here.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT)  // else it has gone since
                leave_out(relative, errno);
            return;
        }
        if (const char *const type = left_out_type(status.st_mode))
            report_.entries.push_back({joined(from_, relative), make_error_code(errc::not_a_regular_file), type});
        else if (S_ISDIR(status.st_mode))
            make_folder(there, relative, name, status);
        else if (S_ISLNK(status.st_mode))
            copy_link(here, there, relative, name, status);
        else if (!link_to_earlier(there, relative, name, status))
            copy_file(here, there, relative, name, status);
    }

    void make_folder(const descriptor &there, const std::string &relative, const std::string &name,
                     const struct stat &status) {
        if (file_id(status) == id_of(copy_))
            refuse_own_copy();
        if (::mkdirat(there.get(), name.c_str(), S_IRWXU) != 0) {
            if (errno == EEXIST)
                refuse_in_the_way(relative);
            throw error(errno, "can't make the folder", joined(to_, relative));
        }
        const descriptor made = open_below(there.get(), name);
        struct stat found {};
        if (!made || ::fstat(made.get(), &found) != 0)
            throw error(errno, "can't copy into", joined(to_, relative));
        int code = 0;
        if (found.st_uid != ::geteuid() || !names_in(made, code).empty())
            throw error(errc::changed_meanwhile, "can't copy into", joined(to_, relative),
                        "somebody put another folder there");
        pending_.push_back({.relative = relative, .source = status, .copy = file_id(found)});
    }

    void copy_link(const descriptor &here, const descriptor &there, const std::string &relative,
                   const std::string &name, const struct stat &status) const {
        const std::int32_t result = Copy_Symlink_At(here.get(), name.c_str(), there.get(), name.c_str());
        if (result == -EEXIST)
            refuse_in_the_way(relative);
        check(result, "can't copy the link", joined(from_, relative));
        add_done(status);
    }

    // Counts an entry that is copied without moving its bytes, such as a link.
    void add_done(const struct stat &status) const noexcept {
        if (options_.progress != nullptr)
            options_.progress->fetch_add(status.st_size, std::memory_order_relaxed);
    }

    void copy_file(const descriptor &here, const descriptor &there, const std::string &relative,
                   const std::string &name, const struct stat &status) {
        const std::string path = joined(from_, relative);
        const descriptor file = open_without_hanging(here.get(), name.c_str(), O_NOFOLLOW);
        if (!file)
            return leave_out(relative, errno);
        if (id_of(file) != file_id(status))
            return leave_out(relative, static_cast<int>(errc::changed_meanwhile));

        const file_place place(descriptor(::fcntl(there.get(), F_DUPFD_CLOEXEC, 0)), name, joined(to_, relative));
        refuse_unreplaceable(place, status, path);
        private_copy copy(place, {});
        try {
            content_copy(file.get(), copy.file(), path, options_.stop, options_.progress).run(status);
        } catch (const became_shorter &change) {
            report_.entries.push_back({path, make_error_code(errc::changed_meanwhile), change.reason()});
            return;
        }
        if (options_.keep == preserve::all) {
            carry_all(file.get(), copy.file(), relative);
            copy_time(status, copy.file(), path);
        } else {
            constexpr mode_t permission_bits = 0777;
            copy_status(status, copy.file(), permission_bits, path);
            count_file(file.get(), status, report_.lost);
        }
        put_in_place(place, copy, false);
        if (status.st_nlink > 1)
            copied_.emplace(file_id(status), relative);
    }

    // Whether the file has a name among the copies already, and got one more.
    bool link_to_earlier(const descriptor &there, const std::string &relative, const std::string &name,
                         const struct stat &status) {
        const auto known = status.st_nlink > 1 ? copied_.find(file_id(status)) : copied_.end();
        if (known == copied_.end())
            return false;
        if (options_.keep == preserve::usual) {
            ++report_.lost.hard_links;
            return false;
        }

        const auto [parent, first] = split(known->second);
        const descriptor home = open_below(copy_.get(), parent);
        const std::string first_name(first);
        const bool is_made = home && ::linkat(home.get(), first_name.c_str(), there.get(), name.c_str(), 0) == 0;
        const int code = is_made ? 0 : errno;
        if (home && code == EEXIST) {
            const file_place place(descriptor(::fcntl(there.get(), F_DUPFD_CLOEXEC, 0)), name, joined(to_, relative));
            refuse_unreplaceable(place, status, joined(from_, relative));
            replace_by_link(place, home.get(), first_name);
        } else if (!is_made) {
            not_carried_over(relative, "hard link: " + category().message(code));
            return false;
        }
        add_done(status);
        return true;
    }

    // --- the report ---

    void carry_all(int source, int copy, const std::string &relative) {
        const std::string path = path_of(from_, relative);
        attribute_carrier carrier(source, copy, path, true, true);
        carrier.carry();
        if (!carrier.failure().empty())
            not_carried_over(relative, carrier.failure());
    }

    void not_carried_over(const std::string &relative, const std::string &what) {
        report_.entries.push_back(
            {joined(from_, relative), make_error_code(errc::not_carried_over), "the copy can't be given its " + what});
    }

    void leave_out(const std::string &relative, int code) {
        const std::error_code why(code, category());
        report_.entries.push_back({path_of(from_, relative), why, why.message()});
    }

    const std::string from_;
    const std::string to_;
    const tree_options &options_;
    descriptor source_;
    descriptor copy_;
    struct stat top_ {};
    std::vector<folder> pending_;
    std::map<file_id, std::string> copied_;  // files of several names: where the first copy lies
    tree_report report_;
};

}  // namespace korvex::detail

#endif
