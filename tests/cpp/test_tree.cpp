// Folder trees: what copies and removals report, and that what is stopped says so.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

#include "failure_of.h"
#include "faults.h"
#include "korvex/tree.hpp"
#include "lease_holder.h"
#include "refused_call.h"
#include "sandbox.h"
#include "transaction_world.h"

namespace {

using korvex::errc;
using support::BeforeCall;
using support::Call;
using support::failure_of;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;
namespace world = transaction_world;

class Tree : public testing::Test {
  protected:
    Tree() {
        fs::create_directories(from_ + "/sub/deep");
        support::write_file(from_ + "/file", "text");
        support::write_file(from_ + "/sub/deep/file", "deep text");
        fs::create_symlink("nowhere", from_ + "/link");
        chmod(folder_.path().c_str(), 0755);
    }
    // "name: reason" of each entry, without the folder of the test.
    std::vector<std::string> texts(const korvex::tree_report &report) const {
        std::vector<std::string> lines;
        for (const korvex::left_out &entry : report.entries)
            lines.push_back(entry.path.substr(folder_.path().size() + 1) + ": " + entry.reason);
        return lines;
    }

    support::TempFolder folder_;
    const std::string from_ = folder_.path("from");
    const std::string to_ = folder_.path("to");
};

using LayerTreeCopy = Tree;
using TreeRemoval = Tree;

TEST_F(LayerTreeCopy, waits_for_a_lease_as_a_plain_open_does) {
    LeaseHolder holder(from_ + "/file");
    EXPECT_TRUE(korvex::copy_tree(from_, to_).complete());
    EXPECT_EQ(support::read_file(to_ + "/file"), "text");
    holder.expect_asked();
}

TEST_F(Tree, is_measured) {
    const korvex::tree_state state = korvex::measure_tree(from_);
    EXPECT_EQ(state.files, 3U);
    EXPECT_EQ(state.folders, 3U);
    EXPECT_EQ(state.bytes, 4U + 9U + 7U);
    EXPECT_EQ(failure_of([&] { (void)korvex::measure_tree(to_); }).code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure_of([&] { (void)korvex::measure_tree(from_ + "/file"); }).code(), std::errc::not_a_directory);
}

TEST_F(Tree, whose_measuring_is_stopped_has_no_measure) {
    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(failure_of([&] { (void)korvex::measure_tree(from_, source.get_token()); }).code(),
              std::errc::operation_canceled);
}

TEST_F(LayerTreeCopy, that_is_whole_says_so) {
    const korvex::tree_report report = korvex::copy_tree(from_, to_, {.stop = {}, .durable = true});
    EXPECT_TRUE(report.complete());
    EXPECT_EQ(support::read_file(to_ + "/sub/deep/file"), "deep text");
    EXPECT_EQ(fs::read_symlink(to_ + "/link"), "nowhere");
}

TEST_F(LayerTreeCopy, names_what_it_never_copies) {
    ASSERT_EQ(mkfifo((from_ + "/sub/pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod((from_ + "/device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (from_ + "/sub/deep/socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);

    const korvex::tree_report report = korvex::copy_tree(from_, to_);
    EXPECT_THAT(texts(report), UnorderedElementsAre("from/sub/pipe: it is a pipe", "from/device: it is a device",
                                                    "from/sub/deep/socket: it is a socket"));
    for (const korvex::left_out &entry : report.entries)
        EXPECT_EQ(entry.code, errc::not_a_regular_file);
    EXPECT_FALSE(report.complete());
    EXPECT_EQ(support::read_file(to_ + "/sub/deep/file"), "deep text");
    close(listener);
}

TEST_F(LayerTreeCopy, names_the_folders_that_it_could_not_read) {
    if (!support::can_be_nobody())
        FAIL() << "this test needs root";
    ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  fs::create_directories(folder_.path("own/open"));
                  fs::create_directories(folder_.path("own/closed/below"));
                  support::write_file(folder_.path("own/open/file"), "text");
                  chmod(folder_.path("own/closed").c_str(), 0);
                  const korvex::tree_report report = korvex::copy_tree(folder_.path("own"), folder_.path("copy"));
                  EXPECT_THAT(texts(report), ElementsAre("own/closed: permission denied"));
                  EXPECT_EQ(report.entries.at(0).code, std::errc::permission_denied);
                  EXPECT_EQ(support::read_file(folder_.path("copy/open/file")), "text");
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(LayerTreeCopy, merges_and_refuses_before_it_begins) {
    fs::create_directories(to_ + "/sub");
    support::write_file(to_ + "/file", "old");
    const korvex::error failure = failure_of([&] { korvex::copy_tree(from_, to_); });
    EXPECT_EQ(failure.code(), std::errc::file_exists);
    EXPECT_EQ(failure.subject(), from_ + "/sub");
    EXPECT_EQ(failure.reason(), to_ + "/sub is in the way");
    EXPECT_EQ(support::read_file(to_ + "/file"), "old") << "nothing was copied";

    fs::remove(to_ + "/sub");
    support::write_file(to_ + "/other", "stays");
    EXPECT_TRUE(korvex::copy_tree(from_, to_).complete());
    EXPECT_EQ(support::read_file(to_ + "/file"), "text");
    EXPECT_EQ(support::read_file(to_ + "/other"), "stays");
}

TEST_F(LayerTreeCopy, that_fails_names_the_entry) {
    const support::SmallDisk disk(64 << 10);
    support::write_file(from_ + "/sub/large", std::string(100'000, 'x'));
    const korvex::error failure = failure_of([&] { korvex::copy_tree(from_, disk.path("to")); });
    EXPECT_EQ(failure.code(), std::errc::no_space_on_device);
    EXPECT_EQ(failure.subject(), from_ + "/sub/large");
}

TEST_F(LayerTreeCopy, into_itself_or_of_no_folder_is_refused) {
    EXPECT_EQ(failure_of([&] { korvex::copy_tree(from_, from_ + "/sub/copy"); }).code(), std::errc::invalid_argument);
    EXPECT_EQ(failure_of([&] { korvex::copy_tree(from_ + "/file", to_); }).code(), std::errc::not_a_directory);
    EXPECT_EQ(failure_of([&] { korvex::copy_tree(folder_.path("none"), to_); }).code(),
              std::errc::no_such_file_or_directory);
    EXPECT_FALSE(support::exists(to_));
}

TEST_F(LayerTreeCopy, that_is_stopped_is_never_taken_for_done) {
    std::stop_source early;
    early.request_stop();
    EXPECT_EQ(failure_of([&] { korvex::copy_tree(from_, to_, {.stop = early.get_token()}); }).code(),
              std::errc::operation_canceled);
    for (const Call call : {Call::openat, Call::readdir, Call::write}) {
        fs::remove_all(to_);
        std::stop_source source;
        const BeforeCall stopping(call, 2, [&] { source.request_stop(); });
        EXPECT_EQ(failure_of([&] { korvex::copy_tree(from_, to_, {.stop = source.get_token()}); }).code(),
                  std::errc::operation_canceled);
        EXPECT_TRUE(stopping.ran());
    }
}

TEST_F(LayerTreeCopy, leaves_out_a_file_that_it_may_not_read_and_goes_on) {
    if (!support::can_be_nobody())
        FAIL() << "this test needs root";
    ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  fs::create_directories(folder_.path("own/fixed"));
                  support::write_file(folder_.path("own/closed"), "text");
                  support::write_file(folder_.path("own/fixed/open"), "text");
                  chmod(folder_.path("own/closed").c_str(), 0);
                  chmod(folder_.path("own/fixed").c_str(), 0500);
                  EXPECT_THAT(texts(korvex::copy_tree(folder_.path("own"), folder_.path("copy"))),
                              ElementsAre("own/closed: permission denied"));
                  EXPECT_EQ(support::read_file(folder_.path("copy/fixed/open")), "text");
                  EXPECT_EQ(fs::status(folder_.path("copy/fixed")).permissions(), fs::perms{0500});
                  EXPECT_FALSE(support::exists(folder_.path("copy/closed")));
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(LayerTreeCopy, of_something_else_than_was_found_is_none) {
    support::write_file(folder_.path("secret"), "secret");
    const BeforeCall swapping(Call::openat, 0, [&](const support::Arguments &arguments) {
        if (arguments.at<const char *>(1) == std::string("file"))
            rename(folder_.path("secret").c_str(), (from_ + "/file").c_str());
    });
    const korvex::tree_report report = korvex::copy_tree(from_, to_);
    ASSERT_EQ(report.entries.size(), 1U);
    EXPECT_EQ(report.entries[0].path, from_ + "/file");
    EXPECT_EQ(report.entries[0].code, errc::changed_meanwhile);
    EXPECT_FALSE(support::exists(to_ + "/file"));
}

TEST_F(LayerTreeCopy, leaves_out_a_file_that_is_cut_meanwhile) {
    support::write_file(from_ + "/file", std::string(100'000, 'x'));
    const BeforeCall cutting(Call::read, 0, [&] { EXPECT_EQ(truncate((from_ + "/file").c_str(), 10), 0); });
    const korvex::tree_report report = korvex::copy_tree(from_, to_);
    EXPECT_THAT(texts(report), ElementsAre("from/file: it became shorter meanwhile"));
    EXPECT_FALSE(support::exists(to_ + "/file"));
    EXPECT_EQ(support::read_file(to_ + "/sub/deep/file"), "deep text");
}

TEST_F(LayerTreeCopy, does_not_work_in_a_folder_that_took_the_place_of_a_new_one) {
    fs::create_directories(folder_.path("other"));
    support::write_file(folder_.path("other/file"), "text");
    bool is_swapped = false;
    const BeforeCall swapping(Call::opendir, 0, [&](const support::Arguments &arguments) {
        if (is_swapped || arguments.at<const char *>(1) != std::string("sub") || !support::exists(to_ + "/sub"))
            return;
        is_swapped = true;
        EXPECT_EQ(rename((to_ + "/sub").c_str(), folder_.path("away").c_str()), 0) << strerror(errno);
        EXPECT_EQ(rename(folder_.path("other").c_str(), (to_ + "/sub").c_str()), 0) << strerror(errno);
    });
    const korvex::error failure = failure_of([&] { korvex::copy_tree(from_, to_); });
    EXPECT_EQ(failure.code(), errc::changed_meanwhile) << failure.what();
    EXPECT_TRUE(is_swapped);
    EXPECT_EQ(support::read_file(to_ + "/sub/file"), "text") << "nothing was done in it";
}

TEST_F(LayerTreeCopy, gives_each_folder_its_bits_owner_and_time) {
    const timespec times[] = {{100, 0}, {200, 250}};
    for (const char *name : {"", "/sub", "/sub/deep"}) {
        ASSERT_EQ(chown((from_ + name).c_str(), 1234, 4321), 0);
        ASSERT_EQ(chmod((from_ + name).c_str(), 02551), 0);
        ASSERT_EQ(utimensat(AT_FDCWD, (from_ + name).c_str(), times, 0), 0);
    }
    EXPECT_TRUE(korvex::copy_tree(from_, to_).complete());
    for (const char *name : {"", "/sub", "/sub/deep"}) {
        struct stat status {};
        ASSERT_EQ(lstat((to_ + name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 02551U) << name;
        EXPECT_EQ(status.st_uid, 1234U);
        EXPECT_EQ(status.st_gid, 4321U);
        EXPECT_EQ(status.st_mtim.tv_sec, 200);
        EXPECT_EQ(status.st_mtim.tv_nsec, 250);
    }
}

TEST_F(LayerTreeCopy, that_is_stopped_leaves_folders_as_others_may_see_them) {
    ASSERT_EQ(chmod((from_ + "/sub").c_str(), 0751), 0);
    std::stop_source source;
    const BeforeCall stopping(Call::write, 2, [&] { source.request_stop(); });
    EXPECT_THROW(korvex::copy_tree(from_, to_, {.stop = source.get_token()}), korvex::error);
    EXPECT_EQ(fs::status(to_ + "/sub").permissions(), fs::perms{0751});
}

// One file of several names, one with an access list and an attribute, and one with a privilege.
class SpecialTree : public Tree {
  protected:
    void SetUp() override {
        world::make_special(source("file"));
        ASSERT_EQ(chmod(source("sub/deep/file").c_str(), 04755), 0);
        ASSERT_EQ(link(source("sub/deep/file").c_str(), source("again").c_str()), 0);
        const std::string list = world::access_list_for(2345);
        ASSERT_EQ(setxattr(source("sub").c_str(), "system.posix_acl_default", list.data(), list.size(), 0), 0);
    }
    std::string source(const std::string &name) const { return disk_.path("from/" + name); }
    std::string copy(const std::string &name) const { return disk_.path("to/" + name); }
    korvex::tree_report copied(korvex::preserve keep) const {
        return korvex::copy_tree(disk_.path("from"), disk_.path("to"),
                                 {.stop = {}, .durable = false, .keep = keep, .progress = nullptr});
    }
    static nlink_t links_of(const std::string &path) {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status.st_nlink;
    }

    SpecialTree() {
        fs::copy(from_, disk_.path("from"), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
    support::SmallDisk disk_{1 << 20};
};

TEST_F(SpecialTree, is_counted_by_a_usual_copy) {
    const korvex::tree_report report = copied(korvex::preserve::usual);
    EXPECT_TRUE(report.complete());
    EXPECT_EQ(report.lost.access_lists, 2U);
    EXPECT_EQ(report.lost.attributes, 1U);
    EXPECT_EQ(report.lost.set_id_bits, 2U);
    EXPECT_EQ(report.lost.hard_links, 1U);
    EXPECT_EQ(links_of(copy("again")), 1U);
    EXPECT_EQ(world::attributes_of(copy("again")).bits, 0755U);
    EXPECT_EQ(world::attributes_of(copy("file")).note, "none");
}

TEST_F(SpecialTree, is_the_same_in_a_copy_that_preserves_all) {
    const korvex::tree_report report = copied(korvex::preserve::all);
    EXPECT_TRUE(report.complete());
    EXPECT_FALSE(report.lost.any());
    for (const char *name : {"file", "sub", "sub/deep", "sub/deep/file", "again"})
        EXPECT_EQ(world::attributes_of(copy(name)), world::attributes_of(source(name))) << name;
    EXPECT_EQ(world::extended(copy("sub"), "system.posix_acl_default"), world::access_list_for(2345));
    EXPECT_EQ(links_of(copy("again")), 2U);
    EXPECT_TRUE(fs::equivalent(copy("again"), copy("sub/deep/file")));
}

TEST_F(SpecialTree, replaces_old_files_by_links_to_each_other) {
    fs::create_directory(disk_.path("to"));
    support::write_file(copy("again"), "old");
    support::write_file(copy("file"), "old");
    fs::remove(source("file"));
    fs::create_hard_link(source("again"), source("file"));
    EXPECT_TRUE(copied(korvex::preserve::all).complete());
    EXPECT_EQ(links_of(copy("again")), 3U);
    EXPECT_TRUE(fs::equivalent(copy("again"), copy("file")));
    EXPECT_EQ(support::read_file(copy("again")), "deep text");
}

TEST_F(SpecialTree, names_what_can_not_be_carried) {
    EXPECT_EQ(support::in_child([&] {
                  if (!support::refuse_system_call(SYS_fsetxattr, EOPNOTSUPP))
                      return 2;
                  const korvex::tree_report report = copied(korvex::preserve::all);
                  EXPECT_EQ(report.entries.size(), 2U);
                  for (const korvex::left_out &entry : report.entries) {
                      EXPECT_EQ(entry.code, errc::not_carried_over);
                      EXPECT_THAT(entry.reason, testing::StartsWith("the copy can't be given its attribute "));
                  }
                  EXPECT_EQ(support::read_file(copy("file")), "text");
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(LayerTreeCopy, keeps_holes_and_counts_them_as_done) {
    const support::SmallDisk disk(1 << 20);
    support::write_file(from_ + "/sparse", "begin");
    ASSERT_EQ(truncate((from_ + "/sparse").c_str(), off_t{1} << 40), 0);
    std::atomic<std::int64_t> done = 0;
    EXPECT_TRUE(korvex::copy_tree(from_, disk.path("to"),
                                  {.stop = {}, .durable = false, .keep = korvex::preserve::usual, .progress = &done})
                    .complete());
    struct stat status {};
    ASSERT_EQ(stat(disk.path("to/sparse").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, off_t{1} << 40);
    EXPECT_LT(status.st_blocks, 100);
    EXPECT_EQ(done, (std::int64_t{1} << 40) + 4 + 9 + 7);
}

TEST_F(LayerTreeCopy, that_fails_in_a_file_leaves_the_old_one) {
    const support::SmallDisk disk(64 << 10);
    fs::create_directory(disk.path("to"));
    support::write_file(disk.path("to/large"), "old");
    support::write_file(from_ + "/large", std::string(100'000, 'x'));
    EXPECT_THROW(korvex::copy_tree(from_, disk.path("to")), korvex::error);
    EXPECT_EQ(support::read_file(disk.path("to/large")), "old");
}

TEST_F(LayerTreeCopy, of_a_tree_that_is_deeper_than_descriptors_reach_is_looked_through) {
    std::string deep = from_;
    for (int i = 0; i < 150; i++)
        deep += "/d";
    fs::create_directories(deep);
    ASSERT_EQ(mkfifo((deep + "/pipe").c_str(), 0600), 0);
    EXPECT_EQ(support::in_child([&] {
                  const rlimit few{64, 64};
                  setrlimit(RLIMIT_NOFILE, &few);
                  const korvex::tree_report report = korvex::copy_tree(from_, to_);
                  return report.entries.size() == 1 && report.entries[0].path == deep + "/pipe" ? 0 : 1;
              }),
              0);
}

TEST_F(TreeRemoval, takes_all_and_says_so) {
    EXPECT_TRUE(korvex::remove_tree(from_).complete());
    EXPECT_THAT(folder_.names(), IsEmpty());
    EXPECT_EQ(failure_of([&] { korvex::remove_tree(from_); }).code(), std::errc::no_such_file_or_directory);
}

TEST_F(TreeRemoval, takes_a_link_and_not_what_it_leads_to) {
    fs::create_directory_symlink(from_, folder_.path("to_folder"));
    EXPECT_TRUE(korvex::remove_tree(folder_.path("to_folder/")).complete());
    EXPECT_THAT(folder_.names(), ElementsAre("from"));
    EXPECT_TRUE(korvex::remove_tree(from_ + "/file").complete());
    EXPECT_EQ(korvex::measure_tree(from_).files, 2U);
}

TEST_F(TreeRemoval, refuses_what_is_no_name) {
    for (const char *path : {"", "/", "//", ".", "..", "./", "/tmp/.."})
        EXPECT_EQ(failure_of([&] { korvex::remove_tree(path); }).code(), std::errc::invalid_argument) << path;
}

TEST_F(TreeRemoval, names_what_is_left_and_why) {
    fs::create_directories(from_ + "/sub/mount");
    ASSERT_EQ(mount("none", (from_ + "/sub/mount").c_str(), "tmpfs", 0, nullptr), 0);
    support::write_file(from_ + "/sub/mount/file", "text");
    const korvex::tree_report report = korvex::remove_tree(from_);
    EXPECT_THAT(texts(report), ElementsAre("from/sub/mount: device or resource busy"));
    EXPECT_EQ(report.entries.at(0).code, std::errc::device_or_resource_busy);
    EXPECT_FALSE(support::exists(from_ + "/file"));
    umount((from_ + "/sub/mount").c_str());
    EXPECT_TRUE(korvex::remove_tree(from_).complete());
}

TEST_F(TreeRemoval, names_what_may_not_be_removed) {
    if (!support::can_be_nobody())
        FAIL() << "this test needs root";
    ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  fs::create_directories(folder_.path("own/fixed"));
                  fs::create_directories(folder_.path("own/hidden/below"));
                  support::write_file(folder_.path("own/fixed/file"), "text");
                  support::write_file(folder_.path("own/file"), "text");
                  chmod(folder_.path("own/fixed").c_str(), 0500);
                  chmod(folder_.path("own/hidden").c_str(), 0);
                  EXPECT_THAT(
                      texts(korvex::remove_tree(folder_.path("own"))),
                      UnorderedElementsAre("own/fixed/file: permission denied", "own/hidden: permission denied"));
                  EXPECT_FALSE(support::exists(folder_.path("own/file")));
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(TreeRemoval, that_is_stopped_says_so) {
    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(failure_of([&] { korvex::remove_tree(from_, source.get_token()); }).code(),
              std::errc::operation_canceled);
    EXPECT_TRUE(support::exists(from_));
}

TEST_F(Tree, leaves_no_descriptor_open) {
    const auto before = support::open_descriptors();
    mkfifo((from_ + "/sub/pipe").c_str(), 0600);
    korvex::copy_tree(from_, to_);
    EXPECT_THROW(korvex::copy_tree(from_, to_), korvex::error);
    korvex::remove_tree(to_);
    EXPECT_EQ(support::open_descriptors(), before);
}

}  // namespace
