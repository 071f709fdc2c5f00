/// @file
/// Internal: one file becomes the copy of another: its content with the holes in it, and what is carried besides.
#ifndef KORVEX_DETAIL_COPIED_FILE_HPP
#define KORVEX_DETAIL_COPIED_FILE_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <stop_token>
#include <string>
#include <string_view>

#include "fileio.h"
#include "korvex/copying.hpp"
#include "korvex/detail/attributes.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/file_place.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// A folder is not replaced, nor a device, nor a file by itself.
inline void refuse_unreplaceable(const file_place &place, const struct stat &source, std::string_view source_path) {
    struct stat present {};
    if (::fstatat(place.folder(), place.name().c_str(), &present, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    if (S_ISDIR(present.st_mode))
        throw error(EISDIR, "can't replace", place.path());
    if (!S_ISREG(present.st_mode))
        throw error(errc::not_a_regular_file, "can't replace", place.path());
    if (present.st_dev == source.st_dev && present.st_ino == source.st_ino)
        throw error(EINVAL, "can't copy", source_path, "source and destination are the same file");
}

/// Bytes that the disk holds; what lies between two ranges is a hole.
struct data_range {
    off_t begin;
    off_t end;
};

/// The next range from a place on. A file system that knows of no holes has all in one.
inline data_range next_data(int file, off_t from, off_t size) noexcept {
    const off_t begin = ::lseek(file, from, SEEK_DATA);
    if (begin < 0)
        return errno == ENXIO ? data_range{size, size} : data_range{from, size};
    if (begin >= size)
        return {size, size};
    const off_t end = ::lseek(file, begin, SEEK_HOLE);
    return {begin, end <= begin || end > size ? size : end};
}

/// A source that somebody cut while it was copied.
class became_shorter : public error {
  public:
    explicit became_shorter(std::string_view path) : error(EIO, "can't copy", path, "it became shorter meanwhile") {}
};

/// Moves a file's content by descriptors: no name can lead elsewhere meanwhile.
class content_copy {
  public:
    content_copy(int source, int copy, std::string_view source_path, const std::stop_token &stop,
                 std::atomic<std::int64_t> *progress)
        : source_(source), copy_(copy), path_(source_path), token_(stop), stop_(stop), progress_(progress) {}

    void run(const struct stat &status) {
        constexpr off_t block = 512;
        const bool has_holes = status.st_blocks < status.st_size / block;
        for (off_t at = 0; at < status.st_size;) {
            const data_range data = has_holes ? next_data(source_, at, status.st_size) : data_range{0, status.st_size};
            if (progress_ != nullptr)
                progress_->fetch_add(data.begin - at, std::memory_order_relaxed);
            move(data);
            at = data.end;
        }
        check_stop(token_, "can't copy", path_);
        if (has_holes)  // the last one has no bytes behind it that would make it
            check_system(::ftruncate(copy_, status.st_size), "can't copy", path_);

        struct stat now {};
        check_system(::fstat(source_, &now), "can't look at", path_);
        if (now.st_size < status.st_size)
            refuse_shorter();
    }

  private:
    void move(data_range data) {
        static_assert(sizeof(std::atomic<std::int64_t>) == sizeof(std::int64_t) &&
                      std::atomic<std::int64_t>::is_always_lock_free);
        // The library adds to the total with relaxed atomic accesses.
        auto *total = reinterpret_cast<std::int64_t *>(progress_);
        std::int64_t from = data.begin;
        std::int64_t to = data.begin;
        errno = 0;  // which is all that a source that ends early is told by
        check(Copy_File_Data(source_, &from, copy_, &to, data.end - data.begin, stop_.get(), total), "can't copy",
              path_);
        check_stop(token_, "can't copy", path_);
        if (from < data.end)
            refuse_shorter();
    }

    [[noreturn]] void refuse_shorter() const { throw became_shorter(path_); }

    int source_;
    int copy_;
    std::string_view path_;
    std::stop_token token_;
    stop_flag stop_;
    std::atomic<std::int64_t> *progress_;
};

/// Modification time, also as the time of the last access.
inline void copy_time(const struct stat &source, int copy, std::string_view source_path) {
    const timespec times[] = {source.st_mtim, source.st_mtim};
    check_system(::futimens(copy, times), "can't give the time to the copy of", source_path);
}

/// The owner first: until then the copy is for its maker alone, and a privilege never shows on a file of another one.
inline void copy_status(const struct stat &source, int copy, mode_t bits, std::string_view source_path) {
    check_system(::fchown(copy, source.st_uid, source.st_gid), "can't give the owner to the copy of", source_path);
    check_system(::fchmod(copy, source.st_mode & bits), "can't give the bits to the copy of", source_path);
    copy_time(source, copy, source_path);
}

/// Adds what a file or folder has besides bits, owner and time. What can't be asked for does not count.
inline void count_extended(int file, not_carried &lost) {
    int code = 0;
    bool has_list = false;
    bool has_others = false;
    for (const std::string &name : attribute_names(file, code)) {
        const bool is_list = name.starts_with("system.posix_acl_");
        has_list = has_list || is_list;
        has_others = has_others || !(is_list || name == "security.selinux" || is_checksum(name));
    }
    lost.access_lists += has_list ? 1 : 0;
    lost.attributes += has_others ? 1 : 0;
}

inline void count_file(int file, const struct stat &status, not_carried &lost) {
    lost.set_id_bits += (status.st_mode & (S_ISUID | S_ISGID)) != 0 ? 1 : 0;
    count_extended(file, lost);
}

}  // namespace korvex::detail

#endif
