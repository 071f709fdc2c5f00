// Taking, waiting for and releasing lock files, and base names. What makes a lock stale: test_stale_lock.cpp.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "fileio.h"
#include "lock_waiters.h"
#include "log_capture.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> lock_names() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator("/var/lock"))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

mode_t permissions_of(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

// A path of exactly `length` characters in `folder`, whose folders exist.
std::string deep_path(const std::string &folder, size_t length) {
    std::string path = folder;
    while (length - path.size() > 230)
        path += "/" + std::string(200, 'd');
    std::filesystem::create_directories(path);
    return path + "/" + std::string(length - path.size() - 1, 'f');
}

// How many descriptors lead to `path`, and how many of those close themselves on exec.
std::pair<int, int> descriptors_of(const std::string &path) {
    std::pair<int, int> count{0, 0};
    for (const auto &[descriptor, target] : open_descriptors())
        if (target == std::filesystem::canonical(path)) {
            count.first++;
            count.second += fcntl(descriptor, F_GETFD) == FD_CLOEXEC ? 1 : 0;
        }
    return count;
}

std::string content_error(const Waiter &waiter, const std::string &lock) {
    return std::string("[error] ") + waiter.name + "(#): Can't write lock file \"" + lock + "\" content error!\n";
}

using LockNames = LockTest;
using LockRelease = LockTest;
using LockWatch = LockTest;
using LockWait = WaitingTest;  // all three functions
using LockTake = WaitingTest;  // those that take a lock

INSTANTIATE_TEST_SUITE_P(All, LockWait, testing::ValuesIn(kWaiters), name_of);
INSTANTIATE_TEST_SUITE_P(All, LockTake, testing::Values(kWaiters[0], kWaiters[1]), name_of);

}  // namespace

TEST(Filename, is_what_follows_the_last_slash) {
    const struct {
        const char *path;
        size_t offset;
    } table[] = {{"/a/b", 3}, {"b", 0},  {"", 0},      {"/", 1},    {"/a/", 3},
                 {"a//b", 3}, {"//", 2}, {"./x.y", 2}, {"/etc/", 5}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.path);
        const char *name = nullptr;
        EXPECT_EQ(Get_Filename(row.path, &name), 0);
        EXPECT_EQ(name, row.path + row.offset);
    }
}

TEST(Filename, null_is_refused) {
    const char *untouched = "x";
    const char *name = untouched;
    EXPECT_EQ(Get_Filename(nullptr, &name), -22);
    EXPECT_EQ(Get_Filename("/a", nullptr), -22);
    EXPECT_EQ(Get_Filename(nullptr, nullptr), -22);
    EXPECT_EQ(name, untouched);
}

TEST_F(LockNames, held_locks_are_named_for_the_base_name) {
    const struct {
        const char *path;
        const char *lock;
    } table[] = {{"/a/conf", "_conf.lck"},
                 {"conf", "_conf.lck"},
                 {"/a/b/conf.d/x y", "_x y.lck"},
                 {"/a/", "_.lck"},
                 {"", "_.lck"},
                 {"/", "_.lck"},
                 {"/a/.hidden", "_.hidden.lck"},
                 {"/a/%s%n", "_%s%n.lck"}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(Get_File_Lock(row.path, 0), 1);
        EXPECT_THAT(lock_names(), ElementsAre(row.lock));
        EXPECT_EQ(Release_File_Lock(row.path), 1);
        EXPECT_THAT(lock_names(), IsEmpty());
    }
}

TEST_F(LockNames, equal_base_names_share_a_held_lock_but_no_side_lock) {
    const FakeClock clock(kNow);
    for (const char *name : {"a", "b"})
        ASSERT_EQ(mkdir(folder_.path(name).c_str(), 0700), 0);
    const std::string first = folder_.path("a/conf");
    const std::string second = folder_.path("b/conf");

    EXPECT_EQ(Get_File_Lock(first.c_str(), 0), 1);
    EXPECT_EQ(Get_File_Lock(second.c_str(), 0), 0);
    EXPECT_EQ(Release_File_Lock(second.c_str()), 1);
    EXPECT_EQ(Get_File_Lock(second.c_str(), 0), 1);

    EXPECT_EQ(Get_File_Lock_Ex(first.c_str(), 0), 1);
    EXPECT_EQ(Get_File_Lock_Ex(second.c_str(), 0), 1);
    EXPECT_TRUE(exists(first + ".lck"));
    EXPECT_TRUE(exists(second + ".lck"));
}

TEST_F(LockNames, the_side_lock_keeps_the_path_as_it_is) {
    const std::string path = folder_.path() + "/";
    EXPECT_EQ(Get_File_Lock_Ex(path.c_str(), 0), 1);
    EXPECT_THAT(folder_.names(), ElementsAre(".lck"));
    EXPECT_EQ(Release_File_Lock_Ex(path.c_str()), 1);
    EXPECT_THAT(folder_.names(), IsEmpty());
    EXPECT_THAT(lock_names(), IsEmpty());
}

// "/var/lock/_", the name, ".lck" and the end must fit 256 bytes.
TEST_F(LockNames, a_held_lock_that_does_not_fit_256_bytes_is_refused) {
    LogCapture log;
    const FakeClock clock(kNow);
    const std::string longest(240, 'n');

    EXPECT_EQ(Get_File_Lock(("/a/" + longest).c_str(), 0), 1);
    EXPECT_THAT(lock_names(), ElementsAre("_" + longest + ".lck"));
    EXPECT_EQ(Release_File_Lock(longest.c_str()), 1);

    for (const size_t length : {241, 245, 246, 300, 5000})
        for (const int32_t timeout : {0, 100, -1}) {
            SCOPED_TRACE(testing::Message() << length << " characters, time-out " << timeout);
            const std::string path = "/a/" + std::string(length, 'n');
            EXPECT_EQ(Get_File_Lock(path.c_str(), timeout), -ENAMETOOLONG);
            EXPECT_EQ(Release_File_Lock(path.c_str()), -ENAMETOOLONG);
        }
    EXPECT_THAT(lock_names(), IsEmpty());
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(LockNames, a_watched_lock_that_does_not_fit_256_bytes_does_not_delay) {
    const std::string longest(241, 'n');
    write_file("/var/lock/" + longest + ".lck", lock_bytes(0, -1));
    EXPECT_EQ(Check_File_Lock(longest.c_str(), 0), 0);
    EXPECT_THAT(lock_names(), IsEmpty());

    const FakeClock clock(kNow);
    const std::string too_long(242, 'n');
    write_file("/var/lock/" + too_long + ".lck", live_lock());
    EXPECT_EQ(Check_File_Lock(too_long.c_str(), 100), 0);
    EXPECT_EQ(clock.sleeps(), 0);
}

TEST_F(LockNames, a_side_lock_that_does_not_fit_4096_bytes_is_refused) {
    const std::string longest = deep_path(folder_.path(), 4091);
    EXPECT_EQ(Get_File_Lock_Ex(longest.c_str(), 0), 1);
    EXPECT_TRUE(exists(longest + ".lck"));
    EXPECT_EQ(Release_File_Lock_Ex(longest.c_str()), 1);
    EXPECT_FALSE(exists(longest + ".lck"));

    LogCapture log;
    const FakeClock clock(kNow);
    for (const std::string &path : {longest + "x", longest + std::string(1000, 'x')}) {
        SCOPED_TRACE(path.size());
        EXPECT_EQ(Get_File_Lock_Ex(path.c_str(), -1), -ENAMETOOLONG);
        EXPECT_EQ(Release_File_Lock_Ex(path.c_str()), -ENAMETOOLONG);
    }
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(LockWait, a_null_path_is_nothing_to_wait_for) {
    LogCapture log;
    const FakeClock clock(kNow);
    for (const int32_t timeout : {0, 100, -1})
        EXPECT_EQ(GetParam().wait(nullptr, timeout), 0);
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_THAT(lock_names(), IsEmpty());
}

TEST_P(LockWait, a_free_lock_is_no_delay) {
    LogCapture log;
    for (const int32_t timeout : {0, 1, 10'000, -1}) {
        SCOPED_TRACE(timeout);
        const FakeClock clock(kNow);
        EXPECT_EQ(wait(timeout), GetParam().success());
        EXPECT_EQ(clock.sleeps(), 0);
        EXPECT_EQ(exists(lock_), GetParam().takes);
        unlink(lock_.c_str());
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(LockWait, a_held_lock_ends_the_wait_one_millisecond_after_the_time_out) {
    for (const int32_t timeout : {0, 1, 25, 10'000}) {
        SCOPED_TRACE(timeout);
        write_file(lock_, live_lock());
        expect_time_out(timeout);
        EXPECT_EQ(read_file(lock_), live_lock());
    }
}

TEST_P(LockWait, the_time_out_is_an_error_message) {
    write_file(lock_, live_lock(static_cast<uint64_t>(time(nullptr)) * 1000));
    {
        LogCapture silent(0);
        EXPECT_EQ(wait(0), 0);
        EXPECT_THAT(silent.messages(), IsEmpty());
    }
    LogCapture errors(1);
    EXPECT_EQ(wait(0), 0);
    EXPECT_THAT(errors.messages(), ElementsAre(testing::HasSubstr("timeout! (")));
}

TEST_P(LockWait, a_negative_time_out_waits_until_the_lock_is_released) {
    for (const int32_t timeout : {-1, INT32_MIN}) {
        LogCapture log;
        const FakeClock clock(kNow);
        write_file(lock_, live_lock());
        const BeforeCall release(Call::kill, 100'000, [&] { unlink(lock_.c_str()); });

        EXPECT_EQ(wait(timeout), GetParam().success());

        EXPECT_EQ(clock.sleeps(), 100'000);
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_P(LockWait, a_clock_that_is_set_back_ends_the_wait) {
    LogCapture log;
    FakeClock clock(kNow);
    write_file(lock_, lock_bytes(kNow - 1000, getpid()));
    const BeforeCall set_back(Call::kill, 5, [&] { clock.advance(-500); });

    EXPECT_EQ(wait(10'000), 0);

    EXPECT_EQ(clock.sleeps(), 4);
    EXPECT_THAT(log.messages(), ElementsAre(std::string("[error] ") + GetParam().name + "(#): Get lock file \"" +
                                            lock_ + "\" timeout! (-496 < 10000)\n"));
}

TEST_P(LockWait, a_lock_that_vanishes_before_it_is_read_is_looked_for_again) {
    const FakeClock clock(kNow);
    write_file(lock_, live_lock());
    const BeforeCall vanish(Call::open, GetParam().reading_open(), [&] { unlink(lock_.c_str()); });

    EXPECT_EQ(wait(100), GetParam().success());

    EXPECT_TRUE(vanish.ran());
    EXPECT_EQ(clock.sleeps(), 1);
}

TEST_P(LockWait, the_lock_is_read_with_one_read_through_a_descriptor_that_closes_on_exec) {
    const FakeClock clock(kNow);
    write_file(lock_, live_lock());
    std::pair<int, int> seen;
    const BeforeCall look(Call::read, 1, [&] { seen = descriptors_of(lock_); });
    const CountCalls reads(Call::read);

    EXPECT_EQ(wait(3), 0);

    EXPECT_EQ(seen, std::make_pair(1, 1));
    EXPECT_EQ(reads.count(), 5);  // one a pass
}

TEST_P(LockWait, an_unreadable_lock_is_waited_for) {
    write_file(lock_, lock_bytes(0, -1));
    ASSERT_EQ(chmod(lock_.c_str(), 0), 0);
    without_rights([&] { expect_time_out(20); });
    EXPECT_TRUE(exists(lock_));
}

TEST_P(LockTake, the_content_is_16_bytes_written_at_once) {
    const FakeClock clock(0x0123456789ab);
    const CountCalls writes(Call::write);
    const pid_t pid = getpid();

    ASSERT_EQ(wait(0), 1);

    const unsigned char expected[16] = {0xab,
                                        0x89,
                                        0x67,
                                        0x45,
                                        0x23,
                                        0x01,
                                        0x00,
                                        0x00,
                                        static_cast<unsigned char>(pid & 0xff),
                                        static_cast<unsigned char>(pid >> 8 & 0xff),
                                        static_cast<unsigned char>(pid >> 16 & 0xff),
                                        static_cast<unsigned char>(pid >> 24 & 0xff),
                                        0,
                                        0,
                                        0,
                                        0};
    EXPECT_EQ(read_file(lock_), std::string(reinterpret_cast<const char *>(expected), sizeof expected));
    EXPECT_EQ(writes.count(), 1);
}

TEST_P(LockTake, the_stamp_is_when_the_wait_began) {
    const FakeClock clock(kNow);
    write_file(lock_, live_lock());
    const BeforeCall release(Call::kill, 700, [&] { unlink(lock_.c_str()); });

    ASSERT_EQ(wait(10'000), 1);

    EXPECT_EQ(clock.now(), kNow + 700);
    EXPECT_EQ(read_file(lock_), live_lock(kNow));
}

TEST_P(LockTake, the_mode_is_0777_less_the_umask) {
    const struct {
        mode_t mask;
        mode_t mode;
    } table[] = {{0, 0777}, {022, 0755}, {077, 0700}, {0777, 0}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.mask);
        const mode_t outer = umask(row.mask);
        EXPECT_EQ(wait(0), 1);
        umask(outer);
        EXPECT_EQ(permissions_of(lock_), row.mode);
        unlink(lock_.c_str());
    }
}

TEST_P(LockTake, the_lock_is_created_exclusively) {
    const std::string target = folder_.path("target");
    ASSERT_EQ(symlink(target.c_str(), lock_.c_str()), 0);
    expect_time_out(5);
    EXPECT_FALSE(exists(target));
}

TEST_P(LockTake, is_not_reentrant) {
    const FakeClock clock(kNow);
    ASSERT_EQ(wait(0), 1);
    EXPECT_EQ(wait(50), 0);
    EXPECT_EQ(clock.sleeps(), 51);
    EXPECT_EQ(read_file(lock_), live_lock());
}

TEST_P(LockTake, the_descriptor_closes_on_exec) {
    std::pair<int, int> seen;
    const BeforeCall look(Call::write, 1, [&] { seen = descriptors_of(lock_); });
    EXPECT_EQ(wait(0), 1);
    EXPECT_EQ(seen, std::make_pair(1, 1));
}

TEST_P(LockTake, content_that_cannot_be_written_gives_the_lock_up) {
    for (const int error : {ENOSPC, EIO, EDQUOT}) {
        LogCapture log(1);
        const FakeClock clock(kNow);
        const FailCall fault(Call::write, error);

        EXPECT_EQ(wait(100), 0);

        EXPECT_EQ(fault.failed(), 1);
        EXPECT_FALSE(exists(lock_));
        EXPECT_EQ(clock.sleeps(), 0);
        EXPECT_THAT(log.messages(), ElementsAre(content_error(GetParam(), lock_)));
    }
}

TEST_P(LockTake, content_that_is_written_in_part_gives_the_lock_up) {
    const int status = in_child([&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{8, 8};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        LogCapture log;
        EXPECT_EQ(wait(100), 0);
        EXPECT_FALSE(exists(lock_));
        EXPECT_THAT(log.messages(), ElementsAre(content_error(GetParam(), lock_)));
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(LockNames, a_full_disk_gives_the_side_lock_up) {
    const SmallDisk disk(64 * 1024);
    disk.fill_up_to(0);
    LogCapture log;
    EXPECT_EQ(Get_File_Lock_Ex(disk.path("conf").c_str(), 100), 0);
    EXPECT_THAT(disk.names(), ElementsAre("filler"));
    EXPECT_THAT(log.messages(), ElementsAre(content_error(kWaiters[1], disk.path("conf.lck"))));
}

TEST_F(LockNames, a_lock_that_cannot_be_created_is_tried_until_the_time_out) {
    const struct {
        const char *path;
        int error;
    } table[] = {{"none/conf", 0}, {"conf", EACCES}, {"conf", EMFILE}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.error);
        LogCapture log;
        const FakeClock clock(kNow);
        const FailCall fault(Call::open, row.error, 1, row.error == 0 ? 0 : 1000);
        EXPECT_EQ(Get_File_Lock_Ex(folder_.path(row.path).c_str(), 30), 0);
        EXPECT_EQ(clock.sleeps(), 31);
        EXPECT_THAT(log.messages(), ElementsAre(timed_out(kWaiters[1], folder_.path(row.path) + ".lck", 30)));
    }
}

TEST_F(LockNames, without_the_lock_folder_nothing_is_taken_or_watched) {
    const int status = in_child([] {
        EXPECT_EQ(unshare(CLONE_NEWNS), 0);
        EXPECT_EQ(mount("korvex-test", "/var", "tmpfs", 0, nullptr), 0);
        const FakeClock clock(kNow);
        EXPECT_EQ(Check_File_Lock("/a/conf", 100), 0);
        EXPECT_EQ(clock.sleeps(), 0);
        EXPECT_EQ(Get_File_Lock("/a/conf", 100), 0);
        EXPECT_EQ(clock.sleeps(), 101);
        EXPECT_EQ(Release_File_Lock("/a/conf"), 1);
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(status, 0);
}

TEST_P(LockTake, a_process_that_waits_for_ever_gets_the_lock_when_it_is_released) {
    ASSERT_EQ(wait(0), 1);
    int waiting[2];
    ASSERT_EQ(pipe(waiting), 0);

    const pid_t child = start_child([&] {
        // The first pass has found the lock held when its second one begins.
        const BeforeCall announce(Call::open, 3, [&] { EXPECT_EQ(write(waiting[1], "x", 1), 1); });
        EXPECT_EQ(wait(-1), 1);
        EXPECT_EQ(parse_lock(read_file(lock_)).holder, getpid());
        return HasFailure() ? 1 : 0;
    });
    char byte = 0;
    EXPECT_EQ(read(waiting[0], &byte, 1), 1);
    EXPECT_EQ(parse_lock(read_file(lock_)).holder, getpid());
    if (GetParam().wait == Get_File_Lock)
        EXPECT_EQ(Release_File_Lock(path_.c_str()), 1);
    else
        EXPECT_EQ(Release_File_Lock_Ex(path_.c_str()), 1);

    EXPECT_EQ(wait_for(child), 0);
    close(waiting[0]);
    close(waiting[1]);
}

namespace {

struct Release {
    const char *name;
    int32_t (*release)(const char *path);
    const Waiter &waiter;
};

const Release kReleases[] = {{"Release_File_Lock", Release_File_Lock, kWaiters[0]},
                             {"Release_File_Lock_Ex", Release_File_Lock_Ex, kWaiters[1]}};

}  // namespace

TEST_F(LockRelease, removes_a_lock_whoever_holds_it) {
    for (const auto &row : kReleases) {
        SCOPED_TRACE(row.name);
        const std::string lock = row.waiter.lock(folder_);
        for (const std::string &content : {live_lock(), lock_bytes(kNow, 1), std::string()}) {
            write_file(lock, content);
            EXPECT_EQ(row.release(path_.c_str()), 1);
            EXPECT_FALSE(exists(lock));
        }
    }
}

TEST_F(LockRelease, of_nothing_is_no_failure_and_of_null_does_nothing) {
    LogCapture log;
    for (const auto &row : kReleases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.release(path_.c_str()), 1);
        EXPECT_EQ(row.release("/no/such/folder/conf"), 1);
        EXPECT_EQ(row.release(nullptr), 0);
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(LockRelease, a_failing_removal_is_ignored) {
    LogCapture log;
    for (const auto &row : kReleases) {
        SCOPED_TRACE(row.name);
        const std::string lock = row.waiter.lock(folder_);
        write_file(lock, live_lock());
        const FailCall fault(Call::unlink, EPERM);
        EXPECT_EQ(row.release(path_.c_str()), 1);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_TRUE(exists(lock));
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(LockRelease, each_release_knows_its_own_lock_only) {
    ASSERT_EQ(Get_File_Lock(path_.c_str(), 0), 1);
    ASSERT_EQ(Get_File_Lock_Ex(path_.c_str(), 0), 1);
    write_file("/var/lock/conf.lck", live_lock());

    EXPECT_EQ(Release_File_Lock_Ex(path_.c_str()), 1);
    EXPECT_THAT(lock_names(), ElementsAre("_conf.lck", "conf.lck"));
    EXPECT_THAT(folder_.names(), IsEmpty());

    EXPECT_EQ(Release_File_Lock(path_.c_str()), 1);
    EXPECT_THAT(lock_names(), ElementsAre("conf.lck"));
}

TEST_F(LockWatch, watches_neither_the_held_nor_the_side_lock) {
    const FakeClock clock(kNow);
    write_file("/var/lock/_conf.lck", live_lock());
    write_file(path_ + ".lck", live_lock());
    EXPECT_EQ(Check_File_Lock(path_.c_str(), 100), 0);
    EXPECT_EQ(clock.sleeps(), 0);
}

TEST_F(LockWatch, a_lock_that_cannot_be_looked_at_counts_as_none) {
    const FakeClock clock(kNow);
    write_file("/var/lock/conf.lck", live_lock());
    const FailCall fault(Call::lstat, EACCES);
    EXPECT_EQ(Check_File_Lock(path_.c_str(), 100), 0);
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(clock.sleeps(), 0);
}

TEST_F(LockWatch, a_link_that_leads_nowhere_counts_as_none) {
    const FakeClock clock(kNow);
    ASSERT_EQ(symlink("nowhere", "/var/lock/conf.lck"), 0);
    EXPECT_EQ(Check_File_Lock(path_.c_str(), 100), 0);
    EXPECT_EQ(clock.sleeps(), 0);
}

TEST_F(LockWatch, a_lock_taken_meanwhile_by_another_delays_on) {
    LogCapture log;
    const FakeClock clock(kNow);
    write_file("/var/lock/conf.lck", live_lock());
    const BeforeCall replace(Call::kill, 10, [] {
        unlink("/var/lock/conf.lck");
        write_file("/var/lock/conf.lck", lock_bytes(kNow, getppid()));
    });
    EXPECT_EQ(Check_File_Lock(path_.c_str(), 30), 0);
    EXPECT_EQ(clock.sleeps(), 31);
    EXPECT_THAT(log.messages(), ElementsAre(timed_out(kWaiters[2], "/var/lock/conf.lck", 30)));
}
