// Streams that are opened and closed under the held lock.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "fileio.h"
#include "lock_waiters.h"
#include "log_capture.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char *const kLock = "/var/lock/_conf.lck";

// Shows whether a pointer was stored.
FILE *const kUntouched = reinterpret_cast<FILE *>(0x10);

using SharedStream = LockTest;

}  // namespace

TEST_F(SharedStream, is_open_while_the_lock_is_held) {
    LogCapture log;
    const FakeClock clock(kNow);
    FILE *stream = kUntouched;

    ASSERT_EQ(Open_Shared_File(path_.c_str(), "w", &stream), 0);
    EXPECT_EQ(read_file(kLock), live_lock());
    EXPECT_FALSE(exists(path_ + ".lck"));
    EXPECT_GT(std::fputs("text", stream), 0);
    EXPECT_EQ(Close_Shared_File(path_.c_str(), stream), 0);

    EXPECT_FALSE(exists(kLock));
    EXPECT_EQ(read_file(path_), "text");
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(SharedStream, takes_the_mode_as_fopen_does) {
    const struct {
        const char *mode;
        int access;
        bool appends;
        const char *content;  // of a file that said "old" and got "new"
    } table[] = {
        {"r+", O_RDWR, false, "new"},    {"w", O_WRONLY, false, "new"}, {"a", O_WRONLY, true, "oldnew"},
        {"a+b", O_RDWR, true, "oldnew"}, {"w+", O_RDWR, false, "new"},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.mode);
        write_file(path_, "old");
        FILE *stream = nullptr;
        ASSERT_EQ(Open_Shared_File(path_.c_str(), row.mode, &stream), 0);
        EXPECT_EQ(fcntl(fileno(stream), F_GETFL) & O_ACCMODE, row.access);
        EXPECT_EQ((fcntl(fileno(stream), F_GETFL) & O_APPEND) != 0, row.appends);
        EXPECT_GT(std::fputs("new", stream), 0);
        EXPECT_EQ(Close_Shared_File(path_.c_str(), stream), 0);
        EXPECT_EQ(read_file(path_), row.content);
    }
}

TEST_F(SharedStream, null_is_refused) {
    LogCapture log;
    FILE *stream = kUntouched;
    EXPECT_EQ(Open_Shared_File(nullptr, "w", &stream), -22);
    EXPECT_EQ(Open_Shared_File(path_.c_str(), nullptr, &stream), -22);
    EXPECT_EQ(Open_Shared_File(path_.c_str(), "w", nullptr), -22);
    EXPECT_EQ(stream, kUntouched);
    EXPECT_FALSE(exists(path_));
    EXPECT_FALSE(exists(kLock));

    write_file(kLock, live_lock());
    EXPECT_EQ(Close_Shared_File(nullptr, stream), -22);
    EXPECT_EQ(Close_Shared_File(path_.c_str(), nullptr), -22);
    EXPECT_TRUE(exists(kLock));
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(SharedStream, a_lock_held_for_more_than_10_seconds_is_a_time_out) {
    LogCapture log;
    const FakeClock clock(kNow);
    write_file(kLock, live_lock());
    FILE *stream = kUntouched;

    EXPECT_EQ(Open_Shared_File(path_.c_str(), "w", &stream), -62);

    EXPECT_EQ(clock.sleeps(), 10'001);
    EXPECT_EQ(stream, kUntouched);
    EXPECT_FALSE(exists(path_));
    EXPECT_EQ(read_file(kLock), live_lock());
    EXPECT_THAT(log.messages(),
                ElementsAre(timed_out(kWaiters[0], kLock, 10'000),
                            "[debug] Open_Shared_File(#): Can't get file lock of " + path_ + " error!\n"));
}

TEST_F(SharedStream, any_lock_that_is_not_obtained_is_a_time_out) {
    LogCapture log;
    const FakeClock clock(kNow);
    FILE *stream = kUntouched;
    {
        const FailCall fault(Call::write, ENOSPC);
        EXPECT_EQ(Open_Shared_File(path_.c_str(), "w", &stream), -62);
    }
    const std::string too_long = folder_.path(std::string(250, 'n'));
    EXPECT_EQ(Open_Shared_File(too_long.c_str(), "w", &stream), -62);

    EXPECT_EQ(stream, kUntouched);
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(
        log.messages(),
        ElementsAre("[error] Get_File_Lock(#): Can't write lock file \"" + std::string(kLock) + "\" content error!\n",
                    "[debug] Open_Shared_File(#): Can't get file lock of " + path_ + " error!\n",
                    "[debug] Open_Shared_File(#): Can't get file lock of " + too_long + " error!\n"));
}

TEST_F(SharedStream, a_failed_open_stores_null_and_releases_the_lock) {
    const struct {
        std::string path;
        const char *mode;
        int error;
    } table[] = {
        {folder_.path("none/conf"), "w", ENOENT},
        {folder_.path("conf"), "r", ENOENT},
        {folder_.path() + "/", "w", EISDIR},
        {folder_.path("conf"), "nonsense", EINVAL},
    };
    LogCapture log;

    for (const auto &row : table) {
        SCOPED_TRACE(row.path + ", mode " + row.mode);
        FILE *stream = kUntouched;
        EXPECT_EQ(Open_Shared_File(row.path.c_str(), row.mode, &stream), -row.error);
        EXPECT_EQ(stream, nullptr);
        EXPECT_FALSE(exists(kLock));
        EXPECT_FALSE(exists("/var/lock/_.lck"));
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(SharedStream, a_failed_open_gives_the_error_as_it_stands_after_the_release) {
    FILE *stream = kUntouched;
    const FailCall open_fault(Call::openat, EMFILE, 1, 2);
    EXPECT_EQ(Open_Shared_File(path_.c_str(), "w", &stream), -EMFILE);

    const FailCall release_fault(Call::unlink, EROFS);
    EXPECT_EQ(Open_Shared_File(path_.c_str(), "w", &stream), -EROFS);
    EXPECT_EQ(release_fault.failed(), 1);
    EXPECT_EQ(stream, nullptr);
}

TEST_F(SharedStream, the_lock_is_held_when_the_file_is_opened_and_gone_before_it_is_flushed) {
    FILE *stream = nullptr;
    {
        const BeforeCall opening(Call::openat, 1, [] { EXPECT_TRUE(exists(kLock)); });
        ASSERT_EQ(Open_Shared_File(path_.c_str(), "w", &stream), 0);
        EXPECT_TRUE(opening.ran());
    }
    EXPECT_GT(std::fputs("buffered", stream), 0);

    const BeforeCall releasing(Call::unlink, 1, [&] { EXPECT_EQ(std::filesystem::file_size(path_), 0u); });
    const BeforeCall closing(Call::fclose, 1, [&] {
        EXPECT_FALSE(exists(kLock));
        EXPECT_EQ(std::filesystem::file_size(path_), 0u);
    });
    EXPECT_EQ(Close_Shared_File(path_.c_str(), stream), 0);
    EXPECT_TRUE(releasing.ran());
    EXPECT_TRUE(closing.ran());
    EXPECT_EQ(read_file(path_), "buffered");
}

TEST_F(SharedStream, a_late_write_error_is_the_result_and_the_lock_is_gone) {
    FILE *stream = nullptr;
    ASSERT_EQ(Open_Shared_File("/dev/full", "w", &stream), 0);
    EXPECT_TRUE(exists("/var/lock/_full.lck"));
    EXPECT_GT(std::fputs("text", stream), 0);
    EXPECT_EQ(Close_Shared_File("/dev/full", stream), -ENOSPC);
    EXPECT_FALSE(exists("/var/lock/_full.lck"));
}

TEST_F(SharedStream, close_releases_a_lock_whoever_holds_it_and_needs_none) {
    for (const bool locked : {true, false}) {
        if (locked)
            write_file(kLock, lock_bytes(kNow, 1));
        FILE *stream = std::fopen(path_.c_str(), "w");
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(Close_Shared_File(path_.c_str(), stream), 0);
        EXPECT_FALSE(exists(kLock));
    }
}

TEST_F(SharedStream, keeps_another_process_out_until_it_is_closed) {
    FILE *stream = nullptr;
    ASSERT_EQ(Open_Shared_File(path_.c_str(), "a", &stream), 0);
    int waiting[2];
    ASSERT_EQ(pipe(waiting), 0);

    const pid_t child = start_child([&] {
        FILE *other = nullptr;
        // The lock was found held, and is looked at again.
        const BeforeCall announce(Call::open, 3, [&] { EXPECT_EQ(write(waiting[1], "x", 1), 1); });
        EXPECT_EQ(Open_Shared_File(path_.c_str(), "a", &other), 0);
        EXPECT_GT(std::fputs("child\n", other), 0);
        EXPECT_EQ(Close_Shared_File(path_.c_str(), other), 0);
        return HasFailure() ? 1 : 0;
    });
    char byte = 0;
    EXPECT_EQ(read(waiting[0], &byte, 1), 1);
    EXPECT_GT(std::fputs("parent\n", stream), 0);
    EXPECT_EQ(std::fflush(stream), 0);
    EXPECT_EQ(Close_Shared_File(path_.c_str(), stream), 0);

    EXPECT_EQ(wait_for(child), 0);
    EXPECT_EQ(read_file(path_), "parent\nchild\n");
    close(waiting[0]);
    close(waiting[1]);
}
