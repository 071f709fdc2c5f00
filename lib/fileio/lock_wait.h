// The wait for a lock: pass by pass, it looks at what stands there, judges it and removes what is stale.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "lock_entry.h"
#include "miscfunc.h"

namespace korvex::fileio {

// What a lock file holds, written in one piece.
struct LockContent {
    int64_t waiting_since;  // tick at which the holder began to wait
    int32_t holder;
    int32_t reserved;
};
static_assert(sizeof(LockContent) == 16);

// One call's wait for one lock file. A pass begins with `sees_lock` and ends with `next_pass`.
class LockWait final {
  public:
    // `function` is the one that the user called: messages name it.
    LockWait(const char *lock, int32_t timeout_ms, const char *function)
        : lock_(lock), timeout_ms_(timeout_ms), function_(function) {}

    // Whether something stands at the lock's name.
    [[nodiscard]] bool sees_lock() { return entry_.look(lock_) != LockEntry::Kind::none; }

    // Removes what was seen if it is stale, else sleeps. False when the time is over.
    [[nodiscard]] bool next_pass();

    uint64_t start() const { return start_; }

  private:
    // Why a lock is to go.
    struct Fault {
        enum class Kind { none, dead_holder, expired, never_filled };

        Kind kind = Kind::none;
        int64_t number = 0;  // what the message shows: the holder, the age, or a marker
    };

    bool remove_if_stale();
    bool remove_if_stale(Fault &fault);
    Fault find_fault(int descriptor);
    Fault find_fault_of_unfilled();
    bool claim(int descriptor);
    bool remove() const;
    void report(const Fault &fault) const;

    const char *lock_;
    int32_t timeout_ms_;
    const char *function_;
    uint64_t start_ = Tick_Diff(0);
    LockEntry entry_;

    // When this wait first saw the lock incomplete (0: never), and the file's modification time then, in seconds and 32
    // bits.
    uint64_t unfilled_since_ = 0;
    int32_t unfilled_mtime_ = 0;

    uint64_t removing_since_ = 0;  // when the claim was had

    // The stale file that another waiter is about to remove, and since when (0: there is none).
    uint64_t claimed_since_ = 0;
    dev_t claimed_device_ = 0;
    ino_t claimed_inode_ = 0;
};

}  // namespace korvex::fileio
