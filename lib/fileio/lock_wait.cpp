#include "lock_wait.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_identity.h"
#include "base/lock_time.h"
#include "base/log_wait.h"
#include "base/message.h"

namespace korvex::fileio {
namespace {

constexpr uint64_t kFillTimeMs = 2000;   // what a new lock has to get its content
constexpr uint64_t kClaimTimeMs = 100;   // what a waiter has to remove a stale lock
constexpr uint64_t kRemovalTimeMs = 20;  // and how long it dares to: others must not have given up by then

}  // namespace

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

// True when this call has removed the lock, so that the next pass begins at once. The message follows when the file is
// closed and its claim given back: writing it may take long, and nobody is to wait for that.
bool LockWait::remove_if_stale() {
    Fault fault;
    if (!remove_if_stale(fault))
        return false;

    report(fault);
    return true;
}

bool LockWait::remove_if_stale(Fault &fault) {
    if (entry_.kind() == LockEntry::Kind::none || entry_.kind() == LockEntry::Kind::unreadable)
        return false;

    UniqueFd file;
    if (entry_.kind() == LockEntry::Kind::file) {
        file = entry_.open_file();
        if (!file)
            return false;
    }

    fault = find_fault(file.get());
    return fault.kind != Fault::Kind::none && claim(file.get()) && remove();
}

// A holder that may not be signalled counts as dead, too: a lock is shared by processes that may signal each other. The
// second look at the holder decides which reason the log gives. `descriptor` is negative where the lock is no file.
LockWait::Fault LockWait::find_fault(int descriptor) {
    LockContent content;
    if (descriptor < 0 || read(descriptor, &content, sizeof content) != sizeof content)
        return find_fault_of_unfilled();

    const uint64_t age = Tick_Diff(static_cast<uint64_t>(content.waiting_since));
    if (age < kLockLifetimeMs && Is_Process_Existed(content.holder) == 1)
        return {};
    if (Is_Process_Existed(content.holder) != 1)
        return {Fault::Kind::dead_holder, content.holder};
    return {Fault::Kind::expired, static_cast<int64_t>(age)};
}

LockWait::Fault LockWait::find_fault_of_unfilled() {
    const bool seen = unfilled_since_ != 0;
    if (seen && Tick_Diff(unfilled_since_) <= kFillTimeMs)
        return {};

    const int64_t modified = entry_.status().st_mtime;
    if (!seen || modified != unfilled_mtime_) {
        unfilled_since_ = Tick_Diff(0);
        unfilled_mtime_ = static_cast<int32_t>(modified);
        return {};
    }

    // Kept: milliseconds less a time in hundredths of a second is no meaningful number, but logs have always shown it.
    const uint64_t marker = Tick_Diff(static_cast<uint64_t>(modified) * 100);
    return {Fault::Kind::never_filled, static_cast<int64_t>(marker)};
}

// Keeps other waiters from removing the judged file at the same time. The claim ends when the descriptor is closed. False
// while another waiter has it. Three cases need no claim, and rely on the look in `remove` alone: there is no file; its file
// system has no flock; somebody has kept the claim for longer than a removal takes, which must not keep the lock for ever.
bool LockWait::claim(int descriptor) {
    removing_since_ = Tick_Diff(0);
    if (descriptor < 0 || flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
        claimed_since_ = 0;
        return true;
    }

    const struct stat &judged = entry_.status();
    if (claimed_since_ == 0 || judged.st_dev != claimed_device_ || judged.st_ino != claimed_inode_) {
        claimed_since_ = Tick_Diff(0);
        claimed_device_ = judged.st_dev;
        claimed_inode_ = judged.st_ino;
    }
    return Tick_Diff(claimed_since_) > kClaimTimeMs;
}

// Removes the lock that was judged, and no other. Meanwhile its holder may have released it, and another process may have
// taken the lock under the same name; with short-lived processes that happens within minutes. So the last step before the
// removal is a look at what has the name now. Another lock is left to the next pass, after the time-out was checked: whoever
// replaces the lock all the time must not keep us here. So is one that a busy machine has kept us from for so long that
// others may be removing it, too.
bool LockWait::remove() const {
    LockEntry present;
    const LockEntry::Kind kind = present.look(lock_);
    if (kind == LockEntry::Kind::none || kind == LockEntry::Kind::unreadable)
        return false;
    return is_same_file(present.status(), entry_.status()) && Tick_Diff(removing_since_) <= kRemovalTimeMs &&
           unlink(lock_) == 0;
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

}  // namespace korvex::fileio
