/// @file
/// How files and trees are copied, and what a copy reports of what it left out.
#ifndef KORVEX_COPYING_HPP
#define KORVEX_COPYING_HPP

#include <atomic>
#include <cstdint>
#include <stop_token>
#include <string>
#include <system_error>
#include <vector>

namespace korvex {

/// What a copy carries besides content, permission bits, owner and modification time.
enum class preserve {
    usual,  ///< nothing; the result counts what the sources have more
    all,    ///< access lists, extended attributes, set-id and sticky bits and, within a tree, hard links
};

/// What sources had and their copies have not. A label that the system's policy gives to each file does not count.
struct not_carried {
    std::uint64_t access_lists = 0;  ///< files and folders that have one
    std::uint64_t attributes = 0;    ///< files and folders that have other extended attributes
    std::uint64_t set_id_bits = 0;   ///< files with a set-user-id or set-group-id bit
    std::uint64_t hard_links = 0;    ///< further names of a file, each of which became a file of its own

    /// @return whether there was any of it
    bool any() const noexcept { return (access_lists | attributes | set_id_bits | hard_links) != 0; }
};

/// How a long operation is followed and ended.
struct work_options {
    std::stop_token stop{};                         ///< ends it: `std::errc::operation_canceled`
    std::atomic<std::int64_t> *progress = nullptr;  ///< bytes done are added; any thread may read it meanwhile
    bool durable = false;                           ///< on the disk when it is done
    preserve keep = preserve::usual;                ///< what is carried over
};

/// How a tree is copied.
struct tree_options {
    std::stop_token stop{};           ///< ends it: `std::errc::operation_canceled`; what was copied stays
    bool durable = false;             ///< on the disk when it is done: the whole file system of the copy is synced
    preserve keep = preserve::usual;  ///< what is carried over
    std::atomic<std::int64_t> *progress = nullptr;  ///< bytes done are added, as `measure_tree` counts them
};

/// One entry that an operation on a tree left out.
struct left_out {
    std::string path;      ///< the given top and the way from there
    std::error_code code;  ///< `errc::not_a_regular_file` for what is never copied; `errc::not_carried_over` for a copy
                           ///< that lacks something of its source; else the errno that it met
    std::string reason;    ///< in words
};

/// What an operation on a tree left out; `complete` when it did the whole.
struct tree_report {
    std::vector<left_out> entries;  ///< what was left out, and why
    not_carried lost{};             ///< by a copy that was not asked to preserve all

    /// @return whether nothing was left out
    bool complete() const noexcept { return entries.empty(); }
};

}  // namespace korvex

#endif
