// Lock files: waiting for one, judging one that is there, taking, releasing.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/file_identity.h"
#include "base/handles.h"
#include "base/log_wait.h"
#include "base/message.h"
#include "base/path_buffer.h"
#include "fileio.h"
#include "miscfunc.h"

namespace korvex::fileio {
namespace {

constexpr uint64_t kMaximumAgeMs = 600'000;  // a lock of ten minutes is stale, even if its holder lives
constexpr uint64_t kFillTimeMs = 2000;       // what a new lock has to get its content
constexpr uint64_t kClaimTimeMs = 100;       // what a waiter has to remove a stale lock

// What a lock file holds, written in one piece.
struct LockContent {
    int64_t waiting_since;  // tick at which the holder began to wait
    int32_t holder;
    int32_t reserved;
};
static_assert(sizeof(LockContent) == 16);

using CommonLockPath = PathBuffer<256>;
using SideLockPath = PathBuffer<kPathSize>;

const char *base_name(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

[[nodiscard]] bool watched_lock_path(CommonLockPath &lock, const char *path) {
    return lock.assign({"/var/lock/", base_name(path), ".lck"});
}

[[nodiscard]] bool held_lock_path(CommonLockPath &lock, const char *path) {
    return lock.assign({"/var/lock/_", base_name(path), ".lck"});
}

[[nodiscard]] bool side_lock_path(SideLockPath &lock, const char *path) {
    return lock.assign({path, ".lck"});
}

// Why a lock is to go.
struct Fault {
    enum class Kind { none, dead_holder, expired, never_filled };

    Kind kind = Kind::none;
    int64_t number = 0;  // what the message shows: the holder, the age, or a marker
};

// One call's wait for one lock file.
class LockWait final {
  public:
    LockWait(const char *lock, int32_t timeout_ms, const char *function)
        : lock_(lock), timeout_ms_(timeout_ms), function_(function) {}

    // Ends a pass that found a lock: removes it if it is stale, else sleeps. False when the time is over.
    [[nodiscard]] bool next_pass();

    uint64_t start() const { return start_; }

  private:
    enum class Lock { stays, gone, removed };

    bool remove_if_stale();
    Lock remove_if_stale(Fault &fault);
    Fault judge(int descriptor);
    Fault judge_unfilled(const struct stat &status);
    bool claim(int descriptor, const struct stat &judged);
    Lock remove(const struct stat &judged) const;
    void report(const Fault &fault) const;

    const char *lock_;
    int32_t timeout_ms_;
    const char *function_;
    uint64_t start_ = Tick_Diff(0);

    // The first sight of content that is not complete: when (0: not yet), and the file's modification time then, in
    // seconds and 32 bits.
    uint64_t unfilled_since_ = 0;
    int32_t unfilled_mtime_ = 0;

    // The stale file whose claim somebody else has, and since when (0: there is none).
    uint64_t claimed_since_ = 0;
    struct stat claimed_ {};
};

bool LockWait::next_pass() {
    if (remove_if_stale())
        return true;

    const uint64_t waited = Tick_Diff(start_);
    if (timeout_ms_ >= 0 && waited > static_cast<uint64_t>(timeout_ms_)) {
        const NoLogWait at_once;
        LOG_ERROR_AS(function_, "Get lock file \"%s\" timeout! (%lld < %d)\n", lock_, static_cast<long long>(waited),
                     timeout_ms_);
        return false;
    }

    Sleep_MSec(1);
    return true;
}

// True when the lock that was there is gone, so that the next pass begins at once. The message follows when the file is
// closed and its claim given back: writing it may take long, and nobody is to wait for that.
bool LockWait::remove_if_stale() {
    Fault fault;
    const Lock lock = remove_if_stale(fault);
    if (lock == Lock::removed)
        report(fault);
    return lock != Lock::stays;
}

// O_NONBLOCK, since a FIFO of the lock's name must not hang us.
LockWait::Lock LockWait::remove_if_stale(Fault &fault) {
    const UniqueFd lock(open(lock_, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!lock)
        return Lock::stays;

    fault = judge(lock.get());
    if (fault.kind == Fault::Kind::none)
        return Lock::stays;

    struct stat judged {};
    if (fstat(lock.get(), &judged) != 0 || !claim(lock.get(), judged))
        return Lock::stays;
    return remove(judged);
}

// Any answer but 1 counts as an ended holder, also "not permitted": a lock belongs to processes that may signal each
// other. Asked once more, the holder of a lock that goes may be there: then its age is the reason.
Fault LockWait::judge(int descriptor) {
    LockContent content;
    if (read(descriptor, &content, sizeof content) != sizeof content) {
        struct stat status {};
        return fstat(descriptor, &status) == 0 ? judge_unfilled(status) : Fault{};
    }

    const uint64_t age = Tick_Diff(static_cast<uint64_t>(content.waiting_since));
    if (age < kMaximumAgeMs && Is_Process_Existed(content.holder) == 1)
        return {};
    if (Is_Process_Existed(content.holder) != 1)
        return {Fault::Kind::dead_holder, content.holder};
    return {Fault::Kind::expired, static_cast<int64_t>(age)};
}

Fault LockWait::judge_unfilled(const struct stat &status) {
    const bool seen = unfilled_since_ != 0;
    if (seen && Tick_Diff(unfilled_since_) <= kFillTimeMs)
        return {};

    if (!seen || status.st_mtime != unfilled_mtime_) {
        unfilled_since_ = Tick_Diff(0);
        unfilled_mtime_ = static_cast<int32_t>(status.st_mtime);
        return {};
    }

    // Milliseconds less hundredths of a second: a mixture, and a marker that logs have always shown.
    const uint64_t marker = Tick_Diff(static_cast<uint64_t>(status.st_mtime) * 100);
    return {Fault::Kind::never_filled, static_cast<int64_t>(marker)};
}

// Keeps other waiters from removing the judged file at the same time. The claim goes with the descriptor. Where the file
// system knows no flock, the look in `remove` alone must do; and so it must where somebody has kept the claim for longer
// than any removal takes, or he could keep the lock for ever. False when another waiter is at it.
bool LockWait::claim(int descriptor, const struct stat &judged) {
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
        claimed_since_ = 0;
        return true;
    }

    if (claimed_since_ == 0 || !is_same_file(judged, claimed_)) {
        claimed_since_ = Tick_Diff(0);
        claimed_ = judged;
    }
    return Tick_Diff(claimed_since_) > kClaimTimeMs;
}

// Removes the file that was judged, and no other. Since it was opened, its holder can have released it and another
// process taken the lock anew under the same name; with short-lived processes that happens within minutes. So the last
// thing before the removal is a look at what the path leads to.
LockWait::Lock LockWait::remove(const struct stat &judged) const {
    struct stat present {};
    if (stat(lock_, &present) != 0 || !is_same_file(present, judged))
        return Lock::gone;
    return unlink(lock_) == 0 ? Lock::removed : Lock::stays;
}

void LockWait::report(const Fault &fault) const {
    const NoLogWait at_once;
    const auto number = static_cast<long long>(fault.number);
    switch (fault.kind) {
        case Fault::Kind::none:
            break;
        case Fault::Kind::dead_holder:
            LOG_DEBUG_AS(function_, "Remove \"%s\" because proc %d is not existed!\n", lock_,
                         static_cast<int32_t>(number));
            break;
        case Fault::Kind::expired:
            LOG_DEBUG_AS(function_, "Remove \"%s\" because time expired (%lld)!\n", lock_, number);
            break;
        case Fault::Kind::never_filled:
            LOG_DEBUG_AS(function_, "Remove \"%s\" because invalid content and timeout (%lld)!\n", lock_, number);
            break;
    }
}

// Fills a lock file that this call has just created. 1 or 0, as the functions that take a lock return it.
int32_t fill_lock(UniqueFd lock, const char *path, uint64_t start, const char *function) {
    const LockContent content{.waiting_since = static_cast<int64_t>(start), .holder = getpid(), .reserved = 0};
    if (write(lock.get(), &content, sizeof content) == sizeof content)
        return 1;

    unlink(path);
    const NoLogWait at_once;
    LOG_ERROR_AS(function, "Can't write lock file \"%s\" content error!\n", path);
    return 0;
}

// Creating the file is the one atomic step: whoever creates it holds the lock.
int32_t take_lock(const char *lock, int32_t timeout_ms, const char *function) {
    LockWait wait(lock, timeout_ms, function);
    do {
        UniqueFd created(open(lock, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0777));
        if (created)
            return fill_lock(std::move(created), lock, wait.start(), function);
    } while (wait.next_pass());
    return 0;
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex::fileio;

int32_t Get_Filename(const char *pszPath, const char **ppszName) {
    if (pszPath == nullptr || ppszName == nullptr)
        return -EINVAL;

    *ppszName = base_name(pszPath);
    return 0;
}

int32_t Check_File_Lock(const char *pszPath, int32_t nTimeout) {
    CommonLockPath lock;
    if (pszPath == nullptr || !watched_lock_path(lock, pszPath))
        return 0;

    LockWait wait(lock.c_str(), nTimeout, __func__);
    struct stat status {};
    while (stat(lock.c_str(), &status) == 0 && wait.next_pass()) {}
    return 0;
}

int32_t Get_File_Lock(const char *pszPath, int32_t nTimeout) {
    if (pszPath == nullptr)
        return 0;

    CommonLockPath lock;
    if (!held_lock_path(lock, pszPath))
        return -ENAMETOOLONG;
    return take_lock(lock.c_str(), nTimeout, __func__);
}

int32_t Release_File_Lock(const char *pszPath) {
    if (pszPath == nullptr)
        return 0;

    CommonLockPath lock;
    if (!held_lock_path(lock, pszPath))
        return -ENAMETOOLONG;
    unlink(lock.c_str());
    return 1;
}

int32_t Get_File_Lock_Ex(const char *pszPath, int32_t nTimeout) {
    if (pszPath == nullptr)
        return 0;

    SideLockPath lock;
    if (!side_lock_path(lock, pszPath))
        return -ENAMETOOLONG;
    return take_lock(lock.c_str(), nTimeout, __func__);
}

int32_t Release_File_Lock_Ex(const char *pszPath) {
    if (pszPath == nullptr)
        return 0;

    SideLockPath lock;
    if (!side_lock_path(lock, pszPath))
        return -ENAMETOOLONG;
    Fenwa_Really_Unlink(lock.c_str());
    return 1;
}
