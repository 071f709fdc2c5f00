// What else than a file may stand at a lock's name, and how the wait goes on then. What a user can gain by it: the suite
// tests/neighbours.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "fileio.h"
#include "lock_waiters.h"
#include "log_capture.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uid_t kOther = 65534;

class LockEntryTest : public WaitingTest {
  protected:
    std::string target() const { return folder_.path("target"); }
    void plant_link(const std::string &to) const { ASSERT_EQ(symlink(to.c_str(), lock_.c_str()), 0); }
    void give_away(const std::string &name) const { ASSERT_EQ(lchown(name.c_str(), kOther, kOther), 0); }

    // The wait succeeds after 2001 milliseconds, and says that the content was invalid.
    void expect_removal_as_never_filled() const {
        LogCapture log;
        const FakeClock clock(kNow);
        EXPECT_EQ(wait(10'000), GetParam().success());
        EXPECT_EQ(clock.sleeps(), 2001);
        EXPECT_THAT(log.messages(), ElementsAre(testing::HasSubstr("because invalid content and timeout")));
    }
};

using LinkAsLock = LockEntryTest;
using LockThatIsNoFile = LockEntryTest;
using LeasedLock = LockEntryTest;

INSTANTIATE_TEST_SUITE_P(All, LinkAsLock, testing::ValuesIn(kWaiters), name_of);
INSTANTIATE_TEST_SUITE_P(All, LockThatIsNoFile, testing::ValuesIn(kWaiters), name_of);
INSTANTIATE_TEST_SUITE_P(All, LeasedLock, testing::ValuesIn(kWaiters), name_of);

}  // namespace

TEST_P(LinkAsLock, of_somebody_else_is_not_followed_and_waited_for) {
    for (const std::string &content : {live_lock(), lock_bytes(kNow, -1), std::string()}) {
        SCOPED_TRACE(content.size());
        write_file(target(), content);
        plant_link(target());
        give_away(lock_);
        const CountCalls reads(Call::read);

        expect_time_out(3000);

        EXPECT_EQ(reads.count(), 0);
        EXPECT_EQ(read_file(target()), content);
        unlink(lock_.c_str());
    }
}

// What it leads to is not even looked for.
TEST_P(LinkAsLock, of_somebody_else_that_leads_nowhere_is_waited_for) {
    plant_link(target());
    give_away(lock_);
    expect_time_out(5);
    EXPECT_FALSE(exists(target()));
}

TEST_P(LinkAsLock, of_our_own_is_followed) {
    write_file(target(), live_lock());
    for (const std::string &text : {target(), std::string("up/../") + "target"}) {
        SCOPED_TRACE(text);
        // A relative text counts from the folder that the link stands in.
        const bool relative = text[0] != '/';
        const std::string folder = lock_.substr(0, lock_.rfind('/'));
        if (relative) {
            ASSERT_EQ(mkdir((folder + "/up").c_str(), 0700), 0);
            write_file(folder + "/target", live_lock());
        }
        plant_link(text);

        write_file(target(), live_lock());
        expect_time_out(5);
        {
            const FakeClock clock(kNow);
            write_file(relative ? folder + "/target" : target(), lock_bytes(kNow, -1));
            EXPECT_EQ(wait(0), GetParam().success());
        }

        struct stat status {};
        EXPECT_TRUE(lstat(lock_.c_str(), &status) != 0 || S_ISREG(status.st_mode));  // the link went
        EXPECT_TRUE(exists(target()));                                               // and what it led to stayed
        unlink(lock_.c_str());
        if (relative) {
            rmdir((folder + "/up").c_str());
            unlink((folder + "/target").c_str());
        }
    }
}

TEST_P(LinkAsLock, of_our_own_to_one_of_somebody_else_is_not_followed_on) {
    const std::string theirs = folder_.path("theirs");
    write_file(target(), lock_bytes(kNow, -1));
    ASSERT_EQ(symlink(target().c_str(), theirs.c_str()), 0);
    give_away(theirs);
    plant_link(theirs);
    const CountCalls reads(Call::read);

    expect_time_out(3000);

    EXPECT_EQ(reads.count(), 0);
}

TEST_P(LinkAsLock, of_our_own_to_itself_ends) {
    plant_link(lock_);
    if (GetParam().takes)
        expect_time_out(5);
    else
        EXPECT_EQ(wait(5), 0);
}

TEST_P(LinkAsLock, of_somebody_else_in_the_place_of_a_judged_lock_stays) {
    write_file(target(), lock_bytes(kNow, -1));
    write_file(lock_, lock_bytes(kNow, -1));
    const BeforeCall swap(Call::flock, 1, [&] {
        unlink(lock_.c_str());
        plant_link(target());
        give_away(lock_);
    });

    expect_time_out(20);

    EXPECT_TRUE(swap.ran());
    EXPECT_EQ(read_file(target()), lock_bytes(kNow, -1));
}

TEST_P(LockThatIsNoFile, a_pipe_is_neither_opened_nor_read) {
    ASSERT_EQ(mkfifo(lock_.c_str(), 0666), 0);
    const int pipe = open(lock_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_EQ(write(pipe, live_lock().data(), live_lock().size()), 16);
    const CountCalls reads(Call::read);

    expect_removal_as_never_filled();

    EXPECT_EQ(reads.count(), 0);
    std::string left(16, '\0');
    EXPECT_EQ(read(pipe, left.data(), left.size()), 16);
    EXPECT_EQ(left, live_lock());
    close(pipe);
}

// Sixteen zero bytes would be the lock of a process that does not exist.
TEST_P(LockThatIsNoFile, a_device_is_neither_opened_nor_read) {
    ASSERT_EQ(mknod(lock_.c_str(), S_IFCHR | 0666, makedev(1, 5)), 0);
    const CountCalls reads(Call::read);
    expect_removal_as_never_filled();
    EXPECT_EQ(reads.count(), 0);
}

TEST_P(LockThatIsNoFile, a_socket_is_waited_for) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(lock_.size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, lock_.c_str());
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);

    expect_time_out(3000);

    EXPECT_TRUE(exists(lock_));
    close(listener);
}

TEST_P(LockThatIsNoFile, a_folder_is_waited_for_and_no_removal_is_told) {
    ASSERT_EQ(mkdir(lock_.c_str(), 0700), 0);
    LogCapture log;
    const FakeClock clock(kNow);

    EXPECT_EQ(wait(10'000), 0);

    EXPECT_EQ(clock.sleeps(), 10'001);
    EXPECT_THAT(log.messages(), ElementsAre(timed_out(GetParam(), lock_, 10'000)));
}

// What was a file when it was looked at is a pipe when it is opened.
TEST_P(LockThatIsNoFile, a_pipe_in_the_place_of_the_file_that_was_seen_is_not_read) {
    write_file(lock_, live_lock());
    const CountCalls reads(Call::read);
    int pipe = -1;
    const BeforeCall swap(Call::open, GetParam().reading_open(), [&] {
        unlink(lock_.c_str());
        ASSERT_EQ(mkfifo(lock_.c_str(), 0666), 0);
        pipe = open(lock_.c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(write(pipe, live_lock().data(), 16), 16);
    });

    expect_time_out(5);

    EXPECT_TRUE(swap.ran());
    EXPECT_EQ(reads.count(), 0);
    close(pipe);
}

// A lease is broken within 45 seconds or so; no wait for a lock is prolonged by that.
TEST_P(LeasedLock, is_waited_for_no_longer_than_the_time_out) {
    write_file(lock_, lock_bytes(kNow, -1));
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = start_child([&] {
        signal(SIGIO, SIG_IGN);
        const int file = open(lock_.c_str(), O_RDWR | O_CLOEXEC);
        if (fcntl(file, F_SETLEASE, F_WRLCK) != 0 || write(ready[1], "x", 1) != 1)
            return 1;
        return pause();
    });
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1) << "no lease to be had";

    expect_time_out(20);

    kill(holder, SIGKILL);
    wait_for(holder);
    close(ready[0]);
    // The first look asked for the lease to be broken, and its holder is gone.
    const FakeClock clock(kNow);
    EXPECT_EQ(wait(1000), GetParam().success());
}
