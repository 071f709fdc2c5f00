// A commit whose system calls fail, one kind after the other: the old file stays, or the words say that the new one is
// there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "failure_of.h"
#include "korvex/conf.hpp"
#include "lock_content.h"
#include "refused_call.h"
#include "sandbox.h"
#include "transaction_world.h"

namespace {

// Which of the next calls of `fsync` fails; 0: none.
thread_local int g_failing_sync = 0;

}  // namespace

// Stands before libc's own.
extern "C" int fsync(int file) {
    if (g_failing_sync > 0 && --g_failing_sync == 0) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fsync, file));
}

namespace {

namespace conf = korvex::conf;
namespace world = transaction_world;
using korvex::errc;
using support::failure_of;
using testing::HasSubstr;

constexpr const char *kText = "[s]\r\nk = old\r\n";

class CommitFailure : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
        support::empty_lock_folder();
        support::write_file(path_, kText);
        world::make_special(path_);
    }

    support::SmallDisk folder_{1 << 20};
    const std::string path_ = folder_.path("app.conf");
};

TEST_F(CommitFailure, of_each_call_leaves_the_old_file) {
    struct Row {
        const char *name;
        unsigned call;
        errc code;
    };
    constexpr auto io = static_cast<errc>(EIO);
    const Row table[] = {
        {"pwrite", SYS_pwrite64, io},
        {"pread", SYS_pread64, io},
        {"ftruncate", SYS_ftruncate, io},
        {"fchown", SYS_fchown, errc::not_carried_over},
        {"fsetxattr", SYS_fsetxattr, errc::not_carried_over},
        {"flistxattr", SYS_flistxattr, errc::not_carried_over},
        {"fgetxattr", SYS_fgetxattr, errc::not_carried_over},
        {"fsync", SYS_fsync, io},
        {"linkat", SYS_linkat, io},
        {"renameat", SYS_renameat, io},
        {"readlink", SYS_readlink, io},
    };
    const world::Attributes before = world::attributes_of(path_);
    for (const Row &row : table) {
        SCOPED_TRACE(row.name);
        const int status = support::in_child([&] {
            if (!support::refuse_system_call(row.call, EIO))
                return 2;
            const korvex::error failure = failure_of([&] { conf::set(path_, "s", "k", "new", {.backup = "~"}); });
            EXPECT_EQ(failure.code(), row.code) << failure.what();
            EXPECT_THAT(failure.what(), HasSubstr("not everything could be read or written"));
            return testing::Test::HasFailure() ? 1 : 0;
        });
        EXPECT_EQ(status, 0);
        EXPECT_EQ(support::read_file(path_), kText);
        EXPECT_EQ(world::attributes_of(path_), before);
        EXPECT_EQ(world::leftovers(folder_), std::vector<std::string>());
        EXPECT_TRUE(std::filesystem::is_empty("/var/lock"));
    }
}

TEST_F(CommitFailure, to_bring_the_copy_to_the_disk_can_be_tried_again) {
    conf::transaction edit(path_);
    edit.set("s", "k", "new");
    g_failing_sync = 1;
    EXPECT_EQ(failure_of([&] { edit.commit(); }).code(), std::errc::io_error);
    EXPECT_EQ(support::read_file(path_), kText);
    edit.commit();
    EXPECT_EQ(conf::get(path_, "s", "k"), "new");
}

TEST_F(CommitFailure, to_bring_the_folder_to_the_disk_says_that_the_new_text_is_there) {
    conf::transaction edit(path_);
    edit.set("s", "k", "new");
    g_failing_sync = 2;
    const korvex::error failure = failure_of([&] { edit.commit(); });
    EXPECT_EQ(failure.code(), std::errc::io_error);
    EXPECT_THAT(failure.what(), HasSubstr("the new text is in place"));
    EXPECT_EQ(conf::get(path_, "s", "k"), "new");
    EXPECT_EQ(failure_of([&] { edit.commit(); }).code(), std::errc::invalid_argument) << "it is over";
    EXPECT_TRUE(std::filesystem::is_empty("/var/lock"));
}

}  // namespace
