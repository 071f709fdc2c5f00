/// @file
/// Internal: taking a lock file, knowing it again, and giving it back.
#ifndef KORVEX_DETAIL_HELD_LOCK_HPP
#define KORVEX_DETAIL_HELD_LOCK_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>

#include "fileio.h"
#include "korvex/detail/call.hpp"
#include "korvex/detail/lock_file.hpp"
#include "korvex/error.hpp"
#include "miscfunc.h"

namespace korvex::detail {

/// The path that a lock is named by. A common lock is named by the last component alone, which is kept in place, so
/// that taking such a lock allocates nothing.
class lock_target {
  public:
    lock_target(std::string_view path, lock_kind kind) {
        if (path.find('\0') != std::string_view::npos)
            throw error(EINVAL, "can't lock", path.substr(0, path.find('\0')), "a NUL follows it");
        const std::string_view name = kind == lock_kind::common ? base_name(path) : path;
        if (name.size() < name_.size())
            name_[name.copy(name_.data(), name.size())] = '\0';
        else
            long_path_ = path;
    }
    const char *get() const noexcept { return long_path_.empty() ? name_.data() : long_path_.c_str(); }

  private:
    std::array<char, 256> name_{};
    std::string long_path_;
};

/// A lock that may be held. Move-only; what was moved from holds nothing.
class held_lock {
  public:
    held_lock(std::string_view path, lock_kind kind) : target_(path, kind), kind_(kind) {
        if (kind == lock_kind::watched)
            throw error(EINVAL, "can't lock", path, "watched locks are taken by other programs");
    }
    held_lock(held_lock &&other) noexcept
        : target_(std::move(other.target_)),
          kind_(other.kind_),
          holds_(std::exchange(other.holds_, false)),
          asked_(other.asked_),
          taken_(other.taken_) {}
    held_lock &operator=(held_lock other) noexcept {  // by value: what this held is released here
        std::swap(target_, other.target_);
        std::swap(kind_, other.kind_);
        std::swap(holds_, other.holds_);
        std::swap(asked_, other.asked_);
        std::swap(taken_, other.taken_);
        return *this;
    }
    ~held_lock() { release(); }

    /// False when the time is over; throws when it is stopped, and when the lock can't be taken at all.
    /// The latter is looked for first: to the library a lock that it can't create is one that somebody holds.
    [[nodiscard]] bool take(std::chrono::milliseconds wait, const std::stop_token &stop) {
        refuse_hopeless();
        const bool is_taken = stop.stop_possible() ? take_until_stopped(wait, stop) : call(milliseconds_of(wait));
        if (!is_taken)
            refuse_hopeless();  // it may have become so meanwhile
        return is_taken;
    }

    void release() noexcept {
        if (!std::exchange(holds_, false))
            return;
        if (time_left().count() <= 0 && !is_own_file())
            return;
        if (kind_ == lock_kind::common)
            Release_File_Lock(target_.get());
        else
            Release_File_Lock_Ex(target_.get());
    }

    void abandon() noexcept { holds_ = false; }

    /// Whether it is held, and the lock file is the one that `take` made.
    bool is_own() const noexcept { return holds_ && is_own_file(); }

    // Waiters count the age from the moment at which the holder began to wait, by the wall clock. Where that was set
    // back they see a huge age.
    std::chrono::milliseconds time_left() const noexcept {
        const auto age = static_cast<std::int64_t>(Tick_Diff(static_cast<std::uint64_t>(asked_)));
        const std::chrono::milliseconds lifetime = lock_lifetime;
        return age < 0 ? std::chrono::milliseconds(0) : lifetime - std::chrono::milliseconds(age);
    }

  private:
    static std::int64_t now() noexcept { return static_cast<std::int64_t>(Tick_Diff(0)); }

    bool call(std::int32_t wait) {
        asked_ = now();
        errno = 0;
        const std::int32_t result =
            kind_ == lock_kind::common ? Get_File_Lock(target_.get(), wait) : Get_File_Lock_Ex(target_.get(), wait);
        const int reason = errno;
        if (check(result, "can't lock", target_.get()) == 1) {
            taken_ = now();
            return holds_ = true;
        }
        // A lock that the library made but could not fill is removed, and the answer is that of a time-out. `errno`
        // tells the two apart: after a time-out it is that of what was in the way, after a failed write that of the
        // write, and after a short write still 0.
        if (reason == 0 || reason == ENOSPC || reason == EDQUOT || reason == EFBIG || reason == EIO)
            throw error(reason == 0 ? EIO : reason, "can't write the lock", lock_path(target_.get(), kind_));
        return false;
    }

    // The library can't be stopped while it waits. So the wait is done here, and the library is called when it need not
    // wait; but for a lock that was never filled: the library has to watch that one for two seconds.
    bool take_until_stopped(std::chrono::milliseconds wait, const std::stop_token &stop) {
        using clock = std::chrono::steady_clock;
        constexpr std::int32_t fill_time_ms = 2100;
        constexpr std::uint32_t pause_ms = 1;
        const std::string lock = lock_path(target_.get(), kind_);
        const clock::time_point start = clock::now();
        for (;;) {
            check_stop(stop, "can't lock", target_.get());
            const lock_status status = status_of(lock);
            const bool must_wait =
                status == lock_status::held || status == lock_status::blocked || status == lock_status::unreadable;
            if (!must_wait && call(status == lock_status::incomplete ? fill_time_ms : 0))
                return true;
            if (wait.count() >= 0 && clock::now() - start >= wait)
                return false;
            if (must_wait)
                Sleep_MSec(pause_ms);
        }
    }

    static lock_status status_of(const std::string &lock) {
        const descriptor file = open_lock(lock);
        if (!file)
            return errno == ENOENT ? lock_status::free : lock_status::unreadable;
        struct stat status {};
        if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
            return lock_status::blocked;
        const std::optional<lock_content> content = read_lock(file);
        return content ? state_of(*content).status : lock_status::incomplete;
    }

    // The usual folder is a literal: nothing is allocated for it.
    void refuse_hopeless() const {
        std::string beside;
        if (kind_ == lock_kind::side) {
            const std::string_view path = target_.get();
            const std::size_t slash = path.find_last_of('/');
            beside = slash == std::string_view::npos ? "." : path.substr(0, slash + 1);
        }
        const char *const folder = beside.empty() ? lock_folder.data() : beside.c_str();
        if (::faccessat(AT_FDCWD, folder, W_OK | X_OK, AT_EACCESS) != 0)
            throw error(errno, "can't create the lock", lock_path(target_.get(), kind_));
    }

    // Without memory for the path the answer is no, and the lock is left to those who wait for it.
    bool is_own_file() const noexcept try {
        const descriptor file = open_lock(lock_path(target_.get(), kind_));
        const std::optional<lock_content> content = file ? read_lock(file) : std::nullopt;
        return content && content->holder == ::getpid() && content->since >= asked_ && content->since <= taken_;
    } catch (...) {
        return false;
    }

    lock_target target_;
    lock_kind kind_;
    bool holds_ = false;
    std::int64_t asked_ = 0;  // the ticks around the call that took it, between which the lock file's own lies
    std::int64_t taken_ = 0;
};

}  // namespace korvex::detail

#endif
