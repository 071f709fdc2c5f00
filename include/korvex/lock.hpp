/// @file
/// Locks between processes: files that name their holder, taken over when it has ended.
///
///     const korvex::file_lock lock("/etc/app.conf");  // waits up to 10 s; released when it goes
///
///     for (const korvex::named_lock &lock : korvex::locks())
///         std::cout << lock.name << ": " << lock.state.program << '\n';
#ifndef KORVEX_LOCK_HPP
#define KORVEX_LOCK_HPP

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fileio.h"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/held_lock.hpp"
#include "korvex/detail/lock_file.hpp"
#include "korvex/path_view.hpp"

namespace korvex {

/// How long the library itself waits for a lock.
inline constexpr std::chrono::seconds usual_wait{10};

/// A lock that is held as long as this lives.
///
/// Whoever waits takes a lock over once it is ten minutes old, even if its holder lives. So a `file_lock` that goes
/// after that removes the lock file only if it is still its own; the C interface would remove the next holder's.
/// Threads of one process wait for each other, too; a thread that takes a lock twice waits for itself. A child made by
/// `fork` has a copy of this object: let it end with `_exit` or `exec`, or it releases its parent's lock.
class file_lock {
  public:
    /// Waits for a lock and takes it.
    ///
    /// @param path  the file to protect, which need not exist
    /// @param wait  how long at most; `forever` has no limit. Afterwards it throws `errc::lock_not_obtained`, with
    ///              words that tell who holds it
    /// @param kind  common or side
    /// @param stop  ends the wait: `std::errc::operation_canceled`
    ///
    /// Where the lock can't be taken, since its folder is missing, full or not writable, it throws that reason at once.
    explicit file_lock(path_view path, std::chrono::milliseconds wait = usual_wait, lock_kind kind = lock_kind::common,
                       std::stop_token stop = {})
        : lock_(path, kind) {
        if (!lock_.take(wait, stop))
            throw error(errc::lock_not_obtained, "can't lock", path, reason(path, wait, kind));
    }

    /// As the constructor, and nothing where the lock was not obtained in time.
    ///
    /// @param path, wait, kind, stop  as for the constructor
    /// @return the lock, or nothing
    static std::optional<file_lock> try_for(path_view path, std::chrono::milliseconds wait,
                                            lock_kind kind = lock_kind::common, std::stop_token stop = {}) {
        detail::held_lock lock(path, kind);
        if (!lock.take(wait, stop))
            return {};
        return file_lock(std::move(lock));
    }

    /// Looks whether the lock file is still the one that this took: it can have been taken over, or removed.
    ///
    /// @return false when it is no longer ours
    bool is_held() const { return lock_.is_own(); }

    /// How long others still leave it alone; not positive when it is to be taken over.
    ///
    /// @return the time until it is ten minutes old
    std::chrono::milliseconds time_left() const noexcept { return lock_.time_left(); }

    /// Releases it before its time; nothing when it is released already.
    void release() { lock_.release(); }

    /// Forgets it without a release: its file stays, as that of whoever took it over.
    void abandon() noexcept { lock_.abandon(); }

  private:
    explicit file_lock(detail::held_lock lock) noexcept : lock_(std::move(lock)) {}

    static std::string reason(std::string_view path, std::chrono::milliseconds wait, lock_kind kind) {
        std::string text = "the lock was not obtained in ";
        text += wait.count() % 1000 == 0 ? std::to_string(wait.count() / 1000) + " s"
                                         : std::to_string(wait.count()) + " ms";
        const detail::descriptor file = detail::open_lock(detail::lock_path(path, kind));
        const std::optional<detail::lock_content> content = file ? detail::read_lock(file) : std::nullopt;
        if (content) {
            const std::string program = detail::program_of(content->holder);
            text += "; process " + std::to_string(content->holder) + (program.empty() ? "" : " (" + program + ")") +
                    " holds it";
        }
        return text;
    }

    detail::held_lock lock_;
};

/// Looks at a lock without touching it.
///
/// @param path  the file that it protects
/// @param kind  which lock of it
/// @return what it is at this moment; throws where there is one that can't be read
inline lock_state inspect(path_view path, lock_kind kind = lock_kind::common) {
    return detail::inspect_file(detail::lock_path(path, kind));
}

/// Waits while another program holds the watched lock of a path, and removes a stale one.
///
/// @param path  the file that it protects
/// @param wait  how long at most
/// @return whether it is free now
inline bool wait_until_unwatched(path_view path, std::chrono::milliseconds wait = usual_wait) {
    Check_File_Lock(detail::c_path(path), detail::milliseconds_of(wait));
    return ::access(detail::lock_path(path, lock_kind::watched).c_str(), F_OK) != 0;
}

/// One lock among those of /var/lock.
struct named_lock {
    std::string name;  ///< of the file that it protects, without its folder, which the lock does not name
    lock_kind kind = lock_kind::common;  ///< common or watched
    lock_state state;                    ///< when the list was made
    std::string file;                    ///< the lock file
};

/// Every lock of /var/lock, common and watched ones, by name; what blocks one is among them. Side locks lie beside what
/// they protect and are not listed.
///
/// @return those that were there and held, stale or incomplete; one that can't be read has the status `unreadable`
inline std::vector<named_lock> locks() {
    std::vector<named_lock> found;
    std::error_code failure;
    std::filesystem::directory_iterator entries(lock_folder, failure);
    for (; !failure && entries != std::filesystem::directory_iterator(); entries.increment(failure)) {
        const std::string file = entries->path().filename().string();
        std::string_view name = file;
        if (!name.ends_with(detail::lock_suffix))
            continue;

        name.remove_suffix(detail::lock_suffix.size());
        const bool is_common = name.starts_with('_');
        named_lock lock{.name = std::string(name.substr(is_common ? 1 : 0)),
                        .kind = is_common ? lock_kind::common : lock_kind::watched,
                        .state = {},
                        .file = entries->path().string()};
        try {
            lock.state = detail::inspect_file(lock.file);
        } catch (const error &) {
            lock.state.status = lock_status::unreadable;
        }
        if (lock.state.status != lock_status::free)  // else it was released since
            found.push_back(std::move(lock));
    }
    if (failure)
        throw error(failure.value(), "can't list", lock_folder);

    std::sort(found.begin(), found.end(),
              [](const named_lock &left, const named_lock &right) { return left.name < right.name; });
    return found;
}

}  // namespace korvex

#endif
