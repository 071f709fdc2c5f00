// Which locks are stale, how they are removed, and that nobody else's lock is removed with them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <string>

#include "fileio.h"
#include "lock_waiters.h"
#include "log_capture.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int64_t kTenMinutes = 600'000;
constexpr int64_t kOldSeconds = 1'600'000'000;  // a modification time
constexpr int kAlways = INT_MAX / 2;

class StaleTest : public WaitingTest {
  protected:
    std::string debug(const std::string &text) const {
        return std::string("[debug] ") + GetParam().name + "(#): " + text + "\n";
    }
    std::string no_process(int64_t pid) const {
        return debug("Remove \"" + lock_ + "\" because proc " + std::to_string(pid) + " is not existed!");
    }
    std::string expired(int64_t age) const {
        return debug("Remove \"" + lock_ + "\" because time expired (" + std::to_string(age) + ")!");
    }
    // The number that stands in this message: milliseconds now, less seconds times 100.
    std::string invalid(uint64_t now, int64_t seconds) const {
        return debug("Remove \"" + lock_ + "\" because invalid content and timeout (" +
                     std::to_string(static_cast<int64_t>(now) - seconds * 100) + ")!");
    }

    void make_lock(int64_t began, int32_t holder) const { write_file(lock_, lock_bytes(began, holder)); }
    void make_invalid(const std::string &content, int64_t seconds = kOldSeconds) const {
        write_file(lock_, content);
        set_modified(seconds);
    }
    void set_modified(int64_t seconds) const {
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, lock_.c_str(), times, 0), 0);
    }
    // Puts another file in the place of the one that is there.
    void replace_lock(const std::string &content) const {
        write_file(lock_ + ".new", content);
        EXPECT_EQ(rename((lock_ + ".new").c_str(), lock_.c_str()), 0);
    }

    // The wait succeeded, without a sleep, and the lock is gone or now this process's.
    void expect_taken_over() const {
        if (GetParam().takes)
            EXPECT_EQ(parse_lock(read_file(lock_)).holder, getpid());
        else
            EXPECT_FALSE(exists(lock_));
    }
};

using StaleLock = StaleTest;
using InvalidLock = StaleTest;
using LockRemoval = StaleTest;
using LockRace = StaleTest;

INSTANTIATE_TEST_SUITE_P(All, StaleLock, testing::ValuesIn(kWaiters), name_of);
INSTANTIATE_TEST_SUITE_P(All, InvalidLock, testing::ValuesIn(kWaiters), name_of);
INSTANTIATE_TEST_SUITE_P(All, LockRemoval, testing::ValuesIn(kWaiters), name_of);
INSTANTIATE_TEST_SUITE_P(All, LockRace, testing::ValuesIn(kWaiters), name_of);

}  // namespace

TEST_P(StaleLock, a_dead_holders_lock_is_removed_at_once) {
    const struct {
        const char *what;
        int32_t pid;
    } table[] = {{"dead", dead_process()}, {"impossible", INT_MAX}, {"none", 0}, {"any", -1},
                 {"own group", -getpid()}, {"lowest", INT_MIN}};

    for (const auto &row : table)
        for (const int64_t age : {int64_t{0}, kTenMinutes - 1, kTenMinutes, int64_t{-1}}) {
            SCOPED_TRACE(testing::Message() << row.what << " holder, age " << age);
            LogCapture log;
            const FakeClock clock(kNow);
            make_lock(static_cast<int64_t>(kNow) - age, row.pid);

            EXPECT_EQ(wait(0), GetParam().success());

            EXPECT_EQ(clock.sleeps(), 0);
            EXPECT_THAT(log.messages(), ElementsAre(no_process(row.pid)));
            expect_taken_over();
        }
}

TEST_P(StaleLock, a_live_holders_lock_is_removed_from_ten_minutes_on) {
    const auto now = static_cast<int64_t>(kNow);
    const struct {
        int64_t began;
        int64_t age;  // as the message shows it
    } table[] = {
        {now - kTenMinutes, kTenMinutes},
        {now - kTenMinutes - 1, kTenMinutes + 1},
        {0, now},
        {-1, now + 1},
        {INT64_MIN, INT64_MIN + now},
        // A stamp in the future is one that is very old.
        {now + 1, -1},
        {now + kTenMinutes, -kTenMinutes},
        {INT64_MAX, INT64_MIN + now + 1},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.began);
        LogCapture log;
        const FakeClock clock(kNow);
        make_lock(row.began, getpid());

        EXPECT_EQ(wait(0), GetParam().success());

        EXPECT_EQ(clock.sleeps(), 0);
        EXPECT_THAT(log.messages(), ElementsAre(expired(row.age)));
        expect_taken_over();
    }
}

TEST_P(StaleLock, a_live_holders_lock_is_kept_up_to_599999_milliseconds) {
    LogCapture log;
    const FakeClock clock(kNow);
    const auto began = static_cast<int64_t>(kNow) - kTenMinutes + 2;
    make_lock(began, getpid());

    EXPECT_EQ(wait(0), 0);  // judged at 599998 and 599999

    EXPECT_EQ(read_file(lock_), lock_bytes(began, getpid()));
    EXPECT_THAT(log.messages(), ElementsAre(timed_out(GetParam(), lock_, 0)));
}

TEST_P(StaleLock, a_lock_can_expire_during_the_wait) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_lock(static_cast<int64_t>(kNow) - kTenMinutes + 3, getpid());

    EXPECT_EQ(wait(10'000), GetParam().success());

    EXPECT_EQ(clock.sleeps(), 3);
    EXPECT_THAT(log.messages(), ElementsAre(expired(kTenMinutes)));
    expect_taken_over();
}

TEST_P(StaleLock, a_holder_can_die_during_the_wait) {
    LogCapture log;
    const FakeClock clock(kNow);
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const pid_t holder = start_child([&] {
        char byte = 0;
        close(pipe_ends[1]);
        return read(pipe_ends[0], &byte, 1) == 0 ? 0 : 1;
    });
    make_lock(kNow, holder);
    const BeforeCall die(Call::kill, 20, [&] {
        close(pipe_ends[1]);
        EXPECT_EQ(wait_for(holder), 0);
    });

    EXPECT_EQ(wait(10'000), GetParam().success());

    EXPECT_EQ(clock.sleeps(), 19);
    EXPECT_THAT(log.messages(), ElementsAre(no_process(holder)));
    close(pipe_ends[0]);
}

TEST_P(StaleLock, a_holder_that_may_not_be_signalled_counts_as_dead) {
    const pid_t holder = getpid();
    without_rights([&] {
        LogCapture log;
        const FakeClock clock(kNow);
        make_lock(kNow, holder);
        EXPECT_EQ(wait(0), GetParam().success());
        EXPECT_EQ(clock.sleeps(), 0);
        EXPECT_THAT(log.messages(), ElementsAre(no_process(holder)));
        expect_taken_over();
    });
}

// The message is chosen by asking a second time.
TEST_P(StaleLock, a_holder_that_is_there_when_asked_again_makes_it_an_expired_lock) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_lock(kNow - 77, getpid());
    const FailCall fault(Call::kill, EPERM, 1, 1);

    EXPECT_EQ(wait(0), GetParam().success());

    EXPECT_EQ(fault.failed(), 1);
    EXPECT_THAT(log.messages(), ElementsAre(expired(77)));
}

TEST_P(StaleLock, only_16_bytes_count) {
    for (const size_t more : {1, 16, 4096}) {
        LogCapture log;
        write_file(lock_, lock_bytes(kNow, -1) + std::string(more, 'x'));
        EXPECT_EQ(wait(0), GetParam().success());
        EXPECT_THAT(log.messages(), ElementsAre(no_process(-1)));
    }
}

TEST_P(StaleLock, the_reserved_bytes_do_not_count) {
    const FakeClock clock(kNow);
    const std::string content = live_lock().substr(0, 12) + "\xff\xff\xff\xff";
    write_file(lock_, content);
    EXPECT_EQ(wait(10), 0);
    EXPECT_EQ(read_file(lock_), content);
}

TEST_P(StaleLock, removal_messages_are_for_the_debug_level) {
    for (const int32_t level : {1, 2}) {
        LogCapture log(level);
        make_lock(kNow, -1);
        EXPECT_EQ(wait(0), GetParam().success());
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_P(StaleLock, after_a_removal_there_is_neither_a_sleep_nor_a_time_out) {
    // A wait that removes one stale lock ends with this call, which finds no lock.
    const Call last_call = GetParam().takes ? Call::open : Call::lstat;
    const CountCalls calls(last_call);
    make_lock(kNow, -1);
    ASSERT_EQ(wait(0), GetParam().success());
    const auto last = static_cast<int>(calls.count());

    FakeClock clock(kNow);
    make_lock(kNow, -1);
    const BeforeCall another(last_call, last, [&] {
        make_lock(kNow, -2);
        clock.advance(50);
    });
    EXPECT_EQ(wait(0), GetParam().success());

    EXPECT_TRUE(another.ran());
    EXPECT_EQ(clock.sleeps(), 0);
    expect_taken_over();
}

TEST_P(InvalidLock, is_removed_after_more_than_2000_milliseconds) {
    for (const std::string &content : {std::string(), std::string("x"), std::string(8, '\0'), std::string(15, 'x')}) {
        SCOPED_TRACE(content.size());
        LogCapture log;
        const FakeClock clock(kNow);
        make_invalid(content);

        EXPECT_EQ(wait(10'000), GetParam().success());

        EXPECT_EQ(clock.sleeps(), 2001);
        EXPECT_THAT(log.messages(), ElementsAre(invalid(kNow + 2001, kOldSeconds)));
        expect_taken_over();
    }
}

TEST_P(InvalidLock, is_still_there_where_the_time_out_comes_first) {
    const struct {
        int32_t timeout;
        bool removed;
    } table[] = {{0, false}, {1999, false}, {2000, true}, {2001, true}, {-1, true}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.timeout);
        LogCapture log;
        const FakeClock clock(kNow);
        make_invalid("");

        EXPECT_EQ(wait(row.timeout), row.removed ? GetParam().success() : 0);

        EXPECT_EQ(clock.sleeps(), row.removed ? 2001 : row.timeout + 1);
        EXPECT_THAT(log.messages(), ElementsAre(row.removed ? invalid(kNow + 2001, kOldSeconds)
                                                            : timed_out(GetParam(), lock_, row.timeout)));
    }
}

TEST_P(InvalidLock, the_message_mixes_milliseconds_and_seconds) {
    for (const int64_t seconds : {int64_t{0}, int64_t{-5}, int64_t{1'700'000'002}, int64_t{INT32_MAX}}) {
        SCOPED_TRACE(seconds);
        LogCapture log;
        const FakeClock clock(kNow);
        make_invalid("", seconds);
        EXPECT_EQ(wait(-1), GetParam().success());
        EXPECT_THAT(log.messages(), ElementsAre(invalid(kNow + 2001, seconds)));
    }
}

// The observed time is kept in 32 bits, so a later one never looks unchanged.
TEST_P(InvalidLock, with_a_time_beyond_32_bits_never_goes) {
    for (const int64_t seconds : {int64_t{INT32_MAX} + 1, int64_t{5'000'000'000}}) {
        SCOPED_TRACE(seconds);
        LogCapture log;
        const FakeClock clock(kNow);
        make_invalid("", seconds);
        struct stat status {};
        ASSERT_EQ(stat(lock_.c_str(), &status), 0);
        if (status.st_mtime != seconds)
            GTEST_SKIP() << "the file system has no such times";

        EXPECT_EQ(wait(10'000), 0);

        EXPECT_TRUE(exists(lock_));
        EXPECT_THAT(log.messages(), ElementsAre(timed_out(GetParam(), lock_, 10'000)));
    }
}

TEST_P(InvalidLock, a_change_starts_the_2000_milliseconds_anew) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_invalid("");
    const BeforeCall rewrite(Call::read, 1500, [&] { make_invalid("xy", kOldSeconds + 1); });

    EXPECT_EQ(wait(10'000), GetParam().success());

    EXPECT_EQ(clock.sleeps(), 2001 + 2001);
    EXPECT_THAT(log.messages(), ElementsAre(invalid(kNow + 4002, kOldSeconds + 1)));
}

TEST_P(InvalidLock, a_change_within_the_same_second_is_none) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_invalid("");
    const BeforeCall rewrite(Call::read, 1500, [&] { replace_lock("xy"), set_modified(kOldSeconds); });

    EXPECT_EQ(wait(10'000), GetParam().success());

    EXPECT_EQ(clock.sleeps(), 2001);
}

TEST_P(InvalidLock, the_observation_outlives_valid_content) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_invalid("");
    const BeforeCall fill(Call::read, 101, [&] { write_file(lock_, live_lock()); });
    // From the 3001st pass on it is empty again, as if nothing had been.
    const BeforeCall empty(Call::kill, 2900, [&] { make_invalid(""); });

    EXPECT_EQ(wait(10'000), GetParam().success());

    EXPECT_TRUE(empty.ran());
    EXPECT_EQ(clock.sleeps(), 3000);
    EXPECT_THAT(log.messages(), ElementsAre(invalid(kNow + 3000, kOldSeconds)));
}

TEST_P(InvalidLock, that_gets_its_content_is_a_lock_like_any_other) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_invalid("");
    const BeforeCall fill(Call::read, 1000, [&] { write_file(lock_, live_lock()); });

    EXPECT_EQ(wait(5000), 0);

    EXPECT_EQ(read_file(lock_), live_lock());
    EXPECT_THAT(log.messages(), ElementsAre(timed_out(GetParam(), lock_, 5000)));
}

TEST_P(InvalidLock, that_cannot_be_looked_at_or_read_is_waited_for) {
    for (const Call call : {Call::fstat, Call::open}) {
        make_invalid("");
        const FailCall fault(call, EIO, 1, kAlways);
        expect_time_out(3000);
        EXPECT_GT(fault.failed(), 3000);
    }
}

TEST_P(InvalidLock, a_read_error_is_invalid_content) {
    LogCapture log;
    const FakeClock clock(kNow);
    write_file(lock_, live_lock());
    set_modified(kOldSeconds);
    const FailCall fault(Call::read, EIO, 1, kAlways);

    EXPECT_EQ(wait(3000), GetParam().success());

    EXPECT_EQ(clock.sleeps(), 2001);
    EXPECT_THAT(log.messages(), ElementsAre(invalid(kNow + 2001, kOldSeconds)));
}

TEST_P(LockRemoval, that_fails_does_not_spin) {
    for (const int error : {EPERM, EROFS, EBUSY}) {
        make_lock(kNow, -1);
        const FailCall fault(Call::unlink, error, 1, kAlways);
        expect_time_out(5);
        EXPECT_EQ(fault.failed(), 7);  // once a pass
        EXPECT_TRUE(exists(lock_));
    }
}

TEST_P(LockRemoval, of_a_folder_fails_and_the_wait_goes_on) {
    ASSERT_EQ(mkdir(lock_.c_str(), 0700), 0);
    expect_time_out(3000);
    EXPECT_TRUE(exists(lock_));
}

TEST_P(LockRemoval, is_refused_to_a_user_who_may_not) {
    make_lock(kNow, -1);
    without_rights([&] { expect_time_out(20); });
    EXPECT_TRUE(exists(lock_));
}

// Where the file system knows no flock, looking twice is all that can be done.
TEST_P(LockRemoval, takes_place_without_flock) {
    for (const int error : {ENOLCK, EOPNOTSUPP}) {
        LogCapture log;
        const FakeClock clock(kNow);
        make_lock(kNow, -1);
        const FailCall fault(Call::flock, error, 1, kAlways);

        EXPECT_EQ(wait(0), GetParam().success());

        EXPECT_GE(fault.failed(), 1);
        EXPECT_EQ(clock.sleeps(), 0);
        EXPECT_THAT(log.messages(), ElementsAre(no_process(-1)));
        expect_taken_over();
    }
}

TEST_P(LockRemoval, is_left_to_another_waiter_that_is_at_it) {
    const FakeClock clock(kNow);
    make_lock(kNow, -1);
    const int other = open(lock_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    const CountCalls unlinks(Call::unlink);

    EXPECT_EQ(wait(10), 0);

    EXPECT_EQ(clock.sleeps(), 11);
    EXPECT_EQ(unlinks.count(), 0);
    EXPECT_EQ(read_file(lock_), lock_bytes(kNow, -1));
    close(other);
}

TEST_P(LockRemoval, is_taken_up_when_the_other_waiter_ends) {
    const FakeClock clock(kNow);
    make_lock(kNow, -1);
    int other = open(lock_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    const BeforeCall end(Call::flock, 4, [&] { close(other); });

    EXPECT_EQ(wait(100), GetParam().success());

    EXPECT_EQ(clock.sleeps(), 3);
    expect_taken_over();
}

// A removal takes no time: who keeps its claim longer removes nothing, and may not keep the lock for ever.
TEST_P(LockRemoval, takes_place_where_somebody_keeps_the_claim_for_more_than_100_milliseconds) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_lock(kNow, -1);
    const int other = open(lock_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);

    EXPECT_EQ(wait(1000), GetParam().success());

    EXPECT_EQ(clock.sleeps(), 101);
    EXPECT_THAT(log.messages(), ElementsAre(no_process(-1)));
    expect_taken_over();
    close(other);
}

TEST_P(LockRemoval, each_stale_file_has_100_milliseconds_of_its_own) {
    const FakeClock clock(kNow);
    make_lock(kNow, -1);
    int first = open(lock_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(first, LOCK_EX | LOCK_NB), 0);
    int second = -1;
    const BeforeCall replace(Call::flock, 51, [&] {
        replace_lock(lock_bytes(kNow, -1));
        second = open(lock_.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(flock(second, LOCK_EX | LOCK_NB), 0);
    });

    EXPECT_EQ(wait(1000), GetParam().success());

    EXPECT_TRUE(replace.ran());
    EXPECT_EQ(clock.sleeps(), 51 + 101);
    close(first);
    close(second);
}

// By then the others, who wait for 100 ms, may be removing it themselves, and the next holder's lock may have the name.
TEST_P(LockRemoval, is_left_to_the_next_pass_after_more_than_20_milliseconds_of_delay) {
    for (const int64_t delay : {20, 21}) {
        SCOPED_TRACE(delay);
        FakeClock clock(kNow);
        make_lock(kNow, -1);
        const CountCalls claims(Call::flock);
        const BeforeCall stopped(Call::flock, 1, [&] { clock.advance(delay); });

        EXPECT_EQ(wait(1000), GetParam().success());

        const int late = delay > 20 ? 1 : 0;
        EXPECT_EQ(claims.count(), 1 + late);
        EXPECT_EQ(clock.sleeps(), late);
        unlink(lock_.c_str());
    }
}

// Two waiters can't both be between the second look and the removal.
TEST_P(LockRemoval, keeps_other_waiters_from_removing_meanwhile) {
    const FakeClock clock(kNow);
    make_lock(kNow, -1);
    std::optional<bool> kept_off;
    const BeforeCall look(Call::unlink, 1, [&] {
        const int other = open(lock_.c_str(), O_RDONLY | O_CLOEXEC);
        kept_off = flock(other, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        close(other);
        EXPECT_EQ(in_child([&] {
                      EXPECT_EQ(wait(3), 0);
                      return exists(lock_) && !HasFailure() ? 0 : 1;
                  }),
                  0);
    });

    EXPECT_EQ(wait(0), GetParam().success());
    EXPECT_EQ(kept_off, true);
    expect_taken_over();
}

// The holder released the lock and ended, and another process took it, after the old file was read.
TEST_P(LockRace, a_fresh_lock_in_the_place_of_the_judged_one_survives) {
    const struct {
        const char *before;
        Call call;
        int nth;
        bool without_flock = false;
    } table[] = {
        {"reading", Call::read, 1},
        {"asking for the holder", Call::kill, 1},
        {"asking once more", Call::kill, 2},
        {"writing the message", Call::fwrite, 1},
        {"locking the file", Call::flock, 1},
        {"asking for the holder, without flock", Call::kill, 1, true},
        {"writing the message, without flock", Call::fwrite, 1, true},
    };
    const pid_t dead = dead_process();

    for (const auto &row : table) {
        SCOPED_TRACE(row.before);
        const LogCapture log;
        const FakeClock clock(kNow);
        make_lock(kNow, dead);
        const FailCall fault(Call::flock, EOPNOTSUPP, 1, row.without_flock ? kAlways : 0);
        const BeforeCall replace(row.call, row.nth, [&] { replace_lock(live_lock()); });

        EXPECT_EQ(wait(20), 0);

        EXPECT_TRUE(replace.ran());
        EXPECT_EQ(clock.sleeps(), 21);
        EXPECT_TRUE(exists(lock_) && read_file(lock_) == live_lock());
    }
}

TEST_P(LockRace, a_fresh_lock_survives_up_to_the_second_look) {
    const FakeClock clock(kNow);
    make_lock(kNow, -1);
    const BeforeCall replace(Call::lstat, 2, [&] { replace_lock(live_lock()); });

    EXPECT_EQ(wait(20), 0);

    EXPECT_TRUE(replace.ran());
    EXPECT_EQ(clock.sleeps(), 21);
    EXPECT_EQ(read_file(lock_), live_lock());
}

TEST_P(LockRace, an_expired_lock_that_was_released_and_taken_anew_survives) {
    const FakeClock clock(kNow);
    make_lock(0, getpid());
    const BeforeCall replace(Call::flock, 1, [&] { replace_lock(live_lock()); });

    EXPECT_EQ(wait(20), 0);

    EXPECT_TRUE(replace.ran());
    EXPECT_EQ(read_file(lock_), live_lock());
}

TEST_P(LockRace, an_invalid_lock_that_was_replaced_survives) {
    const FakeClock clock(kNow);
    make_invalid("");
    const BeforeCall replace(Call::flock, 1, [&] { replace_lock(live_lock(kNow + 2001)); });

    EXPECT_EQ(wait(3000), 0);

    EXPECT_TRUE(replace.ran());
    EXPECT_EQ(clock.sleeps(), 3001);
    EXPECT_EQ(read_file(lock_), live_lock(kNow + 2001));
}

// No moment is without a lock, and each is stale: a removal never takes place, and the wait ends all the same.
TEST_P(LockRace, a_lock_that_is_replaced_at_each_look_does_not_keep_the_wait_from_its_end) {
    LogCapture log;
    const FakeClock clock(kNow);
    make_lock(kNow, -1);
    int turns = 0;
    const BeforeCall replace(Call::flock, 0, [&] {
        if (turns++ < 1000)
            replace_lock(lock_bytes(kNow, -1));
    });

    EXPECT_EQ(wait(20), 0);

    EXPECT_EQ(clock.sleeps(), 21);
    EXPECT_EQ(turns, 22);
    EXPECT_THAT(log.messages(), ElementsAre(timed_out(GetParam(), lock_, 20)));
}

TEST_P(LockRace, a_judged_lock_that_another_waiter_has_removed_is_no_loss) {
    for (const Call call : {Call::kill, Call::flock, Call::unlink}) {
        const FakeClock clock(kNow);
        make_lock(kNow, -1);
        const BeforeCall remove_first(call, 1, [&] { unlink(lock_.c_str()); });

        EXPECT_EQ(wait(100), GetParam().success());

        expect_taken_over();
        unlink(lock_.c_str());
    }
}
