// Lock files through the C++ layer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <thread>
#include <type_traits>

#include "base/lock_time.h"
#include "failure_of.h"
#include "faults.h"
#include "fileio/lock_wait.h"
#include "korvex/lock.hpp"
#include "lock_content.h"
#include "sandbox.h"

namespace {

using namespace std::chrono_literals;
using korvex::file_lock;
using korvex::lock_kind;
using korvex::lock_status;
using support::failure_of;
using testing::HasSubstr;

static_assert(!std::is_copy_constructible_v<file_lock> && std::is_nothrow_move_constructible_v<file_lock>);
static_assert(std::is_nothrow_move_assignable_v<file_lock>);

// The layer can't see the library's own numbers, so both say them; here they are compared.
using Record = korvex::fileio::LockContent;
using korvex::detail::lock_content;
static_assert(korvex::usual_wait == std::chrono::milliseconds(korvex::kLockWaitMs));
static_assert(korvex::lock_lifetime == std::chrono::milliseconds(korvex::kLockLifetimeMs));
static_assert(sizeof(Record) == sizeof(lock_content));
static_assert(offsetof(Record, waiting_since) == offsetof(lock_content, since));
static_assert(offsetof(Record, holder) == offsetof(lock_content, holder));

constexpr const char *kCommon = "/var/lock/_app.conf.lck";

int64_t now() {
    return static_cast<int64_t>(Tick_Diff(0));
}

class Lock : public testing::Test {
  protected:
    void SetUp() override { support::empty_lock_folder(); }

    // Somebody else's lock, held by a process that lives as long as the test.
    void let_parent_hold(const std::string &lock, int64_t since = now()) const {
        support::write_file(lock, support::lock_bytes(since, getppid()));
    }

    support::TempFolder folder_;
    const std::string path_ = folder_.path("app.conf");
};

TEST_F(Lock, is_held_while_it_lives) {
    {
        const file_lock lock(path_);
        EXPECT_TRUE(lock.is_held());
        EXPECT_EQ(support::parse_lock(support::read_file(kCommon)).holder, getpid());
        EXPECT_GT(lock.time_left(), 9min);
    }
    EXPECT_FALSE(support::exists(kCommon));
}

TEST_F(Lock, of_the_side_lies_beside_the_file) {
    const file_lock lock(path_, 0s, lock_kind::side);
    EXPECT_TRUE(support::exists(path_ + ".lck"));
    EXPECT_FALSE(support::exists(kCommon));
    EXPECT_TRUE(lock.is_held());
}

TEST_F(Lock, moves_and_is_released_once) {
    file_lock first(path_);
    file_lock second = std::move(first);
    EXPECT_TRUE(second.is_held());
    EXPECT_FALSE(first.is_held());  // NOLINT(bugprone-use-after-move): what a moved-from lock is
    second = file_lock(folder_.path("other.conf"));
    EXPECT_FALSE(support::exists(kCommon));
    second.release();
    EXPECT_FALSE(support::exists("/var/lock/_other.conf.lck"));
    let_parent_hold("/var/lock/_other.conf.lck");
    second.release();
    EXPECT_TRUE(support::exists("/var/lock/_other.conf.lck"));
}

TEST_F(Lock, that_is_not_obtained_says_who_holds_it) {
    let_parent_hold(kCommon);
    const korvex::error failure = failure_of([&] { file_lock lock(path_, 20ms); });
    EXPECT_EQ(failure.code(), korvex::errc::lock_not_obtained);
    EXPECT_EQ(failure.code(), std::errc::no_lock_available);
    EXPECT_THAT(failure.what(), HasSubstr("can't lock '" + path_ + "': the lock was not obtained in 20 ms; process " +
                                          std::to_string(getppid()) + " ("));
    EXPECT_TRUE(support::exists(kCommon));
}

TEST_F(Lock, tried_for_a_time_is_nothing_when_the_time_is_over) {
    let_parent_hold(kCommon);
    EXPECT_EQ(file_lock::try_for(path_, 0ms), std::nullopt);
    unlink(kCommon);
    EXPECT_TRUE(file_lock::try_for(path_, 0ms)->is_held());
}

TEST_F(Lock, of_a_holder_that_ended_is_taken_over) {
    support::write_file(kCommon, support::lock_bytes(now(), support::dead_process()));
    EXPECT_TRUE(file_lock(path_, 0ms).is_held());
}

TEST_F(Lock, wait_ends_when_a_stop_is_requested) {
    let_parent_hold(kCommon);
    std::stop_source source;
    std::jthread stopper([&] { source.request_stop(); });
    const korvex::error failure =
        failure_of([&] { file_lock lock(path_, korvex::forever, lock_kind::common, source.get_token()); });
    EXPECT_EQ(failure.code(), std::errc::operation_canceled);
}

TEST_F(Lock, that_can_be_stopped_is_taken_in_each_state) {
    const std::stop_source source;
    const auto take = [&] { return file_lock::try_for(path_, 5ms, lock_kind::common, source.get_token()); };
    EXPECT_TRUE(take());
    support::write_file(kCommon, support::lock_bytes(now(), support::dead_process()));
    EXPECT_TRUE(take());
    let_parent_hold(kCommon);
    EXPECT_FALSE(take());
}

TEST_F(Lock, that_can_be_stopped_is_taken_when_its_holder_gives_it_back) {
    let_parent_hold(kCommon);
    const std::stop_source source;
    const support::BeforeCall give_back(support::Call::nanosleep, 3, [] { unlink(kCommon); });
    EXPECT_TRUE(file_lock(path_, korvex::forever, lock_kind::common, source.get_token()).is_held());
    EXPECT_TRUE(give_back.ran());
}

TEST_F(Lock, never_filled_is_taken_over_also_where_it_can_be_stopped) {
    support::write_file(kCommon, "");
    const support::FakeClock clock;
    const std::stop_source source;
    EXPECT_TRUE(file_lock(path_, korvex::forever, lock_kind::common, source.get_token()).is_held());
}

TEST_F(Lock, that_somebody_took_over_is_left_to_him) {
    support::FakeClock clock;
    {
        const file_lock lock(path_);
        clock.advance(std::chrono::milliseconds(10min).count());
        EXPECT_LE(lock.time_left(), 0ms);
        EXPECT_TRUE(lock.is_held());
        let_parent_hold(kCommon, now());
        EXPECT_FALSE(lock.is_held());
    }
    EXPECT_TRUE(support::exists(kCommon)) << "the next holder's lock was removed";
}

TEST_F(Lock, of_ten_minutes_that_nobody_took_over_is_released) {
    support::FakeClock clock;
    {
        const file_lock lock(path_);
        clock.advance(std::chrono::milliseconds(11min).count());
    }
    EXPECT_FALSE(support::exists(kCommon));
}

TEST_F(Lock, in_a_folder_that_is_missing_says_so) {
    const korvex::error failure = failure_of([&] { file_lock lock(folder_.path("none/a"), 0ms, lock_kind::side); });
    EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory) << failure.what();
    EXPECT_EQ(failure.subject(), folder_.path("none/a.lck"));
    EXPECT_THROW(file_lock::try_for(folder_.path("none/a"), 0ms, lock_kind::side), korvex::error);
}

TEST_F(Lock, that_can_never_be_had_is_not_waited_for) {
    const std::string file = folder_.path("none/a");
    EXPECT_THROW(file_lock(file, korvex::forever, lock_kind::side), korvex::error);
    std::stop_source never;
    EXPECT_THROW(file_lock(file, korvex::forever, lock_kind::side, never.get_token()), korvex::error);
}

TEST_F(Lock, on_a_full_disk_says_so) {
    const support::SmallDisk disk(1 << 16);
    disk.fill_up_to(0);
    const korvex::error failure = failure_of([&] { file_lock lock(disk.path("a"), 5s, lock_kind::side); });
    EXPECT_EQ(failure.code(), std::errc::no_space_on_device) << failure.what();
    EXPECT_EQ(disk.names(), std::vector<std::string>{"filler"});
}

TEST_F(Lock, with_a_name_that_is_too_long_is_refused) {
    const korvex::error failure = failure_of([&] { file_lock lock(std::string(250, 'x')); });
    EXPECT_EQ(failure.code(), std::errc::filename_too_long);
    EXPECT_EQ(failure_of([&] { file_lock lock(std::string(5000, 'x')); }).code(), std::errc::filename_too_long);
}

TEST_F(Lock, of_other_programs_is_not_taken) {
    EXPECT_EQ(failure_of([&] { file_lock lock(path_, 0s, lock_kind::watched); }).code(), std::errc::invalid_argument);
}

TEST_F(Lock, takes_no_memory) {
    const std::string path = folder_.path("a name that is longer than what a std::string keeps in itself.conf");
    const support::CountCalls allocations(support::Call::malloc);
    {
        const file_lock lock(path);
        ASSERT_GT(lock.time_left(), 0s);
    }
    EXPECT_EQ(allocations.count(), 0);
}

TEST_F(Lock, that_is_abandoned_stays_as_it_is) {
    {
        file_lock lock(path_);
        lock.abandon();
        EXPECT_FALSE(lock.is_held());
    }
    EXPECT_EQ(korvex::inspect(path_).pid, getpid());
}

TEST_F(Lock, inspected_tells_state_holder_and_age) {
    EXPECT_EQ(korvex::inspect(path_).status, lock_status::free);

    const file_lock lock(path_);
    const korvex::lock_state held = korvex::inspect(path_);
    EXPECT_EQ(held.status, lock_status::held);
    EXPECT_EQ(held.pid, getpid());
    EXPECT_EQ(held.program, "test_cpp");
    EXPECT_GE(held.age, 0ms);
    EXPECT_LE(held.since, std::chrono::system_clock::now());
    EXPECT_GE(held.since, std::chrono::system_clock::now() - 600s);

    const pid_t dead = support::dead_process();
    support::write_file(kCommon, support::lock_bytes(now(), dead));
    const korvex::lock_state stale = korvex::inspect(path_);
    EXPECT_EQ(stale.status, lock_status::stale);
    EXPECT_EQ(stale.pid, dead);
    EXPECT_EQ(stale.reason, "no such process");
    EXPECT_EQ(stale.program, "");

    let_parent_hold(kCommon, now() - 700'000);
    EXPECT_EQ(korvex::inspect(path_).reason, "ten minutes old");
    let_parent_hold(kCommon, now() + 700'000);
    EXPECT_EQ(korvex::inspect(path_).reason, "dated in the future");
    EXPECT_EQ(korvex::inspect(path_).age, 0ms);
    EXPECT_GT(korvex::inspect(path_).since, std::chrono::system_clock::now());

    support::write_file(kCommon, "short");
    EXPECT_EQ(korvex::inspect(path_).status, lock_status::incomplete);
}

TEST_F(Lock, that_is_a_link_is_not_followed) {
    ASSERT_EQ(symlink("/etc/passwd", kCommon), 0);
    EXPECT_EQ(korvex::inspect(path_).status, lock_status::blocked);
    EXPECT_EQ(korvex::inspect(path_).reason, "a link");
    const std::stop_source source;
    EXPECT_EQ(file_lock::try_for(path_, 5ms, lock_kind::common, source.get_token()), std::nullopt);
    EXPECT_TRUE(support::exists(kCommon));
}

TEST_F(Lock, list_has_the_locks_of_the_folder_and_what_blocks_one) {
    const file_lock lock(path_);
    let_parent_hold("/var/lock/printer.lck");
    support::write_file("/var/lock/other", "");
    std::filesystem::create_directory("/var/lock/folder.lck");

    const std::vector<korvex::named_lock> locks = korvex::locks();
    ASSERT_EQ(locks.size(), 3U);
    EXPECT_EQ(locks[0].file, kCommon);
    EXPECT_EQ(locks[1].name, "folder");
    EXPECT_EQ(locks[1].state.status, lock_status::blocked);
    EXPECT_EQ(locks[1].state.reason, "a folder");
    EXPECT_EQ(locks[0].name, "app.conf");
    EXPECT_EQ(locks[0].kind, lock_kind::common);
    EXPECT_EQ(locks[0].state.pid, getpid());
    EXPECT_EQ(locks[2].name, "printer");
    EXPECT_EQ(locks[2].kind, lock_kind::watched);
    EXPECT_EQ(locks[2].state.status, lock_status::held);
}

TEST_F(Lock, of_others_is_waited_for_and_seen_to_go) {
    EXPECT_TRUE(korvex::wait_until_unwatched(path_, 0ms));
    let_parent_hold("/var/lock/app.conf.lck");
    EXPECT_FALSE(korvex::wait_until_unwatched(path_, 5ms));
    support::write_file("/var/lock/app.conf.lck", support::lock_bytes(now(), support::dead_process()));
    EXPECT_TRUE(korvex::wait_until_unwatched(path_, 5ms));
}

}  // namespace
