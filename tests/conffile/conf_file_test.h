// A configuration file for the tests of the file functions, and what each of their calls must leave behind: no lock,
// no temporary file and no open descriptor.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include "conf_lists.h"
#include "conffile.h"
#include "faults.h"
#include "sandbox.h"

inline struct stat status_of(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

// The fchmod of a new file that is in its place. There is one before its first byte, too.
constexpr int kLastMode = 2;

inline unsigned mode_of(const std::string &path) {
    return status_of(path).st_mode & 07777U;
}

// What tells whether a file was touched: a file that was written anew has another inode.
struct FileState {
    std::string content;
    ino_t inode;
    mode_t mode;
    int64_t modified;
    bool operator==(const FileState &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const FileState &state) {
    return out << testing::PrintToString(state.content.substr(0, 200)) << " of " << state.content.size()
               << " bytes, inode " << state.inode << ", mode " << state.mode << ", modified " << state.modified;
}

inline FileState state_of(const std::string &path) {
    const struct stat status = status_of(path);
    return {support::read_file(path), status.st_ino, status.st_mode,
            status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec};
}

// What a call returned and what it said.
struct Outcome {
    int32_t result;
    lists::Messages messages;
    bool operator==(const Outcome &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
    return out << outcome.result << " " << testing::PrintToString(outcome.messages);
}

inline Outcome observe(const std::function<int32_t()> &call, int32_t level = 3) {
    Outcome outcome{};
    outcome.messages = lists::messages_at(level, [&] { outcome.result = call(); });
    return outcome;
}

// Runs `call` with the first, the second, ... allocation failing, until one run needs no more; `check` judges every
// run that met a failure by the call's result.
inline void with_each_allocation_failing(const std::function<void()> &prepare, const std::function<int32_t()> &call,
                                         const std::function<void(int32_t)> &check) {
    for (int nth = 1, failed = 1; failed != 0; nth++) {
        SCOPED_TRACE(testing::Message() << "allocation " << nth);
        prepare();
        int32_t result = 0;
        {
            const support::FailCall fault(support::Call::allocation, ENOMEM, nth);
            result = call();
            failed = fault.failed();
        }
        if (failed != 0)
            check(result);
    }
}

// A held lock whose holder is alive.
class ForeignLock {
  public:
    ForeignLock(std::string path, uint64_t taken_at) : path_(std::move(path)) {
        struct Content {
            uint64_t taken_at;
            int32_t holder;
            int32_t reserved;
        };
        const Content content{taken_at, getpid(), 0};
        support::write_file(path_, std::string(reinterpret_cast<const char *>(&content), sizeof content));
        state_ = state_of(path_);
    }
    ~ForeignLock() {
        EXPECT_EQ(state_of(path_), state_) << "somebody else's lock was touched";
        unlink(path_.c_str());
    }
    ForeignLock(const ForeignLock &) = delete;
    ForeignLock &operator=(const ForeignLock &) = delete;

  private:
    std::string path_;
    FileState state_;
};

// An empty file system over a folder, for as long as the object lives.
class HiddenFolder {
  public:
    explicit HiddenFolder(const char *path) : path_(path) {
        EXPECT_EQ(mount("korvex-test", path, "tmpfs", 0, "size=1m"), 0);
    }
    ~HiddenFolder() { umount2(path_, MNT_DETACH); }
    HiddenFolder(const HiddenFolder &) = delete;
    HiddenFolder &operator=(const HiddenFolder &) = delete;

  private:
    const char *path_;
};

// Memory that a test shares with the processes that it starts.
template <typename T>
class Shared {
  public:
    Shared() : value_(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T()) {}
    ~Shared() { munmap(value_, sizeof(T)); }
    Shared(const Shared &) = delete;
    Shared &operator=(const Shared &) = delete;
    T *get() const { return value_; }
    T *operator->() const { return value_; }

  private:
    T *value_;
};

// A process that works until it is told to stop, and no longer than the test itself.
inline pid_t start_endless_child(const std::function<int()> &body) {
    return support::start_child([&body] {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        return body();
    });
}

// Gives up what makes root pass every permission check; for a child process only.
inline void give_up_privileges() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3]{};
    EXPECT_EQ(syscall(SYS_capset, &header, none), 0);
}

class ConfFileTest : public testing::Test {
  protected:
    void TearDown() override { expect_nothing_left(); }

    void expect_nothing_left() const {
        EXPECT_FALSE(support::exists(lock_));
        EXPECT_EQ(support::open_descriptors(), descriptors_);
        for (const std::string &name : folder_.names())
            EXPECT_THAT(name, testing::Not(testing::HasSubstr(".tmp")));
    }

    // The lock is there at the first read of the file and when its successor gets the mode.
    void expect_lock_from_read_to_mode(const std::function<int32_t()> &change) const {
        write("[a]\n");
        const auto held = [this] { EXPECT_TRUE(support::exists(lock_)); };
        const support::BeforeCall at_read(support::Call::read, 1, held);
        const support::BeforeCall at_fchmod(support::Call::fchmod, kLastMode, held);
        EXPECT_EQ(change(), 0);
        EXPECT_TRUE(at_read.ran());
        EXPECT_TRUE(at_fchmod.ran());
    }

    void write(const std::string &content) const { support::write_file(path_, content); }
    std::string content() const { return support::read_file(path_); }

    // A path of exactly `length` characters to the same file.
    std::string path_of_length(size_t length) const {
        const std::string folder = folder_.path() + std::string((length - folder_.path().size()) % 2, '/');
        std::string path = folder;
        while (path.size() + sizeof "/app.conf" - 1 < length)
            path += "/.";
        return path.substr(0, length - sizeof "/app.conf" + 1) + "/app.conf";
    }

    support::TempFolder folder_;
    const std::string path_ = folder_.path("app.conf");
    const char *const file_ = path_.c_str();
    const std::string lock_ = "/var/lock/_app.conf.lck";
    const std::map<int, std::string> descriptors_ = support::open_descriptors();
};
