/// @file
/// Files: read and written whole, copied, temporary.
///
///     const std::string text = korvex::read_file("/etc/app.conf");
///     korvex::copy_file("/etc/app.conf", "/share/Backup/app.conf");    // the old backup stays if this fails
#ifndef KORVEX_FILE_HPP
#define KORVEX_FILE_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>

#include "fileio.h"
#include "korvex/copying.hpp"
#include "korvex/detail/attributes.hpp"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/copied_file.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/file_place.hpp"
#include "korvex/detail/private_copy.hpp"
#include "korvex/detail/replacement.hpp"
#include "korvex/path_view.hpp"

namespace korvex {

/// Reads a whole file; a link is followed unless it belongs to another user than root and oneself (ELOOP), a pipe or a
/// device is refused (`errc::not_a_regular_file`). Files of /proc and /sys are read to their end, whatever size they say.
///
/// @param path  the file
/// @return all that it holds
inline std::string read_file(path_view path) {
    const detail::file_place place(path, O_PATH);
    const detail::descriptor file = place.open_file();
    if (!file)
        throw error(ENOENT, "can't read", path);
    return detail::content_of(file.get(), path, detail::any_size);
}

/// How a file is written whole.
struct write_options {
    bool durable = true;   ///< on the disk when it is done
    std::string backup{};  ///< keeps the old file under its name and this suffix; empty: not
    bool lenient = false;  ///< write even if an attribute of the old file can't be given to the new one
};

/// Writes a whole file: readers see the old text or the new one, and after a failure the old one is there, whole. A link
/// stays a link, and the file has the owner, group, bits, access list and attributes of the old one. It takes no lock.
///
/// @param path     the file; it need not exist, its folder must
/// @param text     all that it holds afterwards
/// @param options  how it is written
///
/// Throws `errc::changed_meanwhile` where somebody else changed the file while this worked, `errc::not_carried_over`, or
/// what writing met, such as `std::errc::no_space_on_device`. A change within one tick of the file system's clock that
/// keeps the size is not noticed; `conf::transaction` compares the content, too.
inline void write_file(path_view path, std::string_view text, const write_options &options = {}) {
    const detail::file_place place(path);
    const detail::file_snapshot before(place, detail::snapshot_depth::status);
    detail::private_copy copy(place, text);
    const detail::replacement_rules rules{
        .is_durable = options.durable, .is_lenient = options.lenient, .is_forced = false, .backup = options.backup};
    detail::replacement(place, before, copy, rules).finish(text, [] {});
}

/// Copies a file's content with the holes in it, permission bits, owner and modification time, which becomes the access
/// time, too; with `preserve::all` also its access list, extended attributes, set-id and sticky bits. The copy is made
/// beside the destination and renamed into its place, so a failed or stopped one leaves what was there.
///
/// @param source       a regular file, or a link to one: else `errc::not_a_regular_file`
/// @param destination  where to; a link stays a link, and the file that it leads to is replaced. A folder is refused
///                     (`std::errc::is_a_directory`), and so is a device, a pipe or a socket
/// @param options      stop, progress (holes count as bytes), durability, what is carried
/// @return what the source has and the copy has not; with `preserve::all` nothing, and what can't be carried over throws
///         `errc::not_carried_over`
///
/// A link of another user, root's excepted, is refused on either side (ELOOP). Who may not give the owner away can't copy
/// a file of somebody else (`std::errc::operation_not_permitted`).
inline not_carried copy_file(path_view source, path_view destination, const work_options &options = {}) {
    const detail::file_place from(source, O_PATH);
    const detail::descriptor opened = from.open_file();
    if (!opened)
        throw error(ENOENT, "can't copy", source);
    struct stat wanted {};
    detail::check_system(::fstat(opened.get(), &wanted), "can't look at", source);

    const detail::file_place place(destination, options.durable ? O_RDONLY : O_PATH);
    detail::refuse_unreplaceable(place, wanted, source);
    detail::private_copy copy(place, {});
    detail::content_copy(opened.get(), copy.file(), source, options.stop, options.progress).run(wanted);

    not_carried lost;
    constexpr mode_t permission_bits = 0777;
    if (options.keep == preserve::all) {
        detail::attribute_carrier(opened.get(), copy.file(), source, false, true, "can't copy").carry();
        detail::copy_time(wanted, copy.file(), source);
    } else {
        detail::copy_status(wanted, copy.file(), permission_bits, source);
        detail::count_file(opened.get(), wanted, lost);
    }
    detail::put_in_place(place, copy, options.durable);
    return lost;
}

/// Copies a link itself, dangling or not, with its owner and time. What is at the destination is not replaced:
/// `std::errc::file_exists`.
///
/// @param source       the link
/// @param destination  a name that is not there yet
inline void copy_link(path_view source, path_view destination) {
    detail::check(Copy_Symlink(detail::c_path(source), detail::c_path(destination)), "can't copy the link", source);
}

/// Removes a file, or a link itself.
///
/// @param path  its name
/// @return false where there was none
inline bool remove_file(path_view path) {
    const std::int32_t result = Remove_File(detail::c_path(path));
    if (result == -ENOENT)
        return false;
    detail::check(result, "can't remove", path);
    return true;
}

/// Whether a name exists, of whatever type; a dangling link does.
///
/// @param path  the name
/// @return whether it is there; throws where that can't be told
inline bool exists(path_view path) {
    return detail::check(Check_File(detail::c_path(path)), "can't look at", path) == 1;
}

/// Whether a path leads to a folder, links followed. False where there is nothing.
///
/// @param path  links are followed
/// @return whether it is a folder; throws where that can't be told
inline bool is_folder(path_view path) {
    const std::int32_t result = Is_Folder(detail::c_path(path));
    return result != -ENOENT && result != -ENOTDIR && detail::check(result, "can't look at", path) == 1;
}

/// A file's size in bytes, links followed.
///
/// @param path  the file
/// @return its size
inline std::uint64_t file_size(path_view path) {
    std::uint64_t size = 0;
    detail::check(Get_File_Size(detail::c_path(path), &size), "can't look at", path);
    return size;
}

/// Finds the path that an open descriptor leads to.
///
/// @param descriptor  any that is open
/// @return its path; nothing where it has none
inline std::optional<std::string> path_of(int descriptor) {
    std::array<char, 4096> path{};
    const std::int32_t length = Get_FD_Path(descriptor, path.data(), static_cast<std::int32_t>(path.size()));
    if (length < 0)
        return {};
    return std::string(path.data(), static_cast<std::size_t>(length));
}

/// Sets access and modification time to one moment.
///
/// @param path  a link is followed
/// @param time  the moment, to the nanosecond
inline void set_modified_time(path_view path, std::chrono::sys_time<std::chrono::nanoseconds> time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const timespec moment{.tv_sec = seconds.time_since_epoch().count(), .tv_nsec = (time - seconds).count()};
    const timespec times[] = {moment, moment};
    detail::check(Set_File_Time_At(AT_FDCWD, detail::c_path(path), times, 0), "can't set the time of", path);
}

/// Whether a path has a name of the kind that `temporary_file` gives; the file need not exist.
///
/// @param path  with or without a folder
/// @return whether its name is of that kind
inline bool is_temporary_name(path_view path) {
    return Check_Temp_Filename(detail::c_path(path)) == 0;
}

/// A file in the folder of another, under a name of its own that marks it as temporary: "$$@#!$$" and a number. It is
/// removed when this goes, unless it was kept.
class temporary_file {
  public:
    /// @param beside  the file that it will stand for: its folder is used, its name is not
    /// @param mode    permission bits, less the umask
    explicit temporary_file(path_view beside, mode_t mode = 0600) {
        const std::string_view text = beside;
        std::string name(text.size() + name_room, '\0');
        std::int32_t file = -1;
        detail::check(Open_Unique_Temp_File(detail::c_path(text), O_RDWR | O_CLOEXEC, mode,
                                            static_cast<std::int32_t>(name.size()), name.data(), &file),
                      "can't make a temporary file beside", text);
        file_ = detail::descriptor(file);
        name.resize(name.find('\0'));
        path_ = std::move(name);
    }
    /// @param other  is left without a file
    temporary_file(temporary_file &&other) noexcept
        : path_(std::exchange(other.path_, {})), file_(std::move(other.file_)) {}
    /// @param other  whose file takes the place of this one, which is removed
    /// @return this
    temporary_file &operator=(temporary_file other) noexcept {
        std::swap(path_, other.path_);
        std::swap(file_, other.file_);
        return *this;
    }
    ~temporary_file() {
        if (!path_.empty())
            ::unlink(path_.c_str());
    }

    /// @return its path; as relative as the path that it was made beside
    const std::string &path() const noexcept { return path_; }
    /// @return its descriptor, open for reading and writing; it stays this object's
    int descriptor() const noexcept { return file_.get(); }

    /// Lets the file stay.
    ///
    /// @return its path
    std::string keep() noexcept { return std::exchange(path_, {}); }

  private:
    static constexpr std::size_t name_room = 32;

    std::string path_;
    detail::descriptor file_;
};

}  // namespace korvex

#endif
