/// @file
/// Internal: what a lock file is called and what it holds.
#ifndef KORVEX_DETAIL_LOCK_FILE_HPP
#define KORVEX_DETAIL_LOCK_FILE_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fileio.h"
#include "korvex/detail/descriptor.hpp"
#include "korvex/error.hpp"
#include "miscfunc.h"

namespace korvex {

/// Which lock of a path: there are three.
enum class lock_kind {
    common,   ///< /var/lock/_NAME.lck, the held lock of the C interface: what the setters of configuration files take
    side,     ///< PATH.lck: equal names in different folders don't collide
    watched,  ///< /var/lock/NAME.lck: made by other programs, and waited for by the log; a `file_lock` can't take it
};

/// What a look at a lock says.
enum class lock_status {
    free,        ///< no lock file
    held,        ///< by a live process, for less than ten minutes
    stale,       ///< whoever waits for the lock takes it over
    incomplete,  ///< created, but not filled; taken over after two seconds
    blocked,  ///< something else than a file is in its place (a folder, a pipe, a link), and nobody gets the lock while
              ///< it is there; but a link of root's or of one's own is followed
    unreadable,  ///< there, but this process can't read it; only among those that `locks` lists
};

/// A lock, seen from the outside, at one moment.
struct lock_state {
    lock_status status = lock_status::free;
    pid_t pid = 0;                     ///< who holds it, or held it
    std::string program;               ///< that process's name; empty where it has ended
    std::chrono::milliseconds age{0};  ///< since its holder began to wait for it; never negative
    std::string reason;                ///< why it is stale; what it is blocked by: "a folder"
    std::chrono::sys_time<std::chrono::milliseconds> since{};  ///< when its holder began to wait for it, by its clock;
                                                               ///< when it was made where it is incomplete
};

/// Where common and watched locks lie.
inline constexpr std::string_view lock_folder = "/var/lock/";

/// How long a lock lasts: then whoever waits for it takes it over, even if its holder lives.
inline constexpr std::chrono::minutes lock_lifetime{10};

namespace detail {

inline constexpr std::string_view lock_suffix = ".lck";

inline std::string_view base_name(std::string_view path) noexcept {
    return path.substr(path.find_last_of('/') + 1);
}

inline std::string lock_path(std::string_view path, lock_kind kind) {
    std::string lock;
    if (kind == lock_kind::side)
        lock = path;
    else
        lock.append(lock_folder).append(kind == lock_kind::common ? "_" : "").append(base_name(path));
    return lock.append(lock_suffix);
}

/// The 16 bytes, in host order.
struct lock_content {
    std::int64_t since;  ///< millisecond since the epoch at which the holder began to wait
    std::int32_t holder;
    std::int32_t reserved;
};
static_assert(sizeof(lock_content) == 16);

/// A file that was opened to be looked at: a link is not followed, a pipe is not waited for.
inline descriptor open_lock(const std::string &lock) noexcept {
    return descriptor(::open(lock.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW));
}

inline std::optional<lock_content> read_lock(const descriptor &lock) noexcept {
    lock_content content{};
    if (::read(lock.get(), &content, sizeof content) != static_cast<ssize_t>(sizeof content))
        return {};
    return content;
}

inline std::string program_of(pid_t pid) {
    std::array<char, 64> name{};
    auto length = static_cast<std::int32_t>(name.size());
    const std::string path = "/proc/" + std::to_string(pid) + "/comm";
    if (Simple_Read_File(path.c_str(), name.data(), &length) < 0)
        return {};
    return {name.data(), static_cast<std::size_t>(length)};
}

/// What a lock is to those who wait for it.
inline lock_state state_of(const lock_content &content) {
    const std::uint64_t age = Tick_Diff(static_cast<std::uint64_t>(content.since));
    const bool from_the_future = static_cast<std::int64_t>(age) < 0;
    const std::int32_t existed = Is_Process_Existed(content.holder);

    lock_state state;
    state.status = lock_status::stale;
    state.pid = content.holder;
    state.age = std::chrono::milliseconds(from_the_future ? 0 : static_cast<std::int64_t>(age));
    state.since = std::chrono::sys_time<std::chrono::milliseconds>(std::chrono::milliseconds(content.since));
    if (existed == -EPERM)
        state.reason = "the process belongs to another user";
    else if (existed != 1)
        state.reason = "no such process";
    else if (from_the_future)  // counts as very old, as all differences of ticks do
        state.reason = "dated in the future";
    else if (state.age >= lock_lifetime)
        state.reason = "ten minutes old";
    else
        state.status = lock_status::held;
    return state;
}

inline lock_state state_of_unfilled(const struct stat &status) {
    const std::int64_t changed = std::int64_t{status.st_mtim.tv_sec} * 1000 + status.st_mtim.tv_nsec / 1'000'000;
    const auto age = static_cast<std::int64_t>(Tick_Diff(static_cast<std::uint64_t>(changed)));

    lock_state state;
    state.status = lock_status::incomplete;
    state.age = std::chrono::milliseconds(age < 0 ? 0 : age);
    state.since = std::chrono::sys_time<std::chrono::milliseconds>(std::chrono::milliseconds(changed));
    return state;
}

inline lock_state blocked_by(mode_t mode) {
    lock_state state;
    state.status = lock_status::blocked;
    state.reason = S_ISDIR(mode)    ? "a folder"
                   : S_ISLNK(mode)  ? "a link"
                   : S_ISFIFO(mode) ? "a pipe"
                   : S_ISSOCK(mode) ? "a socket"
                                    : "a device";
    return state;
}

/// The state of a lock file; throws where it is there and can't be read. What is no file is not opened: it may be a
/// device.
inline lock_state inspect_file(const std::string &lock) {
    struct stat status {};
    const bool is_there = ::lstat(lock.c_str(), &status) == 0;
    if (is_there && !S_ISREG(status.st_mode))
        return blocked_by(status.st_mode);

    const descriptor file = open_lock(lock);
    if (!file && errno == ENOENT)
        return {};
    if (!file && errno == ELOOP)
        return blocked_by(S_IFLNK);
    if (!file || ::fstat(file.get(), &status) != 0)
        throw error(errno, "can't look at the lock", lock);
    if (!S_ISREG(status.st_mode))
        return blocked_by(status.st_mode);

    const std::optional<lock_content> content = read_lock(file);
    if (!content)
        return state_of_unfilled(status);
    lock_state state = state_of(*content);
    state.program = program_of(state.pid);
    return state;
}

}  // namespace detail
}  // namespace korvex

#endif
