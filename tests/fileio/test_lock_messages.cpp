// What the lock functions write to the library's log, and when: nobody waits for a message, neither they nor those who
// want the same lock.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <regex>
#include <string>

#include "fileio.h"
#include "lock_waiters.h"
#include "log_capture.h"
#include "simplog.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The library's log is a file whose own lock somebody holds.
class BusyLog {
  public:
    explicit BusyLog(const TempFolder &folder) : path_(folder.path("app.log")) {
        EXPECT_EQ(Simp_Log_Create(path_.c_str(), &log_, 24, 3, 0), 0);
        EXPECT_EQ(Simp_Log_Open(log_, 0), 0);
        write_file(kLock, live_lock());
        g_ptslLog = log_;
        g_idLogLevel = 3;
    }
    ~BusyLog() {
        g_ptslLog = nullptr;
        g_idLogLevel = 1;
        Simp_Log_Release(log_);
        unlink(kLock);
    }
    BusyLog(const BusyLog &) = delete;
    BusyLog &operator=(const BusyLog &) = delete;

    Simp_Log *get() const { return log_; }

    // Its lines without their stamps and source lines.
    std::string text() const {
        const std::regex varying(R"(\[[-0-9]{10} [:0-9]{8}\] (\[[a-z]+\] \w+)\(\d+\))");
        return std::regex_replace(read_file(path_), varying, "$1(#)");
    }

    static constexpr const char *kLock = "/var/lock/app.log.lck";

  private:
    std::string path_;
    Simp_Log *log_ = nullptr;
};

class LockMessages : public WaitingTest {
  protected:
    std::string removed_for(int32_t holder) const {
        return std::string("[debug] ") + GetParam().name + "(#): Remove \"" + lock_ + "\" because proc " +
               std::to_string(holder) + " is not existed!\n";
    }
    void make_stale_lock() const { write_file(lock_, lock_bytes(kNow, -1)); }
};

using LockMessagesOfTaking = LockMessages;
using LockMessagesOfStreams = LockTest;

INSTANTIATE_TEST_SUITE_P(All, LockMessages, testing::ValuesIn(kWaiters), name_of);
INSTANTIATE_TEST_SUITE_P(All, LockMessagesOfTaking, testing::Values(kWaiters[0], kWaiters[1]), name_of);

}  // namespace

TEST_P(LockMessages, of_a_time_out_do_not_wait_for_the_logs_lock) {
    const FakeClock clock(kNow);
    const BusyLog log(folder_);
    write_file(lock_, live_lock());

    EXPECT_EQ(wait(0), 0);

    EXPECT_EQ(clock.sleeps(), 1);
    EXPECT_EQ(log.text(), timed_out(GetParam(), lock_, 0));
}

TEST_P(LockMessages, of_a_removal_do_not_wait_for_the_logs_lock) {
    const FakeClock clock(kNow);
    const BusyLog log(folder_);
    make_stale_lock();

    EXPECT_EQ(wait(0), GetParam().success());

    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_EQ(log.text(), removed_for(-1));
}

TEST_P(LockMessagesOfTaking, of_content_that_cannot_be_written_do_not_wait_for_the_logs_lock) {
    const FakeClock clock(kNow);
    const BusyLog log(folder_);
    const FailCall fault(Call::write, ENOSPC);
    // The lock that this call made keeps nobody away while the message is written.
    bool there = true;
    const BeforeCall look(Call::fwrite, 1, [&] { there = exists(lock_); });

    EXPECT_EQ(wait(0), 0);

    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_FALSE(there);
    EXPECT_EQ(log.text(), std::string("[error] ") + GetParam().name + "(#): Can't write lock file \"" + lock_ +
                              "\" content error!\n");
}

TEST_F(LockMessagesOfStreams, do_not_wait_for_the_logs_lock) {
    const FakeClock clock(kNow);
    const BusyLog log(folder_);
    write_file("/var/lock/_conf.lck", live_lock());
    FILE *stream = nullptr;

    EXPECT_EQ(Open_Shared_File(path_.c_str(), "r", &stream), -ETIME);

    EXPECT_EQ(clock.sleeps(), 10'001);
    EXPECT_EQ(log.text(), timed_out(kWaiters[0], "/var/lock/_conf.lck", 10'000) +
                              "[debug] Open_Shared_File(#): Can't get file lock of " + path_ + " error!\n");
}

TEST_P(LockMessages, leave_the_wait_of_other_messages_as_it_is) {
    const FakeClock clock(kNow);
    const BusyLog log(folder_);
    write_file(lock_, live_lock());
    EXPECT_EQ(wait(0), 0);
    ASSERT_EQ(clock.sleeps(), 1);

    EXPECT_EQ(Simp_Log_Write(log.get(), "text"), 0);
    EXPECT_EQ(clock.sleeps(), 1 + 10'001);
}

TEST_P(LockMessages, that_cannot_be_written_are_reported_as_any_other) {
    const FakeClock clock(kNow);
    const BusyLog log(folder_);
    write_file(lock_, live_lock());
    const FailCall fault(Call::fwrite, ENOSPC);

    EXPECT_EQ(wait(0), 0);

    EXPECT_EQ(clock.sleeps(), 1);
    EXPECT_THAT(log.text(),
                testing::MatchesRegex("\\[error\\] Simp_Log_Write\\(#\\): Can't write [0-9]+ bytes to the log "
                                      "file. \\(0\\)\n"));
}

TEST_P(LockMessages, of_a_removal_come_when_the_lock_is_gone_and_its_claim_given_back) {
    const LogCapture log;
    const FakeClock clock(kNow);
    make_stale_lock();
    const int judged = open(lock_.c_str(), O_RDONLY | O_CLOEXEC);
    bool there = true;
    int claim = -1;
    const BeforeCall message(Call::fwrite, 1, [&] {
        there = exists(lock_);
        claim = flock(judged, LOCK_EX | LOCK_NB);
    });

    EXPECT_EQ(wait(0), GetParam().success());

    EXPECT_TRUE(message.ran());
    EXPECT_FALSE(there);
    EXPECT_EQ(claim, 0);
    close(judged);
}

TEST_P(LockMessages, say_nothing_of_a_removal_that_failed) {
    const FailCall fault(Call::unlink, EPERM, 1, 1000);
    LogCapture log;
    const FakeClock clock(kNow);
    make_stale_lock();

    EXPECT_EQ(wait(5), 0);

    EXPECT_THAT(log.messages(), ElementsAre(timed_out(GetParam(), lock_, 5)));
}

TEST_P(LockMessages, say_nothing_of_a_lock_that_somebody_else_removed) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_stale_lock();
    const BeforeCall first(Call::flock, 1, [&] { unlink(lock_.c_str()); });

    EXPECT_EQ(wait(0), GetParam().success());

    EXPECT_TRUE(first.ran());
    EXPECT_THAT(log.messages(), IsEmpty());
}
