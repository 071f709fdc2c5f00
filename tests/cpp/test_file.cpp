// Files read and written whole, temporary ones, and questions about paths.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <type_traits>

#include "failure_of.h"
#include "faults.h"
#include "korvex/file.hpp"
#include "sandbox.h"
#include "transaction_world.h"

namespace {

using namespace std::chrono_literals;
using korvex::errc;
using support::failure_of;
using testing::ElementsAre;
using testing::HasSubstr;

static_assert(!std::is_copy_constructible_v<korvex::temporary_file>);
static_assert(std::is_nothrow_move_constructible_v<korvex::temporary_file>);

constexpr uid_t kSomebody = 1234;

class File : public testing::Test {
  protected:
    support::TempFolder folder_;
};

TEST_F(File, is_read_whole_with_every_byte) {
    const std::string text("a\0b\n\xff", 5);
    EXPECT_EQ(korvex::read_file(folder_.file("bytes", text)), text);
    EXPECT_EQ(korvex::read_file(folder_.file("empty", "")), "");
    EXPECT_THAT(korvex::read_file("/proc/self/status"), HasSubstr("Pid:"));
}

TEST_F(File, of_any_size_is_read) {
    const std::string path = folder_.file("large", "");
    constexpr off_t size = (off_t{64} << 20U) + 1;
    ASSERT_EQ(truncate(path.c_str(), size), 0);
    EXPECT_EQ(korvex::read_file(path).size(), static_cast<std::size_t>(size));
}

TEST_F(File, that_is_no_file_is_not_read) {
    mkfifo(folder_.path("pipe").c_str(), 0600);
    EXPECT_EQ(failure_of([&] { korvex::read_file(folder_.path("none")); }).code(),
              std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure_of([&] { korvex::read_file(folder_.path("pipe")); }).code(), errc::not_a_regular_file);
    EXPECT_EQ(failure_of([&] { korvex::read_file("/dev/zero"); }).code(), errc::not_a_regular_file);
    EXPECT_EQ(failure_of([&] { korvex::read_file(folder_.path()); }).code(), errc::not_a_regular_file);
    EXPECT_EQ(failure_of([&] { korvex::read_file(""); }).code(), std::errc::no_such_file_or_directory);
}

TEST_F(File, behind_a_link_of_somebody_else_is_left_alone) {
    const std::string secret = folder_.file("secret", "secret");
    const std::string link = folder_.path("link");
    ASSERT_EQ(symlink(secret.c_str(), link.c_str()), 0);
    EXPECT_EQ(korvex::read_file(link), "secret");
    ASSERT_EQ(lchown(link.c_str(), kSomebody, kSomebody), 0);

    const std::string other = folder_.file("other", "other");
    EXPECT_EQ(failure_of([&] { korvex::read_file(link); }).code().value(), ELOOP);
    EXPECT_EQ(failure_of([&] { korvex::write_file(link, "new"); }).code().value(), ELOOP);
    EXPECT_EQ(failure_of([&] { korvex::copy_file(link, other); }).code().value(), ELOOP);
    EXPECT_EQ(failure_of([&] { korvex::copy_file(other, link); }).code().value(), ELOOP);
    EXPECT_EQ(support::read_file(secret), "secret");
    EXPECT_EQ(support::read_file(other), "other");
    EXPECT_THAT(folder_.names(), ElementsAre("link", "other", "secret"));
}

TEST_F(File, in_a_folder_that_can_only_be_searched_is_read) {
    if (!support::can_be_nobody())
        FAIL() << "this test needs root";
    const std::string path = folder_.file("app.conf", "text");
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    ASSERT_EQ(chmod(folder_.path().c_str(), 0711), 0);
    EXPECT_EQ(support::in_child_as_nobody([&] { return korvex::read_file(path) == "text" ? 0 : 1; }), 0);
}

TEST_F(File, is_written_whole_and_keeps_what_it_was) {
    const std::string path = folder_.file("app.conf", "old");
    transaction_world::make_special(path);
    const auto before = transaction_world::attributes_of(path);
    korvex::write_file(path, "new", {.backup = ".bak"});
    EXPECT_EQ(support::read_file(path), "new");
    EXPECT_EQ(transaction_world::attributes_of(path), before);
    EXPECT_EQ(support::read_file(path + ".bak"), "old");
    EXPECT_THAT(folder_.names(), ElementsAre("app.conf", "app.conf.bak"));
}

TEST_F(File, that_is_new_is_made_as_others_make_it) {
    const mode_t mask = umask(027);
    korvex::write_file(folder_.path("new"), "text");
    umask(mask);
    EXPECT_EQ(support::read_file(folder_.path("new")), "text");
    EXPECT_EQ(transaction_world::attributes_of(folder_.path("new")).bits, 0640U);
}

TEST_F(File, of_any_size_is_replaced) {
    const std::string path = folder_.file("large", "");
    ASSERT_EQ(truncate(path.c_str(), (off_t{64} << 20U) + 1), 0);
    korvex::write_file(path, "small", {.durable = false});
    EXPECT_EQ(support::read_file(path), "small");
    const std::string large((std::size_t{64} << 20U) + 1, 'x');
    korvex::write_file(path, large, {.durable = false});
    EXPECT_EQ(korvex::file_size(path), large.size());
}

TEST_F(File, behind_a_link_is_written_and_the_link_stays) {
    const std::string path = folder_.file("real", "old");
    ASSERT_EQ(symlink("real", folder_.path("link").c_str()), 0);
    korvex::write_file(folder_.path("link"), "new");
    EXPECT_EQ(support::read_file(path), "new");
    EXPECT_THAT(folder_.names(), ElementsAre("link", "real"));
    EXPECT_EQ(std::filesystem::read_symlink(folder_.path("link")), "real");
}

TEST(FileOnAFullDisk, stays_as_it_was) {
    const support::SmallDisk disk(256 << 10);
    const std::string path = disk.file("app.conf", "old");
    disk.fill_up_to(0);
    const auto names = disk.names();
    EXPECT_EQ(failure_of([&] { korvex::write_file(path, std::string(10'000, 'x')); }).code(),
              std::errc::no_space_on_device);
    EXPECT_EQ(support::read_file(path), "old");
    EXPECT_EQ(disk.names(), names);
}

TEST_F(File, larger_than_this_process_may_write_stays_as_it_was) {
    const std::string path = folder_.file("app.conf", "old");
    EXPECT_EQ(support::in_child([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{1000, 1000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  try {
                      korvex::write_file(path, std::string(2000, 'x'));
                  } catch (const korvex::error &failure) {
                      return failure.code() == std::errc::file_too_large ? 0 : 2;
                  }
                  return 1;
              }),
              0);
    EXPECT_EQ(support::read_file(path), "old");
    EXPECT_THAT(folder_.names(), ElementsAre("app.conf"));
}

TEST_F(File, is_removed_and_looked_for) {
    const std::string path = folder_.file("app.conf", "text");
    EXPECT_TRUE(korvex::exists(path));
    EXPECT_FALSE(korvex::is_folder(path));
    EXPECT_TRUE(korvex::is_folder(folder_.path()));
    EXPECT_FALSE(korvex::is_folder(path + "/below"));
    EXPECT_EQ(korvex::file_size(path), 4U);
    EXPECT_TRUE(korvex::remove_file(path));
    EXPECT_FALSE(korvex::remove_file(path));
    EXPECT_FALSE(korvex::exists(path));
    EXPECT_EQ(failure_of([&] { (void)korvex::file_size(path); }).code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure_of([&] { korvex::remove_file(folder_.path()); }).subject(), folder_.path());
}

TEST_F(File, has_a_time_before_and_after_the_epoch) {
    const std::string path = folder_.file("app.conf", "text");
    for (const auto time : {-1'500ms, 0ms, 1'706'706'245'250ms}) {
        korvex::set_modified_time(path, std::chrono::sys_time<std::chrono::nanoseconds>(time));
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        const auto found =
            std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec);
        EXPECT_EQ(found, time);
    }
}

TEST_F(File, tells_its_path_by_its_descriptor) {
    const std::string path = folder_.file("app.conf", "text");
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(korvex::path_of(file), std::filesystem::canonical(path).native());
    close(file);
    EXPECT_EQ(korvex::path_of(file), std::nullopt);
    EXPECT_EQ(korvex::path_of(-1), std::nullopt);
}

TEST_F(File, under_a_temporary_name_goes_unless_it_is_kept) {
    std::string kept;
    {
        korvex::temporary_file first(folder_.path("app.conf"));
        korvex::temporary_file second(folder_.path("app.conf"));
        EXPECT_TRUE(korvex::is_temporary_name(first.path()));
        EXPECT_NE(first.path(), second.path());
        EXPECT_EQ(write(second.descriptor(), "kept", 4), 4);
        korvex::temporary_file moved = std::move(first);
        EXPECT_EQ(folder_.names().size(), 2U);
        kept = second.keep();
    }
    ASSERT_EQ(folder_.names().size(), 1U);
    EXPECT_EQ(support::read_file(kept), "kept");
    EXPECT_FALSE(korvex::is_temporary_name(folder_.path("app.conf")));
    EXPECT_EQ(failure_of([&] { const korvex::temporary_file none(folder_.path("no/such")); }).code(),
              std::errc::no_such_file_or_directory);
}

}  // namespace
