// The three functions that wait for a lock, in one form: what holds for one holds for all.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <string>

#include "faults.h"
#include "fileio.h"
#include "lock_content.h"
#include "log_capture.h"
#include "sandbox.h"

namespace fileio_test {

using namespace support;

constexpr uint64_t kNow = 1'700'000'000'123;

// The path that is locked is always `folder`/conf.
struct Waiter {
    const char *name;
    int32_t (*wait)(const char *path, int32_t timeout);
    bool takes;  // it makes the lock where there is none, and then answers 1

    std::string lock(const TempFolder &folder) const {
        if (wait == Get_File_Lock_Ex)
            return folder.path("conf.lck");
        return takes ? "/var/lock/_conf.lck" : "/var/lock/conf.lck";
    }
    // What it answers once nobody else holds the lock.
    int32_t success() const { return takes ? 1 : 0; }
    // Which call of `open` in a pass looks into the lock: where locks are taken, the first tries to make it.
    int reading_open() const { return takes ? 2 : 1; }

    friend std::ostream &operator<<(std::ostream &out, const Waiter &waiter) { return out << waiter.name; }
};

constexpr Waiter kWaiters[] = {
    {"Get_File_Lock", Get_File_Lock, true},
    {"Get_File_Lock_Ex", Get_File_Lock_Ex, true},
    {"Check_File_Lock", Check_File_Lock, false},
};

// What a lock held by this process since `now` looks like.
inline std::string live_lock(uint64_t now = kNow) {
    return lock_bytes(static_cast<int64_t>(now), getpid());
}

// A wait that ends by its time-out asks once more than it has milliseconds, and sleeps between.
inline std::string timed_out(const Waiter &waiter, const std::string &lock, int32_t timeout) {
    return std::string("[error] ") + waiter.name + "(#): Get lock file \"" + lock + "\" timeout! (" +
           std::to_string(timeout + 1) + " < " + std::to_string(timeout) + ")\n";
}

// The world of one test: an empty /var/lock, a folder of its own, and no descriptor left open at the end.
class LockWorld {
  protected:
    LockWorld() { empty_lock_folder(); }
    ~LockWorld() { EXPECT_EQ(open_descriptors(), before_); }
    LockWorld(const LockWorld &) = delete;
    LockWorld &operator=(const LockWorld &) = delete;

    TempFolder folder_;
    const std::string path_ = folder_.path("conf");

  private:
    const std::map<int, std::string> before_ = open_descriptors();
};

class LockTest : public testing::Test, protected LockWorld {};

// A test of each function that waits.
class WaitingTest : public testing::TestWithParam<Waiter>, protected LockWorld {
  protected:
    int32_t wait(int32_t timeout) const { return GetParam().wait(path_.c_str(), timeout); }

    // A wait for the lock as it is sleeps once a millisecond, and reports its time-out and no other error.
    void expect_time_out(int32_t timeout) const {
        LogCapture log(1);
        const FakeClock clock(kNow);
        EXPECT_EQ(wait(timeout), 0);
        EXPECT_EQ(clock.sleeps(), timeout + 1);
        EXPECT_THAT(log.messages(), testing::ElementsAre(timed_out(GetParam(), lock_, timeout)));
    }

    // Runs `body` as a user without rights, for whom there is room in the folder.
    void without_rights(const std::function<void()> &body) const {
        EXPECT_EQ(chmod(folder_.path().c_str(), 01777), 0);
        if (!can_be_nobody())
            GTEST_SKIP() << "only a privileged program can become another user";
        EXPECT_EQ(in_child_as_nobody([&] {
                      body();
                      return HasFailure() ? 1 : 0;
                  }),
                  0);
    }

    const std::string lock_ = GetParam().lock(folder_);
};

inline std::string name_of(const testing::TestParamInfo<Waiter> &info) {
    return info.param.name;
}

}  // namespace fileio_test
