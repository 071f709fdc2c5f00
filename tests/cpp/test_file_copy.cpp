// Copies of files: what a destination is after each of them, also after those that failed.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <stop_token>
#include <string>

#include "failure_of.h"
#include "faults.h"
#include "korvex/file.hpp"
#include "refused_call.h"
#include "sandbox.h"
#include "transaction_world.h"

namespace {

using korvex::errc;
using support::Call;
using support::failure_of;
using testing::ElementsAre;
namespace world = transaction_world;

constexpr uid_t kOwner = 1234;
constexpr gid_t kGroup = 4321;

class FileCopy : public testing::Test {
  protected:
    // The old destination is there, whole, and nothing besides.
    void expect_untouched() const {
        EXPECT_EQ(support::read_file(to_), "old");
        EXPECT_THAT(folder_.names(), ElementsAre("from", "to"));
    }

    support::TempFolder folder_;
    const std::string from_ = folder_.file("from", std::string(200'000, 'n'));
    const std::string to_ = folder_.file("to", "old");
};

TEST_F(FileCopy, has_content_bits_owner_and_time) {
    ASSERT_EQ(chown(from_.c_str(), kOwner, kGroup), 0);
    ASSERT_EQ(chmod(from_.c_str(), 06751), 0);
    const timespec times[] = {{100, 1}, {200, 250}};
    ASSERT_EQ(utimensat(AT_FDCWD, from_.c_str(), times, 0), 0);
    std::atomic<std::int64_t> moved = 5;
    korvex::copy_file(from_, to_, {.stop = {}, .progress = &moved, .durable = true});

    struct stat status {};
    ASSERT_EQ(stat(to_.c_str(), &status), 0);
    EXPECT_EQ(support::read_file(to_), support::read_file(from_));
    EXPECT_EQ(status.st_mode & 07777U, 0751U);
    EXPECT_EQ(status.st_uid, kOwner);
    EXPECT_EQ(status.st_gid, kGroup);
    EXPECT_EQ(status.st_mtim.tv_sec, 200);
    EXPECT_EQ(status.st_mtim.tv_nsec, 250);
    EXPECT_EQ(moved, 200'005);
    EXPECT_THAT(folder_.names(), ElementsAre("from", "to"));
}

TEST_F(FileCopy, keeps_holes) {
    const int file = open(from_.c_str(), O_WRONLY);
    const off_t far = off_t{1} << 30;
    ASSERT_EQ(pwrite(file, "in the middle", 13, far), 13);
    ASSERT_EQ(ftruncate(file, 2 * far), 0);
    close(file);
    std::atomic<std::int64_t> moved = 0;
    korvex::copy_file(from_, to_, {.stop = {}, .progress = &moved});

    struct stat status {};
    ASSERT_EQ(stat(to_.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 2 * far);
    EXPECT_LT(status.st_blocks, 2000);
    EXPECT_EQ(moved, 2 * far);
    const int copy = open(to_.c_str(), O_RDONLY);
    char text[13];
    EXPECT_EQ(pread(copy, text, sizeof text, far), 13);
    EXPECT_EQ(std::string(text, sizeof text), "in the middle");
    close(copy);
}

TEST_F(FileCopy, counts_what_it_does_not_carry_and_carries_it_on_request) {
    const support::SmallDisk disk(1 << 20);
    const std::string from = disk.file("from", "text");
    world::make_special(from);
    ASSERT_EQ(chmod(from.c_str(), 06751), 0);
    const korvex::not_carried lost = korvex::copy_file(from, disk.path("to"));
    EXPECT_EQ(lost.access_lists, 1U);
    EXPECT_EQ(lost.attributes, 1U);
    EXPECT_EQ(lost.set_id_bits, 1U);
    EXPECT_EQ(lost.hard_links, 0U);
    EXPECT_FALSE(world::attributes_of(disk.path("to")) == world::attributes_of(from));

    const korvex::work_options all{.stop = {}, .progress = nullptr, .durable = false, .keep = korvex::preserve::all};
    EXPECT_FALSE(korvex::copy_file(from, disk.path("to"), all).any());
    EXPECT_EQ(world::attributes_of(disk.path("to")), world::attributes_of(from));
}

TEST_F(FileCopy, that_can_not_carry_all_leaves_what_was_there) {
    const support::SmallDisk disk(1 << 20);
    const std::string from = disk.file("from", "text");
    const std::string to = disk.file("to", "old");
    world::make_special(from);
    EXPECT_EQ(support::in_child([&] {
                  if (!support::refuse_system_call(SYS_fsetxattr, ENOSPC))
                      return 2;
                  const korvex::work_options all{
                      .stop = {}, .progress = nullptr, .durable = false, .keep = korvex::preserve::all};
                  const korvex::error failure = failure_of([&] { korvex::copy_file(from, to, all); });
                  EXPECT_EQ(failure.code(), errc::not_carried_over);
                  EXPECT_THAT(failure.what(), testing::HasSubstr("can't copy '" + from));
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
    EXPECT_EQ(support::read_file(to), "old");
    EXPECT_THAT(disk.names(), ElementsAre("from", "to"));
}

TEST_F(FileCopy, goes_where_links_lead_and_keeps_them) {
    ASSERT_EQ(symlink("to", folder_.path("link_to").c_str()), 0);
    ASSERT_EQ(symlink("from", folder_.path("link_from").c_str()), 0);
    ASSERT_EQ(symlink("fresh", folder_.path("link_nowhere").c_str()), 0);
    korvex::copy_file(folder_.path("link_from"), folder_.path("link_to"));
    EXPECT_EQ(support::read_file(to_).size(), 200'000U);
    korvex::copy_file(from_, folder_.path("link_nowhere"));
    EXPECT_EQ(support::read_file(folder_.path("fresh")).size(), 200'000U);
    EXPECT_THAT(folder_.names(), ElementsAre("fresh", "from", "link_from", "link_nowhere", "link_to", "to"));
}

TEST_F(FileCopy, does_not_take_what_is_no_file) {
    mkfifo(folder_.path("pipe").c_str(), 0600);
    mkdir(folder_.path("folder").c_str(), 0700);
    ASSERT_EQ(mknod(folder_.path("device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    for (const char *name : {"pipe", "folder", "device"}) {
        EXPECT_EQ(failure_of([&] { korvex::copy_file(folder_.path(name), to_); }).code(), errc::not_a_regular_file);
        EXPECT_EQ(failure_of([&] { korvex::copy_file(from_, folder_.path(name)); }).code(),
                  name == std::string("folder") ? make_error_code(std::errc::is_a_directory).default_error_condition()
                                                : std::error_condition(ENOMEDIUM, std::generic_category()));
    }
    EXPECT_EQ(failure_of([&] { korvex::copy_file(folder_.path("none"), to_); }).code(),
              std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure_of([&] { korvex::copy_file(from_, folder_.path("no/to")); }).code(),
              std::errc::no_such_file_or_directory);
    EXPECT_EQ(support::read_file(to_), "old");
    EXPECT_THAT(folder_.names(), ElementsAre("device", "folder", "from", "pipe", "to"));
}

// A new file under the name that /dev/stdout leads to would be another one than the program writes to.
TEST_F(FileCopy, through_a_link_of_proc_leaves_the_open_file) {
    const int open_file = open(to_.c_str(), O_WRONLY | O_CLOEXEC);
    const std::string way = "/proc/self/fd/" + std::to_string(open_file);
    ASSERT_EQ(symlink(way.c_str(), folder_.path("stdout").c_str()), 0);
    for (const std::string &path : {way, folder_.path("stdout")})
        EXPECT_EQ(failure_of([&] { korvex::copy_file(from_, path); }).code(), errc::not_a_regular_file);
    ASSERT_EQ(write(open_file, "new", 3), 3);
    EXPECT_EQ(support::read_file(to_), "new");
    close(open_file);
}

TEST_F(FileCopy, onto_itself_is_refused) {
    ASSERT_EQ(link(from_.c_str(), folder_.path("also").c_str()), 0);
    for (const char *name : {"from", "also"})
        EXPECT_EQ(failure_of([&] { korvex::copy_file(from_, folder_.path(name)); }).code(),
                  std::errc::invalid_argument);
    EXPECT_EQ(support::read_file(from_).size(), 200'000U);
}

TEST_F(FileCopy, that_is_stopped_leaves_what_was_there) {
    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(failure_of([&] { korvex::copy_file(from_, to_, {.stop = source.get_token()}); }).code(),
              std::errc::operation_canceled);
    expect_untouched();
}

TEST_F(FileCopy, that_is_stopped_in_the_middle_leaves_what_was_there) {
    std::stop_source source;
    const support::BeforeCall stopping(Call::write, 3, [&] { source.request_stop(); });
    std::atomic<std::int64_t> moved = 0;
    EXPECT_EQ(
        failure_of([&] { korvex::copy_file(from_, to_, {.stop = source.get_token(), .progress = &moved}); }).code(),
        std::errc::operation_canceled);
    EXPECT_GT(moved, 0);
    EXPECT_LT(moved, 200'000);
    expect_untouched();
}

TEST_F(FileCopy, of_a_file_that_shrinks_leaves_what_was_there) {
    const support::BeforeCall shrinking(Call::read, 1, [&] { EXPECT_EQ(truncate(from_.c_str(), 100), 0); });
    EXPECT_EQ(failure_of([&] { korvex::copy_file(from_, to_); }).code(), std::errc::io_error);
    expect_untouched();
}

TEST_F(FileCopy, goes_on_with_the_file_that_it_opened) {
    const std::string other = folder_.file("other", "not this one");
    const support::BeforeCall swapping(Call::read, 1, [&] { EXPECT_EQ(rename(other.c_str(), from_.c_str()), 0); });
    korvex::copy_file(from_, to_);
    EXPECT_EQ(support::read_file(to_), std::string(200'000, 'n'));
}

TEST_F(FileCopy, whose_new_file_is_taken_away_leaves_what_was_there) {
    const support::BeforeCall taking(Call::read, 1, [&] {
        for (const auto &entry : std::filesystem::directory_iterator(folder_.path()))
            if (korvex::is_temporary_name(entry.path()))
                std::filesystem::rename(from_, entry.path());
    });
    EXPECT_EQ(failure_of([&] { korvex::copy_file(from_, to_); }).code(), errc::changed_meanwhile);
    EXPECT_EQ(support::read_file(to_), "old");
}

TEST_F(FileCopy, that_may_not_give_the_owner_away_leaves_what_was_there) {
    if (!support::can_be_nobody())
        FAIL() << "this test needs root";
    ASSERT_EQ(chmod(from_.c_str(), 0644), 0);
    ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  return failure_of([&] { korvex::copy_file(from_, to_); }).code() == std::errc::operation_not_permitted
                             ? 0
                             : 1;
              }),
              0);
    expect_untouched();
}

TEST_F(FileCopy, that_is_larger_than_this_process_may_write_leaves_what_was_there) {
    EXPECT_EQ(support::in_child([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{100'000, 100'000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  return failure_of([&] { korvex::copy_file(from_, to_); }).code() == std::errc::file_too_large ? 0 : 1;
              }),
              0);
    expect_untouched();
}

TEST_F(FileCopy, to_a_full_disk_leaves_what_was_there) {
    const support::SmallDisk disk(256 << 10);
    const std::string to = disk.file("to", "old");
    disk.fill_up_to(16 << 10);
    const auto names = disk.names();
    EXPECT_EQ(failure_of([&] { korvex::copy_file(from_, to); }).code(), std::errc::no_space_on_device);
    EXPECT_EQ(support::read_file(to), "old");
    EXPECT_EQ(disk.names(), names);
}

TEST_F(FileCopy, of_a_link_is_a_link) {
    ASSERT_EQ(symlink("nowhere", folder_.path("link").c_str()), 0);
    korvex::copy_link(folder_.path("link"), folder_.path("copy"));
    EXPECT_EQ(std::filesystem::read_symlink(folder_.path("copy")), "nowhere");
    EXPECT_EQ(failure_of([&] { korvex::copy_link(folder_.path("link"), to_); }).code(), std::errc::file_exists);
    EXPECT_EQ(failure_of([&] { korvex::copy_link(from_, folder_.path("other")); }).code(), std::errc::invalid_argument);
}

}  // namespace
