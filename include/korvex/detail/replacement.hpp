/// @file
/// Internal: a new content takes an old file's place, whole, with the old one's attributes, and is on the disk.
#ifndef KORVEX_DETAIL_REPLACEMENT_HPP
#define KORVEX_DETAIL_REPLACEMENT_HPP

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "fileio.h"
#include "korvex/detail/attributes.hpp"
#include "korvex/detail/file_place.hpp"
#include "korvex/detail/private_copy.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// How a file is replaced.
struct replacement_rules {
    bool is_durable = true;   ///< on the disk when it is done
    bool is_lenient = false;  ///< attributes that can't be carried over are left out
    bool is_forced = false;   ///< over what somebody changed meanwhile
    std::string backup;       ///< what the old file's other name adds to its name; empty for none
};

/// The last steps of a replacement, in their order: look, attributes, disk, look again, backup, rename, disk.
class replacement {
  public:
    replacement(const file_place &place, const file_snapshot &before, private_copy &copy,
                const replacement_rules &rules)
        : place_(place), before_(before), copy_(copy), rules_(rules) {}

    /// @param text       what the copy must hold
    /// @param last_look  called just before the rename; throws where that must not take place
    template <class Look>
    void finish(std::string_view text, const Look &last_look) {
        refuse_changed();
        if (content_of(copy_.file(), copy_.path(), any_size) != text)
            write_content(copy_.file(), text, copy_.path());
        carry_attributes();
        if (rules_.is_durable)
            check_system(::fsync(copy_.file()), "can't bring to the disk", copy_.path());

        last_look();
        refuse_changed();
        if (!copy_.is_in_place())
            throw error(errc::changed_meanwhile, "can't replace", place_.path(), "somebody took the new file away");
        keep_backup();
        rename_copy();
        if (rules_.is_durable)
            sync_folder(place_);
    }

    void refuse_changed() const {
        if (rules_.is_forced || before_.is_same_as(file_snapshot(place_, before_.depth())))
            return;
        throw error(errc::changed_meanwhile, "can't replace", place_.path());
    }

    /// Whether the new file is in place; only its folder may not be on the disk.
    bool is_done() const noexcept { return is_done_; }

  private:
    // Those of the file that was read, by the descriptor that it was read from: under its name may lie another one by
    // now, and what is root's must not be given to a text of somebody else. Only who asks for it gets another file's
    // owner and bits, and none of its privileges.
    void carry_attributes() const {
        const descriptor present = rules_.is_forced ? place_.open_file() : descriptor();
        const bool is_other = present && !is_same_file(present.get(), before_.file());
        const bool is_new = !before_.existed() && !present;
        const descriptor sample = is_new ? file_as_others_make_it() : descriptor();
        const int source = is_other ? present.get() : is_new ? sample.get() : before_.file();
        attribute_carrier(source, copy_.file(), place_.path(), rules_.is_lenient, !is_other).carry();
    }

    static bool is_same_file(int one, int other) noexcept {
        struct stat first {};
        struct stat second {};
        return ::fstat(one, &first) == 0 && ::fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
               first.st_ino == second.st_ino;
    }

    // Where there was no file, the new one becomes what `open` would have made there: bits less the umask, the folder's
    // group and its default access list.
    descriptor file_as_others_make_it() const {
        constexpr mode_t bits = 0666;
        descriptor sample(::openat(place_.folder(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, bits));
        if (sample)
            return sample;

        // This file system has no files without a name.
        std::array<char, 64> name{};
        std::int32_t file = -1;
        check(Open_Unique_Temp_File_At(place_.folder(), place_.name().c_str(), O_RDWR | O_CLOEXEC, bits,
                                       static_cast<std::int32_t>(name.size()), name.data(), &file),
              "can't make a file beside", place_.path());
        ::unlinkat(place_.folder(), name.data(), 0);
        return descriptor(file);
    }

    // A hard link, so that the old file has both names until the rename. It gets a temporary name first, so that an
    // earlier backup goes only when the next one is there.
    void keep_backup() const {
        if (rules_.backup.empty() || !before_.existed())
            return;

        const std::string backup = place_.name() + rules_.backup;
        const std::string link = link_beside(place_, place_.folder(), place_.name());
        const int code = ::renameat(place_.folder(), link.c_str(), place_.folder(), backup.c_str()) == 0 ? 0 : errno;
        ::unlinkat(place_.folder(), link.c_str(), 0);  // of two names of one file a rename leaves both
        if (code != 0)
            throw error(code, "can't keep a backup of", place_.path());
    }

    void rename_copy() {
        if (before_.existed() || rules_.is_forced)
            check_system(::renameat(place_.folder(), copy_.name().c_str(), place_.folder(), place_.name().c_str()),
                         "can't replace", place_.path());
        else
            rename_to_new_name();
        copy_.keep();
        is_done_ = true;
    }

    // A file that somebody made meanwhile where there was none is not overwritten.
    void rename_to_new_name() const {
        int result = ::renameat2(place_.folder(), copy_.name().c_str(), place_.folder(), place_.name().c_str(),
                                 RENAME_NOREPLACE);
        if (result != 0 && (errno == EINVAL || errno == ENOSYS))  // a file system, or a kernel, without that flag
            result = ::renameat(place_.folder(), copy_.name().c_str(), place_.folder(), place_.name().c_str());
        if (result != 0 && errno == EEXIST)
            throw error(errc::changed_meanwhile, "can't make", place_.path());
        check_system(result, "can't make", place_.path());
    }

    const file_place &place_;
    const file_snapshot &before_;
    private_copy &copy_;
    const replacement_rules &rules_;
    bool is_done_ = false;
};

}  // namespace korvex::detail

#endif
